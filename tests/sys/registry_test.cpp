#include "sys/registry.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "tests/sys/registry_home.h"

static RegistryKeyHandle* Root(uint32_t Value) {
  return reinterpret_cast<RegistryKeyHandle*>(static_cast<uintptr_t>(Value));
}

static RegistryKeyHandle* const USER = Root(0x80000001);

// No file can be written beyond so many bytes as long as it lives; as on a disk that is full.
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

static const std::string EMPTY_FILE = "<Registry>\r\n</Registry>";

class SysRegistry : public RegistryHome {
 protected:
  uint32_t SetText(const char* sName, const char* sText, RegistryKeyHandle* hKey = USER) {
    return SYS_REG_SetValue(hKey, sName, 1, sText, 0);
  }
  uint32_t SetDword(const char* sName, uint32_t Value, RegistryKeyHandle* hKey = USER) {
    return SYS_REG_SetValue(hKey, sName, 4, &Value, 4);
  }
  uint32_t SetBytes(const char* sName, uint32_t Type, const std::string& sBytes) {
    return SYS_REG_SetValue(USER, sName, Type, sBytes.data(), (uint32_t)sBytes.size());
  }

  // What a query with that capacity says: result, type, size, and the bytes it left in a buffer
  // that was full of '#'. Nothing may be written behind the capacity.
  struct Answer {
    uint32_t    Result;
    uint32_t    Type;
    uint32_t    Size;
    std::string Bytes;
  };
  Answer Query(const char* sName, uint32_t Capacity, RegistryKeyHandle* hKey = USER) {
    std::string sBuffer(Capacity + 32, '#');
    Answer      A = {0, 0xAAAAAAAA, Capacity, ""};
    A.Result      = SYS_REG_QueryValue(hKey, sName, &A.Type, sBuffer.data(), &A.Size);
    EXPECT_EQ(std::string(32, '#'), sBuffer.substr(Capacity)) << sName << " " << Capacity;
    A.Bytes = sBuffer.substr(0, Capacity);
    return A;
  }
  // The text of a value; an empty one when there is none.
  std::string Text(const char* sName, RegistryKeyHandle* hKey = USER) {
    char     acText[600] = "";
    uint32_t Size        = sizeof(acText);
    SYS_REG_QueryValue(hKey, sName, nullptr, acText, &Size);
    return acText;
  }
  uint32_t TypeOnly(const char* sName, uint32_t* pType = nullptr, RegistryKeyHandle* hKey = USER) {
    return SYS_REG_QueryValue(hKey, sName, pType, nullptr, nullptr);
  }
};

// ---- Roots and files ----------------------------------------------------------------------------

TEST_F(SysRegistry, TheFirstQueryInAFreshHomeMakesDirectoryAndEmptyFile) {
  EXPECT_EQ(2u, TypeOnly("Speed"));
  EXPECT_EQ(EMPTY_FILE, File());
  EXPECT_FALSE(HasFile("LOCAL_MACHINE"));
  EXPECT_FALSE(HasFile("CLASSES_ROOT"));
}

TEST_F(SysRegistry, FilesHaveThePermissions0644AndDirectories0775LessTheUmask) {
  const Umask None(0);
  EXPECT_EQ(2u, TypeOnly("Speed"));
  EXPECT_EQ(0644u, PermissionsOf(Path()));  // as made by the load
  std::filesystem::remove(Path());
  SetText("v", "x");
  SYS_REG_Flush();
  EXPECT_EQ(0644u, PermissionsOf(Path()));  // as made by the flush
  for (const char* sDir : {"Library", "Library/Application Support"}) {
    EXPECT_EQ(0775u, PermissionsOf(m_Home.Path(sDir))) << sDir;
  }
  EXPECT_EQ(0775u, PermissionsOf(Dir()));
}

TEST_F(SysRegistry, EachRootHasAFileOfItsOwn) {
  const std::map<uint32_t, std::string> Roots = {
      {0x80000000, "CLASSES_ROOT"}, {0x80000001, "CURRENT_USER"}, {0x80000002, "LOCAL_MACHINE"}};
  EXPECT_EQ(Root(0x80000000), HKEY_CLASSES_ROOT);
  EXPECT_EQ(Root(0x80000001), HKEY_CURRENT_USER);
  EXPECT_EQ(Root(0x80000002), HKEY_LOCAL_MACHINE);
  for (const auto& [Value, sName] : Roots) {
    EXPECT_EQ(0u, SetText("Name", sName.c_str(), Root(Value)));
  }
  SYS_REG_Flush();
  for (const auto& [Value, sName] : Roots) {
    EXPECT_EQ("<Registry Name=\"" + sName + "\" Name_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n",
              File(sName));
  }
}

TEST_F(SysRegistry, TheOtherPredefinedRootsFailEverything) {
  for (uint32_t Value = 0x80000003; Value <= 0x80000006; Value++) {
    RegistryKeyHandle* hRoot = Root(Value);
    EXPECT_EQ(nullptr, SYS_REG_OpenKey(hRoot, "a"));
    EXPECT_EQ(1u, SetText("v", "x", hRoot));
    EXPECT_EQ(1u, SetText(" ", "x", hRoot));  // the root comes before the name
    EXPECT_EQ(1u, TypeOnly("v", nullptr, hRoot));
    EXPECT_EQ(1u, SYS_REG_DeleteValue(hRoot, "v"));
    SYS_REG_CloseKey(hRoot);
  }
  EXPECT_FALSE(std::filesystem::exists(Dir()));
}

TEST_F(SysRegistry, NullKeysFailEverything) {
  EXPECT_EQ(nullptr, SYS_REG_OpenKey(nullptr, "a"));
  EXPECT_EQ(1u, SetText("v", "x", nullptr));
  EXPECT_EQ(1u, TypeOnly("v", nullptr, nullptr));
  EXPECT_EQ(1u, SYS_REG_DeleteValue(nullptr, "v"));
  SYS_REG_CloseKey(nullptr);
}

TEST_F(SysRegistry, ClosingARootDoesNothing) {
  SetText("v", "x");
  SYS_REG_CloseKey(USER);
  EXPECT_EQ("x", Text("v"));
}

TEST_F(SysRegistry, WithoutHomeEverythingFailsAndNothingIsWritten) {
  const std::string sCwd = std::filesystem::current_path();
  std::filesystem::current_path(m_Home.Path());
  for (const char* sHome : {static_cast<const char*>(nullptr), ""}) {
    sHome == nullptr ? unsetenv("HOME") : setenv("HOME", sHome, 1);
    EXPECT_EQ(nullptr, SYS_REG_OpenKey(USER, "a"));
    EXPECT_EQ(1u, SetText("v", "x"));
    EXPECT_EQ(1u, TypeOnly("v"));
    EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, "v"));
    SYS_REG_Flush();
  }
  EXPECT_TRUE(std::filesystem::is_empty(m_Home.Path()));
  std::filesystem::current_path(sCwd);
}

TEST_F(SysRegistry, HomeLostBeforeTheFlushLosesTheChangesAndWritesNothing) {
  Provide(EMPTY_FILE);
  SetText("v", "x");
  unsetenv("HOME");
  EXPECT_EQ(1u, TypeOnly("v"));
  EXPECT_EQ(EMPTY_FILE, Flushed());
  setenv("HOME", m_Home.Path().c_str(), 1);
  EXPECT_EQ(2u, TypeOnly("v"));  // unloaded all the same
}

TEST_F(SysRegistry, HomeChangedBeforeTheFlushTakesTheChangedRootsAlong) {
  const std::string sRest  = "/Library/Application Support/OSTREL/OSTREL_REG_HKEY_";
  const std::string sUser  = m_Home.Path("other") + sRest + "CURRENT_USER.xml";
  const std::string sLocal = m_Home.Path("other") + sRest + "LOCAL_MACHINE.xml";
  const std::string sHere  = "<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n";
  Provide(sHere);
  Provide(sHere, "LOCAL_MACHINE");
  std::filesystem::create_directories(m_Home.Path("other/Library/Application Support/OSTREL"));
  WriteFile(sUser, "<Registry there=\"1\"/>");
  WriteFile(sLocal, "<Registry there=\"1\"/>");
  SetText("a", "2");
  EXPECT_EQ(0u, TypeOnly("a", nullptr, HKEY_LOCAL_MACHINE));  // loaded, not changed
  setenv("HOME", m_Home.Path("other").c_str(), 1);
  EXPECT_EQ("2", Text("a"));  // still the root that was loaded
  SYS_REG_Flush();
  EXPECT_EQ(sHere, File());
  EXPECT_EQ("<Registry a=\"2\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", ReadFile(sUser));
  EXPECT_EQ(sHere, File("LOCAL_MACHINE"));
  EXPECT_EQ("<Registry there=\"1\"/>", ReadFile(sLocal));
}

TEST_F(SysRegistry, ADirectoryThatCannotBeMadeFailsEverything) {
  WriteFile(m_Home.Path("Library"), "in the way");
  EXPECT_EQ(1u, SetText("v", "x"));
  EXPECT_EQ(nullptr, SYS_REG_OpenKey(USER, "a"));
  EXPECT_EQ("in the way", ReadFile(m_Home.Path("Library")));
}

TEST_F(SysRegistry, AHomeTooLongForTheFilesPathFailsEverything) {
  std::string       sHome = m_Home.Path();
  const std::string sDir  = "/Library/Application Support/OSTREL";
  while (sHome.size() + sDir.size() + 1 + strlen("OSTREL_REG_HKEY_CURRENT_USER.xml") < 511) {
    sHome += "/";
  }
  setenv("HOME", sHome.c_str(), 1);
  EXPECT_EQ(0u, SetText("v", "x"));
  SYS_REG_Flush();
  EXPECT_NE(EMPTY_FILE, File());
  const std::string sBefore = File();
  setenv("HOME", (sHome + "/").c_str(), 1);
  EXPECT_EQ(1u, SetText("v", "y"));
  EXPECT_EQ(sBefore, Flushed());
  while (sHome.size() + sDir.size() < 511) {
    sHome += "/";
  }
  setenv("HOME", sHome.c_str(), 1);  // the directory fits, the "/" behind it does not
  EXPECT_EQ(1u, SetText("v", "y"));
}

TEST_F(SysRegistry, BackslashesInThePathOfTheFileAreSeparators) {
  setenv("HOME", (m_Home.Path() + "/a\\b").c_str(), 1);
  // The directory is made under the name as it is, so the file's is missing.
  EXPECT_EQ(1u, SetText("v", "x"));
  std::filesystem::create_directories(m_Home.Path("a/b/Library/Application Support/OSTREL"));
  EXPECT_EQ(0u, SetText("v", "x"));
  EXPECT_TRUE(std::filesystem::exists(m_Home.Path("a/b/Library/Application Support/OSTREL") +
                                      "/OSTREL_REG_HKEY_CURRENT_USER.xml"));
}

TEST_F(SysRegistry, ALinkToTheDirectoryIsAccepted) {
  std::filesystem::create_directories(m_Home.Path("elsewhere"));
  std::filesystem::create_directories(m_Home.Path("Library"));
  std::filesystem::create_symlink(m_Home.Path("elsewhere"),
                                  m_Home.Path("Library/Application Support"));
  EXPECT_EQ(0u, SetText("v", "x"));
  SYS_REG_Flush();
  EXPECT_TRUE(
      std::filesystem::exists(m_Home.Path("elsewhere/OSTREL/OSTREL_REG_HKEY_CURRENT_USER.xml")));
}

// ---- Loading ------------------------------------------------------------------------------------

TEST_F(SysRegistry, AFileWithInvalidXmlBecomesTheEmptyStoreOnFirstUse) {
  for (const char* sText :
       {"", "text", "<Registry>text</Registry>", "<?xml version=\"1.0\"?><Registry/>",
        "<Registry a=\"x/>", "<!-- only a comment -->", "<Registry></Other>"}) {
    Provide(sText);
    EXPECT_EQ(2u, TypeOnly("v")) << sText;
    EXPECT_EQ(EMPTY_FILE, File()) << sText;
    SYS_REG_Flush();
    EXPECT_EQ(EMPTY_FILE, File()) << sText;
  }
}

TEST_F(SysRegistry, AFileCutBetweenElementsKeepsWhatIsThere) {
  Provide("<Registry v=\"x\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\"><K/>");
  EXPECT_EQ("x", Text("v"));
  EXPECT_EQ("<Registry v=\"x\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\"><K/>", Flushed());
}

TEST_F(SysRegistry, AFileCutAnywhereLoadsOrBecomesTheEmptyStore) {
  const std::string sWhole =
      "<!DOCTYPE r>\r\n<!-- c --><Registry>\r\n  <K v=\"x\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\" "
      "N=\"a\" N_OSTRELRegMltStr1=\"b\" N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\">\r\n    <L/>\r\n"
      "  </K>\r\n</Registry>\r\n";
  const size_t Registry = sWhole.find("<Registry>"), K = sWhole.find("<K"), L = sWhole.find("<L");
  for (size_t Length = 0; Length <= sWhole.size(); Length++) {
    const std::string sCut = sWhole.substr(0, Length);
    Provide(sCut);
    EXPECT_EQ(2u, TypeOnly("v")) << Length;  // nothing is in the root itself
    const bool IsKept = File() == sCut;
    EXPECT_TRUE(IsKept || File() == EMPTY_FILE) << Length;
    RegistryKeyHandle* hKey = SYS_REG_OpenKey(USER, "K");
    ASSERT_NE(nullptr, hKey) << Length;
    const bool HasK = Length >= sWhole.find('>', K) + 1 && IsKept;
    EXPECT_EQ(HasK ? "x" : "", Text("v", hKey)) << Length;
    EXPECT_EQ(HasK ? 0u : 2u, TypeOnly("N", nullptr, hKey)) << Length;
    SYS_REG_CloseKey(hKey);
    // Between tags nothing is missing that the end of the text would not make up for.
    if (Length == Registry + 10 || Length == K - 1 || Length == L - 1 || Length == sWhole.size()) {
      EXPECT_TRUE(IsKept) << Length;
    }
    SetText("new", "y");
    SYS_REG_Flush();
    EXPECT_EQ("y", Text("new")) << Length;
    SYS_REG_Flush();
  }
}

TEST_F(SysRegistry, HostileFilesBecomeTheEmptyStoreOrLoad) {
  std::string sDeep = "<R>", sAttrs = "<R ";
  for (int i = 0; i < 101; i++) {
    sDeep += "<n>";
  }
  for (int i = 0; i < 1000000; i++) {
    sAttrs += "a=\"\"";
  }
  const std::string sMega(0x100000, 'n');
  const struct {
    const char* sWhat;
    std::string sText;
    bool        IsLoaded;
  } Rows[] = {
      {"nested 101 deep", sDeep, false},
      {"a million attributes", sAttrs + "/>", true},
      {"a name of a mebibyte", "<" + sMega + " " + sMega + "=\"" + sMega + "\"/>", true},
      {"an endless name", "<" + sMega, false},
      {"no closing quote", "<R a=\"" + sMega, false},
      {"a zero byte in a tag", std::string("<R \0a=\"1\"/>", 12), false},
      {"a zero byte behind the root", std::string("<R/>\0</x>", 9), true},
      {"zero bytes only", std::string(1000, '\0'), false},
      {"bytes that are no text", "<R>\xFF\xFE\x80</R>", false},
      {"bytes that are no text in a value", "<R a=\"\xFF\xFE\x80\"/>", true},
  };
  for (const auto& Row : Rows) {
    Provide(Row.sText);
    EXPECT_EQ(2u, TypeOnly("v")) << Row.sWhat;
    EXPECT_TRUE(Flushed() == (Row.IsLoaded ? Row.sText : EMPTY_FILE)) << Row.sWhat;
  }
}

TEST_F(SysRegistry, AnyRootElementNameIsTaken) {
  Provide("<Other><K v=\"x\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/></Other>");
  RegistryKeyHandle* hKey = SYS_REG_OpenKey(USER, "K");
  EXPECT_EQ("x", Text("v", hKey));
  SYS_REG_CloseKey(hKey);
}

TEST_F(SysRegistry, WhatIsNoRegularFileFailsAndIsLeftAlone) {
  std::filesystem::create_directories(Path());
  EXPECT_EQ(1u, SetText("v", "x"));
  EXPECT_TRUE(std::filesystem::is_directory(Path()));
  std::filesystem::remove(Path());

  ASSERT_EQ(0, mkfifo(Path().c_str(), 0644));
  EXPECT_EQ(1u, SetText("v", "x"));
  EXPECT_TRUE(std::filesystem::is_fifo(Path()));
  std::filesystem::remove(Path());

  std::filesystem::create_symlink("/dev/zero", Path());
  EXPECT_EQ(1u, SetText("v", "x"));
  std::filesystem::remove(Path());

  std::filesystem::create_symlink(Path(), Path());
  EXPECT_EQ(1u, SetText("v", "x"));
}

TEST_F(SysRegistry, AFileReplacedByAFifoBeforeTheFlushIsNotWaitedFor) {
  SetText("v", "x");
  std::filesystem::remove(Path());
  ASSERT_EQ(0, mkfifo(Path().c_str(), 0644));
  SYS_REG_Flush();
  EXPECT_TRUE(std::filesystem::is_fifo(Path()));
}

TEST_F(SysRegistry, ALinkIsFollowedAndAMissingTargetMade) {
  std::filesystem::create_directories(Dir());
  std::filesystem::create_symlink(m_Home.Path("target"), Path());
  SetText("v", "x");
  SYS_REG_Flush();
  EXPECT_TRUE(std::filesystem::is_symlink(Path()));
  EXPECT_EQ("<Registry v=\"x\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n",
            ReadFile(m_Home.Path("target")));
}

TEST_F(SysRegistry, AFileWithoutPermissionFailsAndKeepsItsText) {
  Provide("<Registry/>");
  for (const char* sDir : {"", "Library", "Library/Application Support"}) {
    ASSERT_EQ(0, chmod(m_Home.Path(sDir).c_str(), 0755));
  }
  ASSERT_EQ(0, chmod(Path().c_str(), 0000));
  {
    const Unprivileged User;
    EXPECT_EQ(1u, SetText("v", "x"));
  }
  ASSERT_EQ(0, chmod(Path().c_str(), 0444));
  {
    const Unprivileged User;
    EXPECT_EQ(0u, SetText("v", "x"));  // it can be read
    SYS_REG_Flush();                   // and not written
  }
  EXPECT_EQ("<Registry/>", File());
  WriteFile(Path(), "not XML");
  {
    const Unprivileged User;
    EXPECT_EQ(1u, SetText("v", "x"));
  }
  EXPECT_EQ("not XML", File());
}

TEST_F(SysRegistry, AFileThatCannotBeOpenedCostsFourAttempts5MsApart) {
  std::filesystem::create_directories(Path());
  const auto Start = std::chrono::steady_clock::now();
  EXPECT_EQ(1u, SetText("v", "x"));
  EXPECT_GE(std::chrono::steady_clock::now() - Start, std::chrono::milliseconds(15));
}

TEST_F(SysRegistry, AFileOf2GiBIsNeitherReadNorGivenUp) {
  Provide("<Registry/>");
  ASSERT_EQ(0, truncate(Path().c_str(), 0x80000000));
  EXPECT_EQ(1u, SetText("v", "x"));
  ASSERT_EQ(0, truncate(Path().c_str(), 0x100000000));  // its low half is 0
  EXPECT_EQ(1u, SetText("v", "x"));
  EXPECT_EQ(0x100000000u, std::filesystem::file_size(Path()));
}

// ---- Keys ---------------------------------------------------------------------------------------

class SysRegistryKeys : public SysRegistry {
 protected:
  // The store's text after that path was opened below the root.
  std::string Opened(const std::string& sPath) {
    Provide(EMPTY_FILE);
    RegistryKeyHandle* hKey = SYS_REG_OpenKey(USER, sPath.c_str());
    if (hKey == nullptr) {
      SYS_REG_Flush();
      return File() == EMPTY_FILE ? "null" : "null, but changed";
    }
    SYS_REG_CloseKey(hKey);
    SYS_REG_Flush();
    return File() == EMPTY_FILE ? "root" : File();
  }
  // The text of elements nested in each other.
  std::string Nested(const std::vector<std::string>& Names) {
    std::string sText = "<Registry>\r\n", sEnd, sIndent;
    for (size_t i = 0; i < Names.size(); i++) {
      sIndent += "  ";
      if (i + 1 == Names.size()) {
        sText += sIndent + "<" + Names[i] + "/>\r\n";
      } else {
        sText += sIndent + "<" + Names[i] + ">\r\n";
        sEnd = sIndent + "</" + Names[i] + ">\r\n" + sEnd;
      }
    }
    return sText + sEnd + "</Registry>\r\n";
  }
};

TEST_F(SysRegistryKeys, OpeningMakesEveryMissingKey) {
  EXPECT_EQ(Nested({"Software", "MyKey", "x-y"}), Opened("Software\\My Key\\x-y"));
}

TEST_F(SysRegistryKeys, ComponentsAreSanitised) {
  EXPECT_EQ(Nested({"_a"}), Opened("-a"));
  EXPECT_EQ(Nested({"a_b"}), Opened("a.b"));
  EXPECT_EQ(Nested({"_"}), Opened("/"));
  EXPECT_EQ(Nested({"_q_"}), Opened("\"q\""));  // quotes mean nothing in a path
  EXPECT_EQ(Nested({"_ab_"}), Opened("\"a b\""));
  EXPECT_EQ(Nested({"__"}), Opened("\xC3\xA4"));
  EXPECT_EQ(Nested({"!x"}), Opened("!x"));
}

TEST_F(SysRegistryKeys, AllWhiteSpaceVanishesFromComponents) {
  EXPECT_EQ(Nested({"abcd", "e"}), Opened(" a\tb\nc\rd \\ e "));
  EXPECT_EQ(Nested({"ab_"}), Opened("ab\v"));  // a vertical tab is none
}

TEST_F(SysRegistryKeys, AnEmptyComponentEndsThePath) {
  EXPECT_EQ("root", Opened(""));
  EXPECT_EQ("root", Opened("\\"));
  EXPECT_EQ("root", Opened("\\a"));
  EXPECT_EQ("root", Opened(" \t"));
  EXPECT_EQ("root", Opened(" \\a"));
  EXPECT_EQ(Nested({"a"}), Opened("a\\"));
  EXPECT_EQ(Nested({"a"}), Opened("a\\\\b"));
  EXPECT_EQ(Nested({"a"}), Opened("a\\ \\b"));
}

TEST_F(SysRegistryKeys, AHandleToTheRootItselfWorksAsTheRoot) {
  RegistryKeyHandle* hKey = SYS_REG_OpenKey(USER, "");
  ASSERT_NE(nullptr, hKey);
  EXPECT_EQ(0u, SetText("v", "x", hKey));
  EXPECT_EQ("x", Text("v"));
  SYS_REG_CloseKey(hKey);
}

TEST_F(SysRegistryKeys, ExistingKeysAreFoundAgainAndNewOnesComeLast) {
  for (const char* sPath : {"b", "a", "b\\c", "a", "b", "B"}) {
    SYS_REG_CloseKey(SYS_REG_OpenKey(USER, sPath));
  }
  EXPECT_EQ("<Registry>\r\n  <b>\r\n    <c/>\r\n  </b>\r\n  <a/>\r\n  <B/>\r\n</Registry>\r\n",
            Flushed());
}

TEST_F(SysRegistryKeys, AKeyCanBeOpenedBelowAnOpenKey) {
  RegistryKeyHandle* hA = SYS_REG_OpenKey(USER, "a");
  RegistryKeyHandle* hC = SYS_REG_OpenKey(hA, "b\\c");
  EXPECT_EQ(0u, SetText("v", "x", hC));
  RegistryKeyHandle* hSame = SYS_REG_OpenKey(USER, "a\\b\\c");
  EXPECT_EQ("x", Text("v", hSame));
  EXPECT_STREQ("c", hSame->pElement->sName);
  EXPECT_EQ(hC->pElement, hSame->pElement);
  EXPECT_EQ(hC->pDoc, hSame->pDoc);
  SYS_REG_CloseKey(hSame);
  SYS_REG_CloseKey(hC);
  SYS_REG_CloseKey(hA);
}

TEST_F(SysRegistryKeys, ANullPathFails) {
  EXPECT_EQ(nullptr, SYS_REG_OpenKey(USER, nullptr));
}

TEST_F(SysRegistryKeys, AComponentOf512CharactersFailsAndMakesNothing) {
  const std::string s511(511, 'k');
  EXPECT_EQ(Nested({"a", s511}), Opened("a\\" + s511));
  EXPECT_EQ("null", Opened("a\\" + s511 + "k"));
  EXPECT_EQ("null", Opened("a\\" + s511 + " k"));
  EXPECT_EQ(Nested({"a"}), Opened("a\\\\" + s511 + "k"));  // behind the end it is not looked at
}

TEST_F(SysRegistryKeys, KeysThatWouldReadAsACommentOrADocumentTypeAreRefused) {
  EXPECT_EQ("null", Opened("a\\!--"));
  EXPECT_EQ("null", Opened("a\\!--x\\b"));
  EXPECT_EQ("null", Opened("!DOC"));
  EXPECT_EQ("null", Opened("!DOCS\\b"));
  EXPECT_EQ(Nested({"!doc"}), Opened("!doc"));
  EXPECT_EQ(Nested({"_!--"}), Opened("-!--"));
}

static std::string PathOfDepth(int Depth) {
  std::string sPath = "k";
  for (int i = 1; i < Depth; i++) {
    sPath += "\\k";
  }
  return sPath;
}

TEST_F(SysRegistryKeys, AKeyNestsAsDeepAsTheLoaderReadsAndNoDeeper) {
  EXPECT_EQ("null", Opened(PathOfDepth(101)));
  EXPECT_EQ("null", Opened(PathOfDepth(100) + "\\x"));
  Provide(EMPTY_FILE);
  RegistryKeyHandle* hKey = SYS_REG_OpenKey(USER, PathOfDepth(100).c_str());
  ASSERT_NE(nullptr, hKey);
  EXPECT_EQ(0u, SetText("deep", "x", hKey));
  EXPECT_EQ(nullptr, SYS_REG_OpenKey(hKey, "one more"));
  RegistryKeyHandle* hSame = SYS_REG_OpenKey(hKey, "");
  EXPECT_NE(nullptr, hSame);
  SYS_REG_CloseKey(hSame);
  SYS_REG_CloseKey(hKey);
  SYS_REG_Flush();
  hKey = SYS_REG_OpenKey(USER, PathOfDepth(100).c_str());
  EXPECT_EQ("x", Text("deep", hKey));
  SYS_REG_CloseKey(hKey);
}

TEST_F(SysRegistryKeys, EveryKeyThatCanBeMadeIsThereAfterFlushAndReload) {
  for (int c = 1; c < 256; c++) {
    const std::string  sPath = std::string("k") + (char)c + "\\x-y";
    RegistryKeyHandle* hKey  = SYS_REG_OpenKey(USER, sPath.c_str());
    ASSERT_NE(nullptr, hKey) << c;
    EXPECT_EQ(0u, SetDword("c", (uint32_t)c, hKey));
    SYS_REG_CloseKey(hKey);
    SYS_REG_Flush();
    hKey         = SYS_REG_OpenKey(USER, sPath.c_str());
    const auto A = Query("c", 4, hKey);
    EXPECT_EQ(0u, A.Result);
    EXPECT_EQ((char)c, A.Bytes[0]);
    SYS_REG_CloseKey(hKey);
  }
}

// ---- Names of values ----------------------------------------------------------------------------

class SysRegistryNames : public SysRegistry {
 protected:
  // The name under which a value set as sName is stored, "" when nothing was, "1" when refused.
  std::string Stored(const std::string& sName) {
    Provide(EMPTY_FILE);
    const uint32_t    Result = SetText(sName.c_str(), "x");
    const std::string sFile  = Flushed();
    if (sFile == EMPTY_FILE) {
      return Result == 0 ? "" : std::to_string(Result);
    }
    return sFile.substr(10, sFile.find('=') - 10);
  }
};

TEST_F(SysRegistryNames, SpacesVanish) {
  EXPECT_EQ("MyValue", Stored("My Value"));
  EXPECT_EQ("MyValue", Stored("  My  Value  "));
  EXPECT_EQ("abc", Stored("\t\r\n a \tb \nc"));
}

TEST_F(SysRegistryNames, OtherWhiteSpaceEndsTheName) {
  EXPECT_EQ("a", Stored("a\tb"));
  EXPECT_EQ("a", Stored("a\nb"));
  EXPECT_EQ("ab", Stored("a b\rc d"));
}

TEST_F(SysRegistryNames, QuotesHoldATokenTogether) {
  EXPECT_EQ("ab", Stored("\"ab\""));
  EXPECT_EQ("ab", Stored("\"ab\"cd"));
  EXPECT_EQ("abcd", Stored("\"ab\" cd"));
  EXPECT_EQ("abcd", Stored("ab \"cd\""));
  EXPECT_EQ("abcd", Stored("ab \"cd"));  // without a closing quote: up to the end
  EXPECT_EQ("b", Stored("\"\" b"));
  EXPECT_EQ("1", Stored("\"a b\""));  // the space is part of the name, and no name holds one
  EXPECT_EQ("1", Stored("ab\"cd\""));
}

TEST_F(SysRegistryNames, AnEmptyNameDoesNothing) {
  for (const char* sName : {" ", "\t", "\"\"", " \"\" \"\" ", "\""}) {
    EXPECT_EQ("", Stored(sName)) << sName;
    EXPECT_EQ(0u, TypeOnly(sName));
    EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, sName));
  }
}

TEST_F(SysRegistryNames, NullOrNoNameFails) {
  for (const char* sName : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(1u, SetText(sName, "x"));
    EXPECT_EQ(1u, TypeOnly(sName));
    EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, sName));
  }
}

TEST_F(SysRegistryNames, ANameOf512CharactersFailsAndChangesNothing) {
  const std::string s511(511, 'n');
  EXPECT_EQ(s511, Stored(s511));
  for (const std::string& sLong :
       {s511 + "n", "\"" + s511 + "n\"", s511 + " n", "n " + s511, std::string(100000, 'n')}) {
    EXPECT_EQ("1", Stored(sLong));
    EXPECT_EQ(1u, TypeOnly(sLong.c_str()));
    EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, sLong.c_str()));
  }
}

TEST_F(SysRegistryNames, AListUnderTheLongestNameIsStoredAndReadBack) {
  const std::string s511(511, 'n');
  EXPECT_EQ(0u, SetBytes(s511.c_str(), 7, std::string("a\0bc\0\0", 6)));
  SYS_REG_Flush();
  EXPECT_EQ(std::string("a\0bc\0\0##", 8), Query(s511.c_str(), 8).Bytes);
}

TEST_F(SysRegistryNames, ACharacterTheLoaderWouldRefuseFailsAndChangesNothing) {
  for (int c = 1; c < 256; c++) {
    const std::string sName = std::string("a") + (char)c + "b";
    const std::string sIs   = Stored(sName);
    if (c < 0x80 && (isalnum(c) != 0 || c == '_' || c == '!' || c == '-')) {
      EXPECT_EQ(sName, sIs) << c;
    } else if (c == ' ') {
      EXPECT_EQ("ab", sIs) << c;
    } else if (c == '\t' || c == '\n' || c == '\r') {
      EXPECT_EQ("a", sIs) << c;
    } else {
      EXPECT_EQ("1", sIs) << c;
      EXPECT_EQ(2u, TypeOnly(sName.c_str())) << c;
      EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, sName.c_str())) << c;
    }
  }
}

TEST_F(SysRegistryNames, EveryValueThatCanBeSetIsThereAfterFlushAndReload) {
  for (const char* sName : {"-", "!", "!DOC", "!--", "-a", "a-b", "0", "_"}) {
    Provide(EMPTY_FILE);
    EXPECT_EQ(0u, SetText(sName, "x")) << sName;
    SYS_REG_Flush();
    EXPECT_EQ("x", Text(sName)) << sName;
    SYS_REG_Flush();
  }
}

TEST_F(SysRegistryNames, CaseCounts) {
  SetText("a", "1");
  SetText("A", "2");
  EXPECT_EQ("1", Text("a"));
  EXPECT_EQ("2", Text("A"));
}

// ---- Setting ------------------------------------------------------------------------------------

TEST_F(SysRegistry, ADwordIsStoredAsEightHexDigits) {
  EXPECT_EQ(0u, SetBytes("Speed", 4, "\x78\x56\x34\x12"));
  EXPECT_EQ("<Registry Speed=\"0x12345678\" Speed_OSTRELRegType=\"SYS_REG_TYPE_DWORD\"/>\r\n",
            Flushed());
}

TEST_F(SysRegistry, ANumberTakesTheBytesThereAreOverAZero) {
  const std::string sBytes("\xF1\xF2\xF3\xF4\xF5\xF6\xF7\xF8\xF9", 9);
  const char* const Dwords[] = {"0x00000000", "0x000000F1", "0x0000F2F1",
                                "0x00F3F2F1", "0xF4F3F2F1", "0xF4F3F2F1"};
  for (size_t Size = 0; Size < 6; Size++) {
    EXPECT_EQ(0u, SetBytes("v", 4, sBytes.substr(0, Size)));
    EXPECT_EQ(Dwords[Size], Flushed().substr(strlen("<Registry v=\""), 10)) << Size;
  }
}

TEST_F(SysRegistry, AQwordOf4BytesFillsItsLowHalf) {
  EXPECT_EQ(0u, SetBytes("v", 11, "\x78\x56\x34\x12"));
  EXPECT_EQ("<Registry v=\"0x0000000012345678\" v_OSTRELRegType=\"SYS_REG_TYPE_QWORD\"/>\r\n",
            Flushed());
  EXPECT_EQ(0u, SetBytes("v", 11, "\x01\x02\x03\x04\x05\x06\x07\xF8\x09"));
  EXPECT_EQ("<Registry v=\"0xF807060504030201\" v_OSTRELRegType=\"SYS_REG_TYPE_QWORD\"/>\r\n",
            Flushed());
}

TEST_F(SysRegistry, NumbersWithoutDataAreZeroForNoBytesAndElseRefused) {
  EXPECT_EQ(0u, SYS_REG_SetValue(USER, "v", 4, nullptr, 0));
  EXPECT_EQ(1u, SYS_REG_SetValue(USER, "w", 4, nullptr, 4));
  EXPECT_EQ(1u, SYS_REG_SetValue(USER, "w", 4, nullptr, 1));
  EXPECT_EQ(1u, SYS_REG_SetValue(USER, "w", 11, nullptr, 8));
  EXPECT_EQ("<Registry v=\"0x00000000\" v_OSTRELRegType=\"SYS_REG_TYPE_DWORD\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, ATextIsStoredAsGivenAndItsSizeIgnored) {
  EXPECT_EQ(0u, SYS_REG_SetValue(USER, "v", 1, "a <&'> \xC3\xA4", 2));
  EXPECT_EQ(0u, SYS_REG_SetValue(USER, "w", 1, nullptr, 99));
  EXPECT_EQ(
      "<Registry v=\"a <&'> \xC3\xA4\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\" w=\"\" "
      "w_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AListGivesOneAttributePerString) {
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("a\0bc\0\0", 6)));
  EXPECT_EQ(
      "<Registry N=\"a\" N_OSTRELRegMltStr1=\"bc\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AListOfAnotherSizeIsRefusedAndChangesNothing) {
  SetText("N", "before");
  const std::string sBytes("a\0bc\0\0\0", 7);
  EXPECT_EQ(1u, SetBytes("N", 7, sBytes.substr(0, 5)));
  EXPECT_EQ(1u, SetBytes("N", 7, sBytes));
  EXPECT_EQ(1u, SetBytes("N", 7, ""));
  EXPECT_EQ(1u, SetBytes("N", 7, std::string(1, '\0')));
  EXPECT_EQ(1u, SetBytes("N", 7, std::string(3, '\0')));
  EXPECT_EQ(1u, SetBytes("N", 7, "unterminated"));
  EXPECT_EQ(1u, SYS_REG_SetValue(USER, "N", 7, nullptr, 6));
  EXPECT_EQ("<Registry N=\"before\" N_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, AListWithoutTerminatorIsNotReadBehindItsSize) {
  // The heap block ends with the data, so that a sanitizer sees a read behind it.
  for (uint32_t Size = 1; Size < 4; Size++) {
    char* pData = static_cast<char*>(malloc(Size));
    memset(pData, 'x', Size);
    EXPECT_EQ(1u, SYS_REG_SetValue(USER, "N", 7, pData, Size));
    pData[0] = 0;
    EXPECT_EQ(1u, SYS_REG_SetValue(USER, "N", 7, pData, Size));
    free(pData);
  }
}

TEST_F(SysRegistry, AnEmptyListIsTwoZeroBytes) {
  EXPECT_EQ(0u, SetBytes("N", 7, std::string(2, '\0')));
  EXPECT_EQ("<Registry N=\"\" N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, TheFirstStringOfAListMayBeEmptyTheOthersEndIt) {
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("\0b\0\0", 4)));
  EXPECT_EQ(1u, SetBytes("M", 7, std::string("a\0\0b\0\0", 6)));
  EXPECT_EQ(
      "<Registry N=\"\" N_OSTRELRegMltStr1=\"b\" N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, TheOtherTypesCannotBeSet) {
  for (const uint32_t Type : {0u, 2u, 3u, 5u, 6u, 8u, 9u, 10u, 12u, 0xFFFFFFFFu}) {
    EXPECT_EQ(1u, SYS_REG_SetValue(USER, "v", Type, "\0\0\0\0\0\0\0", 8)) << Type;
  }
  EXPECT_EQ(EMPTY_FILE, Flushed());
}

TEST_F(SysRegistry, AnEmptyNameComesBeforeTheTypeIsLookedAt) {
  EXPECT_EQ(0u, SYS_REG_SetValue(USER, " ", 3, "", 0));
}

TEST_F(SysRegistry, SettingAgainKeepsTheAttributesPlaces) {
  SetText("a", "1");
  SetText("b", "2");
  SetDword("a", 5);
  EXPECT_EQ(
      "<Registry a=\"0x00000005\" a_OSTRELRegType=\"SYS_REG_TYPE_DWORD\" b=\"2\" "
      "b_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AScalarOverAListLeavesItsFurtherStrings) {
  SetBytes("N", 7, std::string("a\0b\0c\0\0", 7));
  SetText("N", "x");
  EXPECT_EQ(
      "<Registry N=\"x\" N_OSTRELRegMltStr1=\"b\" N_OSTRELRegMltStr2=\"c\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AListClearsEveryFormerEntryWhateverItsType) {
  SetText("before", "");
  SetBytes("N", 7, std::string("a\0b\0c\0d\0\0", 9));
  SetText("N", "x");
  SetText("after", "");
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("e\0f\0\0", 5)));
  EXPECT_EQ(
      "<Registry before=\"\" before_OSTRELRegType=\"SYS_REG_TYPE_SZ\" after=\"\" "
      "after_OSTRELRegType=\"SYS_REG_TYPE_SZ\" N=\"e\" N_OSTRELRegMltStr1=\"f\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AListClearsStringsBehindAGapAndNothingElse) {
  Provide(
      "<Registry N=\"o\" N_OSTRELRegMltStr2=\"o\" N_OSTRELRegMltStr10=\"o\" N=\"twice\" "
      "N_OSTRELRegMltStr999999999=\"o\" "
      "N_OSTRELRegMltStr=\"k\" N_OSTRELRegMltStrX=\"k\" N_OSTRELRegMltStr1x=\"k\" "
      "N_OSTRELRegMltStr0=\"k\" NN=\"k\" N_OSTRELRegTyp=\"k\" M_OSTRELRegMltStr1=\"k\"/>");
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("n\0\0", 3)));
  EXPECT_EQ(
      "<Registry N_OSTRELRegMltStr=\"k\" N_OSTRELRegMltStrX=\"k\" N_OSTRELRegMltStr1x=\"k\" "
      "N_OSTRELRegMltStr0=\"k\" NN=\"k\" N_OSTRELRegTyp=\"k\" M_OSTRELRegMltStr1=\"k\" N=\"n\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AnIndexOfTenDigitsIsNoneOfAList) {
  // Counted in 32 bits 4294967297 would be 1.
  const std::string sOthers = "N_OSTRELRegMltStr1000000000=\"k\" N_OSTRELRegMltStr4294967297=\"k\"";
  Provide("<Registry " + sOthers + "/>");
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("a\0b\0\0", 5)));
  EXPECT_EQ(std::string("a\0b\0\0#", 6), Query("N", 6).Bytes);
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("c\0\0", 3)));
  EXPECT_EQ(std::string("c\0\0#", 4), Query("N", 4).Bytes);
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry " + sOthers + "/>", Flushed());
}

// What docs/registry.md tells of such names, row by row.
TEST_F(SysRegistry, ATextNamedLikeAStringOfAListSharesItsAttribute) {
  const char* const sTextName = "N_OSTRELRegMltStr1";
  const std::string sTwo("a\0bc\0\0", 6);
  const std::string sOne("a\0\0", 3);

  SetText(sTextName, "x");
  EXPECT_EQ(0u, SetBytes("N", 7, sTwo));
  EXPECT_EQ("bc", Text(sTextName));
  EXPECT_EQ(0u, SetBytes("N", 7, sOne));
  EXPECT_EQ(0u, TypeOnly(sTextName));
  EXPECT_EQ(1u, Query(sTextName, 8).Result);
  EXPECT_EQ(sOne + "#", Query("N", 4).Bytes);

  EXPECT_EQ(0u, SetText(sTextName, "x"));
  EXPECT_EQ(std::string("a\0x\0\0#", 6), Query("N", 6).Bytes);

  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ(0u, TypeOnly(sTextName));
  EXPECT_EQ(1u, Query(sTextName, 8).Result);
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, sTextName));
  EXPECT_EQ(EMPTY_FILE, Flushed());

  EXPECT_EQ(0u, SetBytes("N", 7, std::string("a\0b\0c\0\0", 7)));
  SetText(sTextName, "x");
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, sTextName));
  EXPECT_EQ(sOne + "#", Query("N", 4).Bytes);
  EXPECT_EQ(
      "<Registry N=\"a\" N_OSTRELRegMltStr2=\"c\" N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, ATextNamedLikeATypeIsTheType) {
  SetText("N", "x");
  EXPECT_EQ(0u, SetText("N_OSTRELRegType", "y"));
  uint32_t Type = 77;
  EXPECT_EQ(1u, TypeOnly("N", &Type));
  EXPECT_EQ(0xFFFFFFFFu, Type);
  EXPECT_EQ("y", Text("N_OSTRELRegType"));
}

TEST_F(SysRegistry, AQuoteInATextMakesTheStoreUnreadable) {
  EXPECT_EQ(0u, SetText("v", "x\"y"));
  EXPECT_EQ("<Registry v=\"x\"y\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", Flushed());
  EXPECT_EQ(2u, TypeOnly("v"));
  EXPECT_EQ(EMPTY_FILE, File());
}

// ---- Querying -----------------------------------------------------------------------------------

TEST_F(SysRegistry, TextsAroundTheSizeOfANameAreReadBackWhole) {
  for (const size_t Length : {511u, 512u, 513u, 5000u}) {
    const std::string sText(Length, 't');
    EXPECT_EQ(0u, SetText("v", sText.c_str()));
    EXPECT_EQ(0u, SetBytes("N", 7, sText + '\0' + sText + std::string(2, '\0')));
    SYS_REG_Flush();
    const Answer A = Query("v", (uint32_t)Length + 1);
    EXPECT_EQ(0u, A.Result);
    EXPECT_EQ(Length, A.Size);
    EXPECT_EQ(sText + '\0', A.Bytes);
    EXPECT_EQ(sText + '\0' + sText + std::string(2, '\0'),
              Query("N", (uint32_t)(2 * Length + 3)).Bytes);
  }
}

TEST_F(SysRegistry, TheTypeAloneCanBeAskedFor) {
  SetDword("d", 1);
  uint32_t Type = 0;
  uint32_t Size = 77;
  EXPECT_EQ(0u, SYS_REG_QueryValue(USER, "d", &Type, nullptr, &Size));
  EXPECT_EQ(4u, Type);
  EXPECT_EQ(77u, Size);
  EXPECT_EQ(0u, SYS_REG_QueryValue(USER, "d", nullptr, nullptr, nullptr));
}

TEST_F(SysRegistry, DataWithoutASizeFails) {
  SetDword("d", 1);
  uint32_t Type = 77;
  char     acData[4];
  EXPECT_EQ(1u, SYS_REG_QueryValue(USER, "d", &Type, acData, nullptr));
  EXPECT_EQ(1u, SYS_REG_QueryValue(USER, " ", &Type, acData, nullptr));
  EXPECT_EQ(77u, Type);
}

TEST_F(SysRegistry, AMissingValueGives2AndTouchesNothing) {
  const Answer A = Query("none", 8);
  EXPECT_EQ(2u, A.Result);
  EXPECT_EQ(0xAAAAAAAAu, A.Type);
  EXPECT_EQ(8u, A.Size);
  EXPECT_EQ("########", A.Bytes);
}

TEST_F(SysRegistry, TypesInTheFileAreKnownByTheirWholeName) {
  const std::map<std::string, uint32_t> Types = {{"SYS_REG_TYPE_SZ", 1},
                                                 {"SYS_REG_TYPE_EXPAND_SZ", 2},
                                                 {"SYS_REG_TYPE_BINARY", 3},
                                                 {"SYS_REG_TYPE_DWORD", 4},
                                                 {"SYS_REG_TYPE_MULTI_SZ", 7},
                                                 {"SYS_REG_TYPE_QWORD", 11},
                                                 {"???", 0xFFFFFFFF},
                                                 {"", 0xFFFFFFFF},
                                                 {"sys_reg_type_sz", 0xFFFFFFFF},
                                                 {"SYS_REG_TYPE_SZX", 0xFFFFFFFF}};
  for (const auto& [sName, Expected] : Types) {
    Provide("<Registry v=\"1\" v_OSTRELRegType=\"" + sName + "\"/>");
    uint32_t       Type   = 77;
    const uint32_t Result = Expected == 0xFFFFFFFF ? 1 : 0;
    EXPECT_EQ(Result, TypeOnly("v", &Type)) << sName;
    EXPECT_EQ(Expected, Type) << sName;
    EXPECT_EQ(Result, TypeOnly("v")) << sName;
    SYS_REG_Flush();
  }
}

TEST_F(SysRegistry, ATypeOfAnyLengthIsUnknownUnlessItIsTheWholeName) {
  for (const size_t Length : {510u, 511u, 512u, 513u, 0x100000u}) {
    for (const std::string sBegin : {"", "SYS_REG_TYPE_SZ"}) {
      std::string sType = sBegin;
      sType.resize(Length, ' ');
      const std::string sText = "<Registry v=\"1\" v_OSTRELRegType=\"" + sType + "\" w=\"2\"/>\r\n";
      Provide(sText);
      const Answer A = Query("v", 8);
      EXPECT_EQ(1u, A.Result) << Length;
      EXPECT_EQ(0xFFFFFFFFu, A.Type);
      EXPECT_EQ(8u, A.Size);
      EXPECT_EQ("########", A.Bytes);
      EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, "v"));
      EXPECT_TRUE(Flushed() == sText) << Length;
    }
  }
  EXPECT_EQ(0u, SetText("v", "x"));  // setting it mends that
  EXPECT_EQ("x", Text("v"));
}

TEST_F(SysRegistry, AValueWithoutItsDataAttributeFails) {
  for (const std::string sType : {"SZ", "EXPAND_SZ", "BINARY", "DWORD", "MULTI_SZ", "QWORD"}) {
    Provide("<Registry v_OSTRELRegType=\"SYS_REG_TYPE_" + sType + "\"/>");
    EXPECT_EQ(0u, TypeOnly("v"));
    const Answer A = Query("v", 8);
    EXPECT_EQ(1u, A.Result) << sType;
    EXPECT_EQ(8u, A.Size);
    SYS_REG_Flush();
  }
}

TEST_F(SysRegistry, DataWithoutItsTypeIsNoValue) {
  Provide("<Registry v=\"1\"/>");
  EXPECT_EQ(2u, TypeOnly("v"));
  EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, "v"));
}

TEST_F(SysRegistry, TextsAreCutAtTheCapacity) {
  for (const std::string sType : {"SZ", "EXPAND_SZ"}) {
    Provide("<Registry v=\"abcde\" v_OSTRELRegType=\"SYS_REG_TYPE_" + sType + "\"/>");
    const uint32_t                 Type  = sType == "SZ" ? 1 : 2;
    const std::vector<std::string> Bytes = {"",
                                            std::string("\0", 1),
                                            std::string("a\0", 2),
                                            std::string("ab\0", 3),
                                            std::string("abc\0", 4),
                                            std::string("abcd\0", 5),
                                            std::string("abcde\0", 6),
                                            std::string("abcde\0#", 7)};
    for (uint32_t Capacity = 0; Capacity < Bytes.size(); Capacity++) {
      const Answer A = Query("v", Capacity);
      EXPECT_EQ(Capacity < 5 ? 234u : 0u, A.Result) << Capacity;  // 5 cuts a character and is fine
      EXPECT_EQ(5u, A.Size);
      EXPECT_EQ(Type, A.Type);
      EXPECT_EQ(Bytes[Capacity], A.Bytes) << Capacity;
    }
    SYS_REG_Flush();
  }
}

TEST_F(SysRegistry, ADwordNeeds4Bytes) {
  SetBytes("v", 4, "\x78\x56\x34\x12");
  for (uint32_t Capacity = 0; Capacity < 4; Capacity++) {
    const Answer A = Query("v", Capacity);
    EXPECT_EQ(234u, A.Result);
    EXPECT_EQ(Capacity, A.Size);
    EXPECT_EQ(std::string(Capacity, '#'), A.Bytes);
    EXPECT_EQ(4u, A.Type);
  }
  for (uint32_t Capacity = 4; Capacity < 9; Capacity++) {
    const Answer A = Query("v", Capacity);
    EXPECT_EQ(0u, A.Result);
    EXPECT_EQ(4u, A.Size);
    EXPECT_EQ("\x78\x56\x34\x12" + std::string(Capacity - 4, '#'), A.Bytes);
  }
}

TEST_F(SysRegistry, AQwordNeeds8Bytes) {
  const std::string sBytes = "\x88\x77\x66\x55\x44\x33\x22\x11";
  SetBytes("v", 11, sBytes);
  EXPECT_EQ(234u, Query("v", 7).Result);
  EXPECT_EQ(std::string(7, '#'), Query("v", 7).Bytes);
  const Answer A = Query("v", 9);
  EXPECT_EQ(0u, A.Result);
  EXPECT_EQ(8u, A.Size);
  EXPECT_EQ(11u, A.Type);
  EXPECT_EQ(sBytes + "#", A.Bytes);
}

TEST_F(SysRegistry, NumbersInTheFileAreReadAsHexadecimal) {
  const std::map<std::string, uint64_t> Texts = {
      {"12", 0x12},
      {"0x12", 0x12},
      {"0XaBc", 0xABC},
      {"-1", 0xFFFFFFFFFFFFFFFF},
      {"-0x10", 0xFFFFFFFFFFFFFFF0},
      {" 7z", 7},
      {"", 0},
      {"none", 0},
      {"123456789", 0x123456789},
  };
  for (const auto& [sText, Number] : Texts) {
    Provide("<Registry d=\"" + sText + "\" d_OSTRELRegType=\"SYS_REG_TYPE_DWORD\" q=\"" + sText +
            "\" q_OSTRELRegType=\"SYS_REG_TYPE_QWORD\"/>");
    uint32_t Dword;
    uint64_t Qword;
    memcpy(&Dword, Query("d", 4).Bytes.data(), 4);
    memcpy(&Qword, Query("q", 8).Bytes.data(), 8);
    EXPECT_EQ((uint32_t)Number, Dword) << sText;
    EXPECT_EQ(Number, Qword) << sText;
    EXPECT_EQ(0u, Query("d", 4).Result);
    SYS_REG_Flush();
  }
}

TEST_F(SysRegistry, BinaryDataCannotBeRead) {
  Provide("<Registry v=\"1\" v_OSTRELRegType=\"SYS_REG_TYPE_BINARY\"/>");
  const Answer A = Query("v", 8);
  EXPECT_EQ(1u, A.Result);
  EXPECT_EQ(3u, A.Type);
  EXPECT_EQ("########", A.Bytes);
}

TEST_F(SysRegistry, AListIsReadBackWithTheSizeThatLeavesOutTerminators) {
  SetBytes("N", 7, std::string("a\0bc\0\0", 6));
  struct ROW {
    uint32_t    Capacity;
    uint32_t    Result;
    uint32_t    Size;
    std::string Bytes;
  };
  const std::vector<ROW> Rows = {
      {0, 234, 3, ""},                         // nothing fits
      {1, 234, 3, std::string("\0", 1)},       // "a" is cut, nothing is left
      {2, 234, 3, std::string("a\0", 2)},      // one is left, and no room for a byte of "bc"
      {3, 0, 3, std::string("a\0\0", 3)},      // by the count that leaves out terminators
      {4, 0, 4, std::string("a\0b\0", 4)},     // it fits, and it is cut all the same
      {5, 0, 4, std::string("a\0bc\0", 5)},    // no room for the end of the list
      {6, 0, 4, std::string("a\0bc\0\0", 6)},  // twice the size of 3, and all is there
      {8, 0, 4, std::string("a\0bc\0\0##", 8)},
  };
  for (const ROW& Row : Rows) {
    const Answer A = Query("N", Row.Capacity);
    EXPECT_EQ(Row.Result, A.Result) << Row.Capacity;
    EXPECT_EQ(Row.Size, A.Size) << Row.Capacity;
    EXPECT_EQ(Row.Bytes, A.Bytes) << Row.Capacity;
    EXPECT_EQ(7u, A.Type);
  }
}

TEST_F(SysRegistry, AListOfManyShortStringsNeverLeavesTheBuffer) {
  std::string sList;
  for (int i = 0; i < 20; i++) {
    sList += std::string("x\0", 2);
  }
  SetBytes("N", 7, sList + std::string("\0", 1));
  for (uint32_t Capacity = 0; Capacity < 50; Capacity++) {
    const Answer A = Query("N", Capacity);  // checks the bytes behind the capacity
    EXPECT_EQ(Capacity < 20 ? 234u : 0u, A.Result) << Capacity;
    EXPECT_EQ(Capacity > 20 ? 21u : 20u, A.Size) << Capacity;
  }
}

TEST_F(SysRegistry, AnEmptyListReadsAsTwoTerminators) {
  SetBytes("N", 7, std::string(2, '\0'));
  EXPECT_EQ(0u, Query("N", 0).Result);
  EXPECT_EQ(0u, Query("N", 0).Size);
  EXPECT_EQ(std::string("\0\0##", 4), Query("N", 4).Bytes);
  EXPECT_EQ(1u, Query("N", 4).Size);
  EXPECT_EQ(std::string("\0", 1), Query("N", 1).Bytes);
  EXPECT_EQ(1u, Query("N", 1).Size);
}

TEST_F(SysRegistry, OfAStringThatStandsTwiceInTheFileTheFirstOneCounts) {
  Provide(
      "<Registry N=\"x\" N_OSTRELRegMltStr1=\"first\" N_OSTRELRegMltStr1=\"second\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>");
  EXPECT_EQ(std::string("x\0first\0\0", 9), Query("N", 9).Bytes);
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry N_OSTRELRegMltStr1=\"second\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, AListOfAHundredThousandStringsIsReadAndDeletedInAnyOrder) {
  // Looking for each string through all of them would take the square of their number.
  const int   NumStrings = 100000;
  std::string sText =
      "<Registry N=\"x\" N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\" "
      "N_OSTRELRegMltStr4294967297=\"never\"";
  for (int i = NumStrings; i > 0; i--) {
    sText += " N_OSTRELRegMltStr" + std::to_string(i) + "=\"" + std::to_string(i % 10) + "\"";
  }
  Provide(sText + "/>");
  const uint32_t Capacity = 2 * NumStrings + 10;
  const Answer   A        = Query("N", Capacity);
  EXPECT_EQ(0u, A.Result);
  EXPECT_EQ(NumStrings + 2u, A.Size);
  std::string sWant = std::string("x\0", 2);
  for (int i = 1; i <= NumStrings; i++) {
    sWant += std::to_string(i % 10) + std::string(1, '\0');
  }
  sWant += '\0';
  EXPECT_TRUE(A.Bytes.substr(0, sWant.size()) == sWant);  // too long to be printed
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry N_OSTRELRegMltStr4294967297=\"never\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, AListOfAHundredThousandStringsIsSetOverAFormerOne) {
  // A search for each string through all of them would take minutes.
  const int   NumStrings = 100000;
  std::string sList;
  for (int i = 0; i < NumStrings; i++) {
    sList += std::to_string(i % 10) + std::string(1, '\0');
  }
  sList += '\0';
  SetText("a", "1");
  SetBytes("N", 7, sList);
  SetBytes("N", 7, sList);
  const Answer A = Query("N", 2 * NumStrings + 10);
  EXPECT_EQ(0u, A.Result);
  EXPECT_TRUE(A.Bytes.substr(0, sList.size()) == sList);
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, AFileOfMoreThan16MebibytesIsRefusedAndKept) {
  const size_t Limit = 16 * 1024 * 1024;
  std::string  sText = "<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>";
  sText.resize(Limit, ' ');
  Provide(sText);
  EXPECT_EQ(0u, Query("a", 10).Result);
  SYS_REG_Flush();
  Provide(sText + " ");
  EXPECT_NE(0u, Query("a", 10).Result);
  SYS_REG_Flush();
  EXPECT_TRUE(Flushed() == sText + " ");
}

// ---- Deleting -----------------------------------------------------------------------------------

TEST_F(SysRegistry, DeletingRemovesTheValueAndItsCompanions) {
  SetText("a", "1");
  SetBytes("N", 7, std::string("x\0y\0z\0\0", 7));
  SetDword("b", 2);
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "a"));
  EXPECT_EQ(2u, TypeOnly("N"));
  EXPECT_EQ("<Registry b=\"0x00000002\" b_OSTRELRegType=\"SYS_REG_TYPE_DWORD\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, DeletingWhatIsNotThereFails) {
  EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, "none"));
  Provide("<Registry v=\"1\" v_OSTRELRegType=\"???\"/>");
  SYS_REG_Flush();
  EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, "v"));
}

TEST_F(SysRegistry, DeletingAListEndsAtTheFirstMissingString) {
  Provide(
      "<Registry N=\"a\" N_OSTRELRegMltStr1=\"b\" N_OSTRELRegMltStr3=\"d\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>");
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry N_OSTRELRegMltStr3=\"d\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, DeletingAScalarLeavesStringsOfAFormerList) {
  SetBytes("N", 7, std::string("a\0b\0\0", 5));
  SetText("N", "x");
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry N_OSTRELRegMltStr1=\"b\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, DeletingAValueWithoutDataSucceeds) {
  Provide("<Registry v_OSTRELRegType=\"SYS_REG_TYPE_BINARY\"/>");
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "v"));
  EXPECT_EQ("<Registry/>\r\n", Flushed());
}

// ---- Flushing -----------------------------------------------------------------------------------

class SysRegistryFlush : public SysRegistry {
 protected:
  // Makes the file look old, so that any write shows in its modification time.
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
  // The first descriptor it is given is 0.
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
  // Whatever piece of the text is the one that does not fit, all of it stays away.
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

// Two processes that change the same root again and again. Nothing keeps them from writing at the
// same moment, so values may be lost; what may not happen is a crash, a hang, or a file that the
// store cannot get over.
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
      // Emptied by the other one between a write and its being read back, a root cannot be loaded.
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
  // Made small enough it is written: it had no snapshot to be compared with.
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "b"));
  EXPECT_EQ("<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", Flushed());
}
