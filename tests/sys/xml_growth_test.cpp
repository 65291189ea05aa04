// SPDX-License-Identifier: MIT

// What must not grow with the size of a document, seen without a clock: see support/xml_growth.h.

#include "tests/sys/support/xml_growth.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sys/xml.h"
#include "tests/sys/support/xml_doc.h"

static const int NUM_NAMES = 1000;

static std::string NameOf(int Index) {
  return "name" + std::to_string(Index);
}

// An element R with the attributes name0="0", name1="1", ...
static std::string TextOfAttrs() {
  std::string sText = "<R";
  for (int i = 0; i < NUM_NAMES; i++) {
    sText += " " + NameOf(i) + "=\"" + std::to_string(i) + "\"";
  }
  return sText + "/>\r\n";
}

static XmlAttribute* GetLastAttr(const XmlElement* pElement) {
  XmlAttribute* pAttr = pElement->pFirstAttr;
  while (pAttr->pNext != nullptr) {
    pAttr = pAttr->pNext;
  }
  return pAttr;
}

// Documents that were made and that were loaded.
class SysXmlLongList : public testing::TestWithParam<bool> {
 protected:
  Doc Make() {
    if (GetParam()) {
      return Parse(TextOfAttrs());
    }
    Doc Tree(SYS_XML_CreateDoc("R"));
    for (int i = 0; i < NUM_NAMES; i++) {
      SYS_XML_SetAttr(Tree.Get(), Tree.Root(), NameOf(i).c_str(), std::to_string(i).c_str());
    }
    return Tree;
  }
};

INSTANTIATE_TEST_SUITE_P(, SysXmlLongList, testing::Bool(),
                         [](const auto& Info) { return Info.param ? "Loaded" : "Made"; });

TEST_P(SysXmlLongList, AttributesAreFoundSetAddedAndRemovedWithoutAWalk) {
  const Doc                  Tree  = Make();
  XmlDocument* const         pDoc  = Tree.Get();
  XmlElement* const          pRoot = Tree.Root();
  std::vector<XmlAttribute*> apAttr;
  for (XmlAttribute* p = pRoot->pFirstAttr; p != nullptr; p = p->pNext) {
    apAttr.push_back(p);
  }
  XmlAttribute* const pLast = apAttr.back();
  EXPECT_EQ(0,
            SYS_XML_SetAttr(pDoc, pRoot, NameOf(500).c_str(), "5"));  // the first search may walk
  {
    const CUT_LIST<XmlAttribute> Cut(pRoot->pFirstAttr);
    for (const int i : {999, 0, 500, 501, 502, 20, 19, 998}) {
      EXPECT_EQ(apAttr[(size_t)i], SYS_XML_FindAttr(pRoot, NameOf(i).c_str())) << i;
    }
    EXPECT_EQ(nullptr, SYS_XML_FindAttr(pRoot, "name1000"));
    EXPECT_EQ(0, SYS_XML_SetAttr(pDoc, pRoot, NameOf(700).c_str(), "a longer value than before"));
    EXPECT_STREQ("a longer value than before", apAttr[700]->sValue);
    EXPECT_EQ(0, SYS_XML_RemoveAttr(pRoot, NameOf(300).c_str()));
    EXPECT_EQ(0, SYS_XML_RemoveAttr(pRoot, NameOf(999).c_str()));
    EXPECT_EQ(1, SYS_XML_RemoveAttr(pRoot, NameOf(999).c_str()));
    EXPECT_EQ(0, SYS_XML_SetAttr(pDoc, pRoot, "new", "n"));
  }
  EXPECT_EQ(apAttr[301], apAttr[299]->pNext);
  EXPECT_EQ(apAttr[299], apAttr[301]->pPrev);
  ASSERT_EQ(apAttr[998], GetLastAttr(pRoot)->pPrev);
  EXPECT_STREQ("new", GetLastAttr(pRoot)->sName);
  EXPECT_NE(pLast, GetLastAttr(pRoot));
}

// The search looks first at what follows the attribute that it found last.
TEST(SysXmlGrowth, WhatFollowedARemovedAttributeIsNotFoundOnceItIsRemovedToo) {
  const Doc     Tree  = Parse(TextOfAttrs());
  XmlAttribute* pNext = SYS_XML_FindAttr(Tree.Root(), NameOf(501).c_str());
  SYS_XML_SetAttr(Tree.Get(), Tree.Root(), NameOf(500).c_str(), "");
  EXPECT_EQ(0, SYS_XML_RemoveAttr(Tree.Root(), NameOf(500).c_str()));
  SYS_XML_UnlinkAttr(Tree.Root(), pNext);
  EXPECT_EQ(nullptr, SYS_XML_FindAttr(Tree.Root(), NameOf(501).c_str()));
}

TEST(SysXmlGrowth, TheTableOfNamesIsSmallBesideTheNames) {
  const Doc      Tree   = Parse(TextOfAttrs());
  const uint64_t Before = CountBytes(Tree.Get());
  SYS_XML_SetAttr(Tree.Get(), Tree.Root(), NameOf(500).c_str(), "");
  EXPECT_LT(Before + NUM_NAMES * 16, CountBytes(Tree.Get()));
  EXPECT_GE(Before + NUM_NAMES * 40, CountBytes(Tree.Get()));
}

// Both have the same place in the table and the same hash.
TEST(SysXmlGrowth, NamesWithTheSameHashAreDifferentNames) {
  const Doc Tree = Parse(TextOfAttrs());
  SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "ehkvmciueiys", "1");
  EXPECT_EQ(nullptr, SYS_XML_FindAttr(Tree.Root(), "ovwvkkjbzqqf"));
  SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "ovwvkkjbzqqf", "2");
  EXPECT_STREQ("1", SYS_XML_FindAttr(Tree.Root(), "ehkvmciueiys")->sValue);
  EXPECT_STREQ("2", SYS_XML_FindAttr(Tree.Root(), "ovwvkkjbzqqf")->sValue);
}

TEST(SysXmlGrowth, ChildrenAreFoundAndAddedWithoutAWalk) {
  const Doc                Tree(SYS_XML_CreateDoc("R"));
  std::vector<XmlElement*> apChild;
  for (int i = 0; i < NUM_NAMES; i++) {
    apChild.push_back(SYS_XML_FindOrAddChild(Tree.Get(), Tree.Root(), NameOf(i).c_str()));
  }
  XmlElement* pNew;
  XmlElement* pSibling;
  {
    const CUT_LIST<XmlElement> Cut(Tree.Root()->pFirstChild);
    for (const int i : {999, 0, 500, 501, 20, 19}) {
      XmlElement* const pChild = apChild[(size_t)i];
      EXPECT_EQ(pChild, SYS_XML_FindChild(Tree.Root(), NameOf(i).c_str())) << i;
      EXPECT_EQ(pChild, SYS_XML_FindOrAddChild(Tree.Get(), Tree.Root(), NameOf(i).c_str())) << i;
    }
    EXPECT_EQ(nullptr, SYS_XML_FindChild(Tree.Root(), "new"));
    pNew     = SYS_XML_FindOrAddChild(Tree.Get(), Tree.Root(), "new");
    pSibling = SYS_XML_AppendSibling(Tree.Get(), apChild[0], "name7");
  }
  EXPECT_EQ(apChild[999], pNew->pPrev);
  EXPECT_EQ(pNew, pSibling->pPrev);
  EXPECT_EQ(nullptr, pSibling->pNext);
  EXPECT_EQ(apChild[7], SYS_XML_FindChild(Tree.Root(), "name7"));  // the first of that name
}

TEST(SysXmlGrowth, SmallElementsHaveNoTableOfNames) {
  const Doc Tree(SYS_XML_CreateDoc("R"));
  for (int i = 0; i < 16; i++) {
    SYS_XML_SetAttr(Tree.Get(), Tree.Root(), NameOf(i).c_str(), "v");
    SYS_XML_FindOrAddChild(Tree.Get(), Tree.Root(), NameOf(i).c_str());
    EXPECT_EQ(nullptr, SYS_XML_FindAttr(Tree.Root(), "none"));
  }
  EXPECT_EQ(nullptr, Tree.Root()->pIndex);
}

// With a search to the end of the text for each element these would take hours.
TEST(SysXmlGrowth, ATextIsReadInOnePass) {
  for (const std::string sPiece : {"<a />", "<a b=\"\" />", "<a b =\"x\"/>", "<a\tb= \"\"/>"}) {
    std::string sText = "<R a =\"\">";
    while (sText.size() < 0x400000) {
      sText += sPiece;
    }
    EXPECT_EQ(0, ParseError(sText + "</R>")) << sPiece;
  }
}

// Of so many bytes that the text has a block of memory of its own.
TEST(SysXmlGrowth, AMissingQuoteIsNotLookedForAfterTheText) {
  const std::string sLong(0x400000, 'v');
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R a =\"\" b=\"" + sLong));
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R a =\"\" " + sLong));
  EXPECT_EQ(SYS_XML_ERR_ATTR, ParseError("<R a =\"" + sLong));
}

TEST(SysXmlGrowth, AValueThatIsSetAgainAndAgainTakesNoMoreMemory) {
  const Doc  Tree(SYS_XML_CreateDoc("R"));
  const auto Set = [&](size_t Length) {
    SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", std::string(Length, 'v').c_str());
    return CountBytes(Tree.Get());
  };
  const uint64_t Once = Set(5000);
  for (size_t i = 0; i < 1000; i++) {
    EXPECT_EQ(Once, Set(i * 37 % 5000));
  }
}

TEST(SysXmlGrowth, AValueThatGrowsTakesAMultipleOfItsLength) {
  const Doc      Tree(SYS_XML_CreateDoc("R"));
  const uint64_t Before = CountBytes(Tree.Get());
  for (size_t Length = 0; Length <= 100000; Length += 50) {
    SYS_XML_SetAttr(Tree.Get(), Tree.Root(), "a", std::string(Length, 'v').c_str());
    EXPECT_GE(Before + 200 + 5 * Length, CountBytes(Tree.Get())) << Length;
  }
}
