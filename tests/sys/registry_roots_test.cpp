// SPDX-License-Identifier: MIT

// Roots, their files, and what loading and flushing do to them.

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

#include "tests/sys/support/registry_calls.h"

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
    EXPECT_EQ(1u, SetText(" ", "x", hRoot));  // the root is checked before the name
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
  EXPECT_EQ(2u, TypeOnly("v"));  // it was unloaded
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
  setenv("HOME", sHome.c_str(), 1);  // the directory fits, the "/" after it does not
  EXPECT_EQ(1u, SetText("v", "y"));
}

TEST_F(SysRegistry, BackslashesInThePathOfTheFileAreSeparators) {
  setenv("HOME", (m_Home.Path() + "/a\\b").c_str(), 1);
  // The directory is made with the backslash in its name; the file's path has a "/" there.
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
    // Cut between tags, the text is complete: its end closes all open elements.
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

TEST_F(SysRegistry, AnythingButARegularFileFailsAndIsLeftAlone) {
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
  for (const char* sDir :
       {"", "Library", "Library/Application Support", "Library/Application Support/OSTREL"}) {
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
  ASSERT_EQ(0, chmod(Path().c_str(), 0644));
  WriteFile(Path(), "not XML");
  ASSERT_EQ(0, chmod(Path().c_str(), 0444));
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
