// sys/clock.h
// SPDX-License-Identifier: MIT
//
// Time: a running clock, the calendar, sleeping, and the time a program was built.
//
// The running clock counts from an arbitrary start. It never goes back, and setting the time of day
// does not move it. Any thread may call any function here.

#ifndef SYS_CLOCK_H
#define SYS_CLOCK_H

#include <stdint.h>

struct SYS_CALENDAR_TIME {
  uint16_t Year;   // in full, 2024
  uint16_t Month;  // 1 to 12
  uint16_t Day;    // of the month, 1 to 31
  uint16_t Hour;
  uint16_t Minute;
  uint16_t Second;        // 60 in a leap second, on systems that have them
  uint16_t Milliseconds;  // always 0
};

// Sleeps for that many milliseconds.
// Returns 0, or -1 when a signal ended the sleep early. Give at most 4294967 ms: the microseconds
// are passed on in 32 bits, which wrap.
int32_t SYS_Sleep(uint32_t Milliseconds);

// Returns the running clock in milliseconds, its low 32 bits.
// They start again at 0 every 49.7 days, so compare differences.
uint32_t SYS_GetTickCount(void);

// Return the time since the first call of the same function, in milliseconds and in microseconds.
// The first call returns 0. Each of the two has its own first call. When two threads make the first
// call at the same moment, both get 0 and continue from nearly the same start.
uint64_t SYS_TIME_GetMs(void);
uint64_t SYS_TIME_GetUs(void);

// Returns the microseconds since Stamp, a value that SYS_TIME_GetUs returned.
uint64_t SYS_TIME_GetUsSince(uint64_t Stamp);

// Store the calendar time, in the machine's time zone and in UTC.
// pTime may be NULL; nothing is done then.
void SYS_GetLocalTime(SYS_CALENDAR_TIME* pTime);
void SYS_GetUTCTime(SYS_CALENDAR_TIME* pTime);

// Turns SYS_BUILD_STAMP into two numbers.
// *pDate becomes 240307 for March 7, 2024, and *pTime 235959 for 23:59:59. Either pointer may be
// NULL.
// sStamp has 20 characters: "Mmm dd yyyy" with the English name of the month, one separator (a zero
// byte in SYS_BUILD_STAMP), and "hh:mm:ss". A day or an hour below 10 may begin with a space. The
// digits are not checked.
// Returns 0, or -1 for an unknown month; *pDate and *pTime are then unchanged.
int32_t SYS_ParseBuildStamp(const char* sStamp, uint32_t* pDate, uint32_t* pTime);

// The time at which the source file that uses it was compiled.
#define SYS_BUILD_STAMP __DATE__ "\0" __TIME__

#endif
