// SPDX-License-Identifier: MIT

#include "app/text.h"

#include <gtest/gtest.h>

TEST(AppCompareNoCase, FoldsOnlyAsciiLetters) {
  EXPECT_TRUE(CompareNoCase("-Speed", "-sPEED"));
  EXPECT_TRUE(CompareNoCase("", ""));
  EXPECT_TRUE(CompareNoCase("AZ", "az"));
  EXPECT_TRUE(CompareNoCase("az", "AZ"));
  EXPECT_FALSE(CompareNoCase("[", "{"));  // they differ in the same bit as 'A' and 'a'
  EXPECT_FALSE(CompareNoCase("@", "`"));
  EXPECT_FALSE(CompareNoCase("\xC4", "\xE4"));  // A umlaut in Latin-1
}

TEST(AppCompareNoCase, PrefixIsNotAMatch) {
  EXPECT_FALSE(CompareNoCase("-Speed", "-Speedy"));
  EXPECT_FALSE(CompareNoCase("-Speedy", "-Speed"));
  EXPECT_FALSE(CompareNoCase("", "x"));
}

TEST(AppParseDec, SkipsTabLineFeedReturnAndSpaceOnly) {
  uint32_t Value = 0;
  EXPECT_EQ(0, ParseDec("\t\n\r 42", &Value));
  EXPECT_EQ(42u, Value);
  EXPECT_EQ(-1, ParseDec("\v42", &Value));
  EXPECT_EQ(-1, ParseDec("\f42", &Value));
}

TEST(AppParseDec, StopsAtTheFirstNonDigit) {
  uint32_t Value = 0;
  EXPECT_EQ(0, ParseDec("12abc", &Value));
  EXPECT_EQ(12u, Value);
  EXPECT_EQ(0, ParseDec("0x10", &Value));
  EXPECT_EQ(0u, Value);
}

TEST(AppParseDec, TextWithoutADigitFailsAndLeavesTheValue) {
  uint32_t Value = 77;
  for (const char* sText : {"", " ", "-5", "+5", "x1", "/", ":"}) {
    EXPECT_EQ(-1, ParseDec(sText, &Value)) << sText;
    EXPECT_EQ(77u, Value);
  }
}

TEST(AppParseDec, WrapsAt32Bits) {
  uint32_t Value = 0;
  EXPECT_EQ(0, ParseDec("4294967295", &Value));
  EXPECT_EQ(4294967295u, Value);
  EXPECT_EQ(0, ParseDec("4294967297", &Value));
  EXPECT_EQ(1u, Value);
}
