// SPDX-License-Identifier: MIT

// A pseudo-terminal as a serial line; the test is at its other end.

#ifndef TESTS_SYS_SUPPORT_PTY_H
#define TESTS_SYS_SUPPORT_PTY_H

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

struct PTY {
  int  hMaster;     // the other end
  int  hKeep;       // keeps the line open, so that its settings and bytes remain
  char acName[64];  // the line's device node without "/dev/"; empty when none is available
};

static inline void PTY_Open(PTY* pPty) {
  pPty->acName[0] = 0;
  pPty->hKeep     = -1;
  pPty->hMaster   = posix_openpt(O_RDWR | O_NOCTTY);
  const char* sPath =
      pPty->hMaster >= 0 && grantpt(pPty->hMaster) == 0 && unlockpt(pPty->hMaster) == 0
          ? ptsname(pPty->hMaster)
          : NULL;
  if (sPath != NULL) {
    snprintf(pPty->acName, sizeof(pPty->acName), "%s", sPath + strlen("/dev/"));
    pPty->hKeep = open(sPath, O_RDWR | O_NOCTTY);
  }
}

static inline void PTY_Close(PTY* pPty) {
  close(pPty->hKeep);
  close(pPty->hMaster);
}

#endif
