// SPDX-License-Identifier: MIT

#include "sys/misc.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "tests/sys/support/closed_stdin.h"
#include "tests/sys/support/faults.h"
#include "tests/sys/support/measure.h"

TEST(SysProcessors, AreThoseInUse) {
  EXPECT_EQ(sysconf(_SC_NPROCESSORS_ONLN), SYS_GetNumProcessors());
}

TEST(SysProcessors, AreNoneWhenTheSystemDoesNotSay) {
  int32_t Count;
  {
    const FAULT Fault("sysctlbyname", ENOENT);
    Count = SYS_GetNumProcessors();
  }
  EXPECT_EQ(0, Count);
}

// ---- Log ----------------------------------------------------------------------------------------

TEST(SysLog, PadsOnTheLeftTo128Characters) {
  LogCalls.clear();
  SYS_Log("hello");
  ASSERT_EQ(1u, LogCalls.size());
  EXPECT_EQ(15, LogCalls[0].Priority);
  EXPECT_EQ("%128s", LogCalls[0].Format);
  EXPECT_EQ(std::string(123, ' ') + "hello", LogCalls[0].Text);
}

TEST(SysLog, LongMessagesAreLoggedWholeAndPercentSignsAreText) {
  LogCalls.clear();
  const std::string sLong = std::string(300, 'x') + "%s%n";
  SYS_Log(sLong.c_str());
  ASSERT_EQ(1u, LogCalls.size());
  EXPECT_EQ(sLong, LogCalls[0].Text);
}

// ---- Idle sleep ---------------------------------------------------------------------------------

TEST(SysIdleSleep, IsASwitchAndNoCount) {
  const CALL_COUNTER Create("IOPMAssertionCreate");
  const CALL_COUNTER Release("IOPMAssertionRelease");
  SYS_AllowIdleSleep();
  EXPECT_EQ(0u, Release.GetNumCalls()) << "nothing was prevented";
  SYS_PreventIdleSleep();
  SYS_PreventIdleSleep();
  EXPECT_EQ(1u, Create.GetNumCalls());
  SYS_AllowIdleSleep();
  SYS_AllowIdleSleep();
  EXPECT_EQ(1u, Release.GetNumCalls());
  SYS_PreventIdleSleep();
  EXPECT_EQ(2u, Create.GetNumCalls());
  SYS_AllowIdleSleep();
  EXPECT_EQ(2u, Release.GetNumCalls());
}

TEST(SysIdleSleep, AsksForTheAssertionByNameAndLevel) {
  LastAssertion = {};
  SYS_PreventIdleSleep();
  EXPECT_EQ("NoIdleSleepAssertion", LastAssertion.Type);
  EXPECT_EQ(255u, LastAssertion.Level);
  const uint32_t Id = LastAssertion.Id;
  SYS_AllowIdleSleep();
  EXPECT_EQ(Id, LastAssertion.ReleasedId);
}

TEST(SysIdleSleep, RefusalIsIgnoredAndReleasesNobodyElsesAssertion) {
  SYS_PreventIdleSleep();
  SYS_AllowIdleSleep();
  {
    const FAULT Fault("IOPMAssertionCreate", (int)0xE00002C2);
    SYS_PreventIdleSleep();
  }
  SYS_AllowIdleSleep();
  EXPECT_EQ(0u, LastAssertion.ReleasedId);
}

// ---- Random bytes -------------------------------------------------------------------------------

TEST(SysRandom, FillsTheBufferAndNoMore) {
  uint8_t aFirst[66];
  uint8_t aSecond[66];
  memset(aFirst, 0xAA, sizeof(aFirst));
  memset(aSecond, 0xAA, sizeof(aSecond));
  EXPECT_EQ(0, SYS_GetRandom(aFirst, 64));
  EXPECT_EQ(O_RDONLY | O_CLOEXEC, LastOpenFlags);
  EXPECT_EQ(0, SYS_GetRandom(aSecond, 64));
  EXPECT_NE(0, memcmp(aFirst, aSecond, 64)) << "equal once in 2^512";
  EXPECT_EQ(0xAA, aFirst[64]);
  EXPECT_EQ(0xAA, aFirst[65]);
  EXPECT_EQ(0, SYS_GetRandom(aFirst, 0));
}

TEST(SysRandom, DescriptorZeroIsOneLikeAnyOther) {
  uint8_t aBytes[32]  = {};
  uint8_t aZeroes[32] = {};
  int32_t Result;
  {
    const CLOSED_STDIN Stdin;
    Result = SYS_GetRandom(aBytes, sizeof(aBytes));
    EXPECT_EQ(-1, fcntl(0, F_GETFD)) << "closed again";
  }
  EXPECT_EQ(0, Result);
  EXPECT_NE(0, memcmp(aBytes, aZeroes, sizeof(aBytes)));
}

TEST(SysRandom, OnlyAFailedOpenAndAFailedCloseAreReportedAndNoDescriptorStays) {
  const int NumBefore = CountDescriptors();
  uint8_t   a[4];
  int32_t   OpenFails;
  int32_t   ReadFails;
  int32_t   CloseFails;
  uint32_t  NumClosed;
  {
    const FAULT Fault("open", EMFILE);
    OpenFails = SYS_GetRandom(a, sizeof(a));
  }
  {
    const FAULT Fault("read", EIO);
    ReadFails = SYS_GetRandom(a, sizeof(a));
  }
  {
    const FAULT Fault("close", EIO);
    CloseFails = SYS_GetRandom(a, sizeof(a));
    NumClosed  = Fault.GetNumCalls();
  }
  EXPECT_EQ(-1, OpenFails);
  EXPECT_EQ(0, ReadFails);
  EXPECT_EQ(-1, CloseFails);
  EXPECT_EQ(1u, NumClosed);
  EXPECT_EQ(NumBefore, CountDescriptors());
}

// ---- Starting a program -------------------------------------------------------------------------

class SysStartProgram : public testing::Test {
 protected:
  void SetUp() override {
    snprintf(m_acReport, sizeof(m_acReport), "%s", "/tmp/quobe_report_XXXXXX");
    const int hFile = mkstemp(m_acReport);
    ASSERT_GE(hFile, 0);
    close(hFile);
    setenv("QUOBE_REPORT", m_acReport, 1);
  }
  void TearDown() override {
    unsetenv("QUOBE_REPORT");
    unlink(m_acReport);
  }
  // Waits for the program's end and returns what it wrote.
  std::string WaitForReport() {
    int Status = -1;
    EXPECT_GT(wait(&Status), 0);
    EXPECT_EQ(0, Status);
    std::stringstream Text;
    Text << std::ifstream(m_acReport).rdbuf();
    return Text.str();
  }

  char m_acReport[64];
};

TEST_F(SysStartProgram, TheProgramGetsItsPathTheEnvironmentAndNoDescriptor) {
  const int hLeak = fcntl(0, F_DUPFD, 40);  // would be inherited without the flag
  ASSERT_GE(hLeak, 40);
  int aPipe[2];
  ASSERT_EQ(0, pipe(aPipe));
  EXPECT_EQ(0, SYS_StartProgram(FD_REPORT));
  EXPECT_EQ("1\n" FD_REPORT "\n", WaitForReport());
  close(hLeak);
  close(aPipe[0]);
  close(aPipe[1]);
}

// No shell interprets the path.
TEST_F(SysStartProgram, PathIsTakenAsItIs) {
  const std::string sPath = std::string(m_acReport) + " a\tb\n%s %n;exit 3|'\"$HOME*\\ \xC3\xBC";
  ASSERT_EQ(0, symlink(FD_REPORT, sPath.c_str()));
  EXPECT_EQ(0, SYS_StartProgram(sPath.c_str()));
  EXPECT_EQ("1\n" + sPath + "\n", WaitForReport());
  unlink(sPath.c_str());
}

TEST_F(SysStartProgram, DoesNotWaitForIt) {
  EXPECT_EQ(0, SYS_StartProgram(FD_REPORT));
  EXPECT_EQ(0, SYS_StartProgram(FD_REPORT));
  WaitForReport();
  WaitForReport();
  EXPECT_EQ(-1, wait(nullptr)) << "two children, no third";
}

TEST(SysStartProgramErrors, AreTheSystems) {
  EXPECT_EQ(ENOENT, SYS_StartProgram("/no/such/program"));
  EXPECT_EQ(EACCES, SYS_StartProgram("/tmp"));
  EXPECT_EQ(-1, wait(nullptr)) << "no child";
}

// Each of the four calls is made, whatever the others return.
TEST_F(SysStartProgram, MakesAllFourCallsAndOrsTheirResults) {
  const struct {
    int  Init;
    int  SetFlags;
    int  Spawn;
    int  Destroy;
    bool IsStarted;
  } Cases[] = {{0, 0, 0, 0, true}, {1, 0, 0, 0, true},  {0, 2, 0, 0, true}, {0, 0, 4, 0, false},
               {0, 0, 0, 8, true}, {1, 2, 4, 8, false}, {1, 2, 0, 8, true}};
  for (const auto& Case : Cases) {
    int32_t  Result;
    uint32_t aNumCalls[4];
    {
      const FAULT Init("posix_spawnattr_init", Case.Init, 0, Case.Init != 0);
      const FAULT SetFlags("HOST_posix_spawnattr_setflags", Case.SetFlags, 0, Case.SetFlags != 0);
      const FAULT Spawn("HOST_posix_spawn", Case.Spawn, 0, Case.Spawn != 0);
      const FAULT Destroy("posix_spawnattr_destroy", Case.Destroy, 0, Case.Destroy != 0);
      Result       = SYS_StartProgram(FD_REPORT);
      aNumCalls[0] = Init.GetNumCalls();
      aNumCalls[1] = SetFlags.GetNumCalls();
      aNumCalls[2] = Spawn.GetNumCalls();
      aNumCalls[3] = Destroy.GetNumCalls();
    }
    EXPECT_EQ(Case.Init | Case.SetFlags | Case.Spawn | Case.Destroy, Result);
    for (const uint32_t NumCalls : aNumCalls) {
      EXPECT_EQ(1u, NumCalls) << Result;
    }
    EXPECT_EQ(Case.IsStarted, wait(nullptr) > 0) << Result;
  }
}
