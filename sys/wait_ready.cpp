// SPDX-License-Identifier: MIT

// select() and not poll(), which by macOS's manual does not support devices, and serial lines are
// devices. The price is that descriptors from FD_SETSIZE on cannot be waited for.

#include "sys/wait_ready.h"

#include <errno.h>
#include <stddef.h>
#include <sys/select.h>

int32_t SYS_WAIT_IsSelectable(int32_t hFile) {
  return hFile >= 0 && hFile < FD_SETSIZE;
}

struct timeval SYS_WAIT_SplitMs(uint32_t Milliseconds) {
  struct timeval Time;
  Time.tv_sec  = Milliseconds / 1000;
  Time.tv_usec = (suseconds_t)(Milliseconds % 1000 * 1000);
  return Time;
}

// Makes *pSet hold just this descriptor. Returns -1 for a descriptor that has no bit in the set:
// FD_SET() would write beyond it.
static int32_t MakeSet(int32_t hFile, fd_set* pSet) {
  if (!SYS_WAIT_IsSelectable(hFile)) {
    errno = EBADF;
    return -1;
  }
  FD_ZERO(pSet);
  FD_SET(hFile, pSet);
  return 0;
}

// A copy of the time-out is passed, because Linux changes it during the call.

int32_t SYS_WAIT_Readable(int32_t hFile, struct timeval Timeout) {
  fd_set Set;
  return MakeSet(hFile, &Set) != 0 ? -1 : select(hFile + 1, &Set, NULL, NULL, &Timeout);
}

int32_t SYS_WAIT_Writable(int32_t hFile, struct timeval Timeout) {
  fd_set Set;
  return MakeSet(hFile, &Set) != 0 ? -1 : select(hFile + 1, NULL, &Set, NULL, &Timeout);
}
