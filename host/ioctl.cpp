// SPDX-License-Identifier: MIT

#define HOST_SYS_IOCTL_IMPLEMENTATION
#include <asm/termbits.h>
#include <errno.h>
#include <stdarg.h>
#include <stdint.h>
#include <sys/ioctl.h>

static int SetSpeed(int hLine, uint32_t Rate) {
  struct termios2 Settings;
  if (ioctl(hLine, TCGETS2, &Settings) != 0) {
    return -1;
  }
  if (Rate == 0) {  // would hang up the line
    errno = EINVAL;
    return -1;
  }
  Settings.c_cflag &= ~(tcflag_t)(CBAUD | (CBAUD << IBSHIFT));
  Settings.c_cflag |= BOTHER | (BOTHER << IBSHIFT);
  Settings.c_ispeed = Rate;
  Settings.c_ospeed = Rate;
  if (ioctl(hLine, TCSETS2, &Settings) != 0 || ioctl(hLine, TCGETS2, &Settings) != 0) {
    return -1;
  }
  // Many drivers report the rate that their divider really gives. A receiver tolerates two percent.
  const uint32_t Made = Settings.c_ospeed;
  if ((Made > Rate ? Made - Rate : Rate - Made) > Rate / 50) {
    errno = EINVAL;
    return -1;
  }
  return 0;
}

extern "C" int HOST_ioctl(int hFile, unsigned long Request, ...) {
  va_list Args;
  va_start(Args, Request);
  void* pArg = va_arg(Args, void*);
  va_end(Args);
  if (Request == _IOW('T', 2, uint32_t)) {
    return SetSpeed(hFile, *(const uint32_t*)pArg);
  }
  return ioctl(hFile, Request, pArg);
}
