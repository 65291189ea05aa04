// sys/clock.h
//
// Time: a running clock, the calendar, sleeping, and the time a program was built.
//
// The running clock counts from an arbitrary start, never goes back and is not moved by setting the
// time of day. Any thread may call anything here.

#ifndef SYS_CLOCK_H
#define SYS_CLOCK_H

#include <stdint.h>

struct SYS_CALENDAR_TIME {
  uint16_t Year;   // in full, 2024
  uint16_t Month;  // 1 to 12
  uint16_t Day;    // of the month, 1 to 31
  uint16_t Hour;
  uint16_t Minute;
  uint16_t Second;        // 60 in a leap second, where the system knows them
  uint16_t Milliseconds;  // always 0
};

// Sleeps for that many milliseconds, or less when a signal comes. Returns usleep()'s result: 0, or
// -1 (interrupted). usleep() takes 32 bits of microseconds and they wrap: at most 4294967 ms.
int32_t SYS_Sleep(uint32_t Milliseconds);

// The running clock in milliseconds, its low 32 bits: back at 0 every 49.7 days, so compare
// differences.
uint32_t SYS_GetTickCount(void);

// The running clock since its first reading by the same function, which returns 0; milliseconds and
// microseconds have a first reading each. When two threads read first at the same moment, both get
// 0 and go on from nearly the same base.
uint64_t SYS_TIME_GetMs(void);
uint64_t SYS_TIME_GetUs(void);

// Microseconds since Stamp, a value SYS_TIME_GetUs returned.
uint64_t SYS_TIME_GetUsSince(uint64_t Stamp);

// The calendar time, in the machine's time zone and in UTC. pTime may be NULL: nothing is done.
void SYS_GetLocalTime(SYS_CALENDAR_TIME* pTime);
void SYS_GetUTCTime(SYS_CALENDAR_TIME* pTime);

// Turns SYS_BUILD_STAMP into numbers: 240307 for March 7, 2024 at *pDate and 235959 for 23:59:59 at
// *pTime. Either may be NULL.
// sStamp has 20 characters, of which the twelfth separates (a zero byte in SYS_BUILD_STAMP): "Mmm
// dd yyyy", the month in English with one capital, and "hh:mm:ss"; a day and an hour below 10 may
// begin with a space. The digits are not checked.
// Returns 0, or -1 for an unknown month; *pDate and *pTime are then as before.
int32_t SYS_ParseBuildStamp(const char* sStamp, uint32_t* pDate, uint32_t* pTime);

// When the source that uses it was compiled.
#define SYS_BUILD_STAMP __DATE__ "\0" __TIME__

#endif
