// SPDX-License-Identifier: MIT

#include "sys/misc.h"

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/pwr_mgt/IOPMLib.h>
#include <fcntl.h>
#include <spawn.h>
#include <stddef.h>
#include <sys/sysctl.h>
#include <syslog.h>
#include <unistd.h>

extern "C" char** environ;  // NOLINT(readability-redundant-declaration): no header of macOS has it

static int             IsSleepPrevented;
static IOPMAssertionID SleepAssertion;

int32_t SYS_GetNumProcessors(void) {
  // The processors of this machine now, not the most that it could have. 0 if the system refuses.
  int32_t Count = 0;
  size_t  Size  = sizeof(Count);
  sysctlbyname("hw.logicalcpu", &Count, &Size, NULL, 0);
  return Count;
}

// The width is part of the log's format; programs that read the log expect it.
void SYS_Log(const char* sMessage) {
  syslog(LOG_USER | LOG_DEBUG, "%128s", sMessage);
}

void SYS_PreventIdleSleep(void) {
  if (IsSleepPrevented) {
    return;
  }
  IsSleepPrevented = 1;
  SleepAssertion   = 0;  // stays 0, which is no assertion, if the system refuses
// Deprecated, but not every supported system has its successor, which only adds a text for the
// user.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  IOPMAssertionCreate(kIOPMAssertionTypeNoIdleSleep, kIOPMAssertionLevelOn, &SleepAssertion);
#pragma GCC diagnostic pop
}

void SYS_AllowIdleSleep(void) {
  if (IsSleepPrevented) {
    IOPMAssertionRelease(SleepAssertion);
    IsSleepPrevented = 0;
  }
}

int32_t SYS_GetRandom(void* pBuffer, uint32_t NumBytes) {
  const int hFile = open("/dev/random", O_RDONLY | O_CLOEXEC);
  if (hFile < 0) {
    return -1;
  }
  const ssize_t NumRead = read(hFile, pBuffer, NumBytes);
  (void)NumRead;  // a short read is not reported: see the header
  return close(hFile);
}

// All four calls are made whatever the others return, and their results are or-ed: required, so
// that the program also starts when its attributes cannot be set up.
int32_t SYS_StartProgram(const char* sPath) {
  char* const       asArgs[] = {(char*)sPath, NULL};
  posix_spawnattr_t Attr     = {};  // valid, with the system's defaults, even if the init fails
  pid_t             Pid;
  int               Result = posix_spawnattr_init(&Attr);
  Result |= posix_spawnattr_setflags(&Attr, POSIX_SPAWN_CLOEXEC_DEFAULT);
  Result |= posix_spawn(&Pid, sPath, NULL, &Attr, asArgs, environ);
  return Result | posix_spawnattr_destroy(&Attr);
}
