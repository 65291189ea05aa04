// SPDX-License-Identifier: MIT

#include "openocd/answer.h"

#include <gtest/gtest.h>
#include <string.h>

#include <string>

namespace {

struct Parsed {
  bool        Found = false;
  int         Code  = 77;
  std::string sText;
};

Parsed Parse(const std::string& sFrame, uint32_t Number = 7, size_t Size = 256) {
  Parsed Result;
  char   acText[256];
  memset(acText, '#', sizeof(acText));
  Result.Found = ANSWER_Parse(sFrame.data(), sFrame.size(), Number, &Result.Code, acText, Size);
  if (Result.Found) {
    Result.sText = acText;
  }
  return Result;
}

struct AnswerRow {
  const char* sFrame;
  int         Code;
  const char* sText;
};

const AnswerRow aGood[] = {
    {"q7 0 {}", 0, ""},
    {"q7 0 0xbbed", 0, "0xbbed"},
    {"q7 0 {0xbbed 0x1}", 0, "0xbbed 0x1"},
    {"q7 1 {read_memory: failed to read memory}", 1, "read_memory: failed to read memory"},
    {"q7 -4 {open failed\n}", -4, "open failed"},
    {"q7 0 {a {b} c}", 0, "a {b} c"},
    {"q7 1 {a \\} c}", 1, "a \\} c"},
    {"q7 1 a\\ b\\{", 1, "a b{"},
    {"q7 1 \"a b\"", 1, "a b"},
    {"q7 1 a\\nb", 1, "a\nb"},
    {"hello\nq7 0 ok", 0, "ok"},
    {"helloq7 0 ok", 0, "ok"},
    {"q7 q7 0 ok", 0, "ok"},
    {"q7 0 ok\n", 0, "ok"},
};

TEST(openocd_answer, code_and_text_are_taken_from_a_list) {
  for (const AnswerRow& Row : aGood) {
    const Parsed Result = Parse(Row.sFrame);
    EXPECT_TRUE(Result.Found) << Row.sFrame;
    EXPECT_EQ(Row.Code, Result.Code) << Row.sFrame;
    EXPECT_EQ(Row.sText, Result.sText) << Row.sFrame;
  }
}

TEST(openocd_answer, what_is_no_answer_to_this_request_is_not_taken_for_one) {
  static const char* const aBad[] = {
      "",           "q7",        "q7 ",           "q7 0",     "q7 0 ",     "q6 0 ok",
      "q77 0 ok",   "q7 x ok",   "q7 - ok",       "q7 0 {ok", "q7 0 \"ok", "q7 0 ok more",
      "q7 0 {a} b", "q7 0 {a}b", "q7 0 ok\nsaid", "Q7 0 ok",  "q7  0 ok",  "q7 1234567890 ok",
  };
  for (const char* sFrame : aBad) {
    EXPECT_FALSE(Parse(sFrame).Found) << sFrame;
  }
}

TEST(openocd_answer, a_frame_is_as_long_as_told_and_may_hold_zeros) {
  EXPECT_FALSE(Parse(std::string("q7 0 ok").substr(0, 5)).Found);
  EXPECT_EQ("ok", Parse(std::string("\0\0q7 0 ok", 9)).sText);
}

TEST(openocd_answer, a_text_that_does_not_fit_is_cut_and_terminated) {
  char acText[8];
  int  Code = 0;
  memset(acText, '#', sizeof(acText));
  ASSERT_TRUE(ANSWER_Parse("q1 0 abcdefgh", 13, 1, &Code, acText, 4));
  EXPECT_STREQ("abc", acText);
  EXPECT_EQ('#', acText[4]);
}

TEST(openocd_answer, numbers_are_hexadecimal_after_0x_and_decimal_otherwise) {
  uint32_t aValues[3] = {};
  ASSERT_TRUE(ANSWER_Numbers("0xBBed 17\n0xFFFFFFFF ", aValues, 3));
  EXPECT_EQ(0xBBEDu, aValues[0]);
  EXPECT_EQ(17u, aValues[1]);
  EXPECT_EQ(0xFFFFFFFFu, aValues[2]);
  EXPECT_TRUE(ANSWER_Numbers(" ", aValues, 0));
}

TEST(openocd_answer, another_count_or_anything_that_is_no_number_is_refused) {
  uint32_t aValues[3] = {};
  for (const char* sText : {"", "0x", "0x1", "0x1 0x2 0x3", "0x1 g", "0x1 0x2g", "0x1,0x2",
                            "0x1 0x100000000", "4294967296 1", "-1 1", "0x1 0x2 x", "1 2a"}) {
    EXPECT_FALSE(ANSWER_Numbers(sText, aValues, 2)) << sText;
  }
}

}  // namespace
