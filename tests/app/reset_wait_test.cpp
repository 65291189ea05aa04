// SPDX-License-Identifier: MIT

// The waits of the reset routines, in simulated time: it passes only when a routine waits or reads.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/clock.h"
#include "app/family.h"
#include "app/reset.h"
#include "tests/app/fake_probe.h"

static std::string Output;

template <class ROUTINE>
static int32_t RunRoutine(ROUTINE Routine) {
  testing::internal::CaptureStdout();
  const int32_t Result = Routine();
  Output               = testing::internal::GetCapturedStdout();
  return Result;
}

TEST(AppClock, FirstCallReturnsZeroWhateverTheTime) {
  FAKE_PROBE_Begin(123456789);
  EXPECT_EQ(0u, GetTimeMs());
  FakeProbe.TimeUs += 1999;
  EXPECT_EQ(1u, GetTimeMs());
}

TEST(AppClock, OriginIsTheReadingOfTheFirstCall) {
  FAKE_PROBE_Begin(5000);
  EXPECT_EQ(0u, TimeOrigin);
  GetTimeMs();
  EXPECT_EQ(5000u, TimeOrigin);
}

TEST(AppClock, CountsOnWhenTheMillisecondsWrapAt32Bits) {
  FAKE_PROBE_Begin(0xFFFFFFFF);
  EXPECT_EQ(0u, GetTimeMs());
  FakeProbe.TimeUs += 2000;
  EXPECT_EQ(2u, GetTimeMs());
}

// On arm64 Macs a tick is 125/3 ns.
TEST(AppClock, TicksThatAreNotNanosecondsAreConverted) {
  FAKE_PROBE_Begin(123456789);
  FakeProbe.TickNumer = 125;
  FakeProbe.TickDenom = 3;
  EXPECT_EQ(0u, GetTimeMs());
  EXPECT_EQ(123456789u, TimeOrigin);
  FakeProbe.TimeUs += 25000 * 1000;
  EXPECT_EQ(25000u, GetTimeMs());
}

// Ten years in ticks of 30 ns: multiplied by the numerator they exceed 64 bits.
TEST(AppClock, ConversionDoesNotOverflow) {
  const uint64_t TenYearsMs = 1000ull * 60 * 60 * 24 * 365 * 10;
  FAKE_PROBE_Begin(TenYearsMs);
  FakeProbe.TickNumer = 1000000000;
  FakeProbe.TickDenom = 33333335;
  GetTimeMs();
  EXPECT_NEAR(static_cast<uint32_t>(TenYearsMs), TimeOrigin, 1);
}

TEST(AppResetF4, GivesUpAfter25SecondsWhateverATickIs) {
  FAKE_PROBE_Begin(1000);
  FakeProbe.TickNumer     = 125;
  FakeProbe.TickDenom     = 3;
  FakeProbe.Read          = [](uint32_t, int) -> uint32_t { return 0x0FFF55EC; };
  FakeProbe.Fails         = [](uint32_t Address, int) { return Address == 0x40023C0C; };
  FakeProbe.TimePerReadUs = 1000000;
  EXPECT_EQ(-1, RunRoutine([] { return ResetOptionBytesF2F4F7(FAMILY_F4); }));
  EXPECT_EQ(2 + 25, FakeProbe.NumReads);
}

// A device that stays busy.
static uint32_t AlwaysBusyF4(uint32_t Address, int) {
  return Address == 0x40023C0C ? 0x10000 : 0x0FFF55EC;
}

TEST(AppResetF4, GivesUpWhenTheDeviceWasBusyFor25Seconds) {
  FAKE_PROBE_Begin(1000);
  FakeProbe.Read          = AlwaysBusyF4;
  FakeProbe.TimePerReadUs = 1000;
  EXPECT_EQ(-1, RunRoutine([] { return ResetOptionBytesF2F4F7(FAMILY_F4); }));
  EXPECT_EQ(
      "Reset target...O.K.\n"
      "Reset option bytes (may take app. 20 seconds)..."
      "Timeout while waiting for device to be unsecured.\n",
      Output);
  EXPECT_EQ(2 + 25000,
            FakeProbe.NumReads);  // identity, options, then one status read a millisecond
  EXPECT_EQ(2, FakeProbe.NumResets);
  EXPECT_EQ("Reset", FakeProbe.Last);
  EXPECT_EQ(0u, FakeProbe.SleptUs);  // there is no pause between the reads
}

TEST(AppResetF4, GivesUpWhenTheStatusWasNotDeliveredFor25Seconds) {
  FAKE_PROBE_Begin(1000);
  FakeProbe.Read          = [](uint32_t, int) -> uint32_t { return 0; };
  FakeProbe.Fails         = [](uint32_t Address, int) { return Address == 0x40023C0C; };
  FakeProbe.TimePerReadUs = 1000000;
  EXPECT_EQ(-1, RunRoutine([] { return ResetOptionBytesF2F4F7(FAMILY_F4); }));
  EXPECT_EQ(
      "Reset target...O.K.\n"
      "Reset option bytes (may take app. 20 seconds)..."
      "Timeout while waiting for device to be unsecured.\n",
      Output);
  EXPECT_EQ(2 + 25, FakeProbe.NumReads);
  EXPECT_EQ(2, FakeProbe.NumResets);
}

// An erase that takes ten polls; each of them fails once.
TEST(AppResetF4, OneFailedPollDoesNotEndTheWait) {
  for (int Failed = 0; Failed < 10; Failed++) {
    FAKE_PROBE_Begin(1000);
    FakeProbe.Read = [](uint32_t Address, int NumReads) -> uint32_t {
      return Address != 0x40023C0C ? 0x0FFFAAEC : NumReads < 9 ? 0x10000 : 0;
    };
    FakeProbe.Fails = [=](uint32_t Address, int NumReads) {
      return Address == 0x40023C0C && NumReads == Failed;
    };
    FakeProbe.TimePerReadUs = 1000000;
    EXPECT_EQ(0, RunRoutine([] { return ResetOptionBytesF2F4F7(FAMILY_F4); }));
    // Identity, options, the polls, the options read back.
    EXPECT_EQ(2 + (Failed == 9 ? 11 : 10) + 1, FakeProbe.NumReads) << Failed;
  }
}

TEST(AppResetF4, ReadyAtTheLastMomentIsReady) {
  FAKE_PROBE_Begin(1000);
  FakeProbe.TimePerReadUs = 1000;
  FakeProbe.Read          = [](uint32_t Address, int NumReads) -> uint32_t {
    if (Address == 0x40023C0C) {
      return NumReads < 24999 ? 0x10000 : 0;
    }
    return 0x0FFFAAEC;
  };
  EXPECT_EQ(0, RunRoutine([] { return ResetOptionBytesF2F4F7(FAMILY_F4); }));
}

TEST(AppResetF4, TimeoutOfThePcropStageEndsTheRunWithoutTheSecondStage) {
  FAKE_PROBE_Begin(1000);
  FakeProbe.TimePerReadUs = 1000000;
  FakeProbe.Read          = [](uint32_t Address, int) -> uint32_t {
    return Address == 0xE0042000 ? 0x419 : Address == 0x40023C0C ? 0x10000 : 0x8FFFAAEC;
  };
  EXPECT_EQ(-1, RunRoutine([] { return ResetOptionBytesF2F4F7(FAMILY_F4); }));
  EXPECT_EQ(2 + 25, FakeProbe.NumReads);
  EXPECT_EQ(2, FakeProbe.NumResets);
}

TEST(AppResetF4, TimeoutIsReportedBeforeTheTargetIsReset) {
  FAKE_PROBE_Begin(1000);
  FakeProbe.Read          = AlwaysBusyF4;
  FakeProbe.TimePerReadUs = 1000000;
  std::string Shown;
  FakeProbe.OnReset = [&] {
    Shown = testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
  };
  EXPECT_EQ(-1, RunRoutine([] { return ResetOptionBytesF2F4F7(FAMILY_F4); }));
  const std::string End = "Timeout while waiting for device to be unsecured.\n";
  ASSERT_GE(Shown.size(), End.size());
  EXPECT_EQ(End, Shown.substr(Shown.size() - End.size()));
}

TEST(AppResetF4, DeadlineIsComparedAsASignedNumber) {
  FAKE_PROBE_Begin(1000);
  GetTimeMs();
  FakeProbe.TimeUs +=
      (0x7FFFFFF0ull - 3000) * 1000;  // the deadline is beyond the largest signed number
  FakeProbe.Read          = AlwaysBusyF4;
  FakeProbe.TimePerReadUs = 1000000;
  EXPECT_EQ(-1, RunRoutine([] { return ResetOptionBytesF2F4F7(FAMILY_F4); }));
  EXPECT_EQ(2 + 1, FakeProbe.NumReads);  // it counts as passed
}

TEST(AppResetF4, DeadlineHoldsWhenTheClockWrapsMeanwhile) {
  FAKE_PROBE_Begin(0xFFFFFFFF - 10000);
  FakeProbe.Read          = AlwaysBusyF4;
  FakeProbe.TimePerReadUs = 1000000;
  EXPECT_EQ(-1, RunRoutine([] { return ResetOptionBytesF2F4F7(FAMILY_F4); }));
  EXPECT_EQ(2 + 25, FakeProbe.NumReads);
}

TEST(AppResetH7, GivesUpAfter101ReadsAndTwentySecondsWithoutAMessage) {
  FAKE_PROBE_Begin(0);
  int NumStatusReads = 0;
  FakeProbe.Read     = [&](uint32_t Address, int) -> uint32_t {
    NumStatusReads += Address == 0x5200201C;
    return Address == 0x5200201C ? 0x1416AAF1 : 0;
  };
  EXPECT_EQ(-1, RunRoutine(ResetOptionBytesH7));
  EXPECT_EQ("Reset target...O.K.\nReset option bytes to factory settings...\n", Output);
  EXPECT_EQ(1 + 101, NumStatusReads);  // one for the value, the others in the wait
  EXPECT_EQ(101u * 200000u, FakeProbe.SleptUs);
  EXPECT_EQ(1, FakeProbe.NumResets);
}

TEST(AppResetH7, HundredthReadCountsAndThe101stDoesNot) {
  for (const int ReadyAt : {100, 101}) {
    FAKE_PROBE_Begin(0);
    FakeProbe.Read = [&](uint32_t Address, int NumReads) -> uint32_t {
      switch (Address) {
        case 0x5200201C:  // the first read is not part of the wait
          return NumReads < ReadyAt ? 0x1416AAF1 : 0x1416AAF0;
        case 0x5200211C:
          return 0x1416AAF0;
        case 0x52002028:
        case 0x52002128:
        case 0x52002038:
        case 0x52002138:
          return 0xFF;
        case 0x52002030:
        case 0x52002130:
          return 0x800000FF;
        case 0x52002040:
        case 0x52002140:
          return 0x1FF00800;
        default:
          return 0;
      }
    };
    EXPECT_EQ(ReadyAt == 100 ? 0 : -1, RunRoutine(ResetOptionBytesH7)) << ReadyAt;
  }
}

// An H7 at factory values that stays busy in the given bank and pass.
static int32_t RunH7BusyIn(uint32_t StatusRegister, int Pass, int* pNumResets) {
  FAKE_PROBE_Begin(0);
  FakeProbe.Read = [=](uint32_t Address, int NumReads) -> uint32_t {
    if (Address == StatusRegister && NumReads >= (Pass == 1 ? 1 : 2)) {
      return 0x1416AAF1;
    }
    return (Address & 0xFF) == 0x1C ? 0x1416AAF0 : 0;
  };
  const int32_t Result = RunRoutine(ResetOptionBytesH7);
  *pNumResets          = FakeProbe.NumResets;
  return Result;
}

TEST(AppResetH7, GivesUpInEitherPassOfEitherBank) {
  for (const uint32_t StatusRegister : {0x5200201Cu, 0x5200211Cu}) {
    for (const int Pass : {1, 2}) {
      int NumResets = 0;
      EXPECT_EQ(-1, RunH7BusyIn(StatusRegister, Pass, &NumResets));
      EXPECT_EQ("Reset target...O.K.\nReset option bytes to factory settings...\n", Output);
      EXPECT_EQ(1, NumResets);
    }
  }
}

TEST(AppResetL4, EachLaunchTakesOnePollAnd200MillisecondsUntilItsReset) {
  FAKE_PROBE_Begin(0);
  FakeProbe.Read = [](uint32_t Address, int) -> uint32_t {
    return Address == 0x40022020 ? 0xFFEFF8AA : 0;
  };
  std::vector<uint64_t> Times;
  FakeProbe.OnReset = [&] { Times.push_back(FakeProbe.TimeUs); };
  EXPECT_EQ(0, RunRoutine(ResetOptionBytesL4));
  EXPECT_EQ((std::vector<uint64_t>{0, 205000, 410000, 615000}), Times);
}

TEST(AppResetL4, StatusIsReadAfterEachFiveMillisecondsAndTheReloadGets200) {
  FAKE_PROBE_Begin(0);
  FakeProbe.Read = [](uint32_t Address, int NumReads) -> uint32_t {
    switch (Address) {
      case 0x40022010:
        return NumReads < 2 ? 0x10000 : 0;
      case 0x40022020:
        return NumReads == 0 ? 0xFFEFF800 : 0xFFEFF8AA;
      default:
        return 0;
    }
  };
  EXPECT_EQ(0, RunRoutine(ResetOptionBytesL4));
  const std::string Transcript = FAKE_PROBE_Transcript(Output);
  EXPECT_NE(std::string::npos,
            Transcript.find("<WriteU32(0x40022020, 0xFFEFF8AA)>"
                            "<Read(0x40022014, 1)><WriteU32(0x40022014, 0x00020000)>"
                            "<usleep(5000)><Read(0x40022010, 1)>"
                            "<usleep(5000)><Read(0x40022010, 1)>"
                            "<usleep(5000)><Read(0x40022010, 1)>"
                            "<Read(0x40022014, 1)><WriteU32(0x40022014, 0x08000000)>"
                            "<usleep(200000)>Reset target...<Reset()>O.K.\n"))
      << Transcript;
  // Two launches: three polls and one poll.
  EXPECT_EQ((3 + 1) * 5000u + 2 * 200000u, FakeProbe.SleptUs);
}

TEST(AppResetH7, StatusIsReadBeforeEach200Milliseconds) {
  FAKE_PROBE_Begin(0);
  FakeProbe.Read = [](uint32_t Address, int NumReads) -> uint32_t {
    return Address == 0x5200201C && NumReads == 1 ? 1 : 0;
  };
  EXPECT_EQ(-1, RunRoutine(ResetOptionBytesH7));
  const std::string Transcript = FAKE_PROBE_Transcript(Output);
  EXPECT_NE(std::string::npos, Transcript.find("<WriteU32(0x52002018, 0x00000002)>"
                                               "<Read(0x5200201C, 1)><usleep(200000)>"
                                               "<Read(0x5200201C, 1)><usleep(200000)>"
                                               "<WriteU32(0x52002018, 0x00000003)>"))
      << Transcript;
}
