// app/clock.h
//
// The tool's millisecond clock.

#ifndef APP_CLOCK_H
#define APP_CLOCK_H

#include <stdint.h>

// The clock's reading at its first use; 0 before that.
extern uint32_t TimeOrigin;

// Milliseconds since the first call in this process, which returns 0. Wraps after 49 days; compare
// differences. One thread at a time.
//
// A tick of the system counts as a nanosecond. That holds on x86-64; on an Apple arm64 processor a
// tick is 41.67 ns, so the clock runs slow by that factor and time-outs last longer.
uint32_t GetTimeMs(void);

#endif
