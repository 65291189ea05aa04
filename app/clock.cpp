#include "app/clock.h"

#include <mach/mach_time.h>

static const uint64_t TICKS_PER_MS = 1000000;  // a tick counts as a nanosecond

uint32_t TimeOrigin;

uint32_t GetTimeMs(void) {
  const uint32_t Now = (uint32_t)(mach_absolute_time() / TICKS_PER_MS);
  if (TimeOrigin == 0) {
    TimeOrigin = Now;
  }
  return Now - TimeOrigin;
}
