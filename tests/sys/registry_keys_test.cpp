// SPDX-License-Identifier: MIT

// Opening keys, and the names of keys and values.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/sys/support/registry_calls.h"

// ---- Keys ---------------------------------------------------------------------------------------

class SysRegistryKeys : public SysRegistry {
 protected:
  // Opens that path below the root and returns the store's text.
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
  // Returns the text of elements nested in each other.
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
  EXPECT_EQ(Nested({"_q_"}), Opened("\"q\""));  // quotes have no meaning in a path
  EXPECT_EQ(Nested({"_ab_"}), Opened("\"a b\""));
  EXPECT_EQ(Nested({"__"}), Opened("\xC3\xA4"));
  EXPECT_EQ(Nested({"!x"}), Opened("!x"));
}

TEST_F(SysRegistryKeys, AllWhiteSpaceVanishesFromComponents) {
  EXPECT_EQ(Nested({"abcd", "e"}), Opened(" a\tb\nc\rd \\ e "));
  EXPECT_EQ(Nested({"ab_"}), Opened("ab\v"));  // a vertical tab is not white space
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
  EXPECT_EQ(Nested({"a"}), Opened("a\\\\" + s511 + "k"));  // what follows the end is not checked
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
  // Returns the name under which a value set as sName is stored: "" if none is, "1" if refused.
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
  EXPECT_EQ("1", Stored("\"a b\""));  // the space would be part of the name, which is refused
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
