// SPDX-License-Identifier: MIT

#include "sys/clock.h"

#include <mach/mach_time.h>
#include <stddef.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

// The bases of SYS_TIME_GetMs and SYS_TIME_GetUs; 0 until the first reading.
static uint64_t BaseMs;
static uint64_t BaseUs;

// A tick is a nanosecond on x86-64, but 125/3 nanoseconds on arm64: only the system knows the
// ratio. The product has room for nearly two hundred years of ticks.
static uint64_t GetNs(void) {
  mach_timebase_info_data_t Ratio;
  mach_timebase_info(&Ratio);
  return mach_absolute_time() * Ratio.numer / Ratio.denom;
}

// The first call sets the base. Compare-and-swap makes two first calls agree on one base without a
// lock. The call that comes second may have read the clock before the base was read, so its elapsed
// time is never taken as negative.
static uint64_t GetElapsed(uint64_t* pBase, uint64_t Now) {
  uint64_t Base = 0;
  if (__atomic_compare_exchange_n(pBase, &Base, Now, 0, __ATOMIC_RELAXED, __ATOMIC_RELAXED)) {
    return 0;
  }
  return Now > Base ? Now - Base : 0;
}

// tm counts years from 1900 and months from 0. SYS_CALENDAR_TIME has no source of milliseconds.
static void StoreTime(SYS_CALENDAR_TIME* pTime, struct tm* (*pfSplit)(const time_t*, struct tm*)) {
  if (pTime == NULL) {
    return;
  }
  // The forms with _r use the caller's memory, so that threads do not disturb each other.
  const time_t Now = time(NULL);
  struct tm    Tm  = {};
  pfSplit(&Now, &Tm);
  pTime->Year         = (uint16_t)(Tm.tm_year + 1900);
  pTime->Month        = (uint16_t)(Tm.tm_mon + 1);
  pTime->Day          = (uint16_t)Tm.tm_mday;
  pTime->Hour         = (uint16_t)Tm.tm_hour;
  pTime->Minute       = (uint16_t)Tm.tm_min;
  pTime->Second       = (uint16_t)Tm.tm_sec;
  pTime->Milliseconds = 0;
}

// __DATE__ and __TIME__ may pad a number below 10 with a space.
static uint32_t TwoDigits(const char* s) {
  const uint32_t Tens = s[0] == ' ' ? 0 : (uint32_t)(s[0] - '0');
  return 10 * Tens + (uint32_t)(s[1] - '0');
}

// Required: the product wraps at 32 bits, and a signal ends the sleep.
int32_t SYS_Sleep(uint32_t Milliseconds) {
  return usleep(Milliseconds * 1000);
}

uint32_t SYS_GetTickCount(void) {
  return (uint32_t)(GetNs() / 1000000);
}

uint64_t SYS_TIME_GetMs(void) {
  return GetElapsed(&BaseMs, GetNs() / 1000000);
}

uint64_t SYS_TIME_GetUs(void) {
  return GetElapsed(&BaseUs, GetNs() / 1000);
}

uint64_t SYS_TIME_GetUsSince(uint64_t Stamp) {
  return SYS_TIME_GetUs() - Stamp;
}

void SYS_GetLocalTime(SYS_CALENDAR_TIME* pTime) {
  StoreTime(pTime, localtime_r);
}

void SYS_GetUTCTime(SYS_CALENDAR_TIME* pTime) {
  StoreTime(pTime, gmtime_r);
}

int32_t SYS_ParseBuildStamp(const char* sStamp, uint32_t* pDate, uint32_t* pTime) {
  static const char aacMonths[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

  uint32_t Month = 0;
  while (Month < 12 && strncmp(sStamp, aacMonths[Month], 3) != 0) {
    Month++;
  }
  if (Month == 12) {
    return -1;
  }
  // Month at 0, day at 4, the last two digits of the year at 9; after the separator hours at 12,
  // minutes at 15, seconds at 18.
  if (pDate != NULL) {
    *pDate = TwoDigits(sStamp + 9) * 10000 + (Month + 1) * 100 + TwoDigits(sStamp + 4);
  }
  if (pTime != NULL) {
    *pTime = TwoDigits(sStamp + 12) * 10000 + TwoDigits(sStamp + 15) * 100 + TwoDigits(sStamp + 18);
  }
  return 0;
}
