// SPDX-License-Identifier: MIT

#include "util/format.h"

#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "tests/util/format_model.h"
#include "tests/util/vector_report.h"
#include "tests/util/vectors_format.h"

TEST(UtilFormat, EveryRowOfTheTableHolds) {
  EXPECT_LT(180, VECTORS_RunFormat(ReportRow));
}

TEST(UtilFormat, SizeOneStoresOnlyTheTerminatorAndReturnsTheBuffer) {
  char ac[3] = {'#', '#', '#'};
  EXPECT_EQ(ac, UTIL_snprintf(ac, 1, "%d %s", 5, "x"));
  EXPECT_EQ(0, memcmp(ac, "\0##", 3));
}

TEST(UtilFormat, SizeZeroAndBelowStillStoreTheTerminator) {
  for (int32_t Size : {0, -1, -1000}) {
    char ac[3] = {'#', '#', '#'};
    EXPECT_EQ(ac, UTIL_snprintf(ac, Size, "abc"));
    EXPECT_EQ(0, memcmp(ac, "\0##", 3));
  }
}

TEST(UtilFormat, EverySizeCutsTheTextAtSizeMinusOne) {
  // %4c ignores its width.
  const std::string Whole = "ab - 0000123456789abcdefXYZ%";
  for (int32_t Size = 1; Size <= 40; Size++) {
    char ac[48];
    memset(ac, '#', sizeof(ac));
    char* pEnd = UTIL_snprintf(ac, Size, "ab%4c%7.6d3456789%x%s%%", ' ', -12, 0xabcdef, "XYZ");
    const std::string Expected = Whole.substr(0, (size_t)Size - 1);
    EXPECT_EQ(Expected, ac) << Size;
    EXPECT_EQ(ac + Expected.size(), pEnd) << Size;
    EXPECT_EQ('#', ac[Size]) << Size;
  }
}

TEST(UtilFormat, ArgumentsOfTheCutPartAreConsumed) {
  char ac[4];
  UTIL_snprintf(ac, sizeof(ac), "%s%d%lld%s", "abcdef", 1, 2LL, "end");
  EXPECT_STREQ("abc", ac);
}

TEST(UtilFormat, CharactersAndZeroesAreStoredAsTheyAre) {
  char  ac[8];
  char* pEnd = UTIL_snprintf(ac, sizeof(ac), "a%cb\xE4", 0);
  EXPECT_EQ(4, pEnd - ac);
  EXPECT_EQ(0, memcmp(ac, "a\0b\xE4", 5));
}

TEST(UtilFormat, EveryOtherConversionCharacterIsDropped) {
  for (int c = 1; c < 256; c++) {
    if (strchr("diuxXpcsl.%0123456789", c) != nullptr) {
      continue;
    }
    const char acFormat[] = {'<', '%', (char)c, '>', '%', 'd', 0};
    char       ac[16];
    UTIL_snprintf(ac, sizeof(ac), acFormat, 42);
    EXPECT_STREQ("<>42", ac) << c;
  }
}

static char* CallWithList(char* pBuffer, int32_t BufferSize, const char* sFormat, ...) {
  va_list Args;
  va_start(Args, sFormat);
  char* pEnd = UTIL_vsnprintf(pBuffer, BufferSize, sFormat, Args);
  va_end(Args);
  return pEnd;
}

TEST(UtilFormat, TheListEntryDoesTheSame) {
  char ac[16];
  EXPECT_EQ(ac + 10, CallWithList(ac, sizeof(ac), "%5d %s%c", -3, "ab", 'c'));
  EXPECT_STREQ("-    3 abc", ac);
}

// The model over random formats

class RANDOM_FORMATS {
 public:
  // A format with at most three conversions that take an argument; the list is filled up to three.
  std::string Next(std::vector<ARGUMENT>* pArgs) {
    std::string  Format;
    const size_t NumPieces = Below(6);
    pArgs->clear();
    for (size_t i = 0; i < NumPieces; i++) {
      const size_t What = Below(10);
      if (What < 6 && pArgs->size() < 3) {
        Format += Conversion(pArgs);
      } else if (What < 8) {
        static const char* const aText[] = {"a", "%%", "Width ", "\n", "\xC3\xA4", "0", "l", "."};
        Format += aText[Below(8)];
      } else {
        static const char* const aDropped[] = {"%-5d",  "%+",  "%#x", "%*", "%h", "%zu",
                                               "%7.2f", "%Lg", "%3%", "%n", "% "};
        Format += aDropped[Below(11)];
      }
    }
    if (Below(16) == 0) {
      static const char* const aCut[] = {"%", "%5", "%.", "%5.3", "%ll", "%1.l"};
      Format += aCut[Below(6)];
    }
    while (pArgs->size() < 3) {
      pArgs->push_back({ARGUMENT::INT, 0, ""});
    }
    return Format;
  }
  size_t Below(size_t Limit) { return (size_t)(Random() % Limit); }

 private:
  std::string Conversion(std::vector<ARGUMENT>* pArgs) {
    static const char* const aText[] = {"", "x", "text", "%d%s", "a somewhat longer text"};
    const char               c       = "diuxXpcs"[Below(8)];
    const size_t             NumL    = Below(3) == 0 ? Below(4) : 0;
    ARGUMENT                 Arg     = {NumL == 0   ? ARGUMENT::INT
                                        : NumL == 1 ? ARGUMENT::LONG
                                                    : ARGUMENT::LONGLONG,
                    Random() >> Below(64), ""};
    Arg.Value = Below(3) == 0 ? 0 - Arg.Value : Arg.Value;
    if (c == 'c') {
      Arg = {ARGUMENT::INT, 1 + Below(255), ""};
    } else if (c == 'p') {
      Arg.Kind = ARGUMENT::POINTER;
    } else if (c == 's') {
      Arg = {ARGUMENT::TEXT, 0, aText[Below(5)]};
    }
    pArgs->push_back(Arg);
    std::string s = "%";
    if (Below(2) == 0) {
      s.append(Below(4) == 0 ? "0" : "").append(std::to_string(Below(25)));
    }
    if (Below(3) == 0) {
      s.append(".").append(Below(4) == 0 ? "" : std::to_string(Below(25)));
    }
    return s.append(NumL, 'l').append(1, c);
  }
  std::mt19937_64 Random{20240229};
};

TEST(UtilFormat, AgreesWithAModelOverRandomFormats) {
  RANDOM_FORMATS        Formats;
  std::vector<ARGUMENT> Args;
  for (int i = 0; i < 200000; i++) {
    const std::string Format = Formats.Next(&Args);
    const std::string Whole  = ModelOfFormat(Format, Args);
    const size_t      Size   = 1 + Formats.Below(Whole.size() + 8);
    char              ac[512];
    memset(ac, '#', sizeof(ac));
    const char*       pEnd     = CallWithArguments(ac + 1, (int32_t)Size, Format.c_str(), Args);
    const std::string Expected = Whole.substr(0, Size - 1);
    ASSERT_EQ(Expected.size(), (size_t)(pEnd - ac - 1)) << Format;
    ASSERT_EQ(Expected, std::string(ac + 1, Expected.size())) << Format;
    ASSERT_EQ(0, *pEnd) << Format;
    ASSERT_EQ('#', ac[0]) << Format;
    ASSERT_EQ(std::string(16, '#'), std::string(ac + 1 + Size, 16)) << Format;
  }
}
