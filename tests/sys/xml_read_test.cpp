// SPDX-License-Identifier: MIT

// The loader.

#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/sys/support/temp_dir.h"
#include "tests/sys/support/xml_doc.h"

// ---- Parsing ------------------------------------------------------------------------------------

TEST(SysXmlParse, BothFormsOfAnEmptyElementGiveTheSameTree) {
  EXPECT_EQ("<Registry/>\r\n", Canonical("<Registry>\r\n</Registry>"));
  EXPECT_EQ("<Registry/>\r\n", Canonical("<Registry/>\r\n"));
  EXPECT_EQ("<Registry/>\r\n", Canonical("<Registry></Registry>"));
}

TEST(SysXmlParse, ElementsAndAttributesKeepTheirOrder) {
  const Doc Tree = Parse("<R b=\"1\" a=\"2\"><Y/><X q=\"\"/><Y/></R>");
  ASSERT_NE(nullptr, Tree.Get());
  const XmlElement* pRoot = Tree.Root();
  EXPECT_STREQ("R", pRoot->sName);
  EXPECT_EQ(1, pRoot->NameLen);
  EXPECT_EQ(nullptr, pRoot->pParent);
  const XmlAttribute* pB = pRoot->pFirstAttr;
  const XmlAttribute* pA = pB->pNext;
  EXPECT_STREQ("b", pB->sName);
  EXPECT_STREQ("1", pB->sValue);
  EXPECT_EQ(1u, pB->NameLen);
  EXPECT_EQ(1u, pB->ValueLen);
  EXPECT_EQ(nullptr, pB->pPrev);
  EXPECT_STREQ("a", pA->sName);
  EXPECT_EQ(pB, pA->pPrev);
  EXPECT_EQ(nullptr, pA->pNext);
  const XmlElement* pY1 = pRoot->pFirstChild;
  const XmlElement* pX  = pY1->pNext;
  const XmlElement* pY2 = pX->pNext;
  EXPECT_STREQ("Y", pY1->sName);
  EXPECT_EQ(nullptr, pY1->pPrev);
  EXPECT_EQ(pRoot, pY1->pParent);
  EXPECT_STREQ("X", pX->sName);
  EXPECT_EQ(pY1, pX->pPrev);
  EXPECT_EQ(0u, pX->pFirstAttr->ValueLen);
  EXPECT_STREQ("", pX->pFirstAttr->sValue);
  EXPECT_STREQ("Y", pY2->sName);
  EXPECT_EQ(nullptr, pY2->pNext);
}

TEST(SysXmlParse, WhiteSpaceIsSkippedAndLineFeedsAreCounted) {
  const Doc Tree = Parse("\n \t\r\n<R\n a\r=\t\"x\ny\"\n>\n<X/>\n</R\n>\n");
  ASSERT_NE(nullptr, Tree.Get());
  EXPECT_STREQ("x\ny", Tree.Root()->pFirstAttr->sValue);
  EXPECT_EQ(9u, Tree.Get()->NumLines);
}

TEST(SysXmlParse, CommentsAndDocumentTypesAreSkippedAndTheirLineFeedsCounted) {
  const Doc Tree = Parse(
      "<!DOCTYPE x\n[ \"'< ]>\n<!-- <a> -> -- \n --><R><!----><X/><!-- - --><!DOC></R><!--->-->");
  ASSERT_NE(nullptr, Tree.Get());
  EXPECT_EQ("<R>\r\n  <X/>\r\n</R>\r\n", Tree.Text());
  EXPECT_EQ(3u, Tree.Get()->NumLines);
}

TEST(SysXmlParse, ACommentOrDocumentTypeWithoutEndTakesTheRest) {
  EXPECT_EQ("<R>\r\n  <X/>\r\n</R>\r\n", Canonical("<R><X/><!-- </R><Y"));
  EXPECT_EQ("<R>\r\n  <X/>\r\n</R>\r\n", Canonical("<R><X/><!DOC </R"));
  EXPECT_EQ("<R/>\r\n", Canonical("<R><!--"));
}

TEST(SysXmlParse, TheEndOfTheTextEndsAllOpenElements) {
  EXPECT_EQ("<R>\r\n  <A>\r\n    <B/>\r\n  </A>\r\n</R>\r\n", Canonical("<R><A><B/>"));
}

TEST(SysXmlParse, ControlCharactersEndTheTextOrAreNoMarkup) {
  for (int c = 1; c < 0x20; c++) {
    const std::string sText = std::string("<R><A/>") + (char)c + "<B/></R>";
    if (c == 9 || c == 10 || c == 13) {
      EXPECT_EQ("<R>\r\n  <A/>\r\n  <B/>\r\n</R>\r\n", Canonical(sText)) << c;
    } else if (c >= 0x0B) {
      EXPECT_EQ("<R>\r\n  <A/>\r\n</R>\r\n", Canonical(sText)) << c;
      EXPECT_EQ("<R>\r\n  <A/>\r\n</R>\r\n", Canonical(sText + "garbage")) << c;
    } else {
      EXPECT_EQ(SYS_XML_ERR_TEXT, ParseError(sText)) << c;
    }
  }
}

TEST(SysXmlParse, TextBetweenElementsIsRefused) {
  EXPECT_EQ(SYS_XML_ERR_TEXT, ParseError("x<R/>"));
  EXPECT_EQ(SYS_XML_ERR_TEXT, ParseError("<R>text</R>"));
  EXPECT_EQ(SYS_XML_ERR_TEXT, ParseError("<R/>x"));
  EXPECT_EQ(SYS_XML_ERR_TEXT, ParseError("\xEF\xBB\xBF<R/>"));
  EXPECT_EQ(SYS_XML_ERR_TEXT, ParseError("<R>></R>"));
}

TEST(SysXmlParse, NamesAreLettersDigitsUnderscoreExclamationMarkAndDash) {
  EXPECT_EQ("<aZ09_!- aZ09_!-=\"\"/>\r\n", Canonical("<aZ09_!- aZ09_!-=\"\"/>"));
  EXPECT_EQ("<-/>\r\n", Canonical("<-></->"));
  EXPECT_EQ("<!doc/>\r\n", Canonical("<!doc/>"));
  EXPECT_EQ("<!DO/>\r\n", Canonical("<!DO/>"));
  EXPECT_EQ("<!-x/>\r\n", Canonical("<!-x/>"));
  for (int c = 1; c < 256; c++) {
    const bool IsName  = isalnum(c) != 0 || c == '_' || c == '!' || c == '-';
    const bool IsWhite = c == ' ' || c == '\t' || c == '\r' || c == '\n';
    if (c < 0x80 && !IsWhite && c != '>' && c != '/' && c != '=') {
      EXPECT_EQ(IsName, ParseError(std::string("<a") + (char)c + "/>") == 0) << c;
      EXPECT_EQ(IsName, ParseError(std::string("<a b") + (char)c + "=\"\"/>") == 0) << c;
    } else if (c >= 0x80) {
      EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError(std::string("<a") + (char)c + "/>")) << c;
      EXPECT_EQ(SYS_XML_ERR_TAG, ParseError(std::string("<") + (char)c + "/>")) << c;
    }
  }
}

TEST(SysXmlParse, ValuesAreTakenUnchanged) {
  EXPECT_EQ("<R a=\"&lt;<>'/\t\xFF\"/>\r\n", Canonical("<R a=\"&lt;<>'/\t\xFF\"/>"));
}

TEST(SysXmlParse, MalformedTagsHaveTheirOwnReasons) {
  EXPECT_EQ(SYS_XML_ERR_TAG, ParseError("<"));
  EXPECT_EQ(SYS_XML_ERR_TAG, ParseError("< R/>"));
  EXPECT_EQ(SYS_XML_ERR_TAG, ParseError("<?xml version=\"1.0\"?><R/>"));
  EXPECT_EQ(SYS_XML_ERR_TAG, ParseError("<R/"));
  EXPECT_EQ(SYS_XML_ERR_TAG, ParseError("<R/ >"));
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R"));
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R a"));
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R a>"));
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R a b=\"\"/>"));
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R =\"\"/>"));
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R a="));
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R a='x'/>"));
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R a=\"x/>"));
  EXPECT_EQ(SYS_XML_ERR_END_TAG, ParseError("</R>"));
  EXPECT_EQ(SYS_XML_ERR_END_TAG, ParseError("<R></S>"));
  EXPECT_EQ(SYS_XML_ERR_END_TAG, ParseError("<R></RR>"));
  EXPECT_EQ(SYS_XML_ERR_END_TAG, ParseError("<RR></R>"));
  EXPECT_EQ(SYS_XML_ERR_END_TAG, ParseError("<R></R"));
  EXPECT_EQ(SYS_XML_ERR_END_TAG, ParseError("<R></"));
  EXPECT_EQ(SYS_XML_ERR_END_TAG, ParseError("<R></>"));
  EXPECT_EQ(SYS_XML_ERR_END_TAG, ParseError("<R/></R>"));
  EXPECT_EQ(SYS_XML_ERR_NO_ROOT, ParseError(""));
  EXPECT_EQ(SYS_XML_ERR_NO_ROOT, ParseError(" \r\n"));
  EXPECT_EQ(SYS_XML_ERR_NO_ROOT, ParseError("<!-- nothing -->"));
  EXPECT_EQ(SYS_XML_ERR_NO_ROOT, ParseError("\x1A<R/>"));
}

TEST(SysXmlParse, AFaultAfterAGoodRootRefusesAll) {
  EXPECT_EQ(SYS_XML_ERR_END_TAG, ParseError("<R><A/></R></R>"));
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R/><S"));
}

TEST(SysXmlParse, TheReasonMayBeIgnored) {
  EXPECT_EQ(nullptr, SYS_XML_ParseDoc("x", nullptr));
  EXPECT_NE(nullptr, Parse("<R/>").Get());
}

TEST(SysXmlParse, OfSeveralElementsAtTheTopTheLastIsTheRoot) {
  EXPECT_EQ("<B/>\r\n", Canonical("<A x=\"1\"><Y/></A><B/>"));
}

TEST(SysXmlParse, AnAttributeGivenTwiceIsKeptTwiceAndTheFirstIsFound) {
  const Doc Tree = Parse("<R a=\"1\" a=\"2\"/>");
  ASSERT_NE(nullptr, Tree.Get());
  EXPECT_STREQ("1", SYS_XML_FindAttr(Tree.Root(), "a")->sValue);
  EXPECT_EQ(0, SYS_XML_RemoveAttr(Tree.Root(), "a"));
  EXPECT_STREQ("2", SYS_XML_FindAttr(Tree.Root(), "a")->sValue);
}

// Depth elements inside the root, the innermost written as sInnermost.
static std::string Nested(int Depth, const std::string& sInnermost) {
  std::string sText, sEnd;
  for (int i = 0; i < Depth; i++) {
    sText += "<n>";
    sEnd += "</n>";
  }
  return sText + sInnermost + sEnd;
}

TEST(SysXmlParse, NestingDeeperThan100LevelsIsRefused) {
  EXPECT_EQ(0, ParseError(Nested(100, "<x/>")));
  EXPECT_EQ(0, ParseError(Nested(100, "")));
  EXPECT_EQ(SYS_XML_ERR_DEPTH, ParseError(Nested(100, "<x></x>")));
  EXPECT_EQ(SYS_XML_ERR_DEPTH, ParseError(Nested(101, "")));
  EXPECT_EQ(SYS_XML_ERR_DEPTH, ParseError(Nested(101, "<x/>")));
  EXPECT_EQ(SYS_XML_ERR_DEPTH, ParseError(Nested(100000, "")));
}

TEST(SysXmlParse, AWellFormedTextComesBackByteForByte) {
  const std::string sText =
      "<Registry A=\"1\" B=\"\">\r\n  <K V=\"x\">\r\n    <L/>\r\n  </K>\r\n  <M/>\r\n"
      "</Registry>\r\n";
  EXPECT_EQ(sText, Canonical(sText));
}

// ---- Hostile texts ------------------------------------------------------------------------------

static uint64_t ArenaBytes(const XmlDocument* pDoc) {
  uint64_t NumBytes = 0;
  for (const XmlArena* pChunk = pDoc->pArena; pChunk != nullptr; pChunk = pChunk->pNext) {
    NumBytes += pChunk->Capacity;
  }
  return NumBytes;
}

// The arena's stated bound: 16 times the text, and the chunk in use with what smaller ones left.
static void ExpectBoundedArena(const XmlDocument* pDoc, size_t TextLength) {
  EXPECT_LE(ArenaBytes(pDoc), 16 * TextLength + 3 * 0x400000);
}

TEST(SysXmlHostile, AMillionAttributesLoad) {
  std::string sText = "<R ";
  for (int i = 0; i < 1000000; i++) {
    sText += "a=\"\"";
  }
  sText += "/>";
  const Doc Tree = Parse(sText);
  ASSERT_NE(nullptr, Tree.Get());
  uint32_t NumAttrs = 0;
  for (const XmlAttribute* pAttr = Tree.Root()->pFirstAttr; pAttr != nullptr;
       pAttr                     = pAttr->pNext) {
    NumAttrs++;
  }
  EXPECT_EQ(1000000u, NumAttrs);
  ExpectBoundedArena(Tree.Get(), sText.size());
}

TEST(SysXmlHostile, AMillionElementsLoad) {
  std::string sText = "<R>";
  for (int i = 0; i < 1000000; i++) {
    sText += "<a/>";
  }
  const Doc Tree = Parse(sText);
  ASSERT_NE(nullptr, Tree.Get());
  ExpectBoundedArena(Tree.Get(), sText.size());
}

TEST(SysXmlHostile, NamesAndValuesOfMegabytesLoad) {
  const std::string sMega(0x100000, 'n');
  const std::string sFour(0x400000, 'v');
  const Doc         Tree =
      Parse("<" + sMega + " " + sMega + "=\"" + sFour + "\"><" + sFour + "/></" + sMega + ">");
  ASSERT_NE(nullptr, Tree.Get());
  EXPECT_EQ(0x100000, Tree.Root()->NameLen);
  EXPECT_EQ(sFour, Tree.Root()->pFirstAttr->sValue);
  EXPECT_EQ(sFour, Tree.Root()->pFirstChild->sName);
  char acName[8];
  EXPECT_EQ(0x100000, SYS_XML_CopyElementName(Tree.Root(), acName, sizeof(acName)));
  EXPECT_STREQ("nnnnnnn", acName);
}

TEST(SysXmlHostile, EveryCutOfAGoodTextIsLoadedOrRefused) {
  const std::string sText =
      "<!DOCTYPE r>\r\n<!-- c --><Registry A=\"1\" B=\"2\"><K V=\"x\"><L/></K></Registry>\r\n";
  for (size_t Length = 0; Length < sText.size(); Length++) {
    ParseError(sText.substr(0, Length));  // checks that the reason and the result agree
  }
}

// ---- Files --------------------------------------------------------------------------------------

class SysXmlFile : public testing::Test {
 protected:
  int32_t LoadError(const std::string& sName) {
    int32_t      Error = 12345;
    XmlDocument* pDoc  = SYS_XML_LoadDoc(m_Dir.Path(sName).c_str(), &Error);
    EXPECT_EQ(Error == 0, pDoc != nullptr);
    SYS_XML_FreeDoc(pDoc);
    return Error;
  }

  TempDir m_Dir;
};

TEST_F(SysXmlFile, AFileIsLoadedLikeItsText) {
  WriteFile(m_Dir.Path("f"), "<R a=\"1\"/>");
  ASSERT_EQ(0, symlink("f", m_Dir.Path("link").c_str()));
  for (const char* sName : {"f", "link"}) {
    const Doc Tree(SYS_XML_LoadDoc(m_Dir.Path(sName).c_str(), nullptr));
    ASSERT_NE(nullptr, Tree.Get());
    EXPECT_EQ("<R a=\"1\"/>\r\n", Tree.Text());
  }
}

TEST_F(SysXmlFile, AZeroByteEndsTheText) {
  WriteFile(m_Dir.Path("f"), std::string("<R><A/>\0garbage", 15));
  EXPECT_EQ(0, LoadError("f"));
  WriteFile(m_Dir.Path("g"), std::string("<R a=\"\0\"/>", 10));
  EXPECT_EQ(SYS_XML_ERR_ATTR, LoadError("g"));
  WriteFile(m_Dir.Path("h"), std::string("\0<R/>", 5));
  EXPECT_EQ(SYS_XML_ERR_NO_ROOT, LoadError("h"));
}

TEST_F(SysXmlFile, EmptyAndMalformedFilesAreDistinguishedFromUnreadableOnes) {
  WriteFile(m_Dir.Path("empty"), "");
  WriteFile(m_Dir.Path("text"), "text");
  EXPECT_EQ(SYS_XML_ERR_NO_ROOT, LoadError("empty"));
  EXPECT_EQ(SYS_XML_ERR_TEXT, LoadError("text"));
  EXPECT_EQ(SYS_XML_ERR_FILE, LoadError("none"));
  int32_t Error = 0;
  EXPECT_EQ(nullptr, SYS_XML_LoadDoc(nullptr, &Error));
  EXPECT_EQ(SYS_XML_ERR_FILE, Error);
}

TEST_F(SysXmlFile, AnythingButARegularFileIsRefusedWithoutWaiting) {
  ASSERT_EQ(0, mkfifo(m_Dir.Path("fifo").c_str(), 0600));
  ASSERT_EQ(0, mkdir(m_Dir.Path("dir").c_str(), 0700));
  ASSERT_EQ(0, symlink("/dev/zero", m_Dir.Path("zero").c_str()));
  ASSERT_EQ(0, symlink("loop", m_Dir.Path("loop").c_str()));
  EXPECT_EQ(SYS_XML_ERR_FILE, LoadError("fifo"));
  EXPECT_EQ(SYS_XML_ERR_FILE, LoadError("dir"));
  EXPECT_EQ(SYS_XML_ERR_FILE, LoadError("zero"));
  EXPECT_EQ(SYS_XML_ERR_FILE, LoadError("loop"));
}

TEST_F(SysXmlFile, AFileOf2GiBIsRefusedUnread) {
  WriteFile(m_Dir.Path("f"), "<R/>");
  ASSERT_EQ(0, truncate(m_Dir.Path("f").c_str(), 0x7FFFFFFF));
  EXPECT_EQ(SYS_XML_ERR_FILE, LoadError("f"));
  ASSERT_EQ(0, truncate(m_Dir.Path("f").c_str(), 0x100000004));
  EXPECT_EQ(SYS_XML_ERR_FILE, LoadError("f"));
}

TEST(SysXmlParse, EveryCharacterOfANameIsChecked) {
  const std::string sGood = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_!-";
  for (const size_t Length : {1u, 2u, 15u, 16u, 17u, 33u}) {
    for (size_t Pos = 0; Pos < Length; Pos++) {
      for (int c = 1; c < 256; c++) {
        std::string sName(Length, 'n');
        sName[Pos]         = (char)c;
        const bool IsGood  = sGood.find((char)c) != std::string::npos;
        const bool IsWhite = std::string(" \t\r\n").find((char)c) != std::string::npos;
        // Beside a name white space is allowed.
        const bool    IsBeside = IsWhite && Length > 1 && (Pos == 0 || Pos == Length - 1);
        const int32_t Error    = Pos == 0 && c == '/'   ? SYS_XML_ERR_TAG
                                 : Pos == 0 && c == '>' ? SYS_XML_ERR_TEXT
                                                        : SYS_XML_ERR_ATTR;
        ASSERT_EQ(IsGood || IsBeside ? 0 : Error, ParseError("<R a=\"1\" " + sName + "=\"v\"/>"))
            << Length << " " << Pos << " " << c;
      }
    }
  }
}
