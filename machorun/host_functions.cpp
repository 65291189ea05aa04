// SPDX-License-Identifier: MIT

// Functions whose arguments, records, constants and results are the same on both systems for every
// use that compiles on both. Compare the two manuals before adding one.

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

// Included last: it declares its functions with C linkage and without their types.
#include <editline/readline.h>

#include "machorun/shim.h"

extern "C" [[noreturn]] void __stack_chk_fail(void);

namespace {

// On Darwin the standard streams are pointers in the C library's data.
FILE* StandardInput  = stdin;
FILE* StandardOutput = stdout;

uint64_t StackGuard = 0xA5C3960F00D1E7B2;

// The program would call this to bind a pointer at its first use. The loader has bound all of them.
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
    SAME(strcspn),
    Bound<void*(void*, int, size_t)>("_memchr", &memchr),
    // allocation, process end
    SAME(calloc),
    SAME(malloc),
    SAME(realloc),
    SAME(free),
    SAME(abort),
    SAME(exit),
    SAME(_exit),
    // environment
    SAME(getenv),
    SAME(setenv),
    SAME(unsetenv),
    // formatted and stream output and input; a va_list is the same record
    SAME(printf),
    SAME(vprintf),
    SAME(snprintf),
    SAME(vsnprintf),
    SAME(fprintf),
    SAME(vfprintf),
    SAME(puts),
    SAME(fputs),
    SAME(fputc),
    SAME(ferror),
    SAME(fwrite),
    SAME(fread),
    SAME(fflush),
    SAME(getchar),
    SAME(fdopen),
    SAME(fopen),
    SAME(fclose),
    SAME(setvbuf),
    {"___stdinp", &StandardInput},
    {"___stdoutp", &StandardOutput},
    // descriptors and files
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
    SAME(pipe),
    SAME(access),
    SAME(munmap),
    SAME(grantpt),
    SAME(unlockpt),
    SAME(ptsname),
    // processes; a program that is started is one of this system
    SAME(getpid),
    SAME(fork),
    SAME(setsid),
    SAME(execv),
    // calendar; the padding of a timeval does not matter where it is only written
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
    // called by compiled code
    {"___stack_chk_guard", &StackGuard},
    SAME(__stack_chk_fail),
    Bound("dyld_stub_binder", &StubBinder),
};

}  // namespace

std::span<const Shim> HostFunctions() {
  return Table;
}
