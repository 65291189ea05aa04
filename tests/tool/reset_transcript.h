// SPDX-License-Identifier: MIT

// A reset by the real executable: what it printed and called after the voltage line, up to the call
// that asks whether a connection is open.

#ifndef TESTS_TOOL_RESET_TRANSCRIPT_H
#define TESTS_TOOL_RESET_TRANSCRIPT_H

#include <gtest/gtest.h>

#include <string>

#include "tests/support/tool_process.h"

inline ToolResult RunReset(int MenuNumber, const std::string& Script) {
  ToolRun Run;
  Run.Args   = {"-SetDeviceFamily", std::to_string(MenuNumber), "-Exit", "1"};
  Run.Script = Script;
  return RunTool(Run);
}

inline std::string ResetPart(const ToolResult& Result) {
  const std::string Begin = "VTarget = 3.300V\n";
  const std::string End   = "<IsOpen()><Close()>";
  const size_t      From  = Result.Transcript.find(Begin);
  const size_t      To    = Result.Transcript.rfind(End);
  if (From == std::string::npos || To == std::string::npos ||
      To + End.size() != Result.Transcript.size()) {
    return "NOT A WHOLE RUN: " + Result.Transcript;
  }
  return Result.Transcript.substr(From + Begin.size(), To - From - Begin.size());
}

inline void ExpectReset(int MenuNumber, const std::string& Script, const std::string& Transcript,
                        int Status) {
  const ToolResult Result = RunReset(MenuNumber, Script);
  EXPECT_EQ(Transcript, ResetPart(Result));
  EXPECT_EQ(Status, Result.Status);
  EXPECT_EQ("", Result.Error);
}

#endif
