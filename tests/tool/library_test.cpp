// SPDX-License-Identifier: MIT

// Where the tool finds the probe library, and what it prints when it does not.

#include <gtest/gtest.h>

#include "tests/support/tool_process.h"

static const char NotFound[] = "Could not open Quobe shared library. Exiting now.\n";

static ToolRun ExitFromMenu() {
  ToolRun Run;
  Run.Input = "0\n";
  return Run;
}

static bool FoundLibrary(const ToolResult& Result) {
  return Result.Status == 0 && Result.Calls == std::vector<std::string>{"IsOpen()"};
}

TEST(Library, IsFoundBesideTheExecutable) {
  EXPECT_TRUE(FoundLibrary(RunTool(ExitFromMenu())));
}

TEST(Library, IsFoundThreeFoldersAboveTheExecutable) {
  ToolRun Run     = ExitFromMenu();
  Run.ToolFolder  = "Unlock.app/Contents/MacOS";
  Run.ProbeFolder = "../../..";
  EXPECT_TRUE(FoundLibrary(RunTool(Run)));
}

TEST(Library, IsNotFoundTwoFoldersAboveTheExecutable) {
  ToolRun Run     = ExitFromMenu();
  Run.ToolFolder  = "a/b/c";
  Run.ProbeFolder = "../..";
  EXPECT_EQ(1, RunTool(Run).Status);
}

TEST(Library, MissingLibraryEndsEveryRunWithOneLineAndStatusOne) {
  ToolRun Run              = ExitFromMenu();
  Run.ProbeKind            = Probe::None;
  const ToolResult  Result = RunTool(Run);
  const std::string Menu   = "  [12] STM32L4x6xx\n";
  EXPECT_EQ(NotFound, Result.Output.substr(Result.Output.find(Menu) + Menu.size()));
  EXPECT_EQ("", Result.Error);
  EXPECT_EQ(1, Result.Status);

  Run.Args               = {"-Exit", "1", "-SetDeviceFamily", "5"};
  const ToolResult Reset = RunTool(Run);
  EXPECT_EQ(
      "Parsing command line...O.K.\n"
      "Select device family: STM32F4xxxx\n"
      "Connecting to Quobe via USB..." +
          std::string(NotFound),
      AfterBanner(Reset.Output));
  EXPECT_EQ(1, Reset.Status);
}

TEST(Library, MissingFunctionEndsTheRunWhenItIsNeededAndIsNamed) {
  ToolRun Run;
  Run.Args                 = {"-Exit", "1", "-SetDeviceFamily", "11"};
  Run.ProbeKind            = Probe::LacksTifSelect;
  const ToolResult  Result = RunTool(Run);
  const std::string Begin =
      "Parsing command line...O.K.\n"
      "Select device family: STM32L1xxxx\n"
      "Connecting to Quobe via USB...O.K.\n"
      "Using SWD as target interface.\n"
      "Function not found: QUOBEARM_TIF_Select (";
  const std::string End   = "). Exiting now.\n";
  const std::string Shown = AfterBanner(Result.Output);
  ASSERT_GT(Shown.size(), Begin.size() + End.size()) << Shown;
  EXPECT_EQ(Begin, Shown.substr(0, Begin.size()));
  EXPECT_EQ(End, Shown.substr(Shown.size() - End.size()));
  // In the brackets is the dynamic loader's text, complete.
  const std::string Reason = Shown.substr(Begin.size(), Shown.size() - Begin.size() - End.size());
  EXPECT_NE(std::string::npos, Reason.find("QUOBEARM_TIF_Select")) << Reason;
  EXPECT_EQ(std::string::npos, Reason.find('\n'));
  EXPECT_EQ("", Result.Error);
  EXPECT_EQ(1, Result.Status);
}

TEST(Library, MissingFunctionDoesNotMatterToARunThatDoesNotCallIt) {
  ToolRun Run   = ExitFromMenu();
  Run.ProbeKind = Probe::LacksTifSelect;
  EXPECT_TRUE(FoundLibrary(RunTool(Run)));
}
