// SPDX-License-Identifier: MIT

// The family menu, through a pipe and at a terminal. At the end of input the menu keeps reading, so
// each test types a whole line.

#include <gtest/gtest.h>

#include "tests/support/tool_process.h"

static const char PromptText[] = "Please select the correct device family: ";

// Types the entry. The connection then fails, so the run ends there.
static ToolResult Enter(const std::string& Entry) {
  ToolRun Run;
  Run.Input  = Entry;
  Run.Script = "open-error stop here\n";
  return RunTool(Run);
}

// The transcript after the menu.
static std::string AfterMenu(const ToolResult& Result) {
  const std::string LastRow = "  [12] STM32L4x6xx\n";
  const size_t      At      = Result.Transcript.find(LastRow);
  return At == std::string::npos ? "NO MENU: " + Result.Transcript
                                 : Result.Transcript.substr(At + LastRow.size());
}

// The command with the core's name; it is sent once the probe is open.
static std::string DeviceCommandFor(const std::string& Entry) {
  ToolRun Run;
  Run.Input               = Entry;
  Run.Script              = "voltage 0\n";
  const ToolResult Result = RunTool(Run);
  return Result.Calls.at(1);
}

TEST(Menu, EachNumberSendsItsCoreToTheProbe) {
  static const char* const Cores[] = {"Cortex-M3", "Cortex-M3", "Cortex-M3", "Cortex-M4",
                                      "Cortex-M4", "Cortex-M7", "Cortex-M7", "Cortex-M7",
                                      "Cortex-M7", "Cortex-M0", "Cortex-M3", "Cortex-M4"};
  for (int i = 1; i <= 12; i++) {
    EXPECT_EQ(std::string("ExecCommand(device = ") + Cores[i - 1] + ", null, 0)",
              DeviceCommandFor(std::to_string(i) + "\n"))
        << i;
  }
}

TEST(Menu, LeadingBlanksAreSkipped) {
  EXPECT_EQ("ExecCommand(device = Cortex-M7, null, 0)", DeviceCommandFor("  7\n"));
}

TEST(Menu, ChoiceIsNotRepeatedAndTheConnectionFollows) {
  EXPECT_EQ("Connecting to Quobe via USB...<Open()>stop here\n<IsOpen()>Press any key to exit.\n",
            AfterMenu(Enter("12\n")));
}

TEST(Menu, ThirteenIsRefused) {
  const ToolResult Result = Enter("13\n");
  EXPECT_EQ("ERROR: Invalid device family selected.\n<IsOpen()>Press any key to exit.\n",
            AfterMenu(Result));
  EXPECT_EQ(255, Result.Status);
}

TEST(Menu, NumberWrapsAt32Bits) {
  EXPECT_EQ("ExecCommand(device = Cortex-M3, null, 0)", DeviceCommandFor("4294967297\n"));
  EXPECT_EQ("ERROR: Invalid device family selected.\n<IsOpen()>Press any key to exit.\n",
            AfterMenu(Enter("4294967295\n")));
}

TEST(Menu, TextAfterTheDigitsIsIgnored) {
  EXPECT_EQ("ExecCommand(device = Cortex-M3, null, 0)", DeviceCommandFor("1x\n"));
}

TEST(Menu, EntryThatDoesNotStartWithADigitIsRefused) {
  for (const char* sEntry : {"x1\n", "\n", " \n", "-5\n", "\v7\n"}) {
    const ToolResult Result = Enter(sEntry);
    EXPECT_EQ("ERROR: Expected a dec value\n<IsOpen()>Press any key to exit.\n", AfterMenu(Result))
        << sEntry;
    EXPECT_EQ(255, Result.Status);
    EXPECT_EQ("", Result.Error);
  }
}

// Entries that hold a family's number and bytes from 0x80 on.
static const char* const MistypedEntries[] = {
    "\u00E97",      // e with acute accent, 7
    "\u00A07",      // no-break space, 7
    "\uFF112",      // full-width 1, 2
    "\U0001F6007",  // four bytes, 7
};

// The user's locale must not matter. Systems and scripts set these two.
static const char* const Locales[] = {"LC_ALL=C", "LC_ALL=C.UTF-8"};

TEST(Menu, EntryWithACharacterBeyondAsciiIsRefusedInAnyLocale) {
  for (const char* sLocale : Locales) {
    for (const char* sEntry : MistypedEntries) {
      ToolRun Run;
      Run.Input               = std::string(sEntry) + "\n";
      Run.Script              = "open-error stop here\n";
      Run.Environment         = {sLocale};
      const ToolResult Result = RunTool(Run);
      EXPECT_EQ("ERROR: Expected a dec value\n<IsOpen()>Press any key to exit.\n",
                AfterMenu(Result))
          << sLocale << " " << sEntry;
      EXPECT_EQ(255, Result.Status);
    }
  }
}

TEST(Menu, CharacterBeyondAsciiAfterTheDigitsIsIgnored) {
  for (const char* sLocale : Locales) {
    ToolRun Run;
    Run.Input               = "1\u00E92\n";
    Run.Script              = "voltage 0\n";
    Run.Environment         = {sLocale};
    const ToolResult Result = RunTool(Run);
    EXPECT_EQ("ExecCommand(device = Cortex-M3, null, 0)", Result.Calls.at(1)) << sLocale;
  }
}

// The line editor drops bytes that are not UTF-8. This is a limit of the menu.
TEST(Menu, BytesThatAreNotUtf8AreDropped) {
  EXPECT_EQ("ExecCommand(device = Cortex-M7, null, 0)", DeviceCommandFor("\xE9"
                                                                         "7\n"));
}

TEST(Menu, ZeroLeavesWithoutConnecting) {
  const ToolResult Result = Enter("0\n");
  EXPECT_EQ("<IsOpen()>Press any key to exit.\n", AfterMenu(Result));
  EXPECT_EQ(0, Result.Status);
}

TEST(Menu, OnlyTheFirst127CharactersOfAnEntryCount) {
  EXPECT_EQ("ExecCommand(device = Cortex-M3, null, 0)",
            DeviceCommandFor(std::string(126, '0') + "11\n"));  // ...01, the last 1 is cut
}

TEST(Menu, EndOfInputIsReadAgainForEver) {
  ToolResult Result;
  EXPECT_TRUE(RunsOnAtEndOfInput(ToolRun(), "  [12] STM32L4x6xx\n", &Result));
  EXPECT_TRUE(Result.Calls.empty());
  EXPECT_EQ("", Result.Error);
}

// Standard error may be open for reading as well: a terminal always is.
TEST(Menu, ClosedInputIsNotReadFromStandardError) {
  ToolRun Run;
  Run.Closed         = {0};
  Run.ErrorFileBegin = "0\n";
  ToolResult Result;
  EXPECT_TRUE(RunsOnAtEndOfInput(Run, "  [12] STM32L4x6xx\n", &Result));
  EXPECT_TRUE(Result.Calls.empty());
}

TEST(Menu, KeyWaitReadsTheCharacterAfterTheEntry) {
  ToolRun Run;
  Run.Input = "0\n";
  ToolResult Result;
  EXPECT_TRUE(RunToolUntilItWaits(Run, "Press any key to exit.\n", "q", &Result));
  EXPECT_EQ(0, Result.Status);
  EXPECT_FALSE(Result.TimedOut);
}

TEST(Menu, UnknownTerminalTypeWritesNothingToStandardError) {
  ToolRun Run;
  Run.Input               = "0\n";
  Run.Environment         = {"TERM=no-such-terminal"};
  const ToolResult Result = RunTool(Run);
  EXPECT_EQ("", Result.Error);
  EXPECT_EQ(0, Result.Status);
}

TEST(MenuOnATerminal, PromptComesAfterTheRowsAndTheEntryIsRead) {
  ToolRun Run;
  Run.Input               = "0\n\n";
  Run.Environment         = {"TERM=vt100"};
  const ToolResult Result = RunToolOnTerminal(Run, PromptText);
  EXPECT_FALSE(Result.TimedOut);
  const size_t Row    = Result.Output.find("  [12] STM32L4x6xx\n");
  const size_t Prompt = Result.Output.find(PromptText);
  ASSERT_NE(std::string::npos, Row) << Result.Output;
  ASSERT_NE(std::string::npos, Prompt) << Result.Output;
  EXPECT_LT(Row, Prompt);
  EXPECT_NE(std::string::npos, Result.Output.find("Press any key to exit.\n"));
  EXPECT_EQ(0, Result.Status);
}

TEST(MenuOnATerminal, WrongEntryEndsWithItsMessage) {
  ToolRun Run;
  Run.Input               = "99\n\n";
  Run.Environment         = {"TERM=vt100"};
  const ToolResult Result = RunToolOnTerminal(Run, PromptText);
  EXPECT_NE(std::string::npos, Result.Output.find("ERROR: Invalid device family selected.\n"));
  EXPECT_EQ(255, Result.Status);
}

TEST(MenuOnATerminal, EntryCanBeEdited) {
  ToolRun Run;
  Run.Input               = "13\b\b0\n\n";  // the line editor handles backspace
  Run.Environment         = {"TERM=vt100"};
  const ToolResult Result = RunToolOnTerminal(Run, PromptText);
  EXPECT_EQ(0, Result.Status) << Result.Output;
}

TEST(MenuOnATerminal, EntryWithACharacterBeyondAsciiIsRefusedInAnyLocale) {
  for (const char* sLocale : Locales) {
    for (const char* sEntry : MistypedEntries) {
      ToolRun Run;
      Run.Input               = std::string(sEntry) + "\n\n";
      Run.Environment         = {"TERM=vt100", sLocale};
      const ToolResult Result = RunToolOnTerminal(Run, PromptText);
      EXPECT_NE(std::string::npos, Result.Output.find("ERROR: Expected a dec value\n"))
          << sLocale << " " << Result.Output;
      EXPECT_EQ(std::vector<std::string>{"IsOpen()"}, Result.Calls);
      EXPECT_EQ(255, Result.Status);
    }
  }
}
