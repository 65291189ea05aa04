// SPDX-License-Identifier: MIT

// Memory that runs out and system calls that fail, in memory, buffers, files and directories.

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "sys/dynbuffer.h"
#include "sys/files.h"
#include "sys/memory.h"
#include "sys/path.h"
#include "sys/xml.h"
#include "tests/sys/support/faults.h"
#include "tests/sys/support/registry_home.h"

// ---- Memory and DYNBUFFER -----------------------------------------------------------------------

TEST(SysMemoryFaults, NoMemoryGivesNull) {
  const FAULT Fault("malloc", ENOMEM, 0, 2);
  EXPECT_EQ(nullptr, SYS_MEM_Alloc(16));
  EXPECT_EQ(nullptr, SYS_MEM_AllocNamed(16, "what for"));
}

TEST(SysMemoryFaults, ReallocateWithoutMemoryGivesNullAndLeavesTheBlock) {
  char* pMem = static_cast<char*>(SYS_MEM_Alloc(8));
  memcpy(pMem, "1234567", 8);
  {
    const FAULT Fault("realloc", ENOMEM, 0, 2);
    EXPECT_EQ(nullptr, SYS_MEM_Realloc(pMem, 100000));
    EXPECT_EQ(nullptr, SYS_MEM_Realloc(nullptr, 8));
  }
  EXPECT_STREQ("1234567", pMem);  // still the caller's, and freed here
  SYS_MEM_Free(pMem);
}

static std::string LastMessage;

static void KeepMessage(const char* sMessage) {
  LastMessage = sMessage;
}

TEST(SysDynBufferFaults, CreateWithoutMemoryReportsItsSizeAndSetsTheCallbackOnly) {
  DYNBUFFER Buffer;
  memset(&Buffer, 0xEE, sizeof(Buffer));
  DYNBUFFER Want = Buffer;
  Want.pfError   = KeepMessage;
  {
    const FAULT Fault("malloc", ENOMEM);
    EXPECT_EQ(DYNBUFFER_ERR_MEMORY, DynBufferCreate(&Buffer, KeepMessage, 100000, 4096, 0));
  }
  EXPECT_EQ("Cannot allocate 4096 bytes of memory for dynamic buffer", LastMessage);
  EXPECT_EQ(0, memcmp(&Want, &Buffer, sizeof(Want)));
}

TEST(SysDynBufferFaults, GrowthWithoutMemoryLeavesRecordAndBytes) {
  DYNBUFFER Buffer;
  ASSERT_EQ(0, DynBufferCreate(&Buffer, KeepMessage, 100000, 4, 0));
  ASSERT_EQ(0, DynBufferAppend(&Buffer, "abcd", 4));
  const DYNBUFFER Before = Buffer;
  {
    const FAULT Fault("realloc", ENOMEM);
    EXPECT_EQ(DYNBUFFER_ERR_MEMORY, DynBufferAppend(&Buffer, "e", 1));
  }
  EXPECT_EQ("Cannot allocate 8 bytes of memory for dynamic buffer", LastMessage);
  EXPECT_EQ(0, memcmp(&Before, &Buffer, sizeof(Before)));
  EXPECT_EQ(0, memcmp("abcd", Buffer.pData, 4));
  EXPECT_EQ(0, DynBufferAppend(&Buffer, "e", 1));
  DynBufferFree(&Buffer);
}

TEST(SysDynBufferFaults, NewBytesAreFilledFromZeroOnAndLeftUndefinedBelow) {
  for (const int32_t Fill : {0, 0x77, 255, -1, -256}) {
    const std::string sWant(20, (char)(Fill < 0 ? 0xEE : Fill));
    DYNBUFFER         Buffer;
    MallocFill = 0xEE;
    ASSERT_EQ(0, DynBufferCreate(&Buffer, nullptr, 100, 4, Fill));
    MallocFill = -1;
    EXPECT_EQ(sWant.substr(0, 4), std::string((const char*)Buffer.pData, 4)) << Fill;
    ASSERT_EQ(0, DynBufferAppend(&Buffer, "x", 1));
    ASSERT_EQ(0, DynBufferEnsure(&Buffer, 19));
    // What realloc() leaves in bytes that are not filled is not known.
    const size_t NumKnown = Fill < 0 ? 4 : 20;
    EXPECT_EQ("x" + sWant.substr(1, NumKnown - 1), std::string((const char*)Buffer.pData, NumKnown))
        << Fill;
    DynBufferFree(&Buffer);
  }
}

TEST(SysDynBufferFaults, WithoutACallbackNoMemoryIsSilent) {
  DYNBUFFER   Buffer;
  const FAULT Fault("malloc", ENOMEM);
  LastMessage = "";
  EXPECT_EQ(DYNBUFFER_ERR_MEMORY, DynBufferCreate(&Buffer, nullptr, 100, 10, 0));
  EXPECT_EQ("", LastMessage);
}

// ---- Files and directories ----------------------------------------------------------------------

class SysFileFaults : public testing::Test {
 protected:
  std::string Path(const char* sName) { return m_Dir.Path(sName); }

  TempDir m_Dir;
};

TEST_F(SysFileFaults, AnOpenIsTriedOnceAndThenAsOftenAsAskedFor) {
  WriteFile(Path("f"), "");
  for (uint32_t NumFailures = 0; NumFailures < 6; NumFailures++) {
    int32_t  hFile;
    uint32_t NumOpens, NumSleeps;
    {
      const FAULT        Fault("open", EMFILE, 0, NumFailures);
      const CALL_COUNTER Sleeps("usleep");
      hFile     = SYS_FILE_OpenRetry(Path("f").c_str(), 0x01, 3, 1);
      NumOpens  = Fault.GetNumCalls();
      NumSleeps = Sleeps.GetNumCalls();
    }
    EXPECT_EQ(NumFailures < 4, hFile >= 0) << NumFailures;
    EXPECT_EQ(std::min(NumFailures + 1, 4u), NumOpens);
    EXPECT_EQ(NumOpens - 1, NumSleeps);
    if (hFile >= 0) {
      SYS_FILE_Close(hFile);
    }
  }
}

TEST_F(SysFileFaults, WithoutADelayNothingIsSlept) {
  const FAULT        Fault("open", EMFILE, 0, 10);
  const CALL_COUNTER Sleeps("usleep");
  EXPECT_EQ(-1, SYS_FILE_OpenRetry("f", 0x01, 5, 0));
  EXPECT_EQ(6u, Fault.GetNumCalls());
  EXPECT_EQ(0u, Sleeps.GetNumCalls());
}

TEST_F(SysFileFaults, AFileOfUnknownKindIsNotOpened) {
  WriteFile(Path("f"), "");
  const FAULT Fault("fstat", EIO);
  EXPECT_EQ(-1, SYS_FILE_OpenRegular(Path("f").c_str(), 0x01, 0, 0));
}

TEST_F(SysFileFaults, AFileIsEmptiedOnlyOnceItIsKnownToBeRegular) {
  WriteFile(Path("f"), "abc");
  for (const char* sCall : {"fstat", "ftruncate"}) {
    const FAULT Fault(sCall, EIO);
    EXPECT_EQ(-1, SYS_FILE_OpenRegular(Path("f").c_str(), 0x22, 0, 0));
    EXPECT_EQ("abc", ReadFile(Path("f")));
  }
  const int32_t hFile = SYS_FILE_OpenRegular(Path("f").c_str(), 0x22, 0, 0);
  EXPECT_EQ("", ReadFile(Path("f")));
  SYS_FILE_Close(hFile);
}

TEST_F(SysFileFaults, AViewThatTheFileCannotBackIsNotMapped) {
  const int32_t hFile = SYS_FILE_Open(Path("f").c_str(), 0x13);
  {
    const FAULT Fault("write", ENOSPC);
    EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, 0, 10));
  }
  {
    const FAULT Fault("write", 0);  // writes nothing
    EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, 0, 10));
  }
  {
    const FAULT Fault("lseek", EIO, 3);  // after the three that find the size
    EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, 0, 10));
  }
  EXPECT_EQ("", ReadFile(Path("f")));
  {
    const FAULT Fault("mmap", ENOMEM);
    EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, 0, 10));
  }
  EXPECT_EQ(std::string(9, '\0') + " ", ReadFile(Path("f")));  // it was extended
  EXPECT_EQ(10, SYS_FILE_Seek(hFile, 0, SEEK_CUR));
  void* pView = SYS_FILE_MapView(hFile, 0, 10);
  EXPECT_NE(nullptr, pView);
  EXPECT_EQ(0, SYS_FILE_UnmapView(pView, 10));
  SYS_FILE_Close(hFile);
}

TEST_F(SysFileFaults, ADirectoryThatAnotherProcessMakesMeanwhileIsGood) {
  ASSERT_EQ(0, SYS_PATH_MakeDir(Path("a").c_str()));
  WriteFile(Path("f"), "");
  {
    const FAULT Fault("lstat", ENOENT);  // it does not exist when it is looked for
    EXPECT_EQ(0, SYS_PATH_MakeDir(Path("a").c_str()));
  }
  const FAULT Fault("lstat", ENOENT);
  EXPECT_EQ(-1, SYS_PATH_MakeDir(Path("f").c_str()));  // what exists now is not a directory
}

TEST_F(SysFileFaults, MakeDirFailsWithTheCallsItIsMadeOf) {
  const char* const Calls[] = {"lstat", "mkdir", "stat", "readlink"};
  ASSERT_EQ(0, symlink("target", Path("link").c_str()));
  for (const char* sCall : Calls) {
    const FAULT Fault(sCall, EIO);
    EXPECT_EQ(-1, SYS_PATH_MakeDir(Path("link").c_str())) << sCall;
  }
  const FAULT Fault("mkdir", 0);  // reports success without having done it
  EXPECT_EQ(-1, SYS_PATH_MakeDir(Path("b").c_str()));
}

class SysDataDirFaults : public SysFileFaults {
 protected:
  void        SetUp() override { setenv("HOME", m_Dir.Path().c_str(), 1); }
  void        TearDown() override { FakeExecutable.clear(); }
  std::string DataDir() {
    char acDir[600];
    SYS_PATH_GetDataDir(acDir, sizeof(acDir));
    return acDir;
  }
  void ExpectHome() {
    EXPECT_EQ(Path(".OSTREL"), DataDir());
    EXPECT_TRUE(std::filesystem::is_directory(Path(".OSTREL")));
  }
};

TEST_F(SysDataDirFaults, AnUnknownExecutableGivesTheHome) {
  const FAULT Fault("proc_pidpath", ESRCH);
  ExpectHome();
}

TEST_F(SysDataDirFaults, TheDirectoryInTheHomeHasThePermissions0775LessTheUmask) {
  const FAULT Fault("proc_pidpath", ESRCH, 0, 2);
  {
    const Umask None(0);
    DataDir();
  }
  EXPECT_EQ(0775u, PermissionsOf(Path(".OSTREL")));
  std::filesystem::remove(Path(".OSTREL"));
  const Umask Others(027);
  DataDir();
  EXPECT_EQ(0750u, PermissionsOf(Path(".OSTREL")));
}

TEST_F(SysDataDirFaults, AnExecutableWithoutADirectoryGivesTheHome) {
  FakeExecutable = "quobe";
  ExpectHome();
}

TEST_F(SysDataDirFaults, AnExecutableInADirectoryOf512CharactersGivesTheHome) {
  std::string sDir = m_Dir.Path();
  while (sDir.size() < 511) {
    sDir += "/";
  }
  FakeExecutable = sDir + "quobe";
  EXPECT_EQ(sDir, DataDir());
  FakeExecutable = sDir + "/quobe";
  ExpectHome();
}

TEST_F(SysDataDirFaults, ADirectoryThatTakesNoFileGivesTheHome) {
  FakeExecutable = Path("none/quobe");
  ExpectHome();
  std::filesystem::create_directory(Path("bin"));
  FakeExecutable = Path("bin/quobe");
  {
    const FAULT Fault("mkstemp", EACCES);
    ExpectHome();
  }
  {
    const FAULT Fault("open", EACCES);
    ExpectHome();
  }
  EXPECT_EQ(Path("bin/"), DataDir());
  EXPECT_TRUE(std::filesystem::is_empty(Path("bin")));
}

TEST_F(SysDataDirFaults, WithoutAHomeEitherItIsTheEmptyString) {
  const FAULT Fault("proc_pidpath", ESRCH);
  unsetenv("HOME");
  char acDir[8] = "#######";
  SYS_PATH_GetDataDir(acDir, 8);
  EXPECT_STREQ("", acDir);
  EXPECT_EQ(0, acDir[7]);
}
