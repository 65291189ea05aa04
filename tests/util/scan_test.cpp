// SPDX-License-Identifier: MIT

#include "util/scan.h"

#include <ctype.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/util/guarded.h"
#include "tests/util/vector_report.h"
#include "tests/util/vectors_scan.h"

// Characters

TEST(UtilIsWhite, IsExactlyTheFourCharacters) {
  for (uint32_t c = 0; c < 0x400; c++) {
    const bool Expected = c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0D;
    EXPECT_EQ(Expected ? 1 : 0, UTIL_IsWhite(c)) << c;
  }
  EXPECT_EQ(0, UTIL_IsWhite(0xFFFFFF20));
}

TEST(UtilScanCharacters, AreSkippedTakenAndFound) {
  EXPECT_LT(30, VECTORS_RunChars(ReportRow));
}

// Numbers

TEST(UtilParseInt, ReadsSignPrefixAndDigits) {
  EXPECT_LT(30, VECTORS_RunParseInt(ReportRow));
}

TEST(UtilParseHex, NarrowerAndHexadecimalNumbersKeepTheRulesOfIntegers) {
  EXPECT_LT(12, VECTORS_RunNumbers(ReportRow));
}

TEST(UtilParseU32, ReadsDecimalAndPrefixedHexadecimal) {
  EXPECT_LT(12, VECTORS_RunParseU32(ReportRow));
}

// Versions and addresses

TEST(UtilParseVersion, ReadsMajorMinorAndRevision) {
  EXPECT_LT(14, VECTORS_RunParseVersion(ReportRow));
}

TEST(UtilParseVersion, EveryResultIsOptional) {
  const char* s = "V1.2c";
  EXPECT_EQ(0, UTIL_ParseVersion(&s, nullptr, nullptr, nullptr));
  EXPECT_STREQ("", s);
}

TEST(UtilDecodeVersion, SplitsTheNumberAndNamesTheRevision) {
  EXPECT_LT(6, VECTORS_RunDecodeVersion(ReportRow));
}

TEST(UtilDecodeVersion, NullRecordIsIgnored) {
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
  EXPECT_LT(8, VECTORS_RunParseIPAddr(ReportRow));
}

TEST(UtilCheckDottedNumbers, WantsADotBehindEveryNumber) {
  EXPECT_LT(7, VECTORS_RunCheckDottedNumbers(ReportRow));
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

TEST(UtilParseToken, TakesOneWordOrTellsWhyNot) {
  EXPECT_LT(10, VECTORS_RunParseToken(ReportRow));
}

TEST(UtilParseToken, SizeZeroWritesNothing) {
  const char* s = " ";
  EXPECT_STREQ("Maximum string length exceeded", UTIL_ParseToken(&s, nullptr, 0, '='));
  VALUE_BUFFER Buffer;
  s = " word";
  EXPECT_STREQ("Maximum string length exceeded", UTIL_ParseToken(&s, Buffer.ac, 0, '='));
  EXPECT_STREQ("word", s);
  EXPECT_TRUE(Buffer.IsIntactFrom(0));
}

TEST(UtilParseToken, EndOfAWordAsTheDelimiterChangesNothing) {
  for (char Delimiter : {'\0', ' ', '\n'}) {
    for (const char* sRest : {"", " c", "\nc", "\rc"}) {
      VALUE_BUFFER      Buffer;
      const std::string Text = std::string(" a\tb=") + sRest;
      const char*       s    = Text.c_str();
      EXPECT_EQ(nullptr, UTIL_ParseToken(&s, Buffer.ac, 10, Delimiter));
      EXPECT_STREQ("a\tb=", Buffer.ac);
      EXPECT_STREQ(sRest, s);
    }
  }
}

TEST(UtilParseUntil, TakesBlanksAndTheDelimiterAndDropsWhatDoesNotFit) {
  EXPECT_LT(12, VECTORS_RunParseUntil(ReportRow));
}

TEST(UtilParseUntil, SizeZeroWritesNothingAndTellsSo) {
  const char* s = "a;b";
  EXPECT_EQ(1, UTIL_ParseUntil(&s, nullptr, 0, ';'));
  EXPECT_STREQ("b", s);
}

TEST(UtilParseQuotedString, ReadsOneEntryOfAList) {
  EXPECT_LT(18, VECTORS_RunParseQuotedString(ReportRow));
}

TEST(UtilParseQuotedString, NextCallBeginsInsideAValueThatWasCut) {
  VALUE_BUFFER Buffer;
  const char*  s = "\"abcdef\",x";
  UTIL_ParseQuotedString(&s, Buffer.ac, 4);
  EXPECT_STREQ("abc", Buffer.ac);
  UTIL_ParseQuotedString(&s, Buffer.ac, 10);
  EXPECT_STREQ("def", Buffer.ac);
  EXPECT_STREQ("x", s);
  // A closing quote that was left behind opens the next value.
  s = "\"abc\",x";
  UTIL_ParseQuotedString(&s, Buffer.ac, 4);
  EXPECT_STREQ("abc", Buffer.ac);
  UTIL_ParseQuotedString(&s, Buffer.ac, 10);
  EXPECT_STREQ(",x", Buffer.ac);
  EXPECT_STREQ("", s);
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
  EXPECT_LT(14, VECTORS_RunParseValue(ReportRow));
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

// In a block of just the size, so that AddressSanitizer sees the first byte beyond it.
static std::string Trimmed(const std::string& Text, int32_t TrimLeft, int32_t TrimRight) {
  std::vector<char> Block(Text.c_str(), Text.c_str() + Text.size() + 1);
  UTIL_Trim(Block.data(), TrimLeft, TrimRight);
  return Block.data();
}

TEST(UtilTrim, AndConvertBackslashesChangeTheTextInPlace) {
  EXPECT_LT(17, VECTORS_RunInPlace(ReportRow));
}

TEST(UtilAddTrailingSlash, AppendsOneWhereItFits) {
  EXPECT_LT(7, VECTORS_RunAddTrailingSlash(ReportRow));
}

TEST(UtilAddTrailingSlash, LooksNoFurtherThanTheBufferForTheEndOfThePath) {
  GUARDED Memory;
  for (uint32_t Size = 0; Size <= 40; Size++) {
    char* sPath = (char*)Memory.Last(Size);
    memset(sPath, 'a', Size);
    UTIL_AddTrailingSlash(sPath, Size);
    EXPECT_EQ(std::string(Size, 'a'), std::string(sPath, Size)) << Size;
  }
}

// Models over random inputs

static std::string RandomText(std::mt19937* pRandom, const std::string& Alphabet, size_t MaxLen) {
  std::string s;
  for (size_t i = (*pRandom)() % (MaxLen + 1); i > 0; i--) {
    s += Alphabet[(*pRandom)() % Alphabet.size()];
  }
  return s;
}

// Numbers by regular steps over strings: strip, match, and evaluate digit by digit.
static bool ModelParseInt(const std::string& Text, bool AlwaysHex, int64_t* pValue, size_t* pLen) {
  size_t     Pos        = std::min(Text.find_first_not_of(" \t\n\r"), Text.size());
  const bool IsNegative = Text.compare(Pos, 1, "-") == 0;
  Pos += IsNegative ? 1 : 0;
  bool IsHex = AlwaysHex;
  if (Text.compare(Pos, 2, "0x") == 0 || Text.compare(Pos, 2, "0X") == 0) {
    IsHex = true;
    Pos += 2;
  }
  const char*  sDigits = IsHex ? "0123456789abcdefABCDEF" : "0123456789";
  const size_t End     = std::min(Text.find_first_not_of(sDigits, Pos), Text.size());
  if (End == Pos) {
    return false;
  }
  uint64_t Value = 0;
  for (; Pos < End; Pos++) {
    const size_t Digit = std::string(sDigits).find(Text[Pos]);
    Value              = Value * (IsHex ? 16 : 10) + (Digit > 15 ? Digit - 6 : Digit);
  }
  *pValue = (int64_t)(IsNegative ? ~Value + 1 : Value);
  *pLen   = End;
  return true;
}

TEST(UtilParseInt, AgreesWithAModelOverRandomTexts) {
  std::mt19937 Random(1);
  for (int i = 0; i < 200000; i++) {
    const std::string Text      = RandomText(&Random, "  \t-00xX123456789aFgv", 24);
    const bool        AlwaysHex = Random() % 2 != 0;
    int64_t           Expected  = UNTOUCHED;
    size_t            Len       = 0;
    const bool        IsGood    = ModelParseInt(Text, AlwaysHex, &Expected, &Len);
    const char*       s         = Text.c_str();
    int64_t           Value     = UNTOUCHED;
    ASSERT_EQ(IsGood ? 0 : -1, UTIL_ParseInt(&s, &Value, AlwaysHex)) << Text;
    ASSERT_EQ(Expected, Value) << Text;
    ASSERT_EQ(Len, (size_t)(s - Text.c_str())) << Text;
    uint32_t U32 = 77;
    if (UTIL_ParseU32(Text.c_str(), &U32) == 0) {
      ASSERT_TRUE(ModelParseInt(Text, false, &Expected, &Len)) << Text;
      ASSERT_EQ((uint32_t)Expected, U32) << Text;
    } else {
      ASSERT_TRUE(!isdigit((uint8_t)Text.c_str()[0]) ||
                  !ModelParseInt(Text, false, &Expected, &Len))
          << Text;
    }
  }
}

// The other scanners of numbers, in terms of the model above.

static bool ModelTakeInt(const std::string& Text, size_t* pPos, int64_t* pValue) {
  size_t Len = 0;
  if (!ModelParseInt(Text.substr(*pPos), false, pValue, &Len)) {
    return false;
  }
  *pPos += Len;
  return true;
}

static bool ModelTakeDot(const std::string& Text, size_t* pPos) {
  const bool IsThere = Text.compare(*pPos, 1, ".") == 0;
  *pPos += IsThere ? 1 : 0;
  return IsThere;
}

TEST(UtilParseHex, AgreesWithAModelOverRandomTexts) {
  std::mt19937 Random(7);
  for (int i = 0; i < 100000; i++) {
    const std::string Text     = RandomText(&Random, "  \t-00xX123456789aFgv", 24);
    int64_t           Expected = UNTOUCHED, Expected32 = 0;
    size_t            Len = 0, Len32 = 0;
    const bool        IsGood   = ModelParseInt(Text, true, &Expected, &Len);
    const bool        IsGood32 = ModelParseInt(Text, false, &Expected32, &Len32);
    const char*       s        = Text.c_str();
    uint64_t          Value    = UNTOUCHED;
    ASSERT_EQ(IsGood ? 0 : -1, UTIL_ParseHex(&s, &Value)) << Text;
    ASSERT_EQ((uint64_t)Expected, Value) << Text;
    ASSERT_EQ(Len, (size_t)(s - Text.c_str())) << Text;
    uint32_t U32 = 77;
    s            = Text.c_str();
    ASSERT_EQ(IsGood ? 0 : -1, UTIL_ParseHex32(&s, &U32)) << Text;
    ASSERT_EQ(IsGood ? (uint32_t)Expected : 0, U32) << Text;
    ASSERT_EQ(Len, (size_t)(s - Text.c_str())) << Text;
    int32_t I32 = 77;
    s           = Text.c_str();
    UTIL_ParseInt32(&s, &I32);
    ASSERT_EQ(IsGood32 ? (int32_t)Expected32 : 0, I32) << Text;
    ASSERT_EQ(Len32, (size_t)(s - Text.c_str())) << Text;
  }
}

TEST(UtilParseVersion, AgreesWithAModelOverRandomTexts) {
  std::mt19937 Random(8);
  int          NumGood = 0;
  for (int i = 0; i < 100000; i++) {
    std::string Text = RandomText(&Random, " V-", 2) + RandomText(&Random, "0129", 2) +
                       RandomText(&Random, "...x ", 1) + RandomText(&Random, "0129 ", 3) +
                       RandomText(&Random, "azA{\xE4\t", 2);
    int64_t Major = 0, Minor = 0, Revision = 0;
    size_t  Pos = std::min(Text.find_first_not_of(" \t"), Text.size());
    Pos += Text.compare(Pos, 1, "V") == 0 ? 1 : 0;
    bool IsGood = ModelTakeInt(Text, &Pos, &Major);
    IsGood      = ModelTakeDot(Text, &Pos) && IsGood;
    IsGood      = ModelTakeInt(Text, &Pos, &Minor) && IsGood;
    if (IsGood && Pos < Text.size()) {
      const size_t Letter = std::string("abcdefghijklmnopqrstuvwxyz").find(Text[Pos]);
      IsGood              = Letter != std::string::npos;
      Revision            = IsGood ? (int64_t)Letter + 1 : (int64_t)(int8_t)Text[Pos];
      Pos++;
    }
    NumGood += IsGood ? 1 : 0;
    const char* s        = Text.c_str();
    uint32_t    aValue[] = {77, 77, 77};
    ASSERT_EQ(IsGood ? 0 : -1, UTIL_ParseVersion(&s, &aValue[0], &aValue[1], &aValue[2])) << Text;
    ASSERT_EQ((uint32_t)Major, aValue[0]) << Text;
    ASSERT_EQ((uint32_t)Minor, aValue[1]) << Text;
    ASSERT_EQ((uint32_t)Revision, aValue[2]) << Text;
    ASSERT_EQ(Pos, (size_t)(s - Text.c_str())) << Text;
  }
  EXPECT_LT(5000, NumGood);
}

TEST(UtilDottedNumbers, AgreeWithAModelOverRandomTexts) {
  std::mt19937 Random(9);
  int          NumAddrs = 0, NumDotted = 0;
  for (int i = 0; i < 100000; i++) {
    std::string Text;
    for (int k = 0; k < 4; k++) {
      Text += RandomText(&Random, " -", Random() % 8 == 0 ? 1 : 0);
      Text += std::to_string(Random() % (Random() % 8 == 0 ? 70000 : 256));
      Text += Random() % 12 == 0 ? RandomText(&Random, ".x a", 2) : ".";
    }
    Text.resize(Text.size() - Random() % 2);
    size_t   Pos  = 0;
    bool     IsIP = true;
    uint32_t Addr = 0;
    for (int k = 0; k < 4; k++) {
      int64_t Value = 0;
      IsIP = IsIP && (k == 0 || ModelTakeDot(Text, &Pos)) && ModelTakeInt(Text, &Pos, &Value);
      Addr |= (uint32_t)(Value * (1 << (8 * k)));
    }
    uint32_t Found = 77;
    ASSERT_EQ(IsIP ? 0 : -1, UTIL_ParseIPAddr(Text.c_str(), &Found)) << Text;
    ASSERT_EQ(IsIP ? Addr : 77, Found) << Text;
    bool IsDotted = true;
    Pos           = 0;
    for (int k = 0; k < 4; k++) {
      int64_t Value = 0;
      IsDotted      = ModelTakeInt(Text, &Pos, &Value) && IsDotted;
      IsDotted      = ModelTakeDot(Text, &Pos) && IsDotted;
    }
    const char* s = Text.c_str();
    ASSERT_EQ(IsDotted ? 0 : -1, UTIL_CheckDottedNumbers(&s)) << Text;
    ASSERT_EQ(Pos, (size_t)(s - Text.c_str())) << Text;
    NumAddrs += IsIP ? 1 : 0;
    NumDotted += IsDotted ? 1 : 0;
  }
  EXPECT_LT(10000, NumAddrs);
  EXPECT_LT(10000, NumDotted);
}

TEST(UtilParseToken, AgreesWithAModelOverRandomTexts) {
  std::mt19937 Random(2);
  for (int i = 0; i < 100000; i++) {
    const std::string Text  = RandomText(&Random, "ab= \t\r\n;", 20);
    const uint32_t    Size  = 1 + (uint32_t)Random() % 12;
    const size_t      First = std::min(Text.find_first_not_of(" \t\n\r"), Text.size());
    const size_t      End   = std::min(Text.find_first_of(" \n\r=", First), Text.size());
    const char*       s     = Text.c_str();
    VALUE_BUFFER      Buffer;
    const char*       sError = UTIL_ParseToken(&s, Buffer.ac, Size, '=');
    ASSERT_TRUE(Buffer.IsIntactFrom(Size));
    if (End - First >= Size) {
      ASSERT_STREQ("Maximum string length exceeded", sError) << Text;
      ASSERT_STREQ("", Buffer.ac);
      ASSERT_EQ(Text.c_str() + First, s);
    } else if (End == First) {
      ASSERT_STREQ("Expected a string", sError) << Text;
      ASSERT_STREQ("", Buffer.ac);
      ASSERT_EQ(Text.c_str() + First, s);
    } else {
      ASSERT_EQ(nullptr, sError) << Text;
      ASSERT_EQ(Text.substr(First, End - First), Buffer.ac);
      ASSERT_EQ(Text.c_str() + End, s);
    }
  }
}

TEST(UtilParseUntil, AgreesWithAModelOverRandomTexts) {
  std::mt19937 Random(3);
  for (int i = 0; i < 100000; i++) {
    const std::string Text  = RandomText(&Random, "ab \t\r\n;", 20);
    const uint32_t    Size  = 1 + (uint32_t)Random() % 12;
    const size_t      First = std::min(Text.find_first_not_of(" \t\n\r"), Text.size());
    const size_t      End   = std::min(Text.find(';', First), Text.size());
    const char*       s     = Text.c_str();
    VALUE_BUFFER      Buffer;
    ASSERT_EQ(End - First >= Size ? 1 : 0, UTIL_ParseUntil(&s, Buffer.ac, Size, ';')) << Text;
    ASSERT_TRUE(Buffer.IsIntactFrom(Size));
    ASSERT_EQ(Text.substr(First, End - First).substr(0, Size - 1), Buffer.ac) << Text;
    ASSERT_EQ(Text.c_str() + std::min(End + 1, Text.size()), s) << Text;
  }
}

TEST(UtilParseQuotedString, AgreesWithAModelOverRandomTexts) {
  std::mt19937 Random(4);
  for (int i = 0; i < 100000; i++) {
    const std::string Text     = RandomText(&Random, "ab\"\", \t\r\n", 16);
    const uint32_t    Size     = 1 + (uint32_t)Random() % 10;
    size_t            Pos      = std::min(Text.find_first_not_of(" \t\n\r"), Text.size());
    const bool        IsQuoted = Text.compare(Pos, 1, "\"") == 0;
    Pos += IsQuoted ? 1 : 0;
    const size_t End =
        std::min(Text.find_first_of(IsQuoted ? "\r\n\"" : "\r\n \"", Pos), Text.size());
    const size_t      Taken    = std::min<size_t>(End - Pos, Size - 1);
    const std::string Expected = Text.substr(Pos, Taken);
    Pos += Taken;
    if (Taken < Size - 1 && Text.compare(Pos, 1, "\"") == 0) {
      Pos++;
    }
    Pos = std::min(Text.find_first_not_of(" \t\n\r", Pos), Text.size());
    if (Text.compare(Pos, 1, ",") == 0) {
      Pos = std::min(Text.find_first_not_of(" \t\n\r", Pos + 1), Text.size());
    }
    const char*  s = Text.c_str();
    VALUE_BUFFER Buffer;
    UTIL_ParseQuotedString(&s, Buffer.ac, Size);
    ASSERT_TRUE(Buffer.IsIntactFrom(Size));
    ASSERT_EQ(Expected, Buffer.ac) << Text;
    ASSERT_EQ(Pos, (size_t)(s - Text.c_str())) << Text;
  }
}

TEST(UtilParseValue, AgreesWithAModelOverRandomTexts) {
  std::mt19937 Random(5);
  for (int i = 0; i < 100000; i++) {
    const std::string Text  = RandomText(&Random, "ab\": \t\r\n", 16);
    const uint32_t    Size  = 1 + (uint32_t)Random() % 10;
    const size_t      First = std::min(Text.find_first_not_of(" \t\n\r"), Text.size());
    const char*       s     = Text.c_str();
    VALUE_BUFFER      Buffer;
    const uint32_t    Result = UTIL_ParseValue(&s, Buffer.ac, Size);
    const size_t      Len    = (size_t)(s - Text.c_str());
    ASSERT_TRUE(Buffer.IsIntactFrom(Size));
    if (Text.compare(First, 1, "\"") == 0) {
      const size_t      End   = Text.find('"', First + 1);
      const std::string Value = Text.substr(First + 1, End - First - 1).substr(0, Size - 1);
      ASSERT_EQ(End == std::string::npos ? 0xFFFFFFFF : 0, Result) << Text;
      ASSERT_EQ(Value, std::string(Buffer.ac, Value.size())) << Text;
      ASSERT_EQ(End == std::string::npos ? 0 : End + 1, Len) << Text;
    } else {
      const size_t End = std::min(Text.find_first_of(" \r\n:", First), Text.size());
      ASSERT_EQ(0u, Result) << Text;
      ASSERT_EQ(Text.substr(First, End - First).substr(0, Size - 1), Buffer.ac) << Text;
      ASSERT_EQ(End == First ? 0 : End, Len) << Text;
    }
  }
}

TEST(UtilTrim, AgreesWithAModelOverRandomTexts) {
  std::mt19937 Random(6);
  for (int i = 0; i < 100000; i++) {
    const std::string Text      = RandomText(&Random, "ab \t\v\f\r\n", 8);
    const bool        TrimLeft  = Random() % 2 != 0;
    const bool        TrimRight = Random() % 2 != 0;
    std::string       Expected  = Text;
    if (TrimLeft) {
      Expected.erase(0, Expected.find_first_not_of(" \t\v\f\r\n"));
    }
    while (TrimRight && Expected.size() > 1 && isspace((uint8_t)Expected.back())) {
      Expected.pop_back();
    }
    ASSERT_EQ(Expected, Trimmed(Text, TrimLeft, TrimRight)) << Text;
  }
}

TEST(UtilDecodeVersion, ParsesBackWhatItDecoded) {
  for (uint32_t Version = 0; Version < 1000000; Version += 7) {
    VERSION_INFO Info;
    UTIL_DecodeVersion(&Info, Version);
    ASSERT_EQ(Version / 100, Info.Major * 100 + Info.Minor);
    if (Version % 100 == 24 && Info.Minor == 0) {
      continue;  // "0x" begins a hexadecimal number
    }
    if (Version % 100 <= 26) {
      const std::string Text =
          std::to_string(Info.Major) + "." + std::to_string(Info.Minor) + Info.Revision;
      const char* s     = Text.c_str();
      uint32_t    Major = 0, Minor = 0, Revision = 0;
      ASSERT_EQ(0, UTIL_ParseVersion(&s, &Major, &Minor, &Revision)) << Text;
      ASSERT_EQ(Version, Major * 10000 + Minor * 100 + Revision);
    } else {
      ASSERT_EQ(std::string("z").append(std::to_string(100 + Version % 100 - 26), 1),
                Info.Revision);
    }
  }
}

TEST(UtilPaths, AgreeWithAModelOverRandomTexts) {
  std::mt19937 Random(10);
  for (int i = 0; i < 100000; i++) {
    const std::string Text     = RandomText(&Random, "ab/\\.", 8);
    const size_t      Size     = Text.size() + 1 + Random() % 3;
    std::string       Expected = Text;
    if ((Text.empty() || (Text.back() != '/' && Text.back() != '\\')) && Size > Text.size() + 1) {
      Expected += '/';
    }
    std::string Buffer = Text + std::string(1, 0) + "####";
    UTIL_AddTrailingSlash(Buffer.data(), (uint32_t)Size);
    ASSERT_EQ(Expected, Buffer.c_str()) << Text;
    ASSERT_EQ(std::string("###"), Buffer.substr(Text.size() + 2)) << Text;
    std::replace(Expected.begin(), Expected.end(), '\\', '/');
    UTIL_ConvertBackslashes(Buffer.data());
    ASSERT_EQ(Expected, Buffer.c_str()) << Text;
  }
}
