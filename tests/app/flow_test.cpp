// SPDX-License-Identifier: MIT

// The flow in this process, with simulated time: how long it pauses and where. And its banner,
// compiled with a date and time that the test chooses.

#include "app/flow.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "tests/app/fake_probe.h"

// GCC takes this only from the command line (CMakeLists.txt).
#ifdef __clang__
#pragma clang diagnostic ignored "-Wbuiltin-macro-redefined"
#endif
#undef __DATE__
#undef __TIME__
#define __DATE__ "Feb  9 2031"
#define __TIME__ "01:02:03"

static int GetKey() {
  FAKE_PROBE_Log("getchar()");
  return 'x';
}
#define getchar GetKey
#include "app/flow.cpp"
#undef getchar

static const char* sEntry;  // what is typed at the menu

extern "C" char* readline(const char*) {
  return strdup(sEntry);
}

extern "C" int add_history(const char* sLine) {
  free(const_cast<char*>(sLine));
  return 0;
}

static const char BannerText[] =
    "OSTREL Quobe Unlock tool for STM32 devices\nCompiled Feb  9 2031 01:02:03\n\n";

static std::string Shown;  // by the last run, after the banner; with all calls and sleeps

static int32_t RunFlow(std::vector<const char*> Args) {
  Args.insert(Args.begin(), "quobe-unlock");
  testing::internal::CaptureStdout();
  const int32_t     Result     = RunUnlock(static_cast<int>(Args.size()), Args.data());
  const std::string Transcript = FAKE_PROBE_Transcript(testing::internal::GetCapturedStdout());
  EXPECT_EQ(0u, Transcript.find(BannerText)) << Transcript;
  Shown = Transcript.substr(sizeof(BannerText) - 1);
  return Result;
}

// An STM32L1 that is ready at once and reads back factory values.
static void BeginL1() {
  FAKE_PROBE_Begin(0);
  FakeProbe.Read = [](uint32_t Address, int) -> uint32_t {
    static const uint32_t OptionWords[4] = {0xFF5500AA, 0xFF870078, 0xFFFF0000, 0xFFFF0000};
    return Address >= 0x1FF80000 && Address <= 0x1FF8000C ? OptionWords[(Address & 0xF) / 4] : 0;
  };
}

static bool Slept() {
  return Shown.find("usleep") != std::string::npos;
}

// RunFlow() compares the banner.
TEST(AppFlow, BannerHasTheTimeOfTheBuild) {
  BeginL1();
  EXPECT_EQ(0, RunFlow({"-Exit", "1", "-SetDeviceFamily", "11"}));
}

TEST(AppFlow, RefusedCommandLinePausesForThreeSecondsBeforeTheProbeIsAsked) {
  BeginL1();
  EXPECT_EQ(-1, RunFlow({"-Exit", "1", "-Speed"}));
  EXPECT_EQ(
      "Parsing command line...Missing command line parameter after command -Speed.\n"
      "<usleep(3000000)><IsOpen()>",
      Shown);
}

TEST(AppFlow, RefusedValuePausesForThreeSecondsBeforeTheKeyIsAskedFor) {
  BeginL1();
  EXPECT_EQ(-1, RunFlow({"-Speed", "fast"}));
  EXPECT_EQ(
      "Parsing command line...ERROR while parsing value for -speed.\n"
      "<usleep(3000000)><IsOpen()>Press any key to exit.\n<getchar()>",
      Shown);
}

TEST(AppFlow, WrongEntryAtTheMenuDoesNotPause) {
  for (const char* sWrong : {"13", "x", ""}) {
    BeginL1();
    sEntry = sWrong;
    EXPECT_EQ(-1, RunFlow({"-Exit", "1"}));
    EXPECT_FALSE(Slept()) << Shown;
  }
}

TEST(AppFlow, FailedOpenDoesNotPause) {
  BeginL1();
  FakeProbe.sOpenError = "nobody there";
  EXPECT_EQ(-1, RunFlow({"-Exit", "1", "-SetDeviceFamily", "11"}));
  EXPECT_EQ(
      "Parsing command line...O.K.\nSelect device family: STM32L1xxxx\n"
      "Connecting to Quobe via USB...<Open()>nobody there\n<IsOpen()>",
      Shown);
}

TEST(AppFlow, EmptyTextFromOpenIsAFailure) {
  BeginL1();
  FakeProbe.sOpenError = "";
  EXPECT_EQ(-1, RunFlow({"-Exit", "1", "-SetDeviceFamily", "11"}));
  EXPECT_EQ(
      "Parsing command line...O.K.\nSelect device family: STM32L1xxxx\n"
      "Connecting to Quobe via USB...<Open()>\n<IsOpen()>",
      Shown);
}

TEST(AppFlow, LowVoltageDoesNotPause) {
  BeginL1();
  FakeProbe.Voltage = 499;
  EXPECT_EQ(-1, RunFlow({"-Exit", "1", "-SetDeviceFamily", "11"}));
  EXPECT_FALSE(Slept()) << Shown;
}

TEST(AppFlow, SupplyGets200MillisecondsOnceItIsSwitchedOn) {
  BeginL1();
  EXPECT_EQ(0, RunFlow({"-Exit", "1", "-SetDeviceFamily", "11", "-SetPowerTarget", "1"}));
  EXPECT_NE(std::string::npos, Shown.find("<ExecCommand(SupplyPower = 1)><usleep(200000)>"
                                          "Using SWD as target interface.\n<TIF_Select(1)>"));
  EXPECT_EQ(200000u, FakeProbe.SleptUs);
}

TEST(AppFlow, UnpoweredRunDoesNotPause) {
  BeginL1();
  EXPECT_EQ(0, RunFlow({"-Exit", "1", "-SetDeviceFamily", "11"}));
  EXPECT_FALSE(Slept()) << Shown;
}

TEST(AppFlow, AnyNumberButZeroSwitchesTheSupplyOn) {
  for (const char* sValue : {"256", "65536", "2147483648"}) {
    BeginL1();
    EXPECT_EQ(0, RunFlow({"-Exit", "1", "-SetDeviceFamily", "11", "-SetPowerTarget", sValue}));
    EXPECT_NE(std::string::npos, Shown.find("<ExecCommand(SupplyPower = 1)>")) << sValue;
    EXPECT_NE(std::string::npos, Shown.find("<ExecCommand(DisablePowerSupplyOnClose)>")) << sValue;
  }
}

TEST(AppFlow, AnyNumberButZeroEndsWithoutAKey) {
  for (const char* sValue : {"256", "65536", "2147483648"}) {
    BeginL1();
    EXPECT_EQ(0, RunFlow({"-Exit", sValue, "-SetDeviceFamily", "11"}));
    EXPECT_EQ(std::string::npos, Shown.find("Press any key")) << sValue;
    EXPECT_EQ(std::string::npos, Shown.find("getchar")) << sValue;
  }
}

TEST(AppFlow, KeyIsAskedForAfterTheProbeIsClosed) {
  BeginL1();
  EXPECT_EQ(0, RunFlow({"-SetDeviceFamily", "11"}));
  const std::string End = "<IsOpen()><Close()>Press any key to exit.\n<getchar()>";
  ASSERT_GT(Shown.size(), End.size());
  EXPECT_EQ(End, Shown.substr(Shown.size() - End.size()));
}

TEST(AppFlow, ResultOfAFailedFirstReadIsReturnedWhole) {
  for (const int32_t Failure : {-256, -2, INT32_MIN}) {
    BeginL1();
    FakeProbe.FailureResult = Failure;
    FakeProbe.Fails         = [](uint32_t Address, int) { return Address == 0x40023C14; };
    EXPECT_EQ(Failure, RunFlow({"-Exit", "1", "-SetDeviceFamily", "5"}));
  }
}
