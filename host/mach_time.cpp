// SPDX-License-Identifier: MIT

#include <mach/mach_time.h>
#include <time.h>

uint64_t mach_absolute_time(void) {
  struct timespec Now;
  clock_gettime(CLOCK_MONOTONIC, &Now);
  return (uint64_t)Now.tv_sec * 1000000000u + (uint64_t)Now.tv_nsec;
}

int mach_timebase_info(mach_timebase_info_data_t* pInfo) {
  pInfo->numer = 1;
  pInfo->denom = 1;
  return 0;
}
