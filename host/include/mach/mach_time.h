// Stand-in for Darwin's <mach/mach_time.h>: only what the product calls.

#ifndef HOST_MACH_TIME_H
#define HOST_MACH_TIME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Monotonic ticks. One tick is one nanosecond here, as it is on Darwin for x86-64.
uint64_t mach_absolute_time(void);

#ifdef __cplusplus
}
#endif

#endif
