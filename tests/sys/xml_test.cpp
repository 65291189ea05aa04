#include "sys/xml.h"

#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "sys/xml_node.h"
#include "tests/sys/temp_dir.h"

// A document that is freed with the test; null when the text could not be parsed.
class Doc {
 public:
  explicit Doc(XmlDocument* pDoc) : m_pDoc(pDoc) {}
  ~Doc() { SYS_XML_FreeDoc(m_pDoc); }
  Doc(const Doc&)            = delete;
  Doc& operator=(const Doc&) = delete;

  XmlDocument* Get() const { return m_pDoc; }
  XmlElement*  Root() const { return SYS_XML_GetRoot(m_pDoc); }
  std::string  Text() const {
     std::string   sText(0x100000, '#');
     const int32_t Length = SYS_XML_StoreDoc(m_pDoc, sText.data(), 0x100000);
     EXPECT_GE(Length, 0);
     sText.resize(Length < 0 ? 0 : (size_t)Length);
     return sText;
  }

 private:
  XmlDocument* m_pDoc;
};

static Doc Parse(const std::string& sText, int32_t* pError = nullptr) {
  return Doc(SYS_XML_ParseDoc(sText.c_str(), pError));
}

// What parsing gives: 0, or the reason why not.
static int32_t ParseError(const std::string& sText) {
  int32_t      Error = 12345;
  XmlDocument* pDoc  = SYS_XML_ParseDoc(sText.c_str(), &Error);
  EXPECT_EQ(Error == 0, pDoc != nullptr);
  SYS_XML_FreeDoc(pDoc);
  return Error;
}

// What parsing and writing back gives; "error n" when it could not be parsed.
static std::string Canonical(const std::string& sText) {
  int32_t   Error;
  const Doc Result = Parse(sText, &Error);
  return Result.Get() == nullptr ? "error " + std::to_string(Error) : Result.Text();
}

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
      EXPECT_EQ(-1, ParseError(sText)) << c;
    }
  }
}

TEST(SysXmlParse, TextBetweenElementsIsRefused) {
  EXPECT_EQ(-1, ParseError("x<R/>"));
  EXPECT_EQ(-1, ParseError("<R>text</R>"));
  EXPECT_EQ(-1, ParseError("<R/>x"));
  EXPECT_EQ(-1, ParseError("\xEF\xBB\xBF<R/>"));
  EXPECT_EQ(-1, ParseError("<R>></R>"));
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
      EXPECT_EQ(-3, ParseError(std::string("<a") + (char)c + "/>")) << c;
      EXPECT_EQ(-2, ParseError(std::string("<") + (char)c + "/>")) << c;
    }
  }
}

TEST(SysXmlParse, ValuesAreTakenAsTheyStand) {
  EXPECT_EQ("<R a=\"&lt;<>'/\t\xFF\"/>\r\n", Canonical("<R a=\"&lt;<>'/\t\xFF\"/>"));
}

TEST(SysXmlParse, MalformedTagsHaveTheirOwnReasons) {
  EXPECT_EQ(-2, ParseError("<"));
  EXPECT_EQ(-2, ParseError("< R/>"));
  EXPECT_EQ(-2, ParseError("<?xml version=\"1.0\"?><R/>"));
  EXPECT_EQ(-2, ParseError("<R/"));
  EXPECT_EQ(-2, ParseError("<R/ >"));
  EXPECT_EQ(-3, ParseError("<R"));
  EXPECT_EQ(-3, ParseError("<R a"));
  EXPECT_EQ(-3, ParseError("<R a>"));
  EXPECT_EQ(-3, ParseError("<R a b=\"\"/>"));
  EXPECT_EQ(-3, ParseError("<R =\"\"/>"));
  EXPECT_EQ(-3, ParseError("<R a="));
  EXPECT_EQ(-3, ParseError("<R a='x'/>"));
  EXPECT_EQ(-3, ParseError("<R a=\"x/>"));
  EXPECT_EQ(-7, ParseError("</R>"));
  EXPECT_EQ(-7, ParseError("<R></S>"));
  EXPECT_EQ(-7, ParseError("<R></RR>"));
  EXPECT_EQ(-7, ParseError("<RR></R>"));
  EXPECT_EQ(-7, ParseError("<R></R"));
  EXPECT_EQ(-7, ParseError("<R></"));
  EXPECT_EQ(-7, ParseError("<R></>"));
  EXPECT_EQ(-7, ParseError("<R/></R>"));
  EXPECT_EQ(-9, ParseError(""));
  EXPECT_EQ(-9, ParseError(" \r\n"));
  EXPECT_EQ(-9, ParseError("<!-- nothing -->"));
  EXPECT_EQ(-9, ParseError("\x1A<R/>"));
}

TEST(SysXmlParse, AFaultBehindAGoodRootRefusesAll) {
  EXPECT_EQ(-7, ParseError("<R><A/></R></R>"));
  EXPECT_EQ(-3, ParseError("<R/><S"));
}

TEST(SysXmlParse, TheReasonNeedNotBeTaken) {
  EXPECT_EQ(nullptr, SYS_XML_ParseDoc("x", nullptr));
  EXPECT_NE(nullptr, Parse("<R/>").Get());
}

TEST(SysXmlParse, OfSeveralElementsAtTheTopTheLastIsTheRoot) {
  EXPECT_EQ("<B/>\r\n", Canonical("<A x=\"1\"><Y/></A><B/>"));
}

TEST(SysXmlParse, AnAttributeThatStandsTwiceIsKeptTwiceAndTheFirstIsFound) {
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
  EXPECT_EQ(-8, ParseError(Nested(100, "<x></x>")));
  EXPECT_EQ(-8, ParseError(Nested(101, "")));
  EXPECT_EQ(-8, ParseError(Nested(101, "<x/>")));
  EXPECT_EQ(-8, ParseError(Nested(100000, "")));
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
    ParseError(sText.substr(0, Length));  // checks that reason and result agree
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
  EXPECT_EQ(-3, LoadError("g"));
  WriteFile(m_Dir.Path("h"), std::string("\0<R/>", 5));
  EXPECT_EQ(-9, LoadError("h"));
}

TEST_F(SysXmlFile, EmptyAndMalformedFilesAreToldApartFromUnreadableOnes) {
  WriteFile(m_Dir.Path("empty"), "");
  WriteFile(m_Dir.Path("text"), "text");
  EXPECT_EQ(-9, LoadError("empty"));
  EXPECT_EQ(-1, LoadError("text"));
  EXPECT_EQ(-10, LoadError("none"));
  int32_t Error = 0;
  EXPECT_EQ(nullptr, SYS_XML_LoadDoc(nullptr, &Error));
  EXPECT_EQ(-10, Error);
}

TEST_F(SysXmlFile, WhatIsNoRegularFileIsRefusedWithoutWaiting) {
  ASSERT_EQ(0, mkfifo(m_Dir.Path("fifo").c_str(), 0600));
  ASSERT_EQ(0, mkdir(m_Dir.Path("dir").c_str(), 0700));
  ASSERT_EQ(0, symlink("/dev/zero", m_Dir.Path("zero").c_str()));
  ASSERT_EQ(0, symlink("loop", m_Dir.Path("loop").c_str()));
  EXPECT_EQ(-10, LoadError("fifo"));
  EXPECT_EQ(-10, LoadError("dir"));
  EXPECT_EQ(-10, LoadError("zero"));
  EXPECT_EQ(-10, LoadError("loop"));
}

TEST_F(SysXmlFile, AFileOf2GiBIsRefusedUnread) {
  WriteFile(m_Dir.Path("f"), "<R/>");
  ASSERT_EQ(0, truncate(m_Dir.Path("f").c_str(), 0x7FFFFFFF));
  EXPECT_EQ(-10, LoadError("f"));
  ASSERT_EQ(0, truncate(m_Dir.Path("f").c_str(), 0x100000004));
  EXPECT_EQ(-10, LoadError("f"));
}

// ---- Building and writing -----------------------------------------------------------------------

TEST(SysXmlWrite, IndentsByTwoSpacesPerLevelAndEndsLinesWithCrLf) {
  const Doc   Tree(SYS_XML_CreateDoc("R"));
  XmlElement* pA = SYS_XML_FindOrAddChild(Tree.Get(), Tree.Root(), "A");
  XmlElement* pB = SYS_XML_FindOrAddChild(Tree.Get(), pA, "B");
  SYS_XML_FindOrAddChild(Tree.Get(), Tree.Root(), "C");
  SYS_XML_SetAttr(Tree.Get(), pB, "x", "1");
  SYS_XML_SetAttr(Tree.Get(), pB, "y", nullptr);
  EXPECT_EQ(
      "<R>\r\n"
      "  <A>\r\n"
      "    <B x=\"1\" y=\"\"/>\r\n"
      "  </A>\r\n"
      "  <C/>\r\n"
      "</R>\r\n",
      Tree.Text());
}

TEST(SysXmlWrite, AQuoteInAValueIsWrittenAsItIsAndCannotBeReadBack) {
  const Doc Tree(SYS_XML_CreateDoc("R"));
  SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", "x\"y");
  EXPECT_EQ("<R a=\"x\"y\"/>\r\n", Tree.Text());
  EXPECT_EQ(-3, ParseError(Tree.Text()));
}

TEST(SysXmlWrite, ABufferThatIsTooSmallGetsTheBeginning) {
  const Doc         Tree  = Parse("<R a=\"1\"/>");
  const std::string sText = "<R a=\"1\"/>\r\n";  // 12 characters
  for (uint32_t Size = 0; Size <= 14; Size++) {
    char acBuffer[16];
    memset(acBuffer, '#', sizeof(acBuffer));
    EXPECT_EQ(Size < 12 ? -2 : 12, SYS_XML_StoreDoc(Tree.Get(), acBuffer, Size)) << Size;
    const size_t NumStored = std::min<size_t>(Size, 12);
    EXPECT_EQ(sText.substr(0, NumStored) + std::string(16 - NumStored, '#'),
              std::string(acBuffer, 16));
  }
}

TEST(SysXmlWrite, NullArgumentsGiveMinusOne) {
  const Doc Tree = Parse("<R/>");
  char      c    = '#';
  EXPECT_EQ(-1, SYS_XML_StoreDoc(Tree.Get(), nullptr, 10));
  EXPECT_EQ(-1, SYS_XML_StoreDoc(nullptr, &c, 1));
  EXPECT_EQ('#', c);
}

// A document whose text has exactly NumBytes bytes.
static XmlDocument* CreateDocOfSize(size_t NumBytes) {
  XmlDocument* pDoc = SYS_XML_CreateDoc("R");
  SYS_XML_SetAttr(pDoc, SYS_XML_GetRoot(pDoc), "a", std::string(NumBytes - 11, 'v').c_str());
  return pDoc;
}

TEST(SysXmlWrite, ATextOf1MiBIsWrittenAndOneByteMoreIsNot) {
  std::string sBuffer(0x100000 + 16, '#');
  {
    const Doc Tree(CreateDocOfSize(0x100000));
    EXPECT_EQ(0x100000, SYS_XML_StoreDoc(Tree.Get(), sBuffer.data(), 0x100000));
    EXPECT_EQ("vv\"/>\r\n", sBuffer.substr(0x100000 - 7, 7));
    EXPECT_EQ(std::string(16, '#'), sBuffer.substr(0x100000));
  }
  for (size_t More = 1; More < 12; More++) {
    const Doc Tree(CreateDocOfSize(0x100000 + More));
    sBuffer.assign(0x100000 + 16, '#');
    EXPECT_EQ(-2, SYS_XML_StoreDoc(Tree.Get(), sBuffer.data(), 0x100000 + 16)) << More;
    EXPECT_EQ(std::string(16, '#'), sBuffer.substr(0x100000));
    EXPECT_NE('#', sBuffer[0x100000 - 1]);
  }
}

TEST(SysXmlWrite, ElementsNestedAsDeepAsMemoryGoesAreTooLong) {
  const Doc   Tree(SYS_XML_CreateDoc("R"));
  XmlElement* pElement = Tree.Root();
  for (int i = 0; i < 200000; i++) {
    pElement = SYS_XML_FindOrAddChild(Tree.Get(), pElement, "n");
  }
  EXPECT_EQ(200000u, SYS_XML_GetDepth(pElement));
  std::string sBuffer(0x100000, '#');
  EXPECT_EQ(-2, SYS_XML_StoreDoc(Tree.Get(), sBuffer.data(), 0x100000));
  EXPECT_EQ("<R>\r\n  <n>\r\n    <n>\r\n", sBuffer.substr(0, 21));
  EXPECT_EQ(std::string::npos, sBuffer.find('#'));
}

TEST(SysXmlWrite, NothingShortIsWrittenBehindAPieceThatDidNotFit) {
  // Were only the long value dropped, the rest would still give a well-formed, wrong text.
  const Doc Tree(SYS_XML_CreateDoc("R"));
  SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "long", std::string(0x100001, 'v').c_str());
  SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "short", "s");
  std::string sBuffer(0x100000, '#');
  EXPECT_EQ(-2, SYS_XML_StoreDoc(Tree.Get(), sBuffer.data(), 0x100000));
  EXPECT_EQ("<R long=\"" + std::string(0x100000 - 9, 'v'), sBuffer);
}

// ---- Tree ---------------------------------------------------------------------------------------

TEST(SysXmlTree, CreateNeedsAName) {
  EXPECT_EQ(nullptr, SYS_XML_CreateDoc(nullptr));
  EXPECT_EQ(nullptr, SYS_XML_CreateDoc(""));
  const Doc Tree(SYS_XML_CreateDoc("R"));
  EXPECT_STREQ("R", Tree.Root()->sName);
  EXPECT_EQ(0u, Tree.Get()->NumLines);
}

TEST(SysXmlTree, ATextTooLongForItsLengthMakesNoNode) {
  // Lengths are signed, and the room for a text is rounded up to 8 bytes. The texts are not read.
  const Doc Tree = Parse("<R a=\"1\"/>");
  for (const uint32_t Length : {0x7FFFFFF8u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(nullptr, SYS_XML_AddElement(Tree.Get(), Tree.Root(), nullptr, "x", Length));
    EXPECT_EQ(nullptr, SYS_XML_AddAttr(Tree.Get(), Tree.Root(), nullptr, "x", Length, "", 0));
    EXPECT_EQ(nullptr, SYS_XML_AddAttr(Tree.Get(), Tree.Root(), nullptr, "x", 1, "", Length));
  }
  EXPECT_EQ("<R a=\"1\"/>\r\n", Tree.Text());
}

TEST(SysXmlTree, FreeTakesNull) {
  SYS_XML_FreeDoc(nullptr);
}

TEST(SysXmlTree, WalkingGivesEachNodeInOrderAndThenNull) {
  const Doc Tree = Parse("<R a=\"1\" b=\"2\"><X/><Y/></R>");
  EXPECT_STREQ("X", SYS_XML_GetFirstChild(Tree.Root())->sName);
  XmlElement* pY = SYS_XML_GetNextSibling(SYS_XML_GetFirstChild(Tree.Root()));
  EXPECT_STREQ("Y", pY->sName);
  EXPECT_EQ(nullptr, SYS_XML_GetNextSibling(pY));
  EXPECT_EQ(nullptr, SYS_XML_GetFirstChild(pY));
  XmlAttribute* pA = SYS_XML_GetFirstAttr(Tree.Root(), nullptr, 0);
  EXPECT_STREQ("a", pA->sName);
  EXPECT_STREQ("b", SYS_XML_GetNextAttr(pA)->sName);
  EXPECT_EQ(nullptr, SYS_XML_GetNextAttr(SYS_XML_GetNextAttr(pA)));
  EXPECT_EQ(0u, SYS_XML_GetDepth(Tree.Root()));
  EXPECT_EQ(1u, SYS_XML_GetDepth(pY));
}

TEST(SysXmlTree, WalkingFromNullGivesNull) {
  char acName[4] = "#";
  EXPECT_EQ(nullptr, SYS_XML_GetRoot(nullptr));
  EXPECT_EQ(nullptr, SYS_XML_GetFirstChild(nullptr));
  EXPECT_EQ(nullptr, SYS_XML_GetNextSibling(nullptr));
  EXPECT_EQ(nullptr, SYS_XML_GetFirstAttr(nullptr, acName, sizeof(acName)));
  EXPECT_EQ(nullptr, SYS_XML_GetNextAttr(nullptr));
  EXPECT_STREQ("#", acName);
}

TEST(SysXmlTree, TheFirstAttributesNameIsCopiedBounded) {
  const Doc Tree = Parse("<R name=\"1\"><X/></R>");
  char      acName[8];
  memset(acName, '#', sizeof(acName));
  SYS_XML_GetFirstAttr(Tree.Root(), acName, 4);
  EXPECT_EQ(std::string("nam\0####", 8), std::string(acName, 8));
  EXPECT_EQ(nullptr, SYS_XML_GetFirstAttr(Tree.Root()->pFirstChild, acName, 8));
  EXPECT_EQ(std::string("nam\0####", 8), std::string(acName, 8));
}

TEST(SysXmlTree, FindChildComparesTheWholeNameAndTakesTheFirst) {
  const Doc Tree = Parse("<R><ab x=\"1\"/><abc/><ab x=\"2\"/></R>");
  EXPECT_STREQ("1", SYS_XML_FindChild(Tree.Root(), "ab")->pFirstAttr->sValue);
  EXPECT_STREQ("abc", SYS_XML_FindChild(Tree.Root(), "abc")->sName);
  EXPECT_EQ(nullptr, SYS_XML_FindChild(Tree.Root(), "a"));
  EXPECT_EQ(nullptr, SYS_XML_FindChild(Tree.Root(), "AB"));
  EXPECT_EQ(nullptr, SYS_XML_FindChild(Tree.Root(), ""));
  EXPECT_EQ(nullptr, SYS_XML_FindChild(Tree.Root(), nullptr));
}

TEST(SysXmlTree, FindOrAddAddsAsTheLastChildOnce) {
  const Doc   Tree = Parse("<R><A/></R>");
  XmlElement* pB   = SYS_XML_FindOrAddChild(Tree.Get(), Tree.Root(), "B");
  ASSERT_NE(nullptr, pB);
  EXPECT_EQ(pB, SYS_XML_FindOrAddChild(Tree.Get(), Tree.Root(), "B"));
  EXPECT_EQ(Tree.Root(), pB->pParent);
  EXPECT_STREQ("A", pB->pPrev->sName);
  EXPECT_EQ(pB, pB->pPrev->pNext);
  XmlElement* pC = SYS_XML_FindOrAddChild(Tree.Get(), pB, "C");
  EXPECT_EQ(pC, pB->pFirstChild);
  EXPECT_EQ(nullptr, pC->pPrev);
  EXPECT_EQ(nullptr, SYS_XML_FindOrAddChild(Tree.Get(), Tree.Root(), ""));
  EXPECT_EQ(nullptr, SYS_XML_FindOrAddChild(Tree.Get(), Tree.Root(), nullptr));
}

TEST(SysXmlTree, AppendSiblingGoesBehindTheLastOne) {
  const Doc   Tree = Parse("<R><A/><B/></R>");
  XmlElement* pA   = Tree.Root()->pFirstChild;
  XmlElement* pC   = SYS_XML_AppendSibling(Tree.Get(), pA, "A");
  ASSERT_NE(nullptr, pC);
  EXPECT_EQ("<R>\r\n  <A/>\r\n  <B/>\r\n  <A/>\r\n</R>\r\n", Tree.Text());
  EXPECT_EQ(Tree.Root(), pC->pParent);
  EXPECT_STREQ("B", pC->pPrev->sName);
  EXPECT_EQ(nullptr, SYS_XML_AppendSibling(Tree.Get(), pA, ""));
  EXPECT_EQ(nullptr, SYS_XML_AppendSibling(Tree.Get(), pA, nullptr));
}

TEST(SysXmlTree, ASiblingOfTheRootIsWrittenBehindIt) {
  const Doc Tree(SYS_XML_CreateDoc("R"));
  SYS_XML_AppendSibling(Tree.Get(), Tree.Root(), "S");
  EXPECT_EQ("<R/>\r\n<S/>\r\n", Tree.Text());
}

TEST(SysXmlTree, CopyElementNameTellsTheWholeLength) {
  const Doc Tree = Parse("<Name/>");
  char      acBuffer[8];
  memset(acBuffer, '#', sizeof(acBuffer));
  EXPECT_EQ(4, SYS_XML_CopyElementName(Tree.Root(), acBuffer, 0));
  EXPECT_EQ('#', acBuffer[0]);
  EXPECT_EQ(4, SYS_XML_CopyElementName(Tree.Root(), acBuffer, 3));
  EXPECT_EQ(std::string("Na\0#####", 8), std::string(acBuffer, 8));
  EXPECT_EQ(4, SYS_XML_CopyElementName(Tree.Root(), nullptr, 8));
  EXPECT_EQ(-1, SYS_XML_CopyElementName(nullptr, acBuffer, 8));
}

TEST(SysXmlTree, FindAttrComparesTheWholeName) {
  const Doc Tree = Parse("<R abc=\"1\" ab=\"2\"/>");
  EXPECT_STREQ("2", SYS_XML_FindAttr(Tree.Root(), "ab")->sValue);
  EXPECT_EQ(nullptr, SYS_XML_FindAttr(Tree.Root(), "a"));
  EXPECT_EQ(nullptr, SYS_XML_FindAttr(Tree.Root(), "abd"));
  EXPECT_EQ(nullptr, SYS_XML_FindAttr(Tree.Root(), ""));
  EXPECT_EQ(nullptr, SYS_XML_FindAttr(Tree.Root(), nullptr));
  EXPECT_EQ(nullptr, SYS_XML_FindAttr(nullptr, "ab"));
}

TEST(SysXmlTree, SettingAnAttributeAgainKeepsItsPlace) {
  const Doc Tree = Parse("<R a=\"1\" b=\"2\"/>");
  EXPECT_EQ(0, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", "longer than before"));
  EXPECT_EQ(0, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "c", "3"));
  EXPECT_EQ("<R a=\"longer than before\" b=\"2\" c=\"3\"/>\r\n", Tree.Text());
  EXPECT_EQ(0, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", "x"));
  EXPECT_EQ(0, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "b", nullptr));
  EXPECT_EQ("<R a=\"x\" b=\"\" c=\"3\"/>\r\n", Tree.Text());
  EXPECT_EQ(1u, Tree.Root()->pFirstAttr->ValueLen);
}

TEST(SysXmlTree, AValueThatGrowsDoesNotTouchItsNeighbours) {
  for (size_t Length = 0; Length < 20; Length++) {
    const std::string sValue(Length, 'v');
    const Doc         Tree = Parse("<R a=\"" + sValue + "\" b=\"x\"/>");
    EXPECT_EQ(0, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", (sValue + "w").c_str()));
    EXPECT_EQ("<R a=\"" + sValue + "w\" b=\"x\"/>\r\n", Tree.Text());
  }
}

TEST(SysXmlTree, AnAttributeCanBeSetFromItsOwnText) {
  const Doc     Tree  = Parse("<R a=\"abcdef\"/>");
  XmlAttribute* pAttr = Tree.Root()->pFirstAttr;
  EXPECT_EQ(0, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", pAttr->sValue + 2));
  EXPECT_STREQ("cdef", pAttr->sValue);
}

TEST(SysXmlTree, AValueTakesMemoryOnlyWhenItIsLongerThanAnyBefore) {
  const Doc  Tree = Parse("<R a=\"00000000\" b=\"x\"/>");
  const auto Set  = [&](size_t Length) {
    const std::string sValue(Length, 'v');
    EXPECT_EQ(0, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", sValue.c_str()));
    EXPECT_EQ("<R a=\"" + sValue + "\" b=\"x\"/>\r\n", Tree.Text());
    return Tree.Get()->pArena->Used;
  };
  const uint32_t Loaded = Tree.Get()->pArena->Used;
  EXPECT_EQ(Loaded, Set(8));
  const uint32_t Longer = Set(100);
  EXPECT_LT(Loaded, Longer);
  for (const size_t Length : {0u, 100u, 1u, 99u, 8u, 100u}) {
    EXPECT_EQ(Longer, Set(Length)) << Length;
  }
  EXPECT_LT(Longer, Set(200));
}

TEST(SysXmlTree, AValueUsesTheRoomThatWasTakenForItToTheLastByte) {
  const Doc      Tree   = Parse("<R a=\"\" b=\"x\"/>");
  const uint32_t Loaded = Tree.Get()->pArena->Used;
  for (size_t Length = 1; Length < 8; Length++) {  // pieces are multiples of 8
    const std::string sValue(Length, 'v');
    EXPECT_EQ(0, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", sValue.c_str()));
    EXPECT_EQ("<R a=\"" + sValue + "\" b=\"x\"/>\r\n", Tree.Text());
    EXPECT_EQ(Loaded, Tree.Get()->pArena->Used);
  }
  EXPECT_EQ(0, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", "12345678"));
  EXPECT_LT(Loaded, Tree.Get()->pArena->Used);
}

TEST(SysXmlTree, SetRejectsNullAndEmpty) {
  const Doc Tree = Parse("<R/>");
  EXPECT_EQ(-1, SYS_XML_SetAttr(nullptr, Tree.Root(), "a", ""));
  EXPECT_EQ(-1, SYS_XML_SetAttr(Tree.Get(), nullptr, "a", ""));
  EXPECT_EQ(-1, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), nullptr, ""));
  EXPECT_EQ(-1, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "", ""));
  EXPECT_EQ("<R/>\r\n", Tree.Text());
}

TEST(SysXmlTree, RemoveUnlinksFirstMiddleAndLast) {
  const Doc Tree = Parse("<R a=\"1\" b=\"2\" c=\"3\" d=\"4\"/>");
  EXPECT_EQ(0, SYS_XML_RemoveAttr(Tree.Root(), "b"));
  EXPECT_EQ("<R a=\"1\" c=\"3\" d=\"4\"/>\r\n", Tree.Text());
  EXPECT_EQ(0, SYS_XML_RemoveAttr(Tree.Root(), "a"));
  EXPECT_EQ("<R c=\"3\" d=\"4\"/>\r\n", Tree.Text());
  EXPECT_EQ(nullptr, Tree.Root()->pFirstAttr->pPrev);
  EXPECT_EQ(0, SYS_XML_RemoveAttr(Tree.Root(), "d"));
  EXPECT_EQ("<R c=\"3\"/>\r\n", Tree.Text());
  EXPECT_EQ(0, SYS_XML_RemoveAttr(Tree.Root(), "c"));
  EXPECT_EQ("<R/>\r\n", Tree.Text());
  EXPECT_EQ(0, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "e", "5"));
  EXPECT_EQ("<R e=\"5\"/>\r\n", Tree.Text());
}

TEST(SysXmlTree, AWalkGoesOnFromAnAttributeThatWasUnlinked) {
  const Doc Tree = Parse("<R a=\"1\" b=\"2\" c=\"3\" d=\"4\"/>");
  for (XmlAttribute* pAttr = Tree.Root()->pFirstAttr; pAttr != nullptr; pAttr = pAttr->pNext) {
    if (pAttr->sName[0] == 'b' || pAttr->sName[0] == 'c') {
      SYS_XML_UnlinkAttr(Tree.Root(), pAttr);
    }
  }
  EXPECT_EQ("<R a=\"1\" d=\"4\"/>\r\n", Tree.Text());
}

TEST(SysXmlTree, RemoveTellsWhyItRemovedNothing) {
  const Doc Tree = Parse("<R a=\"1\"/>");
  EXPECT_EQ(1, SYS_XML_RemoveAttr(Tree.Root(), "b"));
  EXPECT_EQ(1, SYS_XML_RemoveAttr(Tree.Root(), nullptr));
  EXPECT_EQ(-1, SYS_XML_RemoveAttr(nullptr, "a"));
  EXPECT_EQ("<R a=\"1\"/>\r\n", Tree.Text());
}

TEST(SysXmlTree, CopyAttrValueTellsTheWholeLength) {
  const Doc           Tree  = Parse("<R a=\"value\"/>");
  const XmlAttribute* pAttr = Tree.Root()->pFirstAttr;
  char                acBuffer[8];
  memset(acBuffer, '#', sizeof(acBuffer));
  EXPECT_EQ(5, SYS_XML_CopyAttrValue(pAttr, acBuffer, 0));
  EXPECT_EQ('#', acBuffer[0]);
  EXPECT_EQ(5, SYS_XML_CopyAttrValue(pAttr, acBuffer, 5));
  EXPECT_EQ(std::string("valu\0###", 8), std::string(acBuffer, 8));
  EXPECT_EQ(5, SYS_XML_CopyAttrValue(pAttr, acBuffer, 8));
  EXPECT_STREQ("value", acBuffer);
  EXPECT_EQ(-1, SYS_XML_CopyAttrValue(nullptr, acBuffer, 8));
}

// ---- Names --------------------------------------------------------------------------------------

static std::string Sanitize(std::string sName) {
  SYS_XML_SanitizeName(sName.data());
  return sName;
}

TEST(SysXmlNames, SanitizeReplacesWhatTheLoaderDoesNotTake) {
  EXPECT_EQ("_a", Sanitize("-a"));
  EXPECT_EQ("a-b", Sanitize("a-b"));
  EXPECT_EQ("_-a", Sanitize("--a"));
  EXPECT_EQ("a_b", Sanitize("a.b"));
  EXPECT_EQ("_q_", Sanitize("\"q\""));
  EXPECT_EQ("AZaz09!-_", Sanitize("AZaz09!-_"));
  EXPECT_EQ("__", Sanitize("\xC3\xA4"));
  EXPECT_EQ("", Sanitize(""));
  for (int c = 1; c < 256; c++) {
    const bool IsKept = (c < 0x80 && isalnum(c) != 0) || c == '!' || c == '-' || c == '_';
    EXPECT_EQ(std::string("x") + (IsKept ? (char)c : '_'), Sanitize(std::string("x") + (char)c));
  }
}

TEST(SysXmlNames, WhatIsToldToBeANameIsWhatTheLoaderReads) {
  for (const std::string sName : {"a", "-", "!", "!D", "!DO", "!DOC", "!DOCTYPE", "!doc", "!-",
                                  "!--", "!--x", "a!--", "a.b", "a b", "", "0", "\xC3\xA4"}) {
    EXPECT_EQ(ParseError("<" + sName + " a=\"\"><b/></" + sName + ">") == 0,
              SYS_XML_IsElementName(sName.c_str()) == 1)
        << sName;
    const Doc Tree = Parse("<R " + sName + "=\"v\"/>");
    EXPECT_EQ(Tree.Get() != nullptr && SYS_XML_FindAttr(Tree.Root(), sName.c_str()) != nullptr,
              SYS_XML_IsAttrName(sName.c_str()) == 1)
        << sName;
  }
}
