// SPDX-License-Identifier: MIT

// What must not grow with the number of values, seen without a clock: see support/xml_growth.h.

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/sys/support/registry_calls.h"
#include "tests/sys/support/xml_growth.h"

static const int NUM_VALUES = 1000;

static std::string NameOf(int Index) {
  return "Value" + std::to_string(Index);
}

// "s0", "s1", ...
static std::string ListOf(int NumStrings) {
  std::string sList;
  for (int i = 0; i < NumStrings; i++) {
    sList += "s" + std::to_string(i) + '\0';
  }
  return sList + '\0';
}

class SysRegistryGrowth : public SysRegistry {
 protected:
  void SetUp() override {
    SysRegistry::SetUp();
    m_hKey = SYS_REG_OpenKey(USER, "K");
    ASSERT_NE(nullptr, m_hKey);
  }
  void TearDown() override {
    SYS_REG_CloseKey(m_hKey);
    SysRegistry::TearDown();
  }
  void SetNumbers() {
    for (int i = 0; i < NUM_VALUES; i++) {
      ASSERT_EQ(0u, SetDword(NameOf(i).c_str(), (uint32_t)i, m_hKey));
    }
  }
  uint32_t SetList(const char* sName, const std::string& sList) {
    return SYS_REG_SetValue(m_hKey, sName, 7, sList.data(), (uint32_t)sList.size());
  }
  // The strings of a list with '|' after each.
  std::string List(const char* sName) {
    std::string sBuffer(0x100000, '\0');
    uint32_t    Size = (uint32_t)sBuffer.size();
    if (SYS_REG_QueryValue(m_hKey, sName, nullptr, sBuffer.data(), &Size) != 0) {
      return "none";
    }
    std::string sStrings;
    for (const char* s = sBuffer.c_str(); *s != 0; s += strlen(s) + 1) {
      sStrings += s + std::string("|");
    }
    return sStrings;
  }
  uint32_t Number(int Index) {
    uint32_t Value = 0xAAAAAAAA;
    uint32_t Size  = sizeof(Value);
    SYS_REG_QueryValue(m_hKey, NameOf(Index).c_str(), nullptr, &Value, &Size);
    return Value;
  }
  uint64_t NumBytes() const { return CountBytes(m_hKey->pDoc); }

  RegistryKeyHandle* m_hKey = nullptr;
};

TEST_F(SysRegistryGrowth, ValuesAreSetQueriedAndDeletedWithoutAWalk) {
  SetNumbers();
  {
    const CUT_LIST<XmlAttribute> Cut(m_hKey->pElement->pFirstAttr);
    for (const int i : {999, 0, 500, 501, 10, 998}) {
      EXPECT_EQ((uint32_t)i, Number(i));
      EXPECT_EQ(0u, SetDword(NameOf(i).c_str(), (uint32_t)i + 1, m_hKey));
      EXPECT_EQ((uint32_t)i + 1, Number(i));
    }
    EXPECT_EQ(2u, TypeOnly("none", nullptr, m_hKey));
    EXPECT_EQ(0u, SYS_REG_DeleteValue(m_hKey, NameOf(700).c_str()));
    EXPECT_EQ(2u, TypeOnly(NameOf(700).c_str(), nullptr, m_hKey));
    EXPECT_EQ(0u, SetText("new", "text", m_hKey));
    EXPECT_EQ("text", Text("new", m_hKey));
  }
  EXPECT_EQ(701u, Number(701));
}

TEST_F(SysRegistryGrowth, ALoadedKeyIsNotWalkedAfterTheFirstOperation) {
  SetNumbers();
  SYS_REG_CloseKey(m_hKey);
  SYS_REG_Flush();
  m_hKey = SYS_REG_OpenKey(USER, "K");
  EXPECT_EQ(500u, Number(500));
  const CUT_LIST<XmlAttribute> Cut(m_hKey->pElement->pFirstAttr);
  for (const int i : {999, 0, 500, 20, 21}) {
    EXPECT_EQ((uint32_t)i, Number(i));
  }
}

TEST_F(SysRegistryGrowth, KeysAreOpenedAndMadeWithoutAWalk) {
  for (int i = 0; i < NUM_VALUES; i++) {
    SYS_REG_CloseKey(SYS_REG_OpenKey(m_hKey, NameOf(i).c_str()));
  }
  const CUT_LIST<XmlElement> Cut(m_hKey->pElement->pFirstChild);
  for (const char* sName : {"Value999", "Value0", "Value500", "New"}) {
    RegistryKeyHandle* hKey = SYS_REG_OpenKey(m_hKey, sName);
    ASSERT_NE(nullptr, hKey);
    EXPECT_STREQ(sName, hKey->pElement->sName);
    SYS_REG_CloseKey(hKey);
  }
}

TEST_F(SysRegistryGrowth, AListBesideManyValuesIsSetQueriedAndDeletedWithoutAWalk) {
  SetNumbers();
  ASSERT_EQ(0u, SetList("List", ListOf(100)));  // the first time all values are looked at
  const CUT_LIST<XmlAttribute> Cut(m_hKey->pElement->pFirstAttr);
  for (const int NumStrings : {300, 10, 11, 1}) {
    const std::string sWant = [&] {
      std::string s;
      for (int i = 0; i < NumStrings; i++) {
        s += "s" + std::to_string(i) + "|";
      }
      return s;
    }();
    EXPECT_EQ(0u, SetList("List", ListOf(NumStrings)));
    EXPECT_EQ(sWant, List("List"));
  }
  EXPECT_EQ(0u, SetDword("Value1", 5, m_hKey));
  EXPECT_EQ(0u, SetList("List", ListOf(20)));
  EXPECT_EQ(0u, SYS_REG_DeleteValue(m_hKey, "List"));
  EXPECT_EQ("none", List("List"));
}

TEST_F(SysRegistryGrowth, ListsThatAreOnlySetAreSetWithoutAWalk) {
  const auto CountAttrs = [&] {
    int NumAttrs = 0;
    for (const XmlAttribute* p = m_hKey->pElement->pFirstAttr; p != nullptr; p = p->pNext) {
      NumAttrs++;
    }
    return NumAttrs;
  };
  for (int i = 0; i < 100; i++) {
    ASSERT_EQ(0u, SetList(NameOf(i).c_str(), ListOf(3)));
  }
  EXPECT_EQ(400, CountAttrs());
  {
    const CUT_LIST<XmlAttribute> Cut(m_hKey->pElement->pFirstAttr);
    ASSERT_EQ(0u, SetList(NameOf(50).c_str(), ListOf(3)));
    ASSERT_EQ(0u, SetList(NameOf(99).c_str(), ListOf(2)));
  }
  EXPECT_EQ(399, CountAttrs());
}

// Names that end like those of a list's strings, or nearly so.
TEST_F(SysRegistryGrowth, AListBesideOtherNamesWithDigitsIsSet) {
  const std::string sLong = std::string(520, 'n') + "_OSTRELRegMltStr2";
  SYS_REG_CloseKey(m_hKey);
  SYS_REG_Flush();
  std::string sOthers = " 123=\"a\" ANameLongerThanTheSuffix7=\"b\" " + sLong + "=\"c\"";
  for (int i = 0; i < 20; i++) {
    sOthers += " " + NameOf(i) + "=\"v\"";
  }
  Provide("<Registry><K" + sOthers + "/></Registry>");
  m_hKey = SYS_REG_OpenKey(USER, "K");
  EXPECT_EQ(0u, SetList("List", ListOf(3)));
  EXPECT_EQ(0u, SetList("List", ListOf(2)));
  EXPECT_EQ("s0|s1|", List("List"));
  EXPECT_EQ("<Registry>\r\n  <K" + sOthers +
                " List=\"s0\" List_OSTRELRegMltStr1=\"s1\" "
                "List_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n</Registry>\r\n",
            Flushed());
}

// Set again and again, for days, the store must not take more and more memory.
TEST_F(SysRegistryGrowth, ValuesThatAreSetAgainTakeNoMoreMemory) {
  uint64_t Before = 0;
  for (int i = 0; i < 2000; i++) {
    ASSERT_EQ(0u, SetList("List", ListOf(10)));
    ASSERT_EQ(0u, SetText("Text", std::string(100, 't').c_str(), m_hKey));
    if (i > 0) {
      ASSERT_EQ(Before, NumBytes());
    }
    Before = NumBytes();
    ASSERT_EQ(0u, SYS_REG_DeleteValue(m_hKey, "Text"));
  }
}

TEST_F(SysRegistryGrowth, MemoryStaysWithinAFactorOfWhatIsLive) {
  std::mt19937        Random(1);
  std::vector<size_t> aLive(300);
  size_t              Live    = 0;
  size_t              MaxLive = 0;
  for (int i = 0; i < 30000; i++) {
    const size_t      Index      = Random() % aLive.size();
    const std::string sName      = NameOf((int)Index);
    const size_t      Length     = Random() % (Random() % 10 == 0 ? 2000 : 60);
    const size_t      NumStrings = 1 + Random() % 12;
    Live -= aLive[Index];
    aLive[Index] = 0;
    switch (Random() % 3) {
      case 0:
        SYS_REG_DeleteValue(m_hKey, sName.c_str());
        break;
      case 1:
        SYS_REG_DeleteValue(m_hKey, sName.c_str());
        ASSERT_EQ(0u, SetText(sName.c_str(), std::string(Length, 't').c_str(), m_hKey));
        aLive[Index] = 2 * (sizeof(XmlAttribute) + sName.size()) + 30 + Length;
        break;
      default:
        ASSERT_EQ(0u, SetList(sName.c_str(), ListOf((int)NumStrings)));
        aLive[Index] = (NumStrings + 1) * (sizeof(XmlAttribute) + sName.size() + 18) + 20;
    }
    Live += aLive[Index];
    MaxLive = std::max(MaxLive, Live);
    ASSERT_GE(3 * MaxLive + 100000, NumBytes()) << i;
  }
}

// Callers may look at a key's attributes themselves.
TEST_F(SysRegistryGrowth, AttributesOfOtherValuesStayWhereTheyAre) {
  std::vector<XmlAttribute*> apAttr;
  SetNumbers();
  for (int i = 0; i < NUM_VALUES; i++) {
    apAttr.push_back(SYS_XML_FindAttr(m_hKey->pElement, NameOf(i).c_str()));
  }
  for (int i = 0; i < 5000; i++) {
    SetList("List", ListOf(1 + i % 50));
    SetText("Text", std::string((size_t)i % 300, 't').c_str(), m_hKey);
    SYS_REG_DeleteValue(m_hKey, i % 2 != 0 ? "Text" : "List");
  }
  for (int i = 0; i < NUM_VALUES; i++) {
    XmlAttribute* const pAttr = apAttr[(size_t)i];
    ASSERT_EQ(pAttr, SYS_XML_FindAttr(m_hKey->pElement, NameOf(i).c_str()));
    ASSERT_EQ(NameOf(i), pAttr->sName);
    ASSERT_EQ((uint32_t)i, Number(i));
  }
}
