// SPDX-License-Identifier: MIT

// The process of the tool: descriptors that are closed when it starts, signals, a lost terminal.

#include <gtest/gtest.h>
#include <signal.h>

#include "tests/support/tool_process.h"

// An STM32L1 that is ready at once and reads back factory values.
static ToolRun RunL1() {
  ToolRun Run;
  Run.Args = {"-Exit", "1", "-SetDeviceFamily", "11"};
  Run.Script =
      "read 0x40023C18 0\n"
      "block 0x1FF80000 0xFF5500AA 0xFF870078 0xFFFF0000 0xFFFF0000\n";
  return Run;
}

// What the tool prints in such a run, after the banner.
static const char OutputL1[] =
    "Parsing command line...O.K.\n"
    "Select device family: STM32L1xxxx\n"
    "Connecting to Quobe via USB...O.K.\n"
    "Using SWD as target interface.\n"
    "Target interface speed: 1000 kHz.\n"
    "VTarget = 3.300V\n"
    "Reset target...O.K.\n"
    "Reset option bytes to factory settings...O.K.\n";

static ToolResult RunWithClosed(const std::vector<int>& Descriptors) {
  ToolRun Run = RunL1();
  Run.Closed  = Descriptors;
  Run.Script += "keep-file 1\n";
  const ToolResult Result = RunTool(Run);
  for (const std::string& Call : Result.Calls) {
    EXPECT_EQ(std::string::npos, Call.find("UNEXPECTED")) << Call;
  }
  EXPECT_EQ("Close()", Result.Calls.back());
  EXPECT_EQ("end\n", Result.LibraryFile);
  EXPECT_EQ(0, Result.Status);
  return Result;
}

TEST(Process, FileOfTheLibraryIsNotReadWhenInputIsClosed) {
  const ToolResult Result = RunWithClosed({0});
  EXPECT_EQ(OutputL1, AfterBanner(Result.Output));
  EXPECT_EQ("noise\n", Result.Error);
}

TEST(Process, FileOfTheLibraryGetsNoTextOfTheToolWhenOutputIsClosed) {
  const ToolResult Result = RunWithClosed({1});
  EXPECT_EQ("", Result.Output);
  EXPECT_EQ("noise\n", Result.Error);
}

TEST(Process, FileOfTheLibraryGetsNoErrorTextWhenStandardErrorIsClosed) {
  EXPECT_EQ(OutputL1, AfterBanner(RunWithClosed({2}).Output));
}

TEST(Process, AllThreeDescriptorsMayBeClosed) {
  const ToolResult Result = RunWithClosed({0, 1, 2});
  EXPECT_EQ("", Result.Output);
  EXPECT_EQ("", Result.Error);
}

TEST(Process, KeyWaitEndsAtOnceWhenInputIsClosed) {
  ToolRun Run             = RunL1();
  Run.Args                = {"-SetDeviceFamily", "11"};
  Run.Closed              = {0};
  const ToolResult Result = RunTool(Run);
  EXPECT_EQ(std::string(OutputL1) + "Press any key to exit.\n", AfterBanner(Result.Output));
  EXPECT_EQ(0, Result.Status);
}

TEST(Process, OpenDescriptorsAreLeftAsTheyAre) {
  const ToolResult Result = RunWithClosed({});
  EXPECT_EQ(OutputL1, AfterBanner(Result.Output));
  EXPECT_EQ("noise\n", Result.Error);
}

TEST(Process, ReaderThatLeavesDoesNotStopAReset) {
  ToolResult Result;
  RunToolAndLookAtPipe(RunL1(), "Reset", &Result, Event::ReaderLeaves);
  EXPECT_EQ("Close()", Result.Calls.back());
  EXPECT_EQ(0, Result.Signal);
  EXPECT_EQ(0, Result.Status);
}

TEST(Process, HangUpDoesNotStopARunOnceTheProbeIsOpened) {
  for (const char* sCall : {"Open", "Reset"}) {
    ToolResult Result;
    RunToolAndLookAtPipe(RunL1(), sCall, &Result, Event::HangUp);
    EXPECT_EQ(OutputL1, AfterBanner(Result.Output)) << sCall;
    EXPECT_EQ("Close()", Result.Calls.back());
    EXPECT_EQ(0, Result.Signal);
    EXPECT_EQ(0, Result.Status);
  }
}

TEST(Process, HangUpEndsARunBeforeTheProbeIsOpened) {
  ToolRun Run = RunL1();
  Run.Args.insert(Run.Args.end(), {"-IP", "a"});
  ToolResult Result;
  RunToolAndLookAtPipe(Run, "SelectIP", &Result, Event::HangUp);
  EXPECT_EQ(SIGHUP, Result.Signal);
  EXPECT_EQ(std::vector<std::string>{"SelectIP(a, 0)"}, Result.Calls);
}

TEST(Process, InterruptAndTerminationEndARunAtOnce) {
  ToolResult Result;
  RunToolAndLookAtPipe(RunL1(), "Reset", &Result, Event::Interrupt);
  EXPECT_EQ(SIGINT, Result.Signal);
  EXPECT_EQ("Reset()", Result.Calls.back());
  Result = ToolResult();
  RunToolAndLookAtPipe(RunL1(), "Reset", &Result, Event::Terminate);
  EXPECT_EQ(SIGTERM, Result.Signal);
  EXPECT_EQ("Reset()", Result.Calls.back());
}

TEST(Process, TerminalThatIsClosedDoesNotStopAReset) {
  ToolRun Run             = RunL1();
  Run.Args                = {"-SetDeviceFamily", "11"};  // with the key wait: it must end too
  const ToolResult Result = RunToolAndCloseTerminal(Run, "Reset");
  EXPECT_EQ("Close()", Result.Calls.back());
  EXPECT_EQ(0, Result.Signal);
  EXPECT_EQ(0, Result.Status);
}
