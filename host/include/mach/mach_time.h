// SPDX-License-Identifier: MIT

// Stand-in for Darwin's <mach/mach_time.h>: only what the product calls.

#ifndef HOST_MACH_TIME_H
#define HOST_MACH_TIME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Monotonic ticks. One tick is one nanosecond here, as it is on Darwin for x86-64.
uint64_t mach_absolute_time(void);

typedef struct mach_timebase_info {
  uint32_t numer;
  uint32_t denom;
} mach_timebase_info_data_t;

// Stores the length of a tick in nanoseconds as a fraction and returns 0. 1/1 here.
int mach_timebase_info(mach_timebase_info_data_t* pInfo);

#ifdef __cplusplus
}
#endif

#endif
