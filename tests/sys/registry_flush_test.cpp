// SPDX-License-Identifier: MIT

// Writing the changed roots back.

#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <string>

#include "tests/sys/support/registry_calls.h"

// While it exists no file can grow beyond that many bytes, as on a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t NumBytes) : m_pfBefore(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &m_Before);
    const struct rlimit Limit = {NumBytes, m_Before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &Limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &m_Before);
    signal(SIGXFSZ, m_pfBefore);
  }
  FileSizeLimit(const FileSizeLimit&)            = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  struct rlimit m_Before;
  void (*m_pfBefore)(int);
};

class SysRegistryFlush : public SysRegistry {
 protected:
  // Makes the file look old, so that a write changes its modification time.
  void Age(const std::string& sRoot = "CURRENT_USER") {
    const struct timeval Old[2] = {{1000000, 0}, {1000000, 0}};
    ASSERT_EQ(0, utimes(Path(sRoot).c_str(), Old));
  }
  bool IsAged(const std::string& sRoot = "CURRENT_USER") {
    struct stat Status;
    EXPECT_EQ(0, stat(Path(sRoot).c_str(), &Status));
    return Status.st_mtime == 1000000;
  }
};

TEST_F(SysRegistryFlush, NothingChangedWritesNothing) {
  const std::string sText = "<!-- kept -->\n<Registry   a = \"1\"\n a_OSTRELRegType=\"x\"/>";
  Provide(sText);
  Age();
  TypeOnly("a");
  SYS_REG_CloseKey(SYS_REG_OpenKey(USER, ""));
  EXPECT_EQ(sText, Flushed());
  EXPECT_TRUE(IsAged());
}

TEST_F(SysRegistryFlush, AChangeTakenBackWritesNothing) {
  Provide("<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>");
  Age();
  SetText("a", "2");
  SetText("b", "3");
  SetText("a", "1");
  SYS_REG_DeleteValue(USER, "b");
  SYS_REG_Flush();
  EXPECT_TRUE(IsAged());
}

TEST_F(SysRegistryFlush, AChangeOfTheSameLengthIsWritten) {
  Provide("<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>");
  Age();
  SetText("a", "2");
  SYS_REG_Flush();
  EXPECT_FALSE(IsAged());
}

TEST_F(SysRegistryFlush, OnlyTheChangedRootsFileIsWritten) {
  for (const char* sRoot : {"CLASSES_ROOT", "CURRENT_USER", "LOCAL_MACHINE"}) {
    Provide(EMPTY_FILE, sRoot);
    Age(sRoot);
  }
  TypeOnly("v", nullptr, HKEY_CLASSES_ROOT);
  SetText("v", "x", HKEY_LOCAL_MACHINE);
  TypeOnly("v");
  SYS_REG_Flush();
  EXPECT_TRUE(IsAged("CLASSES_ROOT"));
  EXPECT_TRUE(IsAged("CURRENT_USER"));
  EXPECT_FALSE(IsAged("LOCAL_MACHINE"));
}

TEST_F(SysRegistryFlush, ASecondFlushWritesNothing) {
  SetText("v", "x");
  SYS_REG_Flush();
  Age();
  SYS_REG_Flush();
  TypeOnly("v");
  SYS_REG_Flush();
  EXPECT_TRUE(IsAged());
}

TEST_F(SysRegistryFlush, UnflushedChangesAreNotInTheFile) {
  SetText("v", "x");
  EXPECT_EQ(EMPTY_FILE, File());
}

TEST_F(SysRegistryFlush, AFlushUnloadsSoThatAnEditedFileIsSeen) {
  SetText("v", "x");
  SYS_REG_Flush();
  Provide("<Registry v=\"edited\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>");
  EXPECT_EQ("edited", Text("v"));
}

TEST_F(SysRegistryFlush, TheLastOneToFlushWins) {
  SetText("mine", "1");
  Provide("<Registry theirs=\"2\" theirs_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>");
  EXPECT_EQ("<Registry mine=\"1\" mine_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", Flushed());
}

TEST_F(SysRegistryFlush, AHandleIsClosedAfterTheFlushWithoutFurtherUse) {
  RegistryKeyHandle* hKey = SYS_REG_OpenKey(USER, "k");
  SYS_REG_Flush();
  SYS_REG_CloseKey(hKey);
}

TEST_F(SysRegistryFlush, AProcessWithoutStandardInputHasAStoreToo) {
  // The first descriptor that the store gets is 0.
  const int hStdin = dup(0);
  close(0);
  const uint32_t Fresh = TypeOnly("v");
  const uint32_t Set   = SetText("v", "x");
  SYS_REG_Flush();
  const std::string sText   = Text("v");
  const int         hLowest = open("/dev/null", O_RDONLY);
  dup2(hStdin, 0);
  close(hStdin);
  EXPECT_EQ(2u, Fresh);
  EXPECT_EQ(0u, Set);
  EXPECT_EQ("x", sText);
  EXPECT_EQ(0, hLowest);  // nothing was left open
}

TEST_F(SysRegistryFlush, AMissingFileIsMadeAgainWhenChanged) {
  SetText("v", "x");
  std::filesystem::remove_all(m_Home.Path("Library"));
  EXPECT_EQ("<Registry v=\"x\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", Flushed());
}

TEST_F(SysRegistryFlush, ATextOfMoreThan1MiBIsNotWrittenAndTheFileKept) {
  const std::string sGood = "<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n";
  // Frame around the value: 61 characters with the name "v".
  const std::string sFrame = "<Registry v=\"\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n";
  Provide(EMPTY_FILE);
  EXPECT_EQ(0u, SetText("v", std::string(0x100000 - sFrame.size(), 'x').c_str()));
  EXPECT_EQ(0x100000u, Flushed().size());
  Provide(sGood);
  EXPECT_EQ(0u, SetText("a", std::string(0x100000 - sFrame.size() + 1, 'x').c_str()));
  EXPECT_EQ(sGood, Flushed());
  EXPECT_EQ("1", Text("a"));
}

TEST_F(SysRegistryFlush, NoLengthOfALongValueGetsACutTextIntoTheFile) {
  // Whichever piece of the text does not fit, nothing of it is written.
  const std::string sGood = "<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n";
  Provide(sGood);
  for (size_t Length = 0x100000 - 80; Length < 0x100000 + 5; Length++) {
    SetText("b", std::string(Length, 'x').c_str());
    SetDword("c", 1);
    const size_t Size = sGood.size() + Length +
                        strlen(" b=\"\" b_OSTRELRegType=\"SYS_REG_TYPE_SZ\"") +
                        strlen(" c=\"0x00000001\" c_OSTRELRegType=\"SYS_REG_TYPE_DWORD\"");
    ASSERT_GT(Size, 0x100000u);
    ASSERT_EQ(sGood, Flushed()) << Length;
  }
}

TEST_F(SysRegistryFlush, AFileThatMayNotGrowIsCutAndThenGivenUp) {
  Provide("<Registry/>");
  SetText("v", std::string(1000, 'x').c_str());
  {
    const FileSizeLimit Limit(100);
    SYS_REG_Flush();
  }
  EXPECT_EQ("<Registry v=\"" + std::string(87, 'x'), File());
  {
    const FileSizeLimit Limit(5);
    EXPECT_EQ(1u, TypeOnly("v"));  // not even the empty store fits
  }
  EXPECT_EQ(2u, TypeOnly("v"));
  EXPECT_EQ(EMPTY_FILE, Flushed());
}

// Two processes change the same root again and again. They may write at the same moment, so values
// may be lost. There must be no crash, no hang, and no file that makes the store fail.
TEST_F(SysRegistryFlush, TwoProcessesThatFlushAtOnceLeaveAStoreThatWorks) {
  pid_t Children[2];
  for (pid_t& Child : Children) {
    Child = fork();
    ASSERT_GE(Child, 0);
    if (Child == 0) {
      const std::string sText(&Child == &Children[0] ? 10 : 3000, 'x');
      int               NumRefused = 0;
      for (uint32_t i = 0; i < 300; i++) {
        NumRefused += SetDword("count", i) != 0;
        NumRefused += SetText("text", sText.c_str()) != 0;
        SYS_REG_Flush();
      }
      // A root cannot be loaded if the other process empties its file between writing and reading.
      _exit(NumRefused > 300 ? 1 : 0);
    }
  }
  for (const pid_t Child : Children) {
    int Status = -1;
    EXPECT_EQ(Child, waitpid(Child, &Status, 0));
    EXPECT_EQ(0, Status);
  }
  EXPECT_EQ(0u, SetText("after", "x"));
  SYS_REG_Flush();
  EXPECT_EQ("x", Text("after"));
}

TEST_F(SysRegistryFlush, AFileOfMoreThan1MiBIsReadAndKept) {
  const std::string sLong = "<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\" b=\"" +
                            std::string(0x100000, 'x') +
                            "\" b_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n";
  Provide(sLong);
  EXPECT_EQ("1", Text("a"));
  SetText("a", "2");
  EXPECT_EQ(sLong, Flushed());
  // Small enough now, it is written: without a snapshot it counts as changed.
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "b"));
  EXPECT_EQ("<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", Flushed());
}
