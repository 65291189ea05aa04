// app/clock.h
// SPDX-License-Identifier: MIT
//
// The tool's millisecond clock.

#ifndef APP_CLOCK_H
#define APP_CLOCK_H

#include <stdint.h>

// The system's time in ms at the first use of the clock; 0 before that.
extern uint32_t TimeOrigin;

// Milliseconds since the first call in this process, which returns 0. Wraps after 49 days; compare
// differences. One thread at a time.
uint32_t GetTimeMs(void);

#endif
