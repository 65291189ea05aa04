// SPDX-License-Identifier: MIT

// The flow from banner to exit status, around a reset that works at once (STM32L1: no waits).

#include <gtest/gtest.h>

#include "tests/support/tool_process.h"

// An L1 that is ready at once and reads back factory values.
static const char ScriptL1[] =
    "read 0x40023C18 0\n"
    "block 0x1FF80000 0xFF5500AA 0xFF870078 0xFFFF0000 0xFFFF0000\n";

static const char DescriptionAndMenu[] =
    "This program is designed to reset the option bytes of a STM32 device to their factory "
    "settings. "
    "If read protection of the device is enabled, reset the option bytes will cause a mass erase.\n"
    "\n"
    "Options:\n"
    "  [0] Exit\n"
    "  [1] STM32F0xxxx\n"
    "  [2] STM32F1xxxx\n"
    "  [3] STM32F2xxxx\n"
    "  [4] STM32F3xxxx\n"
    "  [5] STM32F4xxxx\n"
    "  [6] STM32F72xxx, STM32F73xxx\n"
    "  [7] STM32F74xxx, STM32F75xxx\n"
    "  [8] STM32F76xxx, STM32F77xxx\n"
    "  [9] STM32H7xxxx\n"
    "  [10] STM32L0xxxx\n"
    "  [11] STM32L1xxxx\n"
    "  [12] STM32L4x6xx\n";

static ToolResult RunL1(const std::vector<std::string>& MoreArgs,
                        const std::string&              MoreScript = "") {
  ToolRun Run;
  Run.Args = {"-SetDeviceFamily", "11", "-Exit", "1"};
  Run.Args.insert(Run.Args.end(), MoreArgs.begin(), MoreArgs.end());
  Run.Script = ScriptL1 + MoreScript;
  return RunTool(Run);
}

TEST(Flow, BannerShowsTheBuildTimeAndEndsWithAnEmptyLine) {
  ToolRun Run;
  Run.Input               = "0\n";
  const ToolResult Result = RunTool(Run);
  EXPECT_EQ(0u, WithoutBuildTime(Result.Output)
                    .find("OSTREL Quobe Unlock tool for STM32 devices\nCompiled <built>\n\nThis "));
}

TEST(Flow, WithoutArgumentsDescriptionAndMenuAreShownAndNothingIsParsed) {
  ToolRun Run;
  Run.Input               = "0\n";
  const ToolResult Result = RunTool(Run);
  EXPECT_EQ(std::string(DescriptionAndMenu) + "Press any key to exit.\n",
            AfterBanner(Result.Output));
  EXPECT_EQ("", Result.Error);
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, UnknownArgumentsAloneLeadToTheMenu) {
  ToolRun Run;
  Run.Args                = {"-Speedy", "4", "", "exit"};
  Run.Input               = "0\n";
  const ToolResult Result = RunTool(Run);
  EXPECT_EQ("Parsing command line...O.K.\n" + std::string(DescriptionAndMenu) +
                "Press any key to exit.\n",
            AfterBanner(Result.Output));
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, ExitFromTheMenuAsksOnlyWhetherAConnectionIsOpen) {
  ToolRun Run;
  Run.Input               = "0\n";
  const ToolResult Result = RunTool(Run);
  EXPECT_EQ(std::vector<std::string>{"IsOpen()"}, Result.Calls);
}

TEST(Flow, EachProbeCallOfARunComesAfterTheTextThatAnnouncesIt) {
  const ToolResult  Result = RunL1({});
  const std::string Begin =
      "Parsing command line...O.K.\n"
      "Select device family: STM32L1xxxx\n"
      "Connecting to Quobe via USB...<Open()>O.K.\n"
      "<ExecCommand(device = Cortex-M3, null, 0)>"
      "Using SWD as target interface.\n"
      "<TIF_Select(1)><SetSpeed(1000)><GetSpeed()>"
      "Target interface speed: 1000 kHz.\n"
      "<GetHWStatus()>"
      "VTarget = 3.300V\n"
      "<WriteU32(0xE0042008, 0x00001800)>"
      "Reset target...<SetResetType(0)><SetResetDelay(0)><Reset()>O.K.\n"
      "Reset option bytes to factory settings..."
      "<WriteU32(0x40023C0C, 0x89ABCDEF)>";
  EXPECT_EQ(Begin, AfterBanner(Result.Transcript).substr(0, Begin.size()));
  const std::string End = "O.K.\n<IsOpen()><Close()>";
  EXPECT_EQ(End, Result.Transcript.substr(Result.Transcript.size() - End.size()));
  EXPECT_EQ("", Result.Error);
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, ExitOptionEndsWithoutWaitingForAKey) {
  ToolRun Run;
  Run.Args                = {"-SetDeviceFamily", "11", "-Exit", "1"};
  Run.Script              = ScriptL1;
  const ToolResult Result = RunTool(Run);
  EXPECT_EQ(std::string::npos, Result.Output.find("Press any key"));
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, KeyWaitEndsWithTheFirstCharacter) {
  ToolRun Run;
  Run.Args   = {"-SetDeviceFamily", "11"};
  Run.Script = ScriptL1;
  ToolResult Result;
  EXPECT_TRUE(RunToolUntilItWaits(Run, "Press any key to exit.\n", "x", &Result));
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, WithoutExitOptionOneKeyIsReadAfterTheProbeIsClosed) {
  ToolRun Run;
  Run.Args                 = {"-SetDeviceFamily", "11", "-Exit", "0"};
  Run.Script               = ScriptL1;
  Run.Input                = "x";
  const ToolResult  Result = RunTool(Run);
  const std::string End    = "<IsOpen()><Close()>Press any key to exit.\n";
  EXPECT_EQ(End, Result.Transcript.substr(Result.Transcript.size() - End.size()));
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, FamilyFromTheCommandLineShowsItsNameAndNoMenu) {
  ToolRun Run;
  Run.Args                = {"-SetDeviceFamily", "3", "-Exit", "1"};
  Run.Script              = "open-error nobody there\n";
  const ToolResult Result = RunTool(Run);
  EXPECT_EQ(
      "Parsing command line...O.K.\n"
      "Select device family: STM32F2xxxx\n"
      "Connecting to Quobe via USB...nobody there\n",
      AfterBanner(Result.Output));
}

TEST(Flow, TextOfAFailedOpenEndsTheConnectLineAndNothingIsClosed) {
  ToolRun Run;
  Run.Args                = {"-SetDeviceFamily", "11", "-SetPowerTarget", "1", "-Exit", "1"};
  Run.Script              = "open-error Cannot connect to Quobe.\n";
  const ToolResult Result = RunTool(Run);
  EXPECT_EQ(
      "Parsing command line...O.K.\n"
      "Select device family: STM32L1xxxx\n"
      "Connecting to Quobe via USB...<Open()>Cannot connect to Quobe.\n"
      "<IsOpen()>",
      AfterBanner(Result.Transcript));
  EXPECT_EQ(255, Result.Status);
}

TEST(Flow, SerialNumberIsSelectedBeforeOpeningAndItsResultIgnored) {
  const ToolResult Result = RunL1({"-SelectEmuBySN", "4294967295"});
  EXPECT_EQ("EMU_SelectByUSBSN(4294967295)", Result.Calls.at(0));
  EXPECT_EQ("Open()", Result.Calls.at(1));
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, WithoutSerialNumberNoneIsSelected) {
  for (const char* sSerialNo : {"", "0"}) {
    const ToolResult Result = *sSerialNo == 0 ? RunL1({}) : RunL1({"-SelectEmuBySN", sSerialNo});
    EXPECT_EQ("Open()", Result.Calls.at(0));
  }
}

TEST(Flow, EthernetSelectsTheAddressWithPortZero) {
  const ToolResult Result = RunL1({"-IP", "192.168.1.2"});
  EXPECT_NE(std::string::npos, Result.Transcript.find("Connecting to Quobe via ethernet..."
                                                      "<SelectIP(192.168.1.2, 0)><Open()>O.K.\n"));
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, FailedEthernetSelectionNeverOpens) {
  const ToolResult Result = RunL1({"-IP", "nowhere"}, "select-ip 1\n");
  EXPECT_EQ(
      "Parsing command line...O.K.\n"
      "Select device family: STM32L1xxxx\n"
      "Connecting to Quobe via ethernet...<SelectIP(nowhere, 0)>failed.\n"
      "<IsOpen()>",
      AfterBanner(Result.Transcript));
  EXPECT_EQ(255, Result.Status);
}

TEST(Flow, OnlyTheLowByteOfAByteResultCounts) {
  // Rubbish above a zero byte: the selection worked.
  EXPECT_EQ(0, RunL1({"-IP", "a"}, "select-ip 0xABCDEF00\n").Status);
  EXPECT_EQ(255, RunL1({"-IP", "a"}, "select-ip 0xABCDEF80\n").Status);
  // Rubbish above a zero byte: nothing is open, so nothing is closed.
  ToolRun Run;
  Run.Args                = {"-SetDeviceFamily", "11", "-SetPowerTarget", "1", "-Exit", "1"};
  Run.Script              = "open-error no\nis-open-extra 0xFFFFFF00\n";
  const ToolResult Result = RunTool(Run);
  EXPECT_EQ("IsOpen()", Result.Calls.back());
}

TEST(Flow, SupplyIsSwitchedOnBeforeTheTargetIsUsedAndOffOnClose) {
  const ToolResult Result = RunL1({"-SetPowerTarget", "2"});
  EXPECT_NE(std::string::npos, Result.Transcript.find("<ExecCommand(device = Cortex-M3, null, 0)>"
                                                      "Powering target via Quobe.\n"
                                                      "<ExecCommand(SupplyPower = 1, buffer, 4000)>"
                                                      "Using SWD as target interface.\n"));
  const std::string End =
      "<IsOpen()><ExecCommand(DisablePowerSupplyOnClose, buffer, 4000)><Close()>";
  EXPECT_EQ(End, Result.Transcript.substr(Result.Transcript.size() - End.size()));
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, SupplyHas200MillisecondsToSettle) {
  const ToolResult Result = RunL1({"-SetPowerTarget", "1"});
  ASSERT_EQ("ExecCommand(SupplyPower = 1, buffer, 4000)", Result.Calls.at(2));
  ASSERT_EQ("TIF_Select(1)", Result.Calls.at(3));
  EXPECT_GE(Result.CallTimesMs.at(3) - Result.CallTimesMs.at(2), 199);
}

TEST(Flow, SupplyIsSwitchedOffOnCloseEvenIfTheResetFails) {
  ToolRun Run;
  Run.Args                 = {"-SetDeviceFamily", "2", "-SetPowerTarget", "1", "-Exit", "1"};
  Run.Script               = "read 0x40021000 3\nread 0x4002200C 0\nblock 0x1FFFF800 1 2 3 4\n";
  const ToolResult  Result = RunTool(Run);
  const std::string End =
      "Resetting option bytes failed.\n"
      "<IsOpen()><ExecCommand(DisablePowerSupplyOnClose, buffer, 4000)><Close()>";
  EXPECT_EQ(End, Result.Transcript.substr(Result.Transcript.size() - End.size()));
  EXPECT_EQ(255, Result.Status);
}

TEST(Flow, SpeedGoesToTheProbeAsGivenAndTheLowHalfOfTheAnswerIsShown) {
  const ToolResult Result = RunL1({"-Speed", "70000"}, "speed 0x12340FA0\n");
  EXPECT_NE(std::string::npos, Result.Transcript.find("<SetSpeed(70000)><GetSpeed()>"
                                                      "Target interface speed: 4000 kHz.\n"));
}

TEST(Flow, Voltage499IsTooLowAndNothingIsDoneToTheTarget) {
  const ToolResult Result = RunL1({}, "voltage 499\n");
  EXPECT_NE(std::string::npos, Result.Transcript.find("<GetHWStatus()>VTarget = 0.499V\n"
                                                      "Target voltage too low\n"
                                                      "<IsOpen()><Close()>"));
  EXPECT_EQ(255, Result.Status);
}

TEST(Flow, Voltage500IsEnough) {
  const ToolResult Result = RunL1({}, "voltage 500\n");
  EXPECT_NE(std::string::npos, Result.Output.find("VTarget = 0.500V\nReset target..."));
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, VoltageIsAnUnsigned16BitNumber) {
  EXPECT_NE(std::string::npos,
            RunL1({}, "voltage 65535\n").Output.find("VTarget = 65.535V\nReset target..."));
}

TEST(Flow, StatusThatIsNotFilledCountsAsNoVoltage) {
  const ToolResult Result = RunL1({}, "no-status\n");
  EXPECT_NE(std::string::npos, Result.Output.find("VTarget = 0.000V\nTarget voltage too low\n"));
  EXPECT_EQ(255, Result.Status);
}

TEST(Flow, LongStatusRecordOfTheLibraryFits) {
  const ToolResult Result = RunL1({}, "status-bytes 254\nvoltage 5005\n");
  EXPECT_NE(std::string::npos, Result.Output.find("VTarget = 5.005V\n"));
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, ProgressTextIsSeenThroughAPipeWhileTheResetIsMade) {
  ToolRun Run;
  Run.Args   = {"-SetDeviceFamily", "11", "-Exit", "1"};
  Run.Script = ScriptL1;
  ToolResult        Result;
  const std::string Seen = RunToolAndLookAtPipe(Run, "Reset", &Result);
  const std::string End  = "VTarget = 3.300V\nReset target...";
  ASSERT_GE(Seen.size(), End.size()) << Seen;
  EXPECT_EQ(End, Seen.substr(Seen.size() - End.size()));
  EXPECT_EQ(0, Result.Status);
}

TEST(Flow, ConnectTextIsSeenThroughAPipeWhileTheProbeIsOpened) {
  ToolRun Run;
  Run.Args   = {"-SetDeviceFamily", "11", "-Exit", "1"};
  Run.Script = ScriptL1;
  ToolResult        Result;
  const std::string Seen = RunToolAndLookAtPipe(Run, "Open", &Result);
  const std::string End  = "Connecting to Quobe via USB...";
  ASSERT_GE(Seen.size(), End.size()) << Seen;
  EXPECT_EQ(End, Seen.substr(Seen.size() - End.size()));
}
