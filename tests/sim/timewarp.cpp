// SPDX-License-Identifier: MIT

// Preloaded into the tool under test: time passes 50 times as fast. Waits that take 20 and 25 s by
// contract end in half a second, and the simulator, which reads the same clock, sees them whole.
//
// Works where a preloaded library is asked before the C library (ELF systems).

#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

static const long FACTOR = 50;

extern "C" int usleep(useconds_t Us) {
  struct timespec Time;
  const long      Ns = static_cast<long>(Us) * 1000 / FACTOR;
  Time.tv_sec        = Ns / 1000000000;
  Time.tv_nsec       = Ns % 1000000000;
  return nanosleep(&Time, nullptr);
}

extern "C" int clock_gettime(clockid_t Clock, struct timespec* pTime) noexcept {
  typedef int (*FUNCTION)(clockid_t, struct timespec*);
  static const FUNCTION  pfReal = reinterpret_cast<FUNCTION>(dlsym(RTLD_NEXT, "clock_gettime"));
  static struct timespec Origin;
  const int              Result = pfReal(Clock, pTime);
  if (Result != 0 || Clock != CLOCK_MONOTONIC) {
    return Result;
  }
  if (Origin.tv_sec == 0) {
    Origin = *pTime;
  }
  const long Passed =
      ((pTime->tv_sec - Origin.tv_sec) * 1000000000 + (pTime->tv_nsec - Origin.tv_nsec)) * FACTOR;
  pTime->tv_sec  = Origin.tv_sec + Passed / 1000000000;
  pTime->tv_nsec = Passed % 1000000000;
  return Result;
}
