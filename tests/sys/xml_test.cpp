// SPDX-License-Identifier: MIT

// Building, writing, walking and changing documents.

#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "sys/xml_node.h"
#include "tests/sys/support/xml_doc.h"

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

TEST(SysXmlWrite, AQuoteInAValueIsWrittenUnchangedAndCannotBeReadBack) {
  const Doc Tree(SYS_XML_CreateDoc("R"));
  SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", "x\"y");
  EXPECT_EQ("<R a=\"x\"y\"/>\r\n", Tree.Text());
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError(Tree.Text()));
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
  EXPECT_EQ(SYS_XML_ERR_ARGUMENT, SYS_XML_StoreDoc(Tree.Get(), nullptr, 10));
  EXPECT_EQ(SYS_XML_ERR_ARGUMENT, SYS_XML_StoreDoc(nullptr, &c, 1));
  EXPECT_EQ('#', c);
}

// Makes a document whose text has exactly NumBytes bytes.
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
    EXPECT_EQ(SYS_XML_ERR_TOO_LONG, SYS_XML_StoreDoc(Tree.Get(), sBuffer.data(), 0x100000 + 16))
        << More;
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
  EXPECT_EQ(SYS_XML_ERR_TOO_LONG, SYS_XML_StoreDoc(Tree.Get(), sBuffer.data(), 0x100000));
  EXPECT_EQ("<R>\r\n  <n>\r\n    <n>\r\n", sBuffer.substr(0, 21));
  EXPECT_EQ(std::string::npos, sBuffer.find('#'));
}

TEST(SysXmlWrite, NothingShortIsWrittenAfterAPieceThatDidNotFit) {
  // Without the long value alone, the rest would be a well-formed but wrong text.
  const Doc Tree(SYS_XML_CreateDoc("R"));
  SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "long", std::string(0x100001, 'v').c_str());
  SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "short", "s");
  std::string sBuffer(0x100000, '#');
  EXPECT_EQ(SYS_XML_ERR_TOO_LONG, SYS_XML_StoreDoc(Tree.Get(), sBuffer.data(), 0x100000));
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
    EXPECT_EQ(nullptr, SYS_XML_AddAttr(Tree.Get(), Tree.Root(), "x", Length, "", 0));
    EXPECT_EQ(nullptr, SYS_XML_AddAttr(Tree.Get(), Tree.Root(), "x", 1, "", Length));
  }
  // Each is short enough, both together are not.
  EXPECT_EQ(nullptr, SYS_XML_AddAttr(Tree.Get(), Tree.Root(), "x", 0x7FFFFFF0u, "", 0x7FFFFFF0u));
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

TEST(SysXmlTree, AppendSiblingGoesAfterTheLastOne) {
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

TEST(SysXmlTree, ASiblingOfTheRootIsWrittenAfterIt) {
  const Doc Tree(SYS_XML_CreateDoc("R"));
  SYS_XML_AppendSibling(Tree.Get(), Tree.Root(), "S");
  EXPECT_EQ("<R/>\r\n<S/>\r\n", Tree.Text());
}

TEST(SysXmlTree, CopyElementNameReturnsTheWholeLength) {
  const Doc Tree = Parse("<Name/>");
  char      acBuffer[8];
  memset(acBuffer, '#', sizeof(acBuffer));
  EXPECT_EQ(4, SYS_XML_CopyElementName(Tree.Root(), acBuffer, 0));
  EXPECT_EQ('#', acBuffer[0]);
  EXPECT_EQ(4, SYS_XML_CopyElementName(Tree.Root(), acBuffer, 3));
  EXPECT_EQ(std::string("Na\0#####", 8), std::string(acBuffer, 8));
  EXPECT_EQ(4, SYS_XML_CopyElementName(Tree.Root(), nullptr, 8));
  EXPECT_EQ(SYS_XML_ERR_ARGUMENT, SYS_XML_CopyElementName(nullptr, acBuffer, 8));
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
  const Doc  Tree      = Parse("<R a=\"1234\" b=\"x\"/>");
  const auto SetLength = [&](size_t Length) {
    const std::string sValue(Length, 'v');
    EXPECT_EQ(0, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", sValue.c_str()));
    EXPECT_EQ("<R a=\"" + sValue + "\" b=\"x\"/>\r\n", Tree.Text());
    return Tree.Get()->pArena->Used;
  };
  const uint32_t Loaded = Tree.Get()->pArena->Used;
  for (const size_t Length : {0u, 1u, 4u}) {  // the room in the text
    EXPECT_EQ(Loaded, SetLength(Length)) << Length;
  }
  for (const size_t Length : {5u, 63u, 6u}) {  // the smallest piece of memory, of 64 bytes
    EXPECT_EQ(Loaded + 64, SetLength(Length)) << Length;
  }
  for (const size_t Length : {64u, 95u, 7u}) {  // the next one, of 96
    EXPECT_EQ(Loaded + 64 + 96, SetLength(Length)) << Length;
  }
}

TEST(SysXmlTree, SiblingsOfTheRootFollowEachOther) {
  const Doc Tree(SYS_XML_CreateDoc("R"));
  for (const char* sName : {"S", "T", "U"}) {
    ASSERT_NE(nullptr, SYS_XML_AppendSibling(Tree.Get(), Tree.Root(), sName));
  }
  EXPECT_EQ("<R/>\r\n<S/>\r\n<T/>\r\n<U/>\r\n", Tree.Text());
}

TEST(SysXmlTree, SetRejectsNullAndEmpty) {
  const Doc Tree = Parse("<R/>");
  EXPECT_EQ(SYS_XML_ERR_ARGUMENT, SYS_XML_SetAttr(nullptr, Tree.Root(), "a", ""));
  EXPECT_EQ(SYS_XML_ERR_ARGUMENT, SYS_XML_SetAttr(Tree.Get(), nullptr, "a", ""));
  EXPECT_EQ(SYS_XML_ERR_ARGUMENT, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), nullptr, ""));
  EXPECT_EQ(SYS_XML_ERR_ARGUMENT, SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "", ""));
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

TEST(SysXmlTree, RemoveReportsWhyItRemovedNothing) {
  const Doc Tree = Parse("<R a=\"1\"/>");
  EXPECT_EQ(SYS_XML_NOT_FOUND, SYS_XML_RemoveAttr(Tree.Root(), "b"));
  EXPECT_EQ(SYS_XML_NOT_FOUND, SYS_XML_RemoveAttr(Tree.Root(), nullptr));
  EXPECT_EQ(SYS_XML_ERR_ARGUMENT, SYS_XML_RemoveAttr(nullptr, "a"));
  EXPECT_EQ("<R a=\"1\"/>\r\n", Tree.Text());
}

TEST(SysXmlTree, CopyAttrValueReturnsTheWholeLength) {
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
  EXPECT_EQ(SYS_XML_ERR_ARGUMENT, SYS_XML_CopyAttrValue(nullptr, acBuffer, 8));
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

TEST(SysXmlNames, TheNamesAcceptedAreThoseTheLoaderReads) {
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
