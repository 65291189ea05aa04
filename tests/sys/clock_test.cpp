// SPDX-License-Identifier: MIT

#include "sys/clock.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <thread>

#include "tests/sys/support/faults.h"

// While one of these exists, the test sets the machine's clocks.
class FAKE_CLOCK {
 public:
  FAKE_CLOCK() { IsClockFake = true; }
  ~FAKE_CLOCK() {
    IsClockFake  = false;
    FakeRatio[0] = 1;
    FakeRatio[1] = 1;
  }
};

TEST(SysSleep, LastsAtLeastAsLongAsAskedFor) {
  const uint32_t Start = SYS_GetTickCount();
  EXPECT_EQ(0, SYS_Sleep(30));
  const uint32_t Elapsed = SYS_GetTickCount() - Start;
  EXPECT_GE(Elapsed, 30u);
  EXPECT_LT(Elapsed, 5000u);
}

TEST(SysTickCount, CountsMillisecondsOfNanosecondTicks) {
  const FAKE_CLOCK Clock;
  FakeTicks = 5123456789;
  EXPECT_EQ(5123u, SYS_GetTickCount());
}

TEST(SysTickCount, WrapsAfterTwoToThe32Milliseconds) {
  const FAKE_CLOCK Clock;
  FakeTicks = 4294967295999999;
  EXPECT_EQ(4294967295u, SYS_GetTickCount());
  FakeTicks = 4294967296000000;
  EXPECT_EQ(0u, SYS_GetTickCount());
  FakeTicks = 4294967301000000;
  EXPECT_EQ(5u, SYS_GetTickCount());
}

TEST(SysTickCount, TicksThatAreNotNanosecondsAreConverted) {
  const FAKE_CLOCK Clock;
  FakeRatio[0] = 125;
  FakeRatio[1] = 3;
  FakeTicks    = 24000000;  // one second of a 24 MHz clock
  EXPECT_EQ(1000u, SYS_GetTickCount());
}

// The base is set once in a process. This test sets it so far ahead that all readings of the real
// clock come before it, in case another test runs in the same process.
TEST(SysTime, CountsFromTheFirstReading) {
  const FAKE_CLOCK Clock;
  FakeTicks = 1152921504123456789;
  EXPECT_EQ(0u, SYS_TIME_GetMs());
  FakeTicks += 1234567890;
  EXPECT_EQ(1235u, SYS_TIME_GetMs()) << "whole milliseconds of the clock, not of the difference";
  EXPECT_EQ(0u, SYS_TIME_GetUs()) << "a base of its own";
  FakeTicks += 1500000;
  EXPECT_EQ(1500u, SYS_TIME_GetUs());
  EXPECT_EQ(1300u, SYS_TIME_GetUsSince(200));
  FakeTicks = 1000000;
  EXPECT_EQ(0u, SYS_TIME_GetMs()) << "a reading older than the base";
}

TEST(SysTime, ManyFirstReadersAgreeOnOneBase) {
  uint64_t    aElapsed[8] = {};
  std::thread aThreads[8];
  for (int i = 0; i < 8; i++) {
    aThreads[i] = std::thread([&aElapsed, i] { aElapsed[i] = SYS_TIME_GetUs(); });
  }
  for (std::thread& Thread : aThreads) {
    Thread.join();
  }
  for (const uint64_t Elapsed : aElapsed) {
    EXPECT_LT(Elapsed, 60000000u) << "no reading from before the base";
  }
}

TEST(SysCalendar, UtcTimeIsSplitIntoItsFields) {
  const FAKE_CLOCK Clock;
  FakeTime               = 1709769599;
  SYS_CALENDAR_TIME Time = {1, 1, 1, 1, 1, 1, 999};
  SYS_GetUTCTime(&Time);
  EXPECT_EQ(2024, Time.Year);
  EXPECT_EQ(3, Time.Month);
  EXPECT_EQ(6, Time.Day);
  EXPECT_EQ(23, Time.Hour);
  EXPECT_EQ(59, Time.Minute);
  EXPECT_EQ(59, Time.Second);
  EXPECT_EQ(0, Time.Milliseconds);
}

TEST(SysCalendar, LocalTimeFollowsTheTimeZone) {
  setenv("TZ", "TST-05:30", 1);  // five and a half hours ahead of UTC
  tzset();
  const FAKE_CLOCK Clock;
  FakeTime               = 1709769599;
  SYS_CALENDAR_TIME Time = {};
  SYS_GetLocalTime(&Time);
  unsetenv("TZ");
  tzset();
  EXPECT_EQ(2024, Time.Year);
  EXPECT_EQ(3, Time.Month);
  EXPECT_EQ(7, Time.Day);
  EXPECT_EQ(5, Time.Hour);
  EXPECT_EQ(29, Time.Minute);
  EXPECT_EQ(59, Time.Second);
  EXPECT_EQ(0, Time.Milliseconds);
}

TEST(SysCalendar, IsSevenFieldsOf16BitsInOrder) {
  const uint16_t    aFields[] = {2024, 12, 31, 23, 59, 58, 0};
  SYS_CALENDAR_TIME Time;
  ASSERT_EQ(sizeof(aFields), sizeof(Time));
  memcpy(&Time, aFields, sizeof(Time));
  EXPECT_EQ(2024, Time.Year);
  EXPECT_EQ(12, Time.Month);
  EXPECT_EQ(31, Time.Day);
  EXPECT_EQ(23, Time.Hour);
  EXPECT_EQ(59, Time.Minute);
  EXPECT_EQ(58, Time.Second);
}

TEST(SysCalendar, NoRecordIsNoError) {
  SYS_GetLocalTime(nullptr);
  SYS_GetUTCTime(nullptr);
}

TEST(SysBuildStamp, LastSecondOfTheCentury) {
  uint32_t Date = 0;
  uint32_t Time = 0;
  EXPECT_EQ(0, SYS_ParseBuildStamp("Dec 31 1999\0"
                                   "23:59:59",
                                   &Date, &Time));
  EXPECT_EQ(991231u, Date);
  EXPECT_EQ(235959u, Time);
}

TEST(SysBuildStamp, ADayAndAnHourMayBeginWithASpace) {
  uint32_t Date = 0;
  uint32_t Time = 0;
  EXPECT_EQ(0, SYS_ParseBuildStamp("Feb  5 2021\0"
                                   " 7:08:09",
                                   &Date, &Time));
  EXPECT_EQ(210205u, Date);
  EXPECT_EQ(70809u, Time);
}

TEST(SysBuildStamp, KnowsAllMonths) {
  static const char* const asMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (uint32_t i = 0; i < 12; i++) {
    const std::string sStamp = std::string(asMonths[i]) + " 07 2024" + '\0' + "00:00:00";
    uint32_t          Date   = 0;
    EXPECT_EQ(0, SYS_ParseBuildStamp(sStamp.c_str(), &Date, nullptr));
    EXPECT_EQ(240000 + (i + 1) * 100 + 7, Date);
  }
}

TEST(SysBuildStamp, UnknownMonthChangesNothing) {
  for (const char* sStamp : {"Foo 01 2024\0"
                             "00:00:00",
                             "jan 01 2024\0"
                             "00:00:00"}) {
    uint32_t Date = 1;
    uint32_t Time = 2;
    EXPECT_EQ(-1, SYS_ParseBuildStamp(sStamp, &Date, &Time));
    EXPECT_EQ(1u, Date);
    EXPECT_EQ(2u, Time);
  }
}

TEST(SysBuildStamp, EitherResultMayBeLeftOut) {
  uint32_t Time = 0;
  EXPECT_EQ(0, SYS_ParseBuildStamp("Jan 01 2000\0"
                                   "12:34:56",
                                   nullptr, &Time));
  EXPECT_EQ(123456u, Time);
  EXPECT_EQ(0, SYS_ParseBuildStamp("Jan 01 2000\0"
                                   "12:34:56",
                                   nullptr, nullptr));
}

TEST(SysBuildStamp, TheCompilersOwnIsUnderstood) {
  uint32_t Date = 0;
  uint32_t Time = 0;
  EXPECT_EQ(0, SYS_ParseBuildStamp(SYS_BUILD_STAMP, &Date, &Time));
  EXPECT_GT(Date, 240000u);
  EXPECT_LT(Time, 240000u);
}
