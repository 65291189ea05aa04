// SPDX-License-Identifier: MIT

#include "app/clock.h"

#include <mach/mach_time.h>

static const uint64_t NS_PER_MS = 1000000;

uint32_t TimeOrigin;

static uint64_t GetNs(void) {
  // The length of a tick in nanoseconds, as a fraction: 1/1 on x86-64, 125/3 on arm64 Macs.
  mach_timebase_info_data_t Tick = {1, 1};
  mach_timebase_info(&Tick);
  // Whole multiples of the denominator first, then the rest: nothing is lost to rounding before the
  // last division, and no product exceeds 64 bits as that of all ticks could.
  const uint64_t Ticks = mach_absolute_time();
  return Ticks / Tick.denom * Tick.numer + Ticks % Tick.denom * Tick.numer / Tick.denom;
}

uint32_t GetTimeMs(void) {
  // Cut to 32 bits here, so that the difference below is right even when the system's time passes a
  // multiple of 2^32 ms during the run.
  const uint32_t Now = (uint32_t)(GetNs() / NS_PER_MS);
  if (TimeOrigin == 0) {
    TimeOrigin = Now;
  }
  return Now - TimeOrigin;
}
