// SPDX-License-Identifier: MIT

// STM32F2, F4 and F7. tests/app checks the time-outs of 25 s in simulated time; here the tool
// really waits once, under script/test --slow.

#include <stdlib.h>

#include "tests/tool/reset_transcript.h"

enum { MENU_F2 = 3, MENU_F4 = 5, MENU_F72 = 6, MENU_F74 = 7, MENU_F76 = 8 };

static const char Ready[] = "read 0x40023C0C 0\n";

static const char Begin[] =
    "<Read(0xE0042000, 1)><WriteU32(0xE0042008, 0x00001800)>"
    "Reset target...<SetResetType(0)><SetResetDelay(0)><Reset()>O.K.\n"
    "Reset option bytes (may take app. 20 seconds)...<Read(0x40023C14, 1)>";
static const char Keys[] = "<WriteU32(0x40023C08, 0x08192A3B)><WriteU32(0x40023C08, 0x4C5D6E7F)>";
static const char Busy[] = "<Read(0x40023C0C, 1)>";

static std::string End(const char* sLocked) {
  return std::string("<Reset()><Read(0x40023C14, 1)>O.K.\n<WriteU32(0x40023C14, ") + sLocked + ")>";
}

TEST(ResetF4, SingleBankGetsOptcrOnly) {
  ExpectReset(MENU_F4,
              std::string(Ready) +
                  "read 0xE0042000 0x10076413\nread 0x40023C14 0x0FFF55ED "
                  "0x0FFFAAEC\n",
              std::string(Begin) + Keys +
                  "<WriteU32(0x40023C14, 0x0FFFAAEC)><WriteU32(0x40023C14, 0x0FFFAAEE)>" + Busy +
                  End("0x0FFFAAED"),
              0);
}

TEST(ResetF2, GetsTheValuesOfF4) {
  ExpectReset(MENU_F2,
              std::string(Ready) +
                  "read 0xE0042000 0x20036411\nread 0x40023C14 0x0FFF55ED "
                  "0x0FFFAAEC\n",
              std::string(Begin) + Keys +
                  "<WriteU32(0x40023C14, 0x0FFFAAEC)><WriteU32(0x40023C14, 0x0FFFAAEE)>" + Busy +
                  End("0x0FFFAAED"),
              0);
}

TEST(ResetF4, DualBankGetsOptcr1First) {
  for (const char* sDevId : {"0x20016419", "0x10006434"}) {
    ExpectReset(MENU_F4,
                std::string(Ready) + "read 0xE0042000 " + sDevId +
                    "\nread 0x40023C14 0x0FFF55ED 0x0FFFAAED\n",
                std::string(Begin) + Keys +
                    "<WriteU32(0x40023C18, 0x0FFF0000)>"
                    "<WriteU32(0x40023C14, 0x0FFFAAEC)><WriteU32(0x40023C14, 0x0FFFAAEE)>" +
                    Busy + End("0x0FFFAAED"),
                0);
  }
}

TEST(ResetF4, PcropIsClearedThroughLevelOne) {
  ExpectReset(MENU_F4,
              "read 0x40023C0C 0x10000 0 0x10000 0x10000 0\n"
              "read 0xE0042000 0x20016419\nread 0x40023C14 0x8FFFAAED 0x0FFFAAEC\n",
              std::string(Begin) + Keys +
                  "<WriteU32(0x40023C18, 0x8FFF0000)>"
                  "<WriteU32(0x40023C14, 0x8FFFBBE0)><WriteU32(0x40023C14, 0x8FFFBBE2)>" +
                  Busy + Busy +
                  "<WriteU32(0x40023C18, 0x0FFF0000)>"
                  "<WriteU32(0x40023C14, 0x0FFFAAEC)><WriteU32(0x40023C14, 0x0FFFAAEE)>" +
                  Busy + Busy + Busy + End("0x0FFFAAED"),
              0);
}

TEST(ResetF4, PcropStageNeedsSprmodLevelZeroAndTwoBanks) {
  struct {
    const char* sDevId;
    const char* sOptCr;
  } const Devices[] = {
      {"0x20016419", "0x0FFFAAED"},  // SPRMOD clear
      {"0x20016419", "0x8FFF55ED"},  // level 1 already
      {"0x10076413", "0x8FFFAAED"},  // one bank
  };
  for (const auto& Device : Devices) {
    const ToolResult Result =
        RunReset(MENU_F4, std::string(Ready) + "read 0xE0042000 " + Device.sDevId +
                              "\nread 0x40023C14 " + Device.sOptCr + " 0x0FFFAAEC\n");
    EXPECT_EQ(std::string::npos, Result.Transcript.find("0x8FFFBBE0")) << Device.sOptCr;
    EXPECT_EQ(0, Result.Status);
  }
}

TEST(ResetF4, Optcr1IsNeverWrittenOnOneBank) {
  const ToolResult Result =
      RunReset(MENU_F4, std::string(Ready) +
                            "read 0xE0042000 0x10076413\nread 0x40023C14 0x8FFFAAED 0x0FFFAAEC\n");
  EXPECT_EQ(std::string::npos, Result.Transcript.find("WriteU32(0x40023C18"));
}

TEST(ResetF7, PcropStageDependsOnTheDeviceNotOnTheChosenFamily) {
  const ToolResult Result =
      RunReset(MENU_F76, std::string(Ready) +
                             "read 0xE0042000 0x20016419\nread 0x40023C14 0x8FFFAAED 0xFFFFAAFC\n");
  EXPECT_NE(std::string::npos,
            Result.Transcript.find("<WriteU32(0x40023C14, 0x8FFFBBE2)>" + std::string(Busy) +
                                   "<WriteU32(0x40023C18, 0x00400080)>"));
}

TEST(ResetF7, SmallPartsGetTheirValues) {
  for (int Menu : {MENU_F72, MENU_F74}) {
    ExpectReset(Menu,
                std::string(Ready) +
                    "read 0xE0042000 0x10016449\nread 0x40023C14 0xC0FF55FD "
                    "0xC0FFAAFD\n",
                std::string(Begin) + Keys +
                    "<WriteU32(0x40023C18, 0x00400080)>"
                    "<WriteU32(0x40023C14, 0xC0FFAAFC)><WriteU32(0x40023C14, 0xC0FFAAFE)>" +
                    Busy + End("0xC0FFAAFD"),
                0);
  }
}

TEST(ResetF7, LargePartsGetTheirValues) {
  ExpectReset(MENU_F76,
              std::string(Ready) +
                  "read 0xE0042000 0x10016451\nread 0x40023C14 0xFFFF55FD "
                  "0xFFFFAAFC\n",
              std::string(Begin) + Keys +
                  "<WriteU32(0x40023C18, 0x00400080)>"
                  "<WriteU32(0x40023C14, 0xFFFFAAFC)><WriteU32(0x40023C14, 0xFFFFAAFE)>" +
                  Busy + End("0xFFFFAAFD"),
              0);
}

TEST(ResetF4, KeysAreNotWrittenWhenTheOptionsAreUnlocked) {
  const ToolResult Result =
      RunReset(MENU_F4, std::string(Ready) +
                            "read 0xE0042000 0x10076413\nread 0x40023C14 0x0FFF55EC 0x0FFFAAEC\n");
  EXPECT_EQ(std::string::npos, Result.Transcript.find("WriteU32(0x40023C08"));
  EXPECT_EQ(0, Result.Status);
}

TEST(ResetF4, FailedFirstReadEndsWithItsResult) {
  ExpectReset(MENU_F4, "read 0xE0042000 0x10076413\nread-fails 0x40023C14 -3 0x0FFFAAEC\n",
              std::string(Begin) + "Memory read failed.\nUnlock not successful.\n", 253);
}

TEST(ResetF4, AnyNegativeResultOfTheFirstReadEndsTheRun) {
  const ToolResult Result =
      RunReset(MENU_F4, "read 0xE0042000 0x10076413\nread-fails 0x40023C14 -1\n");
  EXPECT_EQ(std::string(Begin) + "Memory read failed.\nUnlock not successful.\n",
            ResetPart(Result));
  EXPECT_EQ(255, Result.Status);
}

TEST(ResetF4, ReadBackThatIsNotDeliveredIsAFailedReset) {
  ExpectReset(MENU_F4,
              std::string(Ready) +
                  "read 0xE0042000 0x10076413\nread 0x40023C14 0x0FFF55EC\n"
                  "fail-later 0x40023C14 1 -1\n",
              std::string(Begin) +
                  "<WriteU32(0x40023C14, 0x0FFFAAEC)><WriteU32(0x40023C14, 0x0FFFAAEE)>" + Busy +
                  "<Reset()><Read(0x40023C14, 1)>Resetting option bytes failed.\n",
              0);
}

TEST(ResetF4, AllTwelveBitsOfDevIdAreCompared) {
  for (const char* sDevId : {"0x10000C19", "0x10000434", "0x10000819"}) {
    const ToolResult Result = RunReset(MENU_F4, std::string(Ready) + "read 0xE0042000 " + sDevId +
                                                    "\nread 0x40023C14 0x0FFFAAED 0x0FFFAAEC\n");
    EXPECT_EQ(std::string(sDevId) == "0x10000434",
              Result.Transcript.find("WriteU32(0x40023C18") != std::string::npos)
        << sDevId;
  }
}

TEST(ResetF4, AllBitsOfTheReadBackProtectionAreCompared) {
  for (const char* sOptCr : {"0x0FFFABED", "0x0FFF2AED"}) {
    const ToolResult Result = RunReset(
        MENU_F4, std::string(Ready) + "read 0xE0042000 0x413\nread 0x40023C14 1 " + sOptCr + "\n");
    EXPECT_NE(std::string::npos, Result.Output.find("Resetting option bytes failed.\n")) << sOptCr;
  }
}

TEST(ResetF4, ReadThatWritesNothingCountsAsZero) {
  const ToolResult Result =
      RunReset(MENU_F4, std::string(Ready) +
                            "read-nothing 0xE0042000\nread-nothing 0x40023C14\n"
                            "read 0x40023C14 0x0FFFAAEC\n");
  EXPECT_EQ(std::string::npos, Result.Transcript.find("WriteU32(0x40023C18"));
  EXPECT_EQ(std::string::npos, Result.Transcript.find("WriteU32(0x40023C08"));
  EXPECT_EQ(0, Result.Status);
}

TEST(ResetF4, ReadBackAboveLevelZeroIsReportedInWordsOnly) {
  ExpectReset(MENU_F4,
              std::string(Ready) +
                  "read 0xE0042000 0x10076413\nread 0x40023C14 0x0FFF55ED "
                  "0x0FFFBBED\n",
              std::string(Begin) + Keys +
                  "<WriteU32(0x40023C14, 0x0FFFAAEC)><WriteU32(0x40023C14, 0x0FFFAAEE)>" + Busy +
                  "<Reset()><Read(0x40023C14, 1)>Resetting option bytes failed.\n",
              0);
}

TEST(ResetF4, IdentityThatIsNotDeliveredMeansOneBank) {
  const ToolResult Result =
      RunReset(MENU_F4, std::string(Ready) +
                            "read-fails 0xE0042000 -1\nread 0x40023C14 0x8FFFAAED 0x0FFFAAEC\n");
  EXPECT_EQ(std::string::npos, Result.Transcript.find("WriteU32(0x40023C18"));
  EXPECT_EQ(0, Result.Status);
}

TEST(ResetF4, IdentityIsTakenAsDeliveredWhateverTheResult) {
  ExpectReset(MENU_F4,
              std::string(Ready) +
                  "read-fails 0xE0042000 -1 0x20016419\n"
                  "read 0x40023C14 0x0FFFAAEC\n",
              std::string(Begin) +
                  "<WriteU32(0x40023C18, 0x0FFF0000)>"
                  "<WriteU32(0x40023C14, 0x0FFFAAEC)><WriteU32(0x40023C14, 0x0FFFAAEE)>" +
                  Busy + End("0x0FFFAAED"),
              0);
}

TEST(ResetF4, StatusThatIsNotDeliveredCountsAsBusyInBothStages) {
  ExpectReset(MENU_F4,
              "read 0x40023C0C 0\nread-fails 0x40023C0C -1\nread-nothing 0x40023C0C\n"
              "read 0xE0042000 0x20016419\nread 0x40023C14 0x8FFFAAEC 0x0FFFAAEC\n",
              std::string(Begin) +
                  "<WriteU32(0x40023C18, 0x8FFF0000)>"
                  "<WriteU32(0x40023C14, 0x8FFFBBE0)><WriteU32(0x40023C14, 0x8FFFBBE2)>" +
                  Busy + Busy + Busy +
                  "<WriteU32(0x40023C18, 0x0FFF0000)>"
                  "<WriteU32(0x40023C14, 0x0FFFAAEC)><WriteU32(0x40023C14, 0x0FFFAAEE)>" +
                  Busy + End("0x0FFFAAED"),
              0);
  ExpectReset(MENU_F4,
              "read 0x40023C0C 0x10000 0\nfail-later 0x40023C0C 1 -1\n"
              "read 0xE0042000 0x413\nread 0x40023C14 0x0FFF55EC 0x0FFFAAEC\n",
              std::string(Begin) +
                  "<WriteU32(0x40023C14, 0x0FFFAAEC)><WriteU32(0x40023C14, 0x0FFFAAEE)>" + Busy +
                  Busy + Busy + End("0x0FFFAAED"),
              0);
}

TEST(ResetF4, StatusIsTakenAsDeliveredWhateverTheResult) {
  ExpectReset(MENU_F4,
              "read-fails 0x40023C0C -1 0x10000\nread-fails 0x40023C0C -1 0xFFFEFFFF\n"
              "read 0xE0042000 0x413\nread 0x40023C14 0x0FFF55EC 0x0FFFAAEC\n",
              std::string(Begin) +
                  "<WriteU32(0x40023C14, 0x0FFFAAEC)><WriteU32(0x40023C14, 0x0FFFAAEE)>" + Busy +
                  Busy + End("0x0FFFAAED"),
              0);
}

TEST(ResetF4, ReadBackIsTakenAsDeliveredWhateverTheResult) {
  ExpectReset(MENU_F4,
              std::string(Ready) +
                  "read 0xE0042000 0x413\nread 0x40023C14 0x0FFF55EC\n"
                  "fail-later 0x40023C14 1 -1 0x0FFFAAEC\n",
              std::string(Begin) +
                  "<WriteU32(0x40023C14, 0x0FFFAAEC)><WriteU32(0x40023C14, 0x0FFFAAEE)>" + Busy +
                  End("0x0FFFAAED"),
              0);
}

static void ExpectTimeoutAfter25Seconds(const std::vector<std::string>& Environment) {
  ToolRun Run;
  Run.Args        = {"-SetDeviceFamily", "5", "-Exit", "1"};
  Run.Script      = "read 0x40023C0C 0x10000\nread 0xE0042000 0x413\nread 0x40023C14 0x0FFF55ED\n";
  Run.Environment = Environment;
  Run.TimeLimitMs = 60000;
  const ToolResult  Result = RunTool(Run);
  const std::string Text   = "Timeout while waiting for device to be unsecured.\n<Reset()>";
  EXPECT_NE(std::string::npos, Result.Transcript.find(Text + "<IsOpen()><Close()>"));
  EXPECT_EQ(255, Result.Status);
  EXPECT_GE(Result.ElapsedMs, 25000);
  EXPECT_LT(Result.ElapsedMs, 35000);
}

TEST(ResetF4, BusyFor25SecondsEndsWithTheTimeoutAndAReset) {
  if (getenv("QUOBE_SLOW_TESTS") == nullptr) {
    GTEST_SKIP() << "waits 25 s; runs under script/test --slow";
  }
  ExpectTimeoutAfter25Seconds({});
}

TEST(ResetF4, BusyFor25SecondsWhateverATickOfTheSystemIs) {
  if (getenv("QUOBE_TEST_RUNNER") == nullptr) {
    GTEST_SKIP() << "only the runner of script/macos can make a tick longer";
  }
  ExpectTimeoutAfter25Seconds({"MACHORUN_TIMEBASE=125/3"});
}
