// SPDX-License-Identifier: MIT

#include "sys/files.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "tests/sys/support/temp_dir.h"

class SysFile : public testing::Test {
 protected:
  // Opens, checks that it worked, and keeps the descriptor for closing.
  int32_t Open(const std::string& sName, uint32_t Mode) {
    const int32_t hFile = SYS_FILE_Open(m_Dir.Path(sName).c_str(), Mode);
    EXPECT_GE(hFile, 0) << sName;
    return hFile;
  }
  std::string Text(const std::string& sName) { return ReadFile(m_Dir.Path(sName)); }
  void        Make(const std::string& sName, const std::string& sText) {
           WriteFile(m_Dir.Path(sName), sText);
  }

  TempDir m_Dir;
};

TEST_F(SysFile, ModeWithoutBitsReads) {
  Make("f", "abc");
  const int32_t hFile = Open("f", 0);
  char          acBuffer[8];
  EXPECT_EQ(3, SYS_FILE_Read(hFile, acBuffer, sizeof(acBuffer)));
  EXPECT_EQ(-1, SYS_FILE_Write(hFile, "x", 1));
  EXPECT_EQ(0, SYS_FILE_Close(hFile));
}

TEST_F(SysFile, ModeReadReadsAndDoesNotWrite) {
  Make("f", "abc");
  const int32_t hFile = Open("f", 0x01);
  char          c;
  EXPECT_EQ(1, SYS_FILE_Read(hFile, &c, 1));
  EXPECT_EQ(-1, SYS_FILE_Write(hFile, "x", 1));
  SYS_FILE_Close(hFile);
}

TEST_F(SysFile, ModeWriteWritesAndDoesNotRead) {
  Make("f", "abc");
  const int32_t hFile = Open("f", 0x02);
  char          c;
  EXPECT_EQ(-1, SYS_FILE_Read(hFile, &c, 1));
  EXPECT_EQ(1, SYS_FILE_Write(hFile, "x", 1));
  SYS_FILE_Close(hFile);
  EXPECT_EQ("xbc", Text("f"));
}

TEST_F(SysFile, Mode0x13ReadsWritesAndCreates) {
  const int32_t hFile = Open("f", 0x13);
  EXPECT_EQ(2, SYS_FILE_Write(hFile, "ab", 2));
  EXPECT_EQ(0, SYS_FILE_Seek(hFile, 0, SEEK_SET));
  char acBuffer[2];
  EXPECT_EQ(2, SYS_FILE_Read(hFile, acBuffer, 2));
  SYS_FILE_Close(hFile);
}

TEST_F(SysFile, AFileThatIsMadeHasThePermissions0644LessTheUmask) {
  {
    const Umask None(0);
    SYS_FILE_Close(Open("open", 0x12));
    SYS_FILE_Close(Open("exclusive", 0x93));
    SYS_FILE_Close(SYS_FILE_OpenRetry(m_Dir.Path("retry").c_str(), 0x12, 1, 0));
    SYS_FILE_Close(SYS_FILE_OpenRegular(m_Dir.Path("regular").c_str(), 0x32, 0, 0));
  }
  for (const char* sName : {"open", "exclusive", "retry", "regular"}) {
    EXPECT_EQ(0644u, PermissionsOf(m_Dir.Path(sName))) << sName;
  }
  const Umask Others(027);
  SYS_FILE_Close(Open("less", 0x12));
  EXPECT_EQ(0640u, PermissionsOf(m_Dir.Path("less")));
}

TEST_F(SysFile, AFileThatIsThereKeepsItsPermissions) {
  Make("f", "abc");
  ASSERT_EQ(0, chmod(m_Dir.Path("f").c_str(), 0600));
  const Umask None(0);
  SYS_FILE_Close(Open("f", 0x32));
  EXPECT_EQ(0600u, PermissionsOf(m_Dir.Path("f")));
}

TEST_F(SysFile, Mode0x93CreatesAndThenFailsOnTheExistingFile) {
  SYS_FILE_Close(Open("f", 0x93));
  EXPECT_EQ(-1, SYS_FILE_Open(m_Dir.Path("f").c_str(), 0x93));
  EXPECT_EQ(EEXIST, errno);
}

TEST_F(SysFile, TruncateEmptiesWithAndWithoutCreate) {
  for (const uint32_t Mode : {0x22u, 0x32u}) {
    Make("f", "abc");
    SYS_FILE_Close(Open("f", Mode));
    EXPECT_EQ("", Text("f")) << Mode;
  }
}

TEST_F(SysFile, TruncateAloneDoesNotCreate) {
  EXPECT_EQ(-1, SYS_FILE_Open(m_Dir.Path("none").c_str(), 0x22));
}

TEST_F(SysFile, ExclusiveWithoutCreateIsIgnored) {
  Make("f", "abc");
  SYS_FILE_Close(Open("f", 0x83));
  EXPECT_EQ("abc", Text("f"));
}

TEST_F(SysFile, ExclusiveCreationIgnoresTruncate) {
  Make("f", "abc");
  EXPECT_EQ(-1, SYS_FILE_Open(m_Dir.Path("f").c_str(), 0xB3));
  EXPECT_EQ("abc", Text("f"));
}

TEST_F(SysFile, AtEndStartsBehindTheLastByte) {
  Make("f", "abc");
  const int32_t hFile = Open("f", 0x43);
  EXPECT_EQ(3, SYS_FILE_Seek(hFile, 0, SEEK_CUR));
  SYS_FILE_Write(hFile, "d", 1);
  SYS_FILE_Close(hFile);
  EXPECT_EQ("abcd", Text("f"));
}

TEST_F(SysFile, OtherBitsAreIgnored) {
  Make("f", "abc");
  const int32_t hFile = Open("f", 0xFFFFFF0Cu | 0x01);
  char          c;
  EXPECT_EQ(1, SYS_FILE_Read(hFile, &c, 1));
  EXPECT_EQ('a', c);
  SYS_FILE_Close(hFile);
}

TEST_F(SysFile, EveryDescriptorClosesOnExec) {
  for (const uint32_t Mode : {0x01u, 0x12u, 0x33u, 0x43u}) {
    const int32_t hFile = Open("f", Mode | 0x10);
    EXPECT_NE(0, fcntl(hFile, F_GETFD) & FD_CLOEXEC) << Mode;
    SYS_FILE_Close(hFile);
  }
}

TEST_F(SysFile, OpenFailsForNullAndForWhatIsNotThere) {
  EXPECT_EQ(-1, SYS_FILE_Open(nullptr, 0x13));
  EXPECT_EQ(-1, SYS_FILE_Open(m_Dir.Path("none").c_str(), 0x01));
}

TEST_F(SysFile, OpenRetryWithoutRetriesTriesOnce) {
  EXPECT_EQ(-1, SYS_FILE_OpenRetry(m_Dir.Path("none").c_str(), 0x01, 0, 1000000));
  Make("f", "abc");
  const int32_t hFile = SYS_FILE_OpenRetry(m_Dir.Path("f").c_str(), 0x01, 0, 0);
  EXPECT_GE(hFile, 0);
  SYS_FILE_Close(hFile);
}

TEST_F(SysFile, OpenRetryWaitsTheDelayBeforeEachFurtherAttempt) {
  const auto Start = std::chrono::steady_clock::now();
  EXPECT_EQ(-1, SYS_FILE_OpenRetry(m_Dir.Path("none").c_str(), 0x01, 3, 20));
  EXPECT_GE(std::chrono::steady_clock::now() - Start, std::chrono::milliseconds(60));
}

TEST_F(SysFile, OpenRetrySeesAFileThatComesMeanwhile) {
  std::thread   Maker([&] { Make("late", "x"); });
  const int32_t hFile = SYS_FILE_OpenRetry(m_Dir.Path("late").c_str(), 0x01, 2000, 5);
  Maker.join();
  EXPECT_GE(hFile, 0);
  SYS_FILE_Close(hFile);
}

TEST_F(SysFile, OpenRetryWithoutDelayTriesAtOnce) {
  const auto Start = std::chrono::steady_clock::now();
  EXPECT_EQ(-1, SYS_FILE_OpenRetry(m_Dir.Path("none").c_str(), 0x01, 1000, 0));
  EXPECT_LE(std::chrono::steady_clock::now() - Start, std::chrono::seconds(10));
}

TEST_F(SysFile, OpenRegularTakesFilesAndLinksToThem) {
  Make("f", "abc");
  ASSERT_EQ(0, symlink("f", m_Dir.Path("link").c_str()));
  for (const char* sName : {"f", "link"}) {
    const int32_t hFile = SYS_FILE_OpenRegular(m_Dir.Path(sName).c_str(), 0x03, 0, 0);
    ASSERT_GE(hFile, 0) << sName;
    char acBuffer[4];
    EXPECT_EQ(3, SYS_FILE_Read(hFile, acBuffer, 4));
    SYS_FILE_Close(hFile);
  }
}

TEST_F(SysFile, OpenRegularEmptiesWhatItMayWriteOnly) {
  Make("f", "abc");
  EXPECT_EQ(-1, SYS_FILE_OpenRegular(m_Dir.Path("f").c_str(), 0x21, 0, 0));
  EXPECT_EQ("abc", Text("f"));
  SYS_FILE_Close(SYS_FILE_OpenRegular(m_Dir.Path("f").c_str(), 0x22, 0, 0));
  EXPECT_EQ("", Text("f"));
  SYS_FILE_Close(SYS_FILE_OpenRegular(m_Dir.Path("new").c_str(), 0xB3, 0, 0));
  EXPECT_EQ("", Text("new"));
}

TEST_F(SysFile, OpenRegularRefusesAnythingElseWithoutWaiting) {
  ASSERT_EQ(0, mkfifo(m_Dir.Path("fifo").c_str(), 0600));
  ASSERT_EQ(0, mkdir(m_Dir.Path("dir").c_str(), 0700));
  for (const std::string& sPath : {m_Dir.Path("fifo"), m_Dir.Path("dir"), std::string("/dev/null"),
                                   std::string("/dev/zero"), m_Dir.Path("none")}) {
    for (const uint32_t Mode : {0x01u, 0x02u, 0x03u, 0x22u}) {
      EXPECT_EQ(-1, SYS_FILE_OpenRegular(sPath.c_str(), Mode, 0, 0)) << sPath << Mode;
    }
  }
  EXPECT_EQ(-1, SYS_FILE_OpenRegular(nullptr, 0x01, 0, 0));
}

TEST_F(SysFile, Descriptor0IsAsGoodAsAnyOther) {
  Make("f", "abc");
  const std::string sPath  = m_Dir.Path("f");
  const int         hStdin = dup(0);
  close(0);
  const int32_t Retried = SYS_FILE_OpenRetry(sPath.c_str(), 0x01, 3, 1);
  SYS_FILE_Close(Retried);
  const int32_t Regular = SYS_FILE_OpenRegular(sPath.c_str(), 0x41, 3, 1);
  const int64_t AtEnd   = SYS_FILE_Seek(Regular, 0, SEEK_CUR);
  SYS_FILE_Close(Regular);
  const int32_t IsThere = SYS_FILE_Exists(sPath.c_str());
  const int32_t Lowest  = SYS_FILE_Open(sPath.c_str(), 0x01);
  SYS_FILE_Close(Lowest);
  dup2(hStdin, 0);
  close(hStdin);
  EXPECT_EQ(0, Retried);
  EXPECT_EQ(0, Regular);
  EXPECT_EQ(3, AtEnd);
  EXPECT_EQ(1, IsThere);
  EXPECT_EQ(0, Lowest);  // nothing was left open
}

TEST_F(SysFile, ExistsTellsWhatCanBeRead) {
  Make("f", "");
  ASSERT_EQ(0, mkfifo(m_Dir.Path("fifo").c_str(), 0600));
  EXPECT_EQ(1, SYS_FILE_Exists(m_Dir.Path("f").c_str()));
  EXPECT_EQ(1, SYS_FILE_Exists(m_Dir.Path("fifo").c_str()));
  EXPECT_EQ(0, SYS_FILE_Exists(m_Dir.Path("none").c_str()));
  EXPECT_EQ(0, SYS_FILE_Exists(nullptr));
}

TEST_F(SysFile, ExistsLeavesNoDescriptorOpen) {
  Make("f", "");
  const int32_t hBefore = Open("f", 0x01);
  SYS_FILE_Close(hBefore);
  SYS_FILE_Exists(m_Dir.Path("f").c_str());
  const int32_t hAfter = Open("f", 0x01);
  EXPECT_EQ(hBefore, hAfter);
  SYS_FILE_Close(hAfter);
}

TEST_F(SysFile, ReadGivesZeroAtTheEndAndMinusOneOnABadDescriptor) {
  Make("f", "a");
  const int32_t hFile = Open("f", 0x01);
  char          c;
  EXPECT_EQ(1, SYS_FILE_Read(hFile, &c, 1));
  EXPECT_EQ(0, SYS_FILE_Read(hFile, &c, 1));
  EXPECT_EQ(0, SYS_FILE_Close(hFile));
  EXPECT_EQ(-1, SYS_FILE_Read(-1, &c, 1));
  EXPECT_EQ(-1, SYS_FILE_Write(-1, &c, 1));
  EXPECT_EQ(-1, SYS_FILE_Close(-1));
}

TEST_F(SysFile, SeekMovesFromStartPositionAndEnd) {
  Make("f", "0123456789");
  const int32_t hFile = Open("f", 0x01);
  EXPECT_EQ(4, SYS_FILE_Seek(hFile, 4, SEEK_SET));
  EXPECT_EQ(6, SYS_FILE_Seek(hFile, 2, SEEK_CUR));
  EXPECT_EQ(7, SYS_FILE_Seek(hFile, -3, SEEK_END));
  EXPECT_EQ(-1, SYS_FILE_Seek(hFile, -1, SEEK_SET));
  EXPECT_EQ(0x123456789LL, SYS_FILE_Seek(hFile, 0x123456789LL, SEEK_SET));
  SYS_FILE_Close(hFile);
  EXPECT_EQ(-1, SYS_FILE_Seek(-1, 0, SEEK_SET));
}

TEST_F(SysFile, TruncateCutsAndExtends) {
  Make("f", "abcdef");
  const int32_t hFile = Open("f", 0x03);
  EXPECT_EQ(0, SYS_FILE_Truncate(hFile, 2));
  EXPECT_EQ("ab", Text("f"));
  EXPECT_EQ(0, SYS_FILE_Truncate(hFile, 4));
  EXPECT_EQ(std::string("ab\0\0", 4), Text("f"));
  SYS_FILE_Close(hFile);
  EXPECT_EQ(-1, SYS_FILE_Truncate(-1, 0));
}

TEST_F(SysFile, GetSizeKeepsThePosition) {
  Make("f", "0123456789");
  const int32_t hFile = Open("f", 0x01);
  SYS_FILE_Seek(hFile, 4, SEEK_SET);
  EXPECT_EQ(10u, SYS_FILE_GetSize(hFile));
  EXPECT_EQ(4, SYS_FILE_Seek(hFile, 0, SEEK_CUR));
  SYS_FILE_Close(hFile);
}

TEST_F(SysFile, GetSizeTellsTheLowHalfAndAllBitsSetForNone) {
  const int32_t hFile = Open("f", 0x13);
  ASSERT_EQ(0, SYS_FILE_Truncate(hFile, 0x100000007LL));
  EXPECT_EQ(7u, SYS_FILE_GetSize(hFile));
  SYS_FILE_Close(hFile);
  EXPECT_EQ(0xFFFFFFFFu, SYS_FILE_GetSize(-1));
}

TEST_F(SysFile, DeleteRemovesTheName) {
  Make("f", "");
  EXPECT_EQ(0, SYS_FILE_Delete(m_Dir.Path("f").c_str()));
  EXPECT_EQ(0, SYS_FILE_Exists(m_Dir.Path("f").c_str()));
  EXPECT_EQ(-1, SYS_FILE_Delete(m_Dir.Path("f").c_str()));
}

class SysFileView : public SysFile {
 protected:
  // The view's offset in its page.
  uint64_t Slack(const void* pView) {
    return reinterpret_cast<uintptr_t>(pView) % (uint64_t)sysconf(_SC_PAGESIZE);
  }
};

TEST_F(SysFileView, GrowsAShortFileToTheEndOfTheViewWithASpace) {
  Make("f", std::string(100, 'x'));
  const int32_t hFile = Open("f", 0x03);
  char*         pView = static_cast<char*>(SYS_FILE_MapView(hFile, 5000, 10));
  ASSERT_NE(nullptr, pView);
  EXPECT_EQ(5000u % (uint64_t)sysconf(_SC_PAGESIZE), Slack(pView));  // 904 for pages of 4096
  EXPECT_EQ(5010u, SYS_FILE_GetSize(hFile));
  const std::string sText = Text("f");
  EXPECT_EQ(std::string(100, 'x') + std::string(4909, '\0') + " ", sText);
  EXPECT_EQ(std::string(9, '\0') + " ", std::string(pView, 10));
  EXPECT_EQ(0, SYS_FILE_UnmapView(pView, 10));
  SYS_FILE_Close(hFile);
}

TEST_F(SysFileView, TheFirstByteOfAnEmptyFileCanBeViewed) {
  const int32_t hFile = Open("f", 0x13);
  char*         pView = static_cast<char*>(SYS_FILE_MapView(hFile, 0, 1));
  ASSERT_NE(nullptr, pView);
  EXPECT_EQ(' ', *pView);
  EXPECT_EQ(0, SYS_FILE_UnmapView(pView, 1));
  SYS_FILE_Close(hFile);
  EXPECT_EQ(" ", Text("f"));
}

TEST_F(SysFileView, ChangesGoIntoTheFile) {
  Make("f", std::string(10000, 'x'));
  const int32_t hFile = Open("f", 0x03);
  char*         pView = static_cast<char*>(SYS_FILE_MapView(hFile, 4999, 3));
  ASSERT_NE(nullptr, pView);
  EXPECT_EQ(0, SYS_FILE_Close(hFile));  // the view outlives the descriptor
  pView[0] = 'A';
  pView[2] = 'C';
  EXPECT_EQ(0, SYS_FILE_FlushView(pView, 3));
  EXPECT_EQ(0, SYS_FILE_UnmapView(pView, 3));
  const std::string sText = Text("f");
  EXPECT_EQ(10000u, sText.size());
  EXPECT_EQ("xAxCx", sText.substr(4998, 5));
}

TEST_F(SysFileView, AFileThatCoversTheViewStaysAsItIs) {
  Make("f", "0123456789");
  const int32_t hFile = Open("f", 0x03);
  SYS_FILE_Seek(hFile, 3, SEEK_SET);
  char* pView = static_cast<char*>(SYS_FILE_MapView(hFile, 0, 10));
  ASSERT_NE(nullptr, pView);
  EXPECT_EQ("0123456789", std::string(pView, 10));
  EXPECT_EQ(3, SYS_FILE_Seek(hFile, 0, SEEK_CUR));
  EXPECT_EQ(0, SYS_FILE_UnmapView(pView, 10));
  SYS_FILE_Close(hFile);
  EXPECT_EQ("0123456789", Text("f"));
}

TEST_F(SysFileView, AViewOverSeveralPagesIsUnmappedWhole) {
  const auto    Page  = (uint32_t)sysconf(_SC_PAGESIZE);
  const int32_t hFile = Open("f", 0x13);
  char*         pView = static_cast<char*>(SYS_FILE_MapView(hFile, Page - 1, Page + 2));
  ASSERT_NE(nullptr, pView);
  pView[0]        = 'a';
  pView[Page + 1] = 'z';
  EXPECT_EQ(0, SYS_FILE_UnmapView(pView, Page + 2));
  // None of its pages is still mapped: msync() would fail for one that is not.
  for (uint32_t i = 0; i < 3; i++) {
    EXPECT_NE(0, SYS_FILE_FlushView(pView - (Page - 1) + i * Page, 1)) << i;
  }
  SYS_FILE_Close(hFile);
  EXPECT_EQ('a', Text("f")[Page - 1]);
  EXPECT_EQ('z', Text("f")[2 * Page]);
}

TEST_F(SysFileView, FailsWithNullWhereNothingCanBeMapped) {
  Make("f", "abc");
  const int32_t hFile = Open("f", 0x03);
  EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, 0, 0));
  EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, UINT64_MAX, 1));
  EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, INT64_MAX, 1));
  SYS_FILE_Close(hFile);
  EXPECT_EQ("abc", Text("f"));
  EXPECT_EQ(nullptr, SYS_FILE_MapView(-1, 0, 1));
  EXPECT_EQ(nullptr, SYS_FILE_MapView(-1, 0, 0));
}

TEST_F(SysFileView, FailsWithNullWhenTheFileCannotGrow) {
  Make("f", "abc");
  const int32_t hFile = Open("f", 0x01);
  EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, 0, 10));
  SYS_FILE_Close(hFile);
  EXPECT_EQ("abc", Text("f"));
}

TEST_F(SysFileView, FailsWithNullForAFileOpenForReadingOnly) {
  Make("f", "abc");
  const int32_t hFile = Open("f", 0x01);
  EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, 0, 3));
  SYS_FILE_Close(hFile);
}
