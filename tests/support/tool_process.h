// SPDX-License-Identifier: MIT

// The tool as a process: the real executable in a new folder, a probe library beside it, real
// standard input, a time limit.
//
// The executable under test is the one of this build. Two environment variables of the test run
// choose another one:
//   QUOBE_TEST_TOOL    path of the executable
//   QUOBE_TEST_RUNNER  a program that runs it, called with the executable's path before the
//                      arguments: machorun, whose MACHORUN_ variables are set as needed

#ifndef TESTS_SUPPORT_TOOL_PROCESS_H
#define TESTS_SUPPORT_TOOL_PROCESS_H

#include <map>
#include <string>
#include <utility>
#include <vector>

enum class Probe {
  Scripted,        // tests/support/scripted_probe.cpp
  LacksTifSelect,  // the same without QUOBEARM_TIF_Select
  None,            // no library in any of the places
};

struct ToolRun {
  std::vector<std::string> Args;    // after the program name
  std::string              Input;   // all of standard input; then it ends
  std::string              Script;  // for the scripted probe
  Probe                    ProbeKind   = Probe::Scripted;
  std::string              ProbeFolder = ".";  // below the folder of the executable
  std::string              ToolFolder  = ".";  // of the executable, below the run's folder
  std::string              ProgramName;        // argv[0]; empty: the executable's path
  std::vector<std::string> Environment;        // NAME=VALUE, added
  std::vector<int>         Closed;             // of descriptors 0, 1 and 2, when the tool starts
  std::string              ErrorFileBegin;     // what is in standard error's file at the start
  int                      TimeLimitMs = 30000;
};

struct ToolResult {
  bool                     TimedOut = false;  // and was killed
  int                      Status   = -1;     // exit status; -1 when a signal ended it
  int                      Signal   = 0;
  std::string              Output;         // standard output
  std::string              Error;          // standard error
  std::vector<std::string> Calls;          // of the probe library, in order
  std::vector<long long>   CallTimesMs;    // when each was made, by a monotonic clock
  std::string              Transcript;     // Output with each call as <call> where it was made
  std::string              ToolPath;       // of the executable that ran
  int                      ElapsedMs = 0;  // the runner's simulated time included
  std::string              LibraryFile;    // what is in the file of the script's keep-file
};

// Runs the tool with standard input from a pipe and standard output to a file.
ToolResult RunTool(const ToolRun& Run);

// Runs the tool with standard input, output and error on one terminal; Input is typed once the text
// PromptEnd has been shown. Output is what the terminal showed, line ends as "\n"; Transcript is
// empty.
ToolResult RunToolOnTerminal(const ToolRun& Run, const std::string& PromptEnd);

enum class Event {
  None,
  ReaderLeaves,  // the pipe that standard output goes to is closed
  HangUp,        // SIGHUP
  Interrupt,     // SIGINT
  Terminate,     // SIGTERM
};

// Runs the tool with standard output to a pipe while the probe holds its first call of Call (for
// example "Reset"). Returns what could be read from the pipe while it was held. Then Meanwhile
// happens, the run goes on and its result is stored.
std::string RunToolAndLookAtPipe(const ToolRun& Run, const std::string& Call, ToolResult* pResult,
                                 Event Meanwhile = Event::None);

// Runs the tool on a terminal that is closed while the probe holds its first call of Call. Stores
// no output.
ToolResult RunToolAndCloseTerminal(const ToolRun& Run, const std::string& Call);

// Runs the tool with standard input open and empty until Text has been printed, lets it wait there
// for a quarter of a second, then types Key. True when it was still waiting then; its result is
// stored.
bool RunToolUntilItWaits(const ToolRun& Run, const std::string& Text, const std::string& Key,
                         ToolResult* pResult);

// Runs the tool with standard input at its end until Text has been printed, and for a quarter of a
// second more. True when it was still running then. It is killed; what it did is stored.
bool RunsOnAtEndOfInput(const ToolRun& Run, const std::string& Text, ToolResult* pResult);

// The text with the build date and time of its banner replaced by "<built>", to compare two runs.
std::string WithoutBuildTime(const std::string& Text);

// The text after the banner; "NO BANNER: " and the whole text if it does not begin with one.
std::string AfterBanner(const std::string& Text);

#endif
