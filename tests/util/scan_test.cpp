#include "util/scan.h"

#include <gtest/gtest.h>
#include <string.h>

#include <string>

// Runs a scanner over a text and tells how far the cursor moved.
template <typename SCANNER>
static long CursorAfter(const char* sText, SCANNER Scanner) {
  const char* s = sText;
  Scanner(&s);
  return s - sText;
}

// Characters

TEST(UtilIsWhite, IsExactlyTheFourCharacters) {
  for (uint32_t c = 0; c < 0x400; c++) {
    const bool Expected = c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0D;
    EXPECT_EQ(Expected ? 1 : 0, UTIL_IsWhite(c)) << c;
  }
  EXPECT_EQ(0, UTIL_IsWhite(0xFFFFFF20));
}

TEST(UtilSkipWhite, StopsAtTheFirstOtherCharacter) {
  EXPECT_EQ(4, CursorAfter(" \t\r\nx ", UTIL_SkipWhite));
  EXPECT_EQ(0, CursorAfter("\vx", UTIL_SkipWhite));
  EXPECT_EQ(0, CursorAfter("\fx", UTIL_SkipWhite));
  EXPECT_EQ(2, CursorAfter("  ", UTIL_SkipWhite));
  EXPECT_EQ(0, CursorAfter("", UTIL_SkipWhite));
  EXPECT_EQ(0, CursorAfter("\xA0", UTIL_SkipWhite));
}

TEST(UtilEatChar, TakesOnlyTheExpectedCharacter) {
  const char* sText = "ab";
  const char* s     = sText;
  EXPECT_EQ(-1, UTIL_EatChar(&s, 'b'));
  EXPECT_EQ(sText, s);
  EXPECT_EQ(0, UTIL_EatChar(&s, 'a'));
  EXPECT_EQ(0, UTIL_EatChar(&s, 'b'));
  EXPECT_EQ(-1, UTIL_EatChar(&s, 'b'));
  EXPECT_EQ(sText + 2, s);
}

TEST(UtilFindChar, GivesTheFirstIndexAndNeverTheTerminator) {
  EXPECT_EQ(0, UTIL_FindChar("abca", 'a'));
  EXPECT_EQ(2, UTIL_FindChar("abca", 'c'));
  EXPECT_EQ(-1, UTIL_FindChar("abca", 'x'));
  EXPECT_EQ(-1, UTIL_FindChar("abca", 0));
  EXPECT_EQ(-1, UTIL_FindChar("", 'a'));
  EXPECT_EQ(1, UTIL_FindChar("a\xE4", '\xE4'));
}

TEST(UtilIsPlainString, RefusesQuotesAndBytesFrom0x80) {
  EXPECT_EQ(1, UTIL_IsPlainString("a b\t\x7F"));
  EXPECT_EQ(0, UTIL_IsPlainString("a\"b"));
  EXPECT_EQ(0, UTIL_IsPlainString("a\x80"));
  EXPECT_EQ(0, UTIL_IsPlainString("\xFF"));
  EXPECT_EQ(1, UTIL_IsPlainString(""));
  EXPECT_EQ(1, UTIL_IsPlainNonEmptyString("a b"));
  EXPECT_EQ(0, UTIL_IsPlainNonEmptyString("a\"b"));
  EXPECT_EQ(0, UTIL_IsPlainNonEmptyString(""));
}

// Numbers

struct INT_CASE {
  const char* sText;
  int32_t     AlwaysHex;
  int32_t     Result;
  int64_t     Value;
  long        NumConsumed;
};

static const int64_t UNTOUCHED = 0x5A5A5A5A5A5A5A5A;

TEST(UtilParseInt, ReadsSignPrefixAndDigits) {
  const INT_CASE aCase[] = {
      {"  -0x1F,", 0, 0, -31, 7},
      {"0x", 0, -1, UNTOUCHED, 0},
      {"0X", 0, -1, UNTOUCHED, 0},
      {"0xG", 0, -1, UNTOUCHED, 0},
      {"12", 1, 0, 0x12, 2},
      {"12", 0, 0, 12, 2},
      {"0", 1, 0, 0, 1},
      {"0123", 0, 0, 123, 4},
      {"0123", 1, 0, 0x123, 4},
      {"0XaBcDeF09g", 0, 0, 0xABCDEF09, 10},
      {"0x10", 1, 0, 0x10, 4},
      {"FFg", 1, 0, 0xFF, 2},
      {"FF", 0, -1, UNTOUCHED, 0},
      {"+5", 0, -1, UNTOUCHED, 0},
      {"--5", 0, -1, UNTOUCHED, 0},
      {"- 5", 0, -1, UNTOUCHED, 0},
      {"-", 0, -1, UNTOUCHED, 0},
      {"", 0, -1, UNTOUCHED, 0},
      {"   ", 0, -1, UNTOUCHED, 0},
      {" \t\r\n7", 0, 0, 7, 5},
      {"\v7", 0, -1, UNTOUCHED, 0},
      {"1x", 0, 0, 1, 1},
      {"00x1", 0, 0, 0, 2},
      {"9223372036854775807", 0, 0, INT64_MAX, 19},
      {"-9223372036854775808", 0, 0, INT64_MIN, 20},
      {"9223372036854775808", 0, 0, INT64_MIN, 19},
      {"18446744073709551615", 0, 0, -1, 20},
      {"18446744073709551621", 0, 0, 5, 20},
      {"0x1FFFFFFFFFFFFFFFF", 0, 0, -1, 19},
      {"-0", 0, 0, 0, 2},
      {"5/", 0, 0, 5, 1},
      {"5:", 0, 0, 5, 1},
      {"@", 1, -1, UNTOUCHED, 0},
      {"`", 1, -1, UNTOUCHED, 0},
  };
  for (const INT_CASE& Case : aCase) {
    const char* s     = Case.sText;
    int64_t     Value = UNTOUCHED;
    EXPECT_EQ(Case.Result, UTIL_ParseInt(&s, &Value, Case.AlwaysHex)) << Case.sText;
    EXPECT_EQ(Case.Value, Value) << Case.sText;
    EXPECT_EQ(Case.NumConsumed, s - Case.sText) << Case.sText;
  }
}

TEST(UtilParseInt32, StoresTheLowHalfAndZeroOnFailure) {
  const char* s     = "0x123456789 x";
  int32_t     Value = 77;
  UTIL_ParseInt32(&s, &Value);
  EXPECT_EQ(0x23456789, Value);
  UTIL_ParseInt32(&s, &Value);
  EXPECT_EQ(0, Value);
  EXPECT_STREQ(" x", s);
  s = "-2";
  UTIL_ParseInt32(&s, &Value);
  EXPECT_EQ(-2, Value);
}

TEST(UtilParseHex, DigitsAreAlwaysHexadecimal) {
  const char* s     = "0123";
  uint64_t    Value = 77;
  EXPECT_EQ(0, UTIL_ParseHex(&s, &Value));
  EXPECT_EQ(0x123u, Value);
  s = "0";
  EXPECT_EQ(0, UTIL_ParseHex(&s, &Value));
  EXPECT_EQ(0u, Value);
  EXPECT_STREQ("", s);
  s = " 0xFFFFFFFFFFFFFFFE,";
  EXPECT_EQ(0, UTIL_ParseHex(&s, &Value));
  EXPECT_EQ(0xFFFFFFFFFFFFFFFEu, Value);
  EXPECT_STREQ(",", s);
  s = "-1";
  EXPECT_EQ(0, UTIL_ParseHex(&s, &Value));
  EXPECT_EQ(0xFFFFFFFFFFFFFFFFu, Value);
}

TEST(UtilParseHex, FailureChangesNothing) {
  const char* sText = " 0xyz";
  const char* s     = sText;
  uint64_t    Value = 77;
  EXPECT_EQ(-1, UTIL_ParseHex(&s, &Value));
  EXPECT_EQ(77u, Value);
  EXPECT_EQ(sText, s);
}

TEST(UtilParseHex32, StoresTheLowHalfAndZeroOnFailure) {
  const char* s     = "123456789 q";
  uint32_t    Value = 77;
  EXPECT_EQ(0, UTIL_ParseHex32(&s, &Value));
  EXPECT_EQ(0x23456789u, Value);
  EXPECT_STREQ(" q", s);
  EXPECT_EQ(-1, UTIL_ParseHex32(&s, &Value));
  EXPECT_EQ(0u, Value);
  EXPECT_STREQ(" q", s);
}

TEST(UtilParseU32, ReadsDecimalAndPrefixedHexadecimal) {
  struct {
    const char* sText;
    int32_t     Result;
    uint32_t    Value;
  } const aCase[] = {
      {"0", 0, 0},
      {"12ab", 0, 12},
      {"0x1Fg", 0, 0x1F},
      {"0XaB", 0, 0xAB},
      {"4294967296", 0, 0},
      {"4294967301", 0, 5},
      {"0x123456789", 0, 0x23456789},
      {"0x", -1, 77},
      {"0xg", -1, 77},
      {"", -1, 77},
      {" 1", -1, 77},
      {"-1", -1, 77},
      {"+1", -1, 77},
      {"A", -1, 77},
      {"99999999999999999999", 0, 1661992959},
  };
  for (const auto& Case : aCase) {
    uint32_t Value = 77;
    EXPECT_EQ(Case.Result, UTIL_ParseU32(Case.sText, &Value)) << Case.sText;
    EXPECT_EQ(Case.Value, Value) << Case.sText;
  }
}

// Versions and addresses

TEST(UtilParseVersion, ReadsMajorMinorAndRevision) {
  struct {
    const char* sText;
    int32_t     Result;
    uint32_t    Major, Minor, Revision;
    const char* sRest;
  } const aCase[] = {
      {"V6.22a", 0, 6, 22, 1, ""},
      {"6.22", 0, 6, 22, 0, ""},
      {"6.22A", -1, 6, 22, 'A', ""},
      {"  V6.22z rest", 0, 6, 22, 26, " rest"},
      {"v6.22", -1, 0, 0, 0, "v6.22"},
      {"VV6.22", -1, 0, 0, 0, "V6.22"},
      {"0x10.0x2a!", -1, 16, 42, 0xFFFFFFFF & '!', ""},
      {"6.22{", -1, 6, 22, '{', ""},
      {"6.22`", -1, 6, 22, '`', ""},
      {"6.22\xE4", -1, 6, 22, 0xFFFFFFE4, ""},
      {"6.22 a", -1, 6, 22, ' ', "a"},
      {"6 22a", -1, 6, 22, 0, "a"},
      {"6.x", -1, 6, 0, 0, "x"},
      {"6.", -1, 6, 0, 0, ""},
      {"6", -1, 6, 0, 0, ""},
      {".22", -1, 0, 22, 0, ""},
      {"", -1, 0, 0, 0, ""},
  };
  for (const auto& Case : aCase) {
    const char* s     = Case.sText;
    uint32_t    Major = 77, Minor = 77, Revision = 77;
    EXPECT_EQ(Case.Result, UTIL_ParseVersion(&s, &Major, &Minor, &Revision)) << Case.sText;
    EXPECT_EQ(Case.Major, Major) << Case.sText;
    EXPECT_EQ(Case.Minor, Minor) << Case.sText;
    EXPECT_EQ(Case.Revision, Revision) << Case.sText;
    EXPECT_STREQ(Case.sRest, s) << Case.sText;
  }
}

TEST(UtilParseVersion, EveryResultIsOptional) {
  const char* s = "V1.2c";
  EXPECT_EQ(0, UTIL_ParseVersion(&s, nullptr, nullptr, nullptr));
  EXPECT_STREQ("", s);
}

TEST(UtilDecodeVersion, SplitsTheNumberAndNamesTheRevision) {
  struct {
    uint32_t    Version, Major, Minor;
    const char* sRevision;
  } const aCase[] = {
      {62227, 6, 22, "z01"}, {62201, 6, 22, "a"},
      {62200, 6, 22, ""},    {62226, 6, 22, "z"},
      {62236, 6, 22, "z10"}, {62299, 6, 22, "z73"},
      {0, 0, 0, ""},         {0xFFFFFFFF, 429496, 72, "z69"},
  };
  for (const auto& Case : aCase) {
    VERSION_INFO Info;
    memset(&Info, '#', sizeof(Info));
    UTIL_DecodeVersion(&Info, Case.Version);
    EXPECT_EQ(Case.Major, Info.Major) << Case.Version;
    EXPECT_EQ(Case.Minor, Info.Minor) << Case.Version;
    EXPECT_STREQ(Case.sRevision, Info.Revision) << Case.Version;
  }
  UTIL_DecodeVersion(nullptr, 62201);
}

TEST(UtilDecodeVersion, RecordIsTextThenMajorThenMinor) {
  VERSION_INFO Info;
  UTIL_DecodeVersion(&Info, 62227);
  EXPECT_EQ(12u, sizeof(Info));
  EXPECT_EQ(0, memcmp(&Info, "z01\0", 4));
  EXPECT_EQ(4, (char*)&Info.Major - (char*)&Info);
  EXPECT_EQ(8, (char*)&Info.Minor - (char*)&Info);
}

TEST(UtilParseIPAddr, FirstNumberLandsInTheLowByte) {
  struct {
    const char* sText;
    int32_t     Result;
    uint32_t    Addr;
  } const aCase[] = {
      {"192.168.1.2", 0, 0x0201A8C0},
      {"192.168.1.2.", 0, 0x0201A8C0},
      {"256.0.0.1", 0, 0x01000100},
      {" 0x10. -0. 3. 4 rest", 0, 0x04030010},
      {"-1.0.0.0", 0, 0xFFFFFFFF},
      {"0.0.0.0", 0, 0},
      {"1.2.3", -1, 77},
      {"1.2.3.", -1, 77},
      {"1..2.3", -1, 77},
      {"1 .2.3.4", -1, 77},
      {"", -1, 77},
  };
  for (const auto& Case : aCase) {
    uint32_t Addr = 77;
    EXPECT_EQ(Case.Result, UTIL_ParseIPAddr(Case.sText, &Addr)) << Case.sText;
    EXPECT_EQ(Case.Addr, Addr) << Case.sText;
    EXPECT_EQ(Case.Result, UTIL_ParseIPAddr(Case.sText, nullptr)) << Case.sText;
  }
}

TEST(UtilCheckDottedNumbers, WantsADotBehindEveryNumber) {
  struct {
    const char* sText;
    int32_t     Result;
    const char* sRest;
  } const aCase[] = {
      {"192.168.1.2", -1, ""},     {"192.168.1.2.", 0, ""}, {"1.2.3.4.5", 0, "5"},
      {"1.2.3", -1, ""},           {"1.2 3.4.", -1, ""},    {"a.b", -1, "a.b"},
      {" 0x1. -2.3. 4.x", 0, "x"}, {".1.2.3", -1, ""},      {"", -1, ""},
  };
  for (const auto& Case : aCase) {
    const char* s = Case.sText;
    EXPECT_EQ(Case.Result, UTIL_CheckDottedNumbers(&s)) << Case.sText;
    EXPECT_STREQ(Case.sRest, s) << Case.sText;
  }
}

// Words and values. Each case runs in a buffer whose bytes behind the stated size must stay '#'.

class VALUE_BUFFER {
 public:
  VALUE_BUFFER() { memset(ac, '#', sizeof(ac)); }
  bool IsIntactFrom(size_t Size) const {
    return std::string(ac + Size, sizeof(ac) - Size) == std::string(sizeof(ac) - Size, '#');
  }
  char ac[64];
};

TEST(UtilParseToken, CopiesUpToTheDelimiterAndLeavesIt) {
  VALUE_BUFFER Buffer;
  const char*  s = " \tabc=1";
  EXPECT_EQ(nullptr, UTIL_ParseToken(&s, Buffer.ac, 10, '='));
  EXPECT_STREQ("abc", Buffer.ac);
  EXPECT_STREQ("=1", s);
  EXPECT_TRUE(Buffer.IsIntactFrom(10));
}

TEST(UtilParseToken, EndsAtSpaceAndLineEndButNotAtTab) {
  for (const char* sText : {"a\tb c", "a\tb\nc", "a\tb\rc", "a\tb"}) {
    VALUE_BUFFER Buffer;
    const char*  s = sText;
    EXPECT_EQ(nullptr, UTIL_ParseToken(&s, Buffer.ac, 10, '='));
    EXPECT_STREQ("a\tb", Buffer.ac);
    EXPECT_EQ(3, s - sText);
  }
}

TEST(UtilParseToken, BlanksOnlyAreNoString) {
  VALUE_BUFFER Buffer;
  const char*  s = "   ";
  EXPECT_STREQ("Expected a string", UTIL_ParseToken(&s, Buffer.ac, 10, '='));
  EXPECT_STREQ("", Buffer.ac);
  EXPECT_STREQ("", s);
  s = " =";
  EXPECT_STREQ("Expected a string", UTIL_ParseToken(&s, Buffer.ac, 10, '='));
  EXPECT_STREQ("=", s);
}

TEST(UtilParseToken, AsManyCharactersAsTheBufferAreTooMany) {
  VALUE_BUFFER Buffer;
  const char*  s = " 0123456789=";
  EXPECT_STREQ("Maximum string length exceeded", UTIL_ParseToken(&s, Buffer.ac, 10, '='));
  EXPECT_STREQ("", Buffer.ac);
  EXPECT_STREQ("0123456789=", s);
  EXPECT_TRUE(Buffer.IsIntactFrom(1));
  EXPECT_EQ(nullptr, UTIL_ParseToken(&s, Buffer.ac, 11, '='));
  EXPECT_STREQ("0123456789", Buffer.ac);
}

TEST(UtilParseToken, SizeZeroWritesNothing) {
  const char* s = " ";
  EXPECT_STREQ("Maximum string length exceeded", UTIL_ParseToken(&s, nullptr, 0, '='));
}

TEST(UtilParseUntil, TakesInnerAndTrailingBlanksAndTheDelimiter) {
  VALUE_BUFFER Buffer;
  const char*  s = "\r\n a b\t ;rest";
  EXPECT_EQ(0, UTIL_ParseUntil(&s, Buffer.ac, 10, ';'));
  EXPECT_STREQ("a b\t ", Buffer.ac);
  EXPECT_STREQ("rest", s);
  EXPECT_EQ(0, UTIL_ParseUntil(&s, Buffer.ac, 10, ';'));
  EXPECT_STREQ("rest", Buffer.ac);
  EXPECT_STREQ("", s);
  EXPECT_EQ(0, UTIL_ParseUntil(&s, Buffer.ac, 10, ';'));
  EXPECT_STREQ("", Buffer.ac);
  EXPECT_STREQ("", s);
}

TEST(UtilParseUntil, CutsAValueThatReachesTheBufferSizeAndConsumesItWhole) {
  for (uint32_t Size = 1; Size <= 6; Size++) {
    VALUE_BUFFER Buffer;
    const char*  s = "abcd;x";
    EXPECT_EQ(Size <= 4 ? 1 : 0, UTIL_ParseUntil(&s, Buffer.ac, Size, ';')) << Size;
    EXPECT_EQ(std::string("abcd").substr(0, Size - 1), Buffer.ac) << Size;
    EXPECT_STREQ("x", s) << Size;
    EXPECT_TRUE(Buffer.IsIntactFrom(Size)) << Size;
  }
}

TEST(UtilParseUntil, SizeZeroWritesNothingAndTellsSo) {
  const char* s = "a;b";
  EXPECT_EQ(1, UTIL_ParseUntil(&s, nullptr, 0, ';'));
  EXPECT_STREQ("b", s);
}

struct VALUE_CASE {
  const char* sText;
  uint32_t    BufferSize;
  uint32_t    Result;
  const char* sValue;
  const char* sRest;
};

TEST(UtilParseQuotedString, ReadsOneEntryOfAList) {
  const VALUE_CASE aCase[] = {
      {" \"a b\" , next", 10, 0, "a b", "next"},
      {"plain,more next", 20, 0, "plain,more", "next"},
      {"a b", 10, 0, "a", "b"},
      {"a\tb", 10, 0, "a\tb", ""},
      {"a , , b", 10, 0, "a", ", b"},
      {"a ,\r\n\tb", 10, 0, "a", "b"},
      {", b", 10, 0, ",", "b"},
      {"\"a\nb\"", 10, 0, "a", "b\""},
      {"\"a\rb\"", 10, 0, "a", "b\""},
      {"\"a", 10, 0, "a", ""},
      {"a\nb", 10, 0, "a", "b"},
      {"a\rb", 10, 0, "a", "b"},
      {"a\"b", 10, 0, "a", "b"},
      {"\"\",x", 10, 0, "", "x"},
      {"", 10, 0, "", ""},
      {"  ", 10, 0, "", ""},
      {"abcdef,x", 4, 0, "abc", "def,x"},
      {"\"abcdef\",x", 4, 0, "abc", "def\",x"},
      {"\"abc\",x", 4, 0, "abc", "\",x"},
      {"abc,x", 4, 0, "abc", "x"},
      {"\"abc", 1, 0, "", "abc"},
      {"abc", 1, 0, "", "abc"},
  };
  for (const VALUE_CASE& Case : aCase) {
    VALUE_BUFFER Buffer;
    const char*  s = Case.sText;
    UTIL_ParseQuotedString(&s, Buffer.ac, Case.BufferSize);
    EXPECT_STREQ(Case.sValue, Buffer.ac) << Case.sText;
    EXPECT_STREQ(Case.sRest, s) << Case.sText;
    EXPECT_TRUE(Buffer.IsIntactFrom(Case.BufferSize)) << Case.sText;
  }
}

TEST(UtilParseQuotedString, WithoutABufferNothingHappens) {
  VALUE_BUFFER Buffer;
  const char*  sText = " a";
  const char*  s     = sText;
  UTIL_ParseQuotedString(&s, nullptr, 10);
  UTIL_ParseQuotedString(&s, Buffer.ac, 0);
  EXPECT_EQ(sText, s);
  EXPECT_TRUE(Buffer.IsIntactFrom(0));
}

TEST(UtilParseValue, ReadsUpToTheColonOrTheClosingQuote) {
  const VALUE_CASE aCase[] = {
      {"key: value", 10, 0, "key", ": value"},
      {" key\t: value", 10, 0, "key\t", ": value"},
      {"key value", 10, 0, "key", " value"},
      {"key\nvalue", 10, 0, "key", "\nvalue"},
      {"key\rvalue", 10, 0, "key", "\rvalue"},
      {"key", 10, 0, "key", ""},
      {" \"a: b\nc\":x", 10, 0, "a: b\nc", ":x"},
      {"\"\":x", 10, 0, "", ":x"},
      {"a\"b:", 10, 0, "a\"b", ":"},
      {" :x", 10, 0, "", " :x"},
      {" \n", 10, 0, "", " \n"},
      {"", 10, 0, "", ""},
      {"abcdef:x", 4, 0, "abc", ":x"},
      {"\"abcdef\":x", 4, 0, "abc", ":x"},
      {"abc:x", 1, 0, "", ":x"},
      {" \"", 10, 0xFFFFFFFF, "", " \""},
  };
  for (const VALUE_CASE& Case : aCase) {
    VALUE_BUFFER Buffer;
    const char*  s = Case.sText;
    EXPECT_EQ(Case.Result, UTIL_ParseValue(&s, Buffer.ac, Case.BufferSize)) << Case.sText;
    EXPECT_STREQ(Case.sValue, Buffer.ac) << Case.sText;
    EXPECT_STREQ(Case.sRest, s) << Case.sText;
    EXPECT_TRUE(Buffer.IsIntactFrom(Case.BufferSize)) << Case.sText;
  }
}

TEST(UtilParseValue, MissingClosingQuoteLeavesTheCursorAndWritesNoTerminator) {
  VALUE_BUFFER Buffer;
  const char*  sText = " \"abc";
  const char*  s     = sText;
  EXPECT_EQ(0xFFFFFFFFu, UTIL_ParseValue(&s, Buffer.ac, 10));
  EXPECT_EQ(sText, s);
  EXPECT_EQ("abc#", std::string(Buffer.ac, 4));
}

TEST(UtilParseValue, WithoutABufferItFails) {
  VALUE_BUFFER Buffer;
  const char*  sText = " a";
  const char*  s     = sText;
  EXPECT_EQ(0xFFFFFFFFu, UTIL_ParseValue(&s, nullptr, 10));
  EXPECT_EQ(0xFFFFFFFFu, UTIL_ParseValue(&s, Buffer.ac, 0));
  EXPECT_EQ(sText, s);
  EXPECT_TRUE(Buffer.IsIntactFrom(0));
}

// Texts in place

static std::string Trimmed(const char* sText, int32_t TrimLeft, int32_t TrimRight) {
  char ac[64];
  strcpy(ac, sText);
  UTIL_Trim(ac, TrimLeft, TrimRight);
  return ac;
}

TEST(UtilTrim, RemovesTheWiderSetOfBlanks) {
  EXPECT_EQ("a b \t", Trimmed("\t\n\v\f\r a b \t", 1, 0));
  EXPECT_EQ(" a b", Trimmed(" a b\t\n\v\f\r ", 0, 1));
  EXPECT_EQ("a b", Trimmed("\v\f a b \f\v", 1, 1));
  EXPECT_EQ(" a ", Trimmed(" a ", 0, 0));
  EXPECT_EQ("\x08", Trimmed("\x08", 1, 1));
  EXPECT_EQ("\x0E", Trimmed("\x0E", 1, 1));
}

TEST(UtilTrim, RightEndKeepsTheFirstCharacter) {
  EXPECT_EQ(" ", Trimmed("   ", 0, 1));
  EXPECT_EQ("a", Trimmed("a   ", 0, 1));
  EXPECT_EQ("\t", Trimmed("\t \n", 0, 1));
  EXPECT_EQ(" ", Trimmed(" ", 0, 1));
  EXPECT_EQ("", Trimmed("   ", 1, 1));
  EXPECT_EQ("", Trimmed("   ", 1, 0));
  EXPECT_EQ("", Trimmed("", 0, 1));
  EXPECT_EQ("", Trimmed("", 1, 1));
}

TEST(UtilConvertBackslashes, ReplacesEveryOne) {
  char ac[] = "\\a\\\\b/c\\";
  UTIL_ConvertBackslashes(ac);
  EXPECT_STREQ("/a//b/c/", ac);
}

TEST(UtilAddTrailingSlash, AppendsOneWhereItFits) {
  struct {
    const char* sPath;
    uint32_t    BufferSize;
    const char* sResult;
  } const aCase[] = {
      {"abc", 5, "abc/"},    {"abc", 4, "abc"}, {"abc/", 9, "abc/"},
      {"abc\\", 9, "abc\\"}, {"", 2, "/"},      {"", 1, ""},
      {"", 0, ""},           {"abc", 3, "abc"}, {"abc", 0, "abc"},
  };
  for (const auto& Case : aCase) {
    VALUE_BUFFER Buffer;
    strcpy(Buffer.ac, Case.sPath);
    UTIL_AddTrailingSlash(Buffer.ac, Case.BufferSize);
    EXPECT_STREQ(Case.sResult, Buffer.ac) << Case.sPath << " " << Case.BufferSize;
    EXPECT_TRUE(Buffer.IsIntactFrom(strlen(Case.sResult) + 1)) << Case.sPath;
  }
}
