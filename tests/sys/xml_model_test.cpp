// SPDX-License-Identifier: MIT

// Random operations on a document and on a plain model of it: lists of names and values, which
// every operation searches from the beginning.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "sys/xml.h"
#include "sys/xml_node.h"
#include "tests/sys/support/xml_doc.h"

namespace {

struct ATTR {
  std::string   Name;
  std::string   Value;
  XmlAttribute* pAttr;
};

struct ELEMENT {
  std::string                           Name;
  std::vector<ATTR>                     Attrs;
  std::vector<std::unique_ptr<ELEMENT>> Children;
  XmlElement*                           pElement;
};

const std::string& NameOf(const ATTR& Attr) {
  return Attr.Name;
}
const std::string& NameOf(const std::unique_ptr<ELEMENT>& Element) {
  return Element->Name;
}

// The place of the first one of that name, or the end.
template <typename LIST>
auto Find(LIST& List, const std::string& sName) {
  return std::find_if(List.begin(), List.end(),
                      [&](const auto& Node) { return NameOf(Node) == sName; });
}

std::string Write(const ELEMENT& Element, size_t Depth = 0) {
  std::string sText = std::string(2 * Depth, ' ') + "<" + Element.Name;
  for (const ATTR& Attr : Element.Attrs) {
    sText += " " + Attr.Name + "=\"" + Attr.Value + "\"";
  }
  if (Element.Children.empty()) {
    return sText + "/>\r\n";
  }
  sText += ">\r\n";
  for (const auto& Child : Element.Children) {
    sText += Write(*Child, Depth + 1);
  }
  return sText + std::string(2 * Depth, ' ') + "</" + Element.Name + ">\r\n";
}

}  // namespace

class SysXmlModel : public testing::Test {
 protected:
  uint32_t Pick(uint32_t Limit) { return (uint32_t)(m_Random() % Limit); }

  // Long enough for all ways of copying, and often the same.
  std::string PickName() {
    const uint32_t Number = Pick(m_NumNames);
    return std::string(Number % 40 + 1, (char)('a' + Number % 26)) + std::to_string(Number);
  }
  std::string PickValue() {
    return std::string(Pick(8) == 0 ? Pick(400) : Pick(40), (char)('A' + Pick(26)));
  }

  void SetAttr(ELEMENT* pModel) {
    const std::string sName  = PickName();
    const std::string sValue = PickValue();
    ASSERT_EQ(0, SYS_XML_SetAttr(m_pDoc, pModel->pElement, sName.c_str(), sValue.c_str()));
    const auto it = Find(pModel->Attrs, sName);
    if (it != pModel->Attrs.end()) {
      it->Value = sValue;
      return;
    }
    XmlAttribute* pAttr = SYS_XML_FindAttr(pModel->pElement, sName.c_str());
    ASSERT_NE(nullptr, pAttr);
    pModel->Attrs.push_back({sName, sValue, pAttr});
  }

  // Also one whose name is there already.
  void AddAttr(ELEMENT* pModel) {
    const std::string   sName  = PickName();
    const std::string   sValue = PickValue();
    XmlAttribute* const pAttr =
        SYS_XML_AddAttr(m_pDoc, pModel->pElement, sName.c_str(), (uint32_t)sName.size(),
                        sValue.c_str(), (uint32_t)sValue.size());
    ASSERT_NE(nullptr, pAttr);
    pModel->Attrs.push_back({sName, sValue, pAttr});
  }

  void RemoveAttr(ELEMENT* pModel) {
    const std::string sName = PickName();
    const auto        it    = Find(pModel->Attrs, sName);
    ASSERT_EQ(it == pModel->Attrs.end() ? 1 : 0,
              SYS_XML_RemoveAttr(pModel->pElement, sName.c_str()));
    if (it != pModel->Attrs.end()) {
      pModel->Attrs.erase(it);
    }
  }

  // Any attribute, and its memory may be used again.
  void DropAttr(ELEMENT* pModel) {
    if (!pModel->Attrs.empty()) {
      const auto it = pModel->Attrs.begin() + Pick((uint32_t)pModel->Attrs.size());
      SYS_XML_DropAttr(m_pDoc, pModel->pElement, it->pAttr);
      pModel->Attrs.erase(it);
    }
  }

  void FindAttr(ELEMENT* pModel) {
    const std::string sName = PickName();
    const auto        it    = Find(pModel->Attrs, sName);
    ASSERT_EQ(it == pModel->Attrs.end() ? nullptr : it->pAttr,
              SYS_XML_FindAttr(pModel->pElement, sName.c_str()));
  }

  void AddModel(ELEMENT* pParent, const std::string& sName, XmlElement* pElement) {
    auto Child      = std::make_unique<ELEMENT>();
    Child->Name     = sName;
    Child->pElement = pElement;
    pParent->Children.push_back(std::move(Child));
  }

  void FindChild(ELEMENT* pModel) {
    const std::string sName = PickName();
    const auto        it    = Find(pModel->Children, sName);
    XmlElement* const pWant = it == pModel->Children.end() ? nullptr : (*it)->pElement;
    ASSERT_EQ(pWant, SYS_XML_FindChild(pModel->pElement, sName.c_str()));
    XmlElement* const pChild = SYS_XML_FindOrAddChild(m_pDoc, pModel->pElement, sName.c_str());
    ASSERT_NE(nullptr, pChild);
    if (pWant == nullptr) {
      AddModel(pModel, sName, pChild);
    }
    ASSERT_EQ(pWant == nullptr ? pModel->Children.back()->pElement : pWant, pChild);
  }

  void AppendSibling(ELEMENT* pModel) {
    if (!pModel->Children.empty()) {
      const std::string sName = PickName();
      XmlElement* const pNew  = SYS_XML_AppendSibling(
           m_pDoc, pModel->Children[Pick((uint32_t)pModel->Children.size())]->pElement,
           sName.c_str());
      ASSERT_NE(nullptr, pNew);
      AddModel(pModel, sName, pNew);
    }
  }

  ELEMENT* PickElement() {
    ELEMENT* pModel = &m_Root;
    return pModel->Children.empty() || Pick(3) != 0
               ? pModel
               : pModel->Children[Pick((uint32_t)pModel->Children.size())].get();
  }

  void Step() {
    ELEMENT* const pModel = PickElement();
    switch (Pick(8)) {
      case 0:
      case 1:
        return SetAttr(pModel);
      case 2:
        return FindAttr(pModel);
      case 3:
        return RemoveAttr(pModel);
      case 4:
        return DropAttr(pModel);
      case 5:
        return m_AddsTwice && Pick(4) == 0 ? AddAttr(pModel) : SetAttr(pModel);
      case 6:
        return Pick(3) == 0 ? FindChild(pModel) : FindAttr(pModel);
      default:
        return Pick(20) == 0 ? AppendSibling(pModel) : FindAttr(pModel);
    }
  }

  // Compares both lists of each element, forwards and backwards, with what is expected.
  static void Compare(const ELEMENT& Model) {
    const XmlAttribute* pAttr = Model.pElement->pFirstAttr;
    const XmlAttribute* pPrev = nullptr;
    for (const ATTR& Attr : Model.Attrs) {
      ASSERT_EQ(Attr.pAttr, pAttr);  // and it has not moved
      ASSERT_EQ(pPrev, pAttr->pPrev);
      ASSERT_EQ(Attr.Name, pAttr->sName);
      ASSERT_EQ(Attr.Value, pAttr->sValue);
      ASSERT_EQ(Attr.Value.size(), pAttr->ValueLen);
      pPrev = pAttr;
      pAttr = pAttr->pNext;
    }
    ASSERT_EQ(nullptr, pAttr);
    const XmlElement* pChild    = Model.pElement->pFirstChild;
    const XmlElement* pPrevious = nullptr;
    for (const auto& Child : Model.Children) {
      ASSERT_EQ(Child->pElement, pChild);
      ASSERT_EQ(pPrevious, pChild->pPrev);
      ASSERT_EQ(Model.pElement, pChild->pParent);
      ASSERT_NO_FATAL_FAILURE(Compare(*Child));
      pPrevious = pChild;
      pChild    = pChild->pNext;
    }
    ASSERT_EQ(nullptr, pChild);
  }

  // Loads what was written, so that the rest works with a document in its text.
  void Reload(Doc* pTree) {
    *pTree = Parse(Write(m_Root));
    ASSERT_NE(nullptr, pTree->Get());
    m_pDoc = pTree->Get();
    Take(&m_Root, SYS_XML_GetRoot(m_pDoc));
  }

  static void Take(ELEMENT* pModel, XmlElement* pElement) {
    pModel->pElement    = pElement;
    XmlAttribute* pAttr = pElement->pFirstAttr;
    for (ATTR& Attr : pModel->Attrs) {
      Attr.pAttr = pAttr;
      pAttr      = pAttr->pNext;
    }
    XmlElement* pChild = pElement->pFirstChild;
    for (const auto& Child : pModel->Children) {
      Take(Child.get(), pChild);
      pChild = pChild->pNext;
    }
  }

  void Run(uint32_t Seed, uint32_t NumNames) {
    SCOPED_TRACE("seed " + std::to_string(Seed));
    m_Random.seed(Seed);
    m_NumNames      = NumNames;
    m_AddsTwice     = Seed % 2 == 0;
    Doc Tree        = Doc(SYS_XML_CreateDoc("Root"));
    m_pDoc          = Tree.Get();
    m_Root          = ELEMENT();
    m_Root.Name     = "Root";
    m_Root.pElement = Tree.Root();
    for (int i = 0; i < 1500; i++) {
      ASSERT_NO_FATAL_FAILURE(Step());
      if (i % 50 == 0) {
        ASSERT_NO_FATAL_FAILURE(Compare(m_Root));
        ASSERT_EQ(Write(m_Root), Tree.Text());
      }
      if (i % 500 == 499) {
        ASSERT_NO_FATAL_FAILURE(Reload(&Tree));
      }
    }
    ASSERT_NO_FATAL_FAILURE(Compare(m_Root));
  }

  std::mt19937 m_Random;
  uint32_t     m_NumNames  = 0;
  bool         m_AddsTwice = false;
  XmlDocument* m_pDoc      = nullptr;
  ELEMENT      m_Root;
};

TEST_F(SysXmlModel, RandomOperationsAgreeWithTheModel) {
  for (uint32_t Seed = 1; Seed <= 60 && !HasFatalFailure(); Seed++) {
    Run(Seed, Seed % 3 == 0 ? 12 : Seed % 3 == 1 ? 60 : 400);
  }
}

// Texts whose end is near the limit, with long and short pieces there.
TEST_F(SysXmlModel, ATextAtTheLimitIsCutWhereTheBufferEnds) {
  std::string sBuffer(SYS_XML_MAX_TEXT + 64, '#');
  for (uint32_t Seed = 1; Seed <= 60; Seed++) {
    m_Random.seed(Seed);
    m_NumNames = 400;
    m_Root     = ELEMENT();
    Doc Tree(SYS_XML_CreateDoc("Root"));
    m_pDoc          = Tree.Get();
    m_Root.Name     = "Root";
    m_Root.pElement = Tree.Root();
    m_Root.Attrs.push_back({"long", std::string(SYS_XML_MAX_TEXT - 300 - Pick(300), 'v'), nullptr});
    SYS_XML_SetAttr(m_pDoc, Tree.Root(), "long", m_Root.Attrs[0].Value.c_str());
    for (int i = 0; i < 12; i++) {
      SetAttr(&m_Root);
      FindChild(&m_Root);
      SetAttr(m_Root.Children[Pick((uint32_t)m_Root.Children.size())].get());
    }
    const std::string sWant = Write(m_Root);
    const uint32_t    Size  = SYS_XML_MAX_TEXT + 32 - Pick(600);
    sBuffer.assign(sBuffer.size(), '#');
    const int32_t  Result    = SYS_XML_StoreDoc(m_pDoc, sBuffer.data(), Size);
    const uint32_t NumStored = std::min({(uint32_t)sWant.size(), Size, SYS_XML_MAX_TEXT});
    EXPECT_EQ(NumStored == sWant.size() ? (int32_t)NumStored : SYS_XML_ERR_TOO_LONG, Result)
        << Seed;
    EXPECT_TRUE(sWant.substr(0, NumStored) == sBuffer.substr(0, NumStored)) << Seed;
    EXPECT_EQ(std::string::npos, sBuffer.find_first_not_of('#', NumStored)) << Seed;
  }
}
