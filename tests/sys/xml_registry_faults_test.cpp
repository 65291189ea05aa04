// SPDX-License-Identifier: MIT

// Memory that runs out and system calls that fail, in XML documents and the registry store.

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "sys/xml.h"
#include "sys/xml_index.h"
#include "sys/xml_node.h"
#include "tests/sys/support/faults.h"
#include "tests/sys/support/registry_home.h"

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
  EXPECT_EQ(SYS_XML_ERR_MEMORY, Error);
}

TEST(SysXmlFaults, ANameThatNeedsAChunkOfItsOwnLeavesNothingBehind) {
  const std::string sName(0x400000, 'n');
  const FAULT       Fault("malloc", ENOMEM, 1);
  EXPECT_EQ(nullptr, SYS_XML_CreateDoc(sName.c_str()));
}

// Makes a document whose first chunk has room for NumBytes only.
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
  for (uint32_t Room = 0; Room < 64; Room += 8) {  // in turn each of the pieces does not fit
    XmlDocument* pDoc  = CreateFullDoc(Room);
    XmlElement*  pRoot = SYS_XML_GetRoot(pDoc);
    {
      const FAULT Fault("malloc", ENOMEM, 0, 10);
      if (Room < 56) {
        EXPECT_EQ(SYS_XML_ERR_MEMORY, SYS_XML_SetAttr(pDoc, pRoot, "b", "2")) << Room;
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
    EXPECT_EQ(SYS_XML_ERR_MEMORY, SYS_XML_SetAttr(pDoc, pRoot, "a", "longer than before"));
  }
  EXPECT_STREQ("1", SYS_XML_FindAttr(pRoot, "a")->sValue);
  EXPECT_EQ(0, SYS_XML_SetAttr(pDoc, pRoot, "a", "longer than before"));
  SYS_XML_FreeDoc(pDoc);
}

TEST(SysXmlFaults, ParsingEndsAtThePieceThatFindsNoMemory) {
  // Each text needs a second chunk at another place: for an element, its name, an attribute, its
  // name, its value.
  const std::string              sBig(0x400000, 'n');
  const std::vector<std::string> Texts = {"<" + sBig + "/>", "<R " + sBig + "=\"\"/>",
                                          "<R a=\"" + sBig + "\"/>", "<R><" + sBig + "/></R>"};
  for (const std::string& sText : Texts) {
    int32_t Error = 0;
    {
      const FAULT Fault("malloc", ENOMEM, 1);
      EXPECT_EQ(nullptr, SYS_XML_ParseDoc(sText.c_str(), &Error));
    }
    EXPECT_EQ(SYS_XML_ERR_MEMORY, Error);
  }
}

TEST(SysXmlFaults, ParsingEndsAtTheNodeThatFindsNoMemory) {
  for (const std::string sPiece : {"<a/>", "<a b=\"\" c=\"\"/>", "<a b =\"\"/>"}) {
    std::string sText = "<R>";
    while (sText.size() < 0x200000) {
      sText += sPiece;
    }
    int32_t Error = 0;
    {
      const FAULT Fault("malloc", ENOMEM, 1);  // of the second chunk
      EXPECT_EQ(nullptr, SYS_XML_ParseDoc(sText.c_str(), &Error));
    }
    EXPECT_EQ(SYS_XML_ERR_MEMORY, Error) << sPiece;
  }
}

// Leaves so many bytes in the document's only chunk.
static void LeaveRoom(XmlDocument* pDoc, uint32_t NumBytes) {
  SYS_XML_AllocFromArena(pDoc->pArena, pDoc->pArena->Capacity - pDoc->pArena->Used - NumBytes);
}

// Adds "n0", "n1", ... from First on; returns how many were added.
static int AddNames(XmlDocument* pDoc, int First, int End) {
  int i = First;
  while (i < End && SYS_XML_SetAttr(pDoc, SYS_XML_GetRoot(pDoc), ("n" + std::to_string(i)).c_str(),
                                    std::to_string(i).c_str()) == 0) {
    i++;
  }
  return i - First;
}

// Each of the names is found, also when there was no memory for a table of them.
static void ExpectNames(XmlDocument* pDoc, int End) {
  for (int i = End - 1; i >= 0; i--) {
    const std::string   sName = "n" + std::to_string(i);
    const XmlAttribute* pAttr =
        SYS_XML_LookUpAttr(pDoc, SYS_XML_GetRoot(pDoc), sName.c_str(), (uint32_t)sName.size());
    ASSERT_NE(nullptr, pAttr) << i;
    ASSERT_EQ(std::to_string(i), pAttr->sValue);
  }
  EXPECT_EQ(nullptr, SYS_XML_LookUpAttr(pDoc, SYS_XML_GetRoot(pDoc), "none", 4));
}

TEST(SysXmlFaults, WithoutMemoryForATableTheListIsSearched) {
  for (const uint32_t Room : {0u, 96u, 248u, 1000u}) {  // for nothing, an index, and no table
    std::string sText = "<R";
    for (int i = 0; i < 18; i++) {
      sText += " n" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
    }
    XmlDocument* pDoc = SYS_XML_ParseDoc((sText + "><K/></R>").c_str(), nullptr);
    ASSERT_NE(nullptr, pDoc);
    XmlElement* const   pRoot  = SYS_XML_GetRoot(pDoc);
    XmlElement* const   pChild = SYS_XML_GetFirstChild(pRoot);
    XmlAttribute* const pSpare = SYS_XML_AddAttr(pDoc, pChild, "spare", 5, "", 0);
    LeaveRoom(pDoc, Room);
    {
      const FAULT Fault("malloc", ENOMEM, 0, 0xFFFFFFFF);
      SYS_XML_DropAttr(pDoc, pChild, pSpare);
      ASSERT_NE(nullptr, SYS_XML_AddAttr(pDoc, pRoot, "n18", 3, "18", 2));
      ExpectNames(pDoc, 19);
    }
    EXPECT_EQ(100, AddNames(pDoc, 19, 119));
    ExpectNames(pDoc, 119);
    SYS_XML_FreeDoc(pDoc);
  }
}

TEST(SysXmlFaults, ATableThatCannotGrowIsGivenUpUntilItCan) {
  XmlDocument*               pDoc   = SYS_XML_CreateDoc("R");
  XmlElement*                pRoot  = SYS_XML_GetRoot(pDoc);
  XmlElement*                pChild = SYS_XML_FindOrAddChild(pDoc, pRoot, "K");
  std::vector<XmlAttribute*> apSpare;
  for (int i = 0; i < 10; i++) {
    apSpare.push_back(SYS_XML_AddAttr(pDoc, pChild, "spare", 5, "", 0));
  }
  ASSERT_EQ(48, AddNames(pDoc, 0, 48));  // the table of 64 is full
  ExpectNames(pDoc, 48);
  LeaveRoom(pDoc, 0);
  {
    const FAULT Fault("malloc", ENOMEM, 0, 0xFFFFFFFF);
    for (XmlAttribute* pSpare : apSpare) {
      SYS_XML_DropAttr(pDoc, pChild, pSpare);
    }
    EXPECT_EQ(10, AddNames(pDoc, 48, 1000));
    ExpectNames(pDoc, 58);
    // With fewer names the former table is large enough again.
    for (int i = 57; i >= 40; i--) {
      EXPECT_EQ(0, SYS_XML_RemoveAttr(pRoot, ("n" + std::to_string(i)).c_str()));
    }
    ExpectNames(pDoc, 40);
  }
  EXPECT_EQ(100, AddNames(pDoc, 40, 140));
  ExpectNames(pDoc, 140);
  SYS_XML_FreeDoc(pDoc);
}

TEST(SysXmlFaults, WritingNeedsMemoryAtFirstAndToGrow) {
  XmlDocument* pDoc = SYS_XML_CreateDoc("R");
  SYS_XML_SetAttr(pDoc, SYS_XML_GetRoot(pDoc), "a", std::string(5000, 'v').c_str());
  SYS_XML_FindOrAddChild(pDoc, SYS_XML_GetRoot(pDoc), "K");
  char acText[8] = "#######";
  for (const char* sCall : {"malloc", "realloc"}) {
    const FAULT Fault(sCall, ENOMEM);
    EXPECT_EQ(SYS_XML_ERR_MEMORY, SYS_XML_StoreDoc(pDoc, acText, sizeof(acText))) << sCall;
    EXPECT_STREQ("#######", acText);
  }
  SYS_XML_FreeDoc(pDoc);
}

class SysXmlFileFaults : public testing::Test {
 protected:
  std::string Path(const char* sName) { return m_Dir.Path(sName); }
  int32_t     LoadError() {
        int32_t      Error = 12345;
        XmlDocument* pDoc  = SYS_XML_LoadDoc(Path("f").c_str(), &Error);
        SYS_XML_FreeDoc(pDoc);
        return Error;
  }

  TempDir m_Dir;
};

TEST_F(SysXmlFileFaults, AFileThatCannotBeReadIsDistinguishedFromAMalformedOne) {
  WriteFile(Path("f"), "<R/>" + std::string(0x400000, ' '));  // does not fit the first chunk
  const struct {
    const char* sCall;
    int         Error;
    uint32_t    Skip;
    int32_t     Want;
  } Rows[] = {{"open", EMFILE, 0, SYS_XML_ERR_FILE},     {"fstat", EIO, 0, SYS_XML_ERR_FILE},
              {"lseek", EIO, 0, SYS_XML_ERR_FILE},       {"lseek", EIO, 1, SYS_XML_ERR_FILE},
              {"read", EIO, 0, SYS_XML_ERR_FILE},        {"read", 0, 0, SYS_XML_ERR_FILE},
              {"malloc", ENOMEM, 0, SYS_XML_ERR_MEMORY}, {"malloc", ENOMEM, 1, SYS_XML_ERR_MEMORY}};
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
  // Returns the lowest free descriptor: it rises when one is lost.
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
      {"malloc", ENOMEM}, {"realloc", ENOMEM}, {"open", EMFILE}, {"read", EIO},      {"read", 0},
      {"write", ENOSPC},  {"write", 0},        {"lseek", EIO},   {"ftruncate", EIO}, {"fstat", EIO},
      {"lstat", EIO},     {"lstat", ENOENT},   {"stat", EIO},    {"mkdir", EACCES}};

  // Runs Body with the first, second, third ... call of each kind failing, once or from then on,
  // until it makes no more calls. Then runs Check without failures.
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
                 return;  // emptied and then not written: the format allows that
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
  // Without memory for a snapshot it counts as changed and is written, with the same text.
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
        ASSERT_EQ(2u, Query("v"));  // works from now on
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

TEST_F(SysRegistryFaults, ARootsDirectoryIsLookedAtOnceForEachHome) {
  ASSERT_EQ(0u, Set("v", "1"));
  {
    const CALL_COUNTER Counter("lstat");
    EXPECT_EQ(0u, Set("v", "2"));
    EXPECT_EQ(0u, Query("v"));
    EXPECT_EQ(0u, Counter.GetNumCalls());
    setenv("HOME", m_Home.Path("other").c_str(), 1);
    EXPECT_EQ(0u, Query("v"));
    EXPECT_NE(0u, Counter.GetNumCalls());
  }
  EXPECT_TRUE(std::filesystem::exists(m_Home.Path("other/Library/Application Support/OSTREL")));
  {
    const CALL_COUNTER Counter("lstat");
    EXPECT_EQ(0u, Query("v"));
    EXPECT_EQ(0u, Counter.GetNumCalls());
    unsetenv("HOME");
    EXPECT_EQ(1u, Query("v"));
    setenv("HOME", "", 1);
    EXPECT_EQ(1u, Query("v"));
  }
  setenv("HOME", m_Home.Path().c_str(), 1);
  std::filesystem::remove_all(m_Home.Path("Library"));
  SYS_REG_Flush();  // makes the directory again
  EXPECT_EQ("<Registry v=\"2\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", File());
}

TEST_F(SysRegistryFaults, AKeyWithoutMemoryIsNotOpened) {
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
  // The arena has room for that many bytes, and there is no more memory: in turn each piece fails.
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
