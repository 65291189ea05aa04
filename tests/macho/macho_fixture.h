// tests/macho/macho_fixture.h
// SPDX-License-Identifier: MIT
//
// Runs a Mach-O file in the runner and collects what it printed and what it asked the system for.
//
// Not registered with ctest: script/macos builds the Mach-O files first and then runs macho_test
// with
//   QUOBE_TEST_MACHO    folder of the x86-64 files
//   QUOBE_TEST_TOOL     the universal executable
//   QUOBE_TEST_RUNNER   machorun
//   QUOBE_TEST_RELEASE  folder of the Linux build

#ifndef TESTS_MACHO_FIXTURE_H
#define TESTS_MACHO_FIXTURE_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

inline std::string Need(const char* sName) {
  const char* sValue = getenv(sName);
  if (sValue == nullptr) {
    throw std::runtime_error(std::string(sName) + " is not set; run this by script/macos");
  }
  return sValue;
}

inline std::string ReadFile(const std::string& Path) {
  std::ifstream     File(Path, std::ios::binary);
  std::stringstream Text;
  Text << File.rdbuf();
  return Text.str();
}

// The lines whose beginning matches the expression.
inline std::vector<std::string> LinesWith(const std::string& Text, const std::string& Begin) {
  const std::regex         Expression("(" + Begin + ").*");
  std::istringstream       Stream(Text);
  std::vector<std::string> Lines;
  for (std::string Line; std::getline(Stream, Line);) {
    if (std::regex_match(Line, Expression)) {
      Lines.push_back(Line);
    }
  }
  return Lines;
}

struct Outcome {
  int         Status = -1;  // exit status; 128 + number for a signal
  std::string Output;       // standard output and error
  std::string Trace;

  std::vector<std::string> Candidates() const { return LinesWith(Trace, "dlopen"); }
};

class MachO : public ::testing::Test {
 protected:
  void SetUp() override {
    char acFolder[] = "/tmp/quobe-macho-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(acFolder));
    Folder = acFolder;
  }

  void TearDown() override {
    const std::string Command = "rm -rf '" + Folder + "'";
    EXPECT_EQ(0, system(Command.c_str()));
  }

  // Arguments is words of a command line, quoted where they need it.
  Outcome Run(const std::string& File, const std::vector<std::string>& Environment = {},
              const std::string& Arguments = "") const {
    // The braces keep the shell's message about a child that a signal ended out of the output.
    std::string Command =
        "cd '" + Folder + "' && rm -f trace && { echo 0 | env MACHORUN_TRACE=trace";
    for (const std::string& Entry : Environment) {
      Command += " '" + Entry + "'";
    }
    Command += " '" + Need("QUOBE_TEST_RUNNER") + "' '" + File + "' " + Arguments +
               " >out 2>&1; } 2>shell";
    Outcome   Result;
    const int Status = system(Command.c_str());
    Result.Status    = WIFEXITED(Status) ? WEXITSTATUS(Status) : -1;
    Result.Output    = ReadFile(Folder + "/out");
    Result.Trace     = ReadFile(Folder + "/trace");
    return Result;
  }

  Outcome RunTool(const std::vector<std::string>& Environment) const {
    return Run(Need("QUOBE_TEST_TOOL"), Environment);
  }

  std::string Folder;
};

#endif
