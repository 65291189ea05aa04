// Memory that runs out and system calls that fail, in all modules of the storage part.

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "sys/dynbuffer.h"
#include "sys/file.h"
#include "sys/memory.h"
#include "sys/path.h"
#include "sys/xml.h"
#include "tests/sys/faults.h"
#include "tests/sys/registry_home.h"

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

TEST(SysDynBufferFaults, CreateWithoutMemoryTellsItsSizeAndSetsTheCallbackOnly) {
  DYNBUFFER Buffer;
  memset(&Buffer, 0xEE, sizeof(Buffer));
  DYNBUFFER Want = Buffer;
  Want.pfError   = KeepMessage;
  {
    const FAULT Fault("malloc", ENOMEM);
    EXPECT_EQ(-2, DynBufferCreate(&Buffer, KeepMessage, 100000, 4096, 0));
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
    const FAULT Fault("malloc", ENOMEM);
    EXPECT_EQ(-2, DynBufferAppend(&Buffer, "e", 1));
  }
  EXPECT_EQ("Cannot allocate 8 bytes of memory for dynamic buffer", LastMessage);
  EXPECT_EQ(0, memcmp(&Before, &Buffer, sizeof(Before)));
  EXPECT_EQ(0, memcmp("abcd", Buffer.pData, 4));
  EXPECT_EQ(0, DynBufferAppend(&Buffer, "e", 1));
  DynBufferFree(&Buffer);
}

TEST(SysDynBufferFaults, FreshBytesAreFilledFromZeroOnAndLeftAsTheyComeBelow) {
  for (const int32_t Fill : {0, 0x77, 255, -1, -256}) {
    const char sWant[] = {'x', (char)(Fill < 0 ? 0xEE : Fill), 0};
    DYNBUFFER  Buffer;
    MallocFill = 0xEE;
    ASSERT_EQ(0, DynBufferCreate(&Buffer, nullptr, 100, 4, Fill));
    EXPECT_EQ(std::string(4, sWant[1]), std::string((const char*)Buffer.pData, 4)) << Fill;
    ASSERT_EQ(0, DynBufferAppend(&Buffer, "x", 1));
    ASSERT_EQ(0, DynBufferEnsure(&Buffer, 19));
    MallocFill = -1;
    EXPECT_EQ("x" + std::string(19, sWant[1]), std::string((const char*)Buffer.pData, 20)) << Fill;
    DynBufferFree(&Buffer);
  }
}

TEST(SysDynBufferFaults, WithoutACallbackNoMemoryIsSilent) {
  DYNBUFFER   Buffer;
  const FAULT Fault("malloc", ENOMEM);
  LastMessage = "";
  EXPECT_EQ(-2, DynBufferCreate(&Buffer, nullptr, 100, 10, 0));
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

TEST_F(SysFileFaults, AFileWhoseKindCannotBeToldIsNotOpened) {
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

TEST_F(SysFileFaults, AViewThatCannotBeBackedIsNotMapped) {
  const int32_t hFile = SYS_FILE_Open(Path("f").c_str(), 0x13);
  {
    const FAULT Fault("write", ENOSPC);
    EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, 0, 10));
  }
  {
    const FAULT Fault("write", 0);  // nothing written
    EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, 0, 10));
  }
  {
    const FAULT Fault("lseek", EIO, 3);  // behind the three that find the size
    EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, 0, 10));
  }
  EXPECT_EQ("", ReadFile(Path("f")));
  {
    const FAULT Fault("mmap", ENOMEM);
    EXPECT_EQ(nullptr, SYS_FILE_MapView(hFile, 0, 10));
  }
  EXPECT_EQ(std::string(9, '\0') + " ", ReadFile(Path("f")));  // extended all the same
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
    const FAULT Fault("lstat", ENOENT);  // not there yet when looked for
    EXPECT_EQ(0, SYS_PATH_MakeDir(Path("a").c_str()));
  }
  const FAULT Fault("lstat", ENOENT);
  EXPECT_EQ(-1, SYS_PATH_MakeDir(Path("f").c_str()));  // what came meanwhile is no directory
}

TEST_F(SysFileFaults, MakeDirFailsWithTheCallsItIsMadeOf) {
  const char* const Calls[] = {"lstat", "mkdir", "stat", "readlink"};
  ASSERT_EQ(0, symlink("target", Path("link").c_str()));
  for (const char* sCall : Calls) {
    const FAULT Fault(sCall, EIO);
    EXPECT_EQ(-1, SYS_PATH_MakeDir(Path("link").c_str())) << sCall;
  }
  const FAULT Fault("mkdir", 0);  // it says so, and has not
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

TEST_F(SysDataDirFaults, AnExecutableThatCannotBeToldGivesTheHome) {
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

// ---- XML ----------------------------------------------------------------------------------------

TEST(SysXmlFaults, DocumentsNeedMemory) {
  {
    const FAULT Fault("malloc", ENOMEM);
    EXPECT_EQ(nullptr, SYS_XML_CreateDoc("R"));
  }
  int32_t Error = 0;
  {
    const FAULT Fault("malloc", ENOMEM);
    EXPECT_EQ(nullptr, SYS_XML_ParseDoc("<R/>", &Error));
  }
  EXPECT_EQ(-5, Error);
}

TEST(SysXmlFaults, ANameThatNeedsAChunkOfItsOwnLeavesNothingBehind) {
  const std::string sName(0x400000, 'n');
  const FAULT       Fault("malloc", ENOMEM, 1);
  EXPECT_EQ(nullptr, SYS_XML_CreateDoc(sName.c_str()));
}

// A document whose first chunk has no room but for NumBytes.
static XmlDocument* CreateFullDoc(uint32_t NumBytes) {
  XmlDocument* pDoc = SYS_XML_ParseDoc("<R a=\"1\"><K/></R>", nullptr);
  SYS_XML_AllocFromArena(pDoc->pArena, 0x400000 - pDoc->pArena->Used - NumBytes);
  return pDoc;
}

static std::string Store(const XmlDocument* pDoc) {
  char          acText[100];
  const int32_t NumBytes = SYS_XML_StoreDoc(pDoc, acText, sizeof(acText));
  return std::string(acText, NumBytes < 0 ? 0 : (size_t)NumBytes);
}

TEST(SysXmlFaults, ATreeWithoutRoomToGrowStaysAsItIs) {
  for (uint32_t Room = 0; Room < 64; Room += 8) {  // each of the pieces in turn does not fit
    XmlDocument* pDoc  = CreateFullDoc(Room);
    XmlElement*  pRoot = SYS_XML_GetRoot(pDoc);
    {
      const FAULT Fault("malloc", ENOMEM, 0, 10);
      if (Room < 56) {
        EXPECT_EQ(-5, SYS_XML_SetAttr(pDoc, pRoot, "b", "2")) << Room;
      }
    }
    {
      const FAULT Fault("malloc", ENOMEM, 0, 10);
      EXPECT_EQ(nullptr, SYS_XML_FindOrAddChild(pDoc, pRoot, "L")) << Room;
    }
    {
      const FAULT Fault("malloc", ENOMEM, 0, 10);
      EXPECT_EQ(nullptr, SYS_XML_AppendSibling(pDoc, pRoot->pFirstChild, "L")) << Room;
    }
    if (Room < 56) {
      EXPECT_EQ("<R a=\"1\">\r\n  <K/>\r\n</R>\r\n", Store(pDoc)) << Room;
    }
    SYS_XML_FreeDoc(pDoc);
  }
}

TEST(SysXmlFaults, ALongerValueWithoutRoomLeavesTheFormerOne) {
  XmlDocument* pDoc  = CreateFullDoc(0);
  XmlElement*  pRoot = SYS_XML_GetRoot(pDoc);
  {
    const FAULT Fault("malloc", ENOMEM);
    EXPECT_EQ(-5, SYS_XML_SetAttr(pDoc, pRoot, "a", "longer than before"));
  }
  EXPECT_STREQ("1", SYS_XML_FindAttr(pRoot, "a")->sValue);
  EXPECT_EQ(0, SYS_XML_SetAttr(pDoc, pRoot, "a", "longer than before"));
  SYS_XML_FreeDoc(pDoc);
}

TEST(SysXmlFaults, ParsingEndsAtThePieceThatFindsNoMemory) {
  // Each text needs a second chunk at another place: for an element, its name, an attribute, a name
  // of an attribute, a value.
  const std::string              sBig(0x400000, 'n');
  const std::vector<std::string> Texts = {"<" + sBig + "/>", "<R " + sBig + "=\"\"/>",
                                          "<R a=\"" + sBig + "\"/>", "<R><" + sBig + "/></R>"};
  for (const std::string& sText : Texts) {
    int32_t Error = 0;
    {
      const FAULT Fault("malloc", ENOMEM, 1);
      EXPECT_EQ(nullptr, SYS_XML_ParseDoc(sText.c_str(), &Error));
    }
    EXPECT_EQ(-5, Error);
  }
}

TEST(SysXmlFaults, WritingNeedsMemoryAtFirstAndToGrow) {
  XmlDocument* pDoc = SYS_XML_CreateDoc("R");
  SYS_XML_SetAttr(pDoc, SYS_XML_GetRoot(pDoc), "a", std::string(5000, 'v').c_str());
  SYS_XML_FindOrAddChild(pDoc, SYS_XML_GetRoot(pDoc), "K");
  char acText[8] = "#######";
  for (uint32_t Skip = 0; Skip < 2; Skip++) {
    const FAULT Fault("malloc", ENOMEM, Skip, 1);
    EXPECT_EQ(-5, SYS_XML_StoreDoc(pDoc, acText, sizeof(acText)));
    EXPECT_STREQ("#######", acText);
  }
  SYS_XML_FreeDoc(pDoc);
}

class SysXmlFileFaults : public SysFileFaults {
 protected:
  int32_t LoadError() {
    int32_t      Error = 12345;
    XmlDocument* pDoc  = SYS_XML_LoadDoc(Path("f").c_str(), &Error);
    SYS_XML_FreeDoc(pDoc);
    return Error;
  }
};

TEST_F(SysXmlFileFaults, AFileThatCannotBeReadIsToldApartFromAMalformedOne) {
  WriteFile(Path("f"), "<R/>");
  const struct {
    const char* sCall;
    int         Error;
    uint32_t    Skip;
    int32_t     Want;
  } Rows[] = {{"open", EMFILE, 0, -10},  {"fstat", EIO, 0, -10},   {"lseek", EIO, 0, -10},
              {"lseek", EIO, 1, -10},    {"read", EIO, 0, -10},    {"read", 0, 0, -10},
              {"malloc", ENOMEM, 0, -5}, {"malloc", ENOMEM, 1, -5}};
  for (const auto& Row : Rows) {
    int32_t Error;
    {
      const FAULT Fault(Row.sCall, Row.Error, Row.Skip);
      Error = LoadError();
    }
    EXPECT_EQ(Row.Want, Error) << Row.sCall << " " << Row.Skip;
  }
  EXPECT_EQ(0, LoadError());
}

TEST_F(SysXmlFileFaults, AFileThatComesInPiecesIsReadWhole) {
  WriteFile(Path("f"), "<R a=\"1\"><K b=\"2\"/></R>");
  for (MaxRead = 10; MaxRead > 0; MaxRead--) {
    XmlDocument* pDoc = SYS_XML_LoadDoc(Path("f").c_str(), nullptr);
    ASSERT_NE(nullptr, pDoc) << MaxRead;
    EXPECT_EQ("<R a=\"1\">\r\n  <K b=\"2\"/>\r\n</R>\r\n", Store(pDoc));
    SYS_XML_FreeDoc(pDoc);
  }
}

// ---- Registry store -----------------------------------------------------------------------------

static RegistryKeyHandle* const USER = HKEY_CURRENT_USER;

class SysRegistryFaults : public RegistryHome {
 protected:
  static uint32_t Set(const char* sName, const char* sText) {
    return SYS_REG_SetValue(USER, sName, 1, sText, 0);
  }
  static uint32_t Query(const char* sName) {
    return SYS_REG_QueryValue(USER, sName, nullptr, nullptr, nullptr);
  }
  static std::string Text(const char* sName) {
    char     acText[16] = "";
    uint32_t Size       = sizeof(acText);
    return SYS_REG_QueryValue(USER, sName, nullptr, acText, &Size) == 0 ? acText : "none";
  }
  // The lowest free descriptor: it rises when one is lost.
  static int FreeDescriptor() {
    const int hFile = open("/dev/null", O_RDONLY);
    close(hFile);
    return hFile;
  }

  struct FAULT_ROW {
    const char* sCall;
    int         Error;
  };
  static constexpr FAULT_ROW Rows[] = {
      {"malloc", ENOMEM}, {"open", EMFILE}, {"read", EIO},      {"read", 0},    {"write", ENOSPC},
      {"write", 0},       {"lseek", EIO},   {"ftruncate", EIO}, {"fstat", EIO}, {"lstat", EIO},
      {"lstat", ENOENT},  {"stat", EIO},    {"mkdir", EACCES}};

  // Runs Body with the first, second, third ... call of each kind failing, once or from there on,
  // until it makes no more of them; then Check, with all working again.
  void FailInTurn(const std::function<void()>& Prepare, const std::function<void()>& Body,
                  const std::function<void(const char*)>& Check) {
    for (const FAULT_ROW& Row : Rows) {
      for (const uint32_t Count : {1u, 0xFFFFFFFFu}) {
        uint32_t NumCalls = 1;
        for (uint32_t Skip = 0; Skip < NumCalls; Skip++) {
          SCOPED_TRACE(std::string(Row.sCall) + " " + std::to_string(Row.Error) + " number " +
                       std::to_string(Skip) + " times " + std::to_string(Count));
          Prepare();
          const int hBefore = FreeDescriptor();
          {
            const FAULT Fault(Row.sCall, Row.Error, Skip, Count);
            Body();
            NumCalls = Fault.GetNumCalls();
          }
          ASSERT_EQ(hBefore, FreeDescriptor());
          Check(Row.sCall);
          SYS_REG_Flush();
          if (HasFatalFailure()) {
            return;
          }
        }
      }
    }
  }
};

TEST_F(SysRegistryFaults, AGoodFileIsKeptOrReplacedByWhatWasAccepted) {
  const std::string sBefore =
      "<Registry keep=\"k\" keep_OSTRELRegType=\"SYS_REG_TYPE_SZ\" old=\"1\" "
      "old_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n";
  uint32_t SetResult, ListResult, DeleteResult;
  FailInTurn([&] { Provide(sBefore); },
             [&] {
               RegistryKeyHandle* hKey = SYS_REG_OpenKey(USER, "a\\b");
               SetResult               = Set("new", "2");
               ListResult              = SYS_REG_SetValue(USER, "list", 7, "x\0y\0", 5);
               DeleteResult            = SYS_REG_DeleteValue(USER, "old");
               SYS_REG_CloseKey(hKey);
               SYS_REG_Flush();
             },
             [&](const char* sCall) {
               ASSERT_TRUE(SetResult <= 1 && ListResult <= 1 && DeleteResult <= 1);
               if (File() == "" && strcmp(sCall, "write") == 0) {
                 return;  // emptied, and then not written: the format's own window
               }
               ASSERT_EQ("k", Text("keep"));
               if (File() != sBefore) {
                 EXPECT_EQ(SetResult == 0 ? "2" : "none", Text("new"));
                 EXPECT_EQ(ListResult == 0 ? "x" : "none", Text("list"));
                 EXPECT_EQ(DeleteResult == 0 ? "none" : "1", Text("old"));
               }
             });
}

TEST_F(SysRegistryFaults, AFileIsNotWrittenWhenNothingWasChanged) {
  // Without memory for a snapshot it counts as changed, but its text says the same.
  const std::string sBefore = "<Registry keep=\"k\" keep_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n";
  FailInTurn([&] { Provide(sBefore); },
             [&] {
               Query("keep");
               SYS_REG_Flush();
             },
             [&](const char*) { ASSERT_EQ(sBefore, File()); });
}

TEST_F(SysRegistryFaults, AMalformedFileStaysOrBecomesAnEmptyStore) {
  uint32_t Result;
  FailInTurn(
      [&] { Provide("not XML"); },
      [&] {
        Result = Query("v");
        SYS_REG_Flush();
      },
      [&](const char* sCall) {
        ASSERT_TRUE(Result == 1 || Result == 2);
        const std::string sFile = File();
        ASSERT_TRUE(sFile == "not XML" || sFile == "<Registry>\r\n</Registry>" ||
                    sFile == "<Registry/>\r\n" ||
                    (sFile == "" && (strcmp(sCall, "write") == 0 || strcmp(sCall, "lseek") == 0)))
            << sFile;
        ASSERT_EQ(2u, Query("v"));  // and from now on it works
      });
}

TEST_F(SysRegistryFaults, AFreshHomeGetsItsStoreAsSoonAsItCan) {
  uint32_t Result;
  FailInTurn([&] { std::filesystem::remove_all(m_Home.Path("Library")); },
             [&] {
               Result = Set("v", "x");
               SYS_REG_Flush();
             },
             [&](const char* sCall) {
               ASSERT_LE(Result, 1u);
               if (Result == 1) {
                 ASSERT_EQ("none", Text("v"));
               } else if (File() != "<Registry>\r\n</Registry>" && strcmp(sCall, "write") != 0) {
                 ASSERT_EQ("x", Text("v"));
               }
             });
}

TEST_F(SysRegistryFaults, AFileThatCannotBeReadForAMomentIsReadTheSecondTime) {
  const std::string sBefore = "<Registry keep=\"k\" keep_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n";
  for (const char* sCall : {"open", "read", "fstat", "malloc"}) {
    Provide(sBefore);
    uint32_t Result;
    {
      const FAULT Fault(sCall, EIO);
      Result = Query("keep");
    }
    EXPECT_EQ(0u, Result) << sCall;
    EXPECT_EQ(sBefore, Flushed());
  }
}

TEST_F(SysRegistryFaults, AnOpenIsTriedFourTimesBeforeTheWriteIsGivenUp) {
  for (uint32_t NumFailures = 0; NumFailures < 6; NumFailures++) {
    Provide("<Registry/>");
    Set("v", "x");
    uint32_t NumOpens;
    {
      const FAULT Fault("open", EMFILE, 0, NumFailures);
      SYS_REG_Flush();
      NumOpens = Fault.GetNumCalls();
    }
    EXPECT_EQ(std::min(NumFailures + 1, 4u), NumOpens);
    EXPECT_EQ(NumFailures < 4, File() != "<Registry/>");
  }
}

TEST_F(SysRegistryFaults, AKeyThatFindsNoMemoryIsNoKey) {
  Provide("<Registry/>");
  Query("v");  // loads the root
  {
    const FAULT Fault("malloc", ENOMEM);
    EXPECT_EQ(nullptr, SYS_REG_OpenKey(USER, "a"));  // for the handle
  }
  RegistryKeyHandle* hRoot  = SYS_REG_OpenKey(USER, "");
  XmlArena*          pArena = hRoot->pDoc->pArena;
  SYS_XML_AllocFromArena(pArena, 0x400000 - pArena->Used);
  {
    const FAULT Fault("malloc", ENOMEM, 1, 10);
    EXPECT_EQ(nullptr, SYS_REG_OpenKey(USER, "a"));  // for the element
  }
  SYS_REG_CloseKey(hRoot);
}

TEST_F(SysRegistryFaults, AValueThatFindsNoMemoryFailsAtEveryOneOfItsPieces) {
  // Room for so many bytes in the arena, and no more memory: sooner or later any piece is the one.
  for (const uint32_t Type : {1u, 7u}) {
    bool HasSucceeded = false;
    for (uint32_t Room = 0; !HasSucceeded; Room += 8) {
      ASSERT_LT(Room, 2000u);
      Provide("<Registry/>");
      RegistryKeyHandle* hRoot  = SYS_REG_OpenKey(USER, "");
      XmlArena*          pArena = hRoot->pDoc->pArena;
      SYS_XML_AllocFromArena(pArena, 0x400000 - pArena->Used - Room);
      uint32_t Result;
      {
        const FAULT Fault("malloc", ENOMEM, 0, 100);
        Result = SYS_REG_SetValue(USER, "N", Type, "a\0b\0c\0", 7);
      }
      HasSucceeded = Result == 0;
      EXPECT_LE(Result, 1u);
      EXPECT_EQ(Result == 0 ? 0u : 2u, Query("N"));
      SYS_REG_CloseKey(hRoot);
      SYS_REG_Flush();
    }
  }
}
