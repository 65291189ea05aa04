// SPDX-License-Identifier: MIT

// The linker sends the stand-in's calls of ioctl() through here. Apart from the test: the kernel's
// header of line attributes and the C library's exclude each other.

#include <asm/termbits.h>
#include <stdarg.h>
#include <sys/ioctl.h>

extern "C" int __real_ioctl(int hFile, unsigned long Request, ...);
extern "C" int __wrap_ioctl(int hFile, unsigned long Request, ...);

// The rate that a line reports; 0 for its own.
unsigned DriversRate;

extern "C" int __wrap_ioctl(int hFile, unsigned long Request, ...) {
  va_list Args;
  va_start(Args, Request);
  void* pArg = va_arg(Args, void*);
  va_end(Args);
  const int Result = __real_ioctl(hFile, Request, pArg);
  if (Result == 0 && Request == TCGETS2 && DriversRate != 0) {
    ((struct termios2*)pArg)->c_ospeed = DriversRate;
  }
  return Result;
}
