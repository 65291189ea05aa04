#include "util/string.h"

#include <gtest/gtest.h>

TEST(UtilCopyString, SizeOneYieldsTheEmptyString) {
  char acBuffer[3] = {'x', 'y', 'z'};
  UTIL_CopyString(acBuffer, "abc", 1);
  EXPECT_EQ(0, acBuffer[0]);
  EXPECT_EQ('y', acBuffer[1]);
}

TEST(UtilCopyString, LongerSourceIsCutToSizeMinusOne) {
  char acBuffer[6] = {'#', '#', '#', '#', '#', '#'};
  UTIL_CopyString(acBuffer, "abcdefgh", 5);
  EXPECT_STREQ("abcd", acBuffer);
  EXPECT_EQ('#', acBuffer[5]);
}

TEST(UtilCopyString, SourceThatJustFitsIsKeptWhole) {
  char acBuffer[5];
  UTIL_CopyString(acBuffer, "abcd", sizeof(acBuffer));
  EXPECT_STREQ("abcd", acBuffer);
}

TEST(UtilCopyString, NullPointersAndSizeZeroChangeNothing) {
  char acBuffer[2] = {'x', 0};
  UTIL_CopyString(acBuffer, nullptr, 2);
  EXPECT_STREQ("x", acBuffer);
  UTIL_CopyString(acBuffer, "abc", 0);
  EXPECT_STREQ("x", acBuffer);
  UTIL_CopyString(nullptr, "abc", 2);
}
