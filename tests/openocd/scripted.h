// SPDX-License-Identifier: MIT

// A test of the library with a scripted program in OpenOCD's place: a folder of its own, rules for
// the program, the requests that it was sent, and whether it is gone.

#ifndef TESTS_OPENOCD_SCRIPTED_H
#define TESTS_OPENOCD_SCRIPTED_H

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

class Scripted : public testing::Test {
 protected:
  Scripted() {
    char acTemplate[] = "/tmp/scripted_openocd_XXXXXX";
    sFolder_          = mkdtemp(acTemplate);
    setenv("SCRIPTED_OPENOCD_RULES", Path("rules").c_str(), 1);
    setenv("SCRIPTED_OPENOCD_LOG", Path("requests").c_str(), 1);
    setenv("QUOBE_OPENOCD", Path("conf").c_str(), 1);
    Configure("driver = cmsis-dap\n");
  }

  ~Scripted() override { std::filesystem::remove_all(sFolder_); }

  std::string Path(const std::string& sName) const { return sFolder_ + "/" + sName; }

  void WriteFile(const std::string& sName, const std::string& sText) const {
    std::ofstream(Path(sName)) << sText;
  }

  std::string ReadFile(const std::string& sName) const {
    std::ostringstream Text;
    Text << std::ifstream(Path(sName)).rdbuf();
    return Text.str();
  }

  // The configuration, with the scripted program added.
  void Configure(const std::string& sText) const {
    WriteFile("conf", sText + "openocd = " SCRIPTED_OPENOCD "\n");
  }

  void Rules(const std::string& sText) const { WriteFile("rules", sText); }

  // The rules of the program started as the K-th from now on alone.
  void RulesOfNext(int K, const std::string& sText) const {
    WriteFile("rules." + std::to_string(static_cast<int>(Programs().size()) + K), sText);
  }

  // All commands so far, without the first line of each start.
  std::vector<std::string> Requests() const {
    std::vector<std::string> Lines;
    std::istringstream       Text(ReadFile("requests"));
    for (std::string sLine; std::getline(Text, sLine);) {
      if (sLine.find(": -c noinit") == std::string::npos) {
        Lines.push_back(sLine);
      }
    }
    return Lines;
  }

  // The requests since the last call.
  std::vector<std::string> NewRequests() {
    const std::vector<std::string> All = Requests();
    std::vector<std::string>       New(All.begin() + static_cast<long>(NumSeen_), All.end());
    NumSeen_ = All.size();
    return New;
  }

  // Process numbers of all programs started.
  std::vector<pid_t> Programs() const {
    std::vector<pid_t> Numbers;
    std::istringstream Text(ReadFile("requests"));
    for (std::string sLine; std::getline(Text, sLine);) {
      if (sLine.find(": -c noinit") != std::string::npos) {
        Numbers.push_back(atoi(sLine.c_str()));
      }
    }
    return Numbers;
  }

  // Fails when a program is still there, or a child of this process.
  void ExpectNothingLeft() const {
    for (const pid_t Program : Programs()) {
      EXPECT_TRUE(kill(Program, 0) != 0 && errno == ESRCH) << "process " << Program << " is left";
    }
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
  }

  int64_t ElapsedMs() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 Start_)
        .count();
  }

  void StartClock() { Start_ = std::chrono::steady_clock::now(); }

 private:
  std::string                           sFolder_;
  size_t                                NumSeen_ = 0;
  std::chrono::steady_clock::time_point Start_   = std::chrono::steady_clock::now();
};

#endif
