// Functions whose arguments, records, constants and results are the same on both systems for every
// use that compiles on both. Whoever adds one has compared the two manuals.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

// After the others: it declares its functions with C linkage and without their types.
#include <editline/readline.h>

#include "machorun/shim.h"

extern "C" [[noreturn]] void __stack_chk_fail(void);

namespace {

// Standard streams are pointers in the C library's data there.
FILE* StandardInput  = stdin;
FILE* StandardOutput = stdout;

uint64_t StackGuard = 0xA5C3960F00D1E7B2;

// Lists of pointers to bind at the first call are bound at once here, so nobody comes by.
[[noreturn]] void StubBinder() {
  Unknown("dyld_stub_binder was called");
}

void ZeroBytes(void* p, size_t Length) {
  memset(p, 0, Length);
}

#define SAME(Name) Bound("_" #Name, &(Name))

const Shim Table[] = {
    // memory and text
    SAME(memcpy),
    SAME(memmove),
    SAME(memset),
    SAME(memcmp),
    Bound("___bzero", &ZeroBytes),
    SAME(strlen),
    SAME(strnlen),
    SAME(strcmp),
    SAME(strncmp),
    SAME(strcpy),
    Bound<char*(char*, int)>("_strchr", &strchr),
    Bound<char*(char*, int)>("_strrchr", &strrchr),
    Bound<char*(char*, const char*)>("_strstr", &strstr),
    SAME(strspn),
    // allocation, process end
    SAME(malloc),
    SAME(realloc),
    SAME(free),
    SAME(abort),
    SAME(exit),
    // environment
    SAME(getenv),
    SAME(setenv),
    SAME(unsetenv),
    // formatted and stream output and input; a va_list is the same record
    SAME(printf),
    SAME(vprintf),
    SAME(snprintf),
    SAME(puts),
    SAME(fputs),
    SAME(fwrite),
    SAME(fread),
    SAME(fflush),
    SAME(getchar),
    SAME(fopen),
    SAME(fclose),
    SAME(setvbuf),
    {"___stdinp", &StandardInput},
    {"___stdoutp", &StandardOutput},
    // descriptors and files; a path is a path
    SAME(read),
    SAME(write),
    SAME(ftruncate),
    SAME(unlink),
    SAME(rmdir),
    SAME(mkdir),
    SAME(chmod),
    SAME(symlink),
    SAME(readlink),
    SAME(mkstemp),
    SAME(mkdtemp),
    SAME(dup),
    SAME(dup2),
    SAME(munmap),
    SAME(grantpt),
    SAME(unlockpt),
    SAME(ptsname),
    // identity
    SAME(getpid),
    // calendar; a timeval's padding is harmless where it is only written
    SAME(time),
    SAME(tzset),
    SAME(localtime_r),
    SAME(gmtime_r),
    Bound<int(struct timeval*, void*)>("_gettimeofday", &gettimeofday),
    // sockets: calls without addresses or options
    SAME(listen),
    SAME(shutdown),
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
