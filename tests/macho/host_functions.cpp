// Functions whose arguments, records, constants and results are the same on both systems for every
// use that compiles on both. Whoever adds one has compared the two manuals.

#include <arpa/inet.h>
#include <ctype.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

// After the others: it declares its functions with C linkage and without their types.
#include <editline/readline.h>

#include "tests/macho/shim.h"

extern "C" {
int __sprintf_chk(char* p, int Flag, size_t Size, const char* sFormat, ...);
int __snprintf_chk(char* p, size_t Max, int Flag, size_t Size, const char* sFormat, ...);
int __vsnprintf_chk(char* p, size_t Max, int Flag, size_t Size, const char* sFormat, va_list Args);
char*             __strcpy_chk(char* p, const char* s, size_t Size);
char*             __strcat_chk(char* p, const char* s, size_t Size);
char*             __strncpy_chk(char* p, const char* s, size_t Length, size_t Size);
void*             __memcpy_chk(void* p, const void* s, size_t Length, size_t Size);
void*             __memset_chk(void* p, int Value, size_t Length, size_t Size);
int               __cxa_atexit(void (*pf)(void*), void* pArg, void* pDso);
[[noreturn]] void __stack_chk_fail(void);
}

namespace {

// Standard streams are pointers in the C library's data there.
FILE* StandardInput  = stdin;
FILE* StandardOutput = stdout;
FILE* StandardError  = stderr;

uint64_t StackGuard = 0xA5C3960F00D1E7B2;

// Lists of pointers to bind at the first call are bound at once here, so nobody comes by.
[[noreturn]] void StubBinder() {
  Unknown("dyld_stub_binder was called");
}

void ZeroBytes(void* p, size_t Length) {
  memset(p, 0, Length);
}

size_t CopyBounded(char* pTo, const char* sFrom, size_t Size) {
  const size_t Length = strlen(sFrom);
  if (Size != 0) {
    const size_t Fits = Length < Size ? Length : Size - 1;
    memcpy(pTo, sFrom, Fits);
    pTo[Fits] = 0;
  }
  return Length;
}

size_t AppendBounded(char* pTo, const char* sFrom, size_t Size) {
  const size_t Used = strnlen(pTo, Size);
  return Used == Size ? Size + strlen(sFrom) : Used + CopyBounded(pTo + Used, sFrom, Size - Used);
}

#define SAME(Name) Bound("_" #Name, &Name)

const Shim Table[] = {
    // memory and text
    SAME(memcpy),
    SAME(memmove),
    SAME(memset),
    SAME(memcmp),
    Bound<void*(void*, int, size_t)>("_memchr", &memchr),
    SAME(bcmp),
    Bound("_bzero", &ZeroBytes),
    Bound("___bzero", &ZeroBytes),
    SAME(strlen),
    SAME(strnlen),
    SAME(strcmp),
    SAME(strncmp),
    SAME(strcasecmp),
    SAME(strncasecmp),
    SAME(strcpy),
    SAME(strncpy),
    SAME(strcat),
    SAME(strncat),
    SAME(strdup),
    SAME(strtol),
    SAME(strtoul),
    SAME(strtoll),
    SAME(strtoull),
    SAME(strtod),
    SAME(atoi),
    Bound<char*(char*, int)>("_strchr", &strchr),
    Bound<char*(char*, int)>("_strrchr", &strrchr),
    Bound<char*(char*, const char*)>("_strstr", &strstr),
    SAME(strspn),
    SAME(strcspn),
    Bound<char*(char*, const char*)>("_strpbrk", &strpbrk),
    SAME(strtok_r),
    Bound("_strlcpy", &CopyBounded),
    Bound("_strlcat", &AppendBounded),
    SAME(__strcpy_chk),
    SAME(__strcat_chk),
    SAME(__strncpy_chk),
    SAME(__memcpy_chk),
    SAME(__memset_chk),
    SAME(tolower),
    SAME(toupper),
    // allocation, process end, sorting
    SAME(malloc),
    SAME(calloc),
    SAME(realloc),
    SAME(free),
    SAME(abort),
    SAME(exit),
    SAME(_exit),
    SAME(atexit),
    SAME(__cxa_atexit),
    SAME(qsort),
    SAME(bsearch),
    SAME(rand),
    SAME(srand),
    // environment
    SAME(getenv),
    SAME(setenv),
    SAME(unsetenv),
    // formatted and stream output and input; a va_list is the same record
    SAME(printf),
    SAME(fprintf),
    SAME(vprintf),
    SAME(vfprintf),
    SAME(sprintf),
    SAME(snprintf),
    SAME(vsnprintf),
    SAME(vsprintf),
    SAME(__sprintf_chk),
    SAME(__snprintf_chk),
    SAME(__vsnprintf_chk),
    SAME(puts),
    SAME(putchar),
    SAME(fputs),
    SAME(fputc),
    SAME(fwrite),
    SAME(fread),
    SAME(fflush),
    SAME(getchar),
    SAME(fgetc),
    SAME(fgets),
    SAME(fopen),
    SAME(fclose),
    SAME(fseek),
    SAME(ftell),
    SAME(setvbuf),
    SAME(setbuf),
    SAME(fileno),
    SAME(sscanf),
    {"___stdinp", &StandardInput},
    {"___stdoutp", &StandardOutput},
    {"___stderrp", &StandardError},
    // descriptors and files; a path is a path
    SAME(read),
    SAME(write),
    SAME(pread),
    SAME(pwrite),
    SAME(lseek),
    SAME(ftruncate),
    SAME(truncate),
    SAME(unlink),
    SAME(rmdir),
    SAME(mkdir),
    SAME(chmod),
    SAME(fchmod),
    SAME(rename),
    SAME(link),
    SAME(symlink),
    SAME(readlink),
    SAME(mkstemp),
    SAME(mkdtemp),
    SAME(access),
    SAME(getcwd),
    SAME(chdir),
    SAME(remove),
    SAME(pipe),
    SAME(dup),
    SAME(dup2),
    SAME(fsync),
    SAME(munmap),
    SAME(umask),
    SAME(isatty),
    SAME(grantpt),
    SAME(unlockpt),
    SAME(ptsname),
    Bound<char*(const char*, char*)>("_realpath$DARWIN_EXTSN", &realpath),
    // identity
    SAME(getpid),
    SAME(getppid),
    SAME(getuid),
    SAME(geteuid),
    SAME(getgid),
    // calendar; struct tm and timespec are the same, and the padding of a timeval is harmless where
    // it is only written
    SAME(time),
    SAME(localtime_r),
    SAME(gmtime_r),
    SAME(mktime),
    SAME(timegm),
    SAME(tzset),
    Bound<int(struct timeval*, void*)>("_gettimeofday", &gettimeofday),
    SAME(strftime),
    // threads: calls without a pthread object, and a thread's identity
    SAME(sched_yield),
    SAME(pthread_self),
    SAME(pthread_exit),
    SAME(pthread_testcancel),
    // sockets: byte order and calls without addresses or options
    SAME(htonl),
    SAME(htons),
    SAME(ntohl),
    SAME(ntohs),
    SAME(listen),
    SAME(shutdown),
    SAME(inet_addr),
    SAME(inet_ntoa),
    // line editor
    SAME(readline),
    SAME(add_history),
    // the compiler's own
    {"___stack_chk_guard", &StackGuard},
    SAME(__stack_chk_fail),
    Bound("dyld_stub_binder", &StubBinder),
};

}  // namespace

std::span<const Shim> HostFunctions() {
  return Table;
}
