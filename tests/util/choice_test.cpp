// SPDX-License-Identifier: MIT

// Every choice of instructions keeps every promise: the tables of all functions, and the routines
// with a version of their own against plain models, at every length and alignment, in memory that
// ends or begins at a page nobody may touch.

#include <ctype.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/util/guarded.h"
#include "tests/util/vector_report.h"
#include "tests/util/vectors_bits.h"
#include "tests/util/vectors_format.h"
#include "tests/util/vectors_scan.h"
#include "tests/util/vectors_string.h"
#include "tests/util/vectors_value_text.h"
#include "util/cpu.h"
#include "util/format.h"

namespace {

const uint32_t MAX_BYTES = 300;  // more than two rounds of four blocks of 32 bytes

class UtilChoice : public testing::TestWithParam<CPU_LEVEL> {
 protected:
  void SetUp() override {
    if (CPU_Limit(GetParam()) != GetParam()) {
      GTEST_SKIP() << "this processor lacks the instructions";
    }
  }
  void TearDown() override { CPU_Limit(CPU_AVX2); }

  GUARDED Memory;
  GUARDED Other;
  GUARDED Third;
};

char FoldedByModel(char c) {
  return c >= 'A' && c <= 'Z' ? (char)(c - 'A' + 'a') : c;
}

int32_t ComparedByModel(const std::string& A, const std::string& B) {
  for (size_t i = 0; i <= A.size(); i++) {
    const int32_t Diff = (int8_t)FoldedByModel(A.c_str()[i]) - (int8_t)FoldedByModel(B.c_str()[i]);
    if (Diff != 0) {
      return Diff;
    }
  }
  return 0;
}

// Letters of both cases and what lies beside them in the code.
std::string RandomText(std::mt19937* pRandom, size_t Len) {
  static const std::string Alphabet = "aAbBzZyY@[`{\x80\xC1\xE1\xFF";
  std::string              Text;
  for (size_t i = 0; i < Len; i++) {
    Text += Alphabet[(*pRandom)() % Alphabet.size()];
  }
  return Text;
}

std::string InOtherCase(std::string Text) {
  for (char& c : Text) {
    const bool IsLetter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    c                   = IsLetter ? (char)(c ^ 0x20) : c;
  }
  return Text;
}

}  // namespace

TEST_P(UtilChoice, EveryRowOfTheTablesHolds) {
  EXPECT_LT(180, VECTORS_RunFormat(ReportRow));
  EXPECT_LT(320, VECTORS_RunBits(ReportRow));
  EXPECT_LT(150, VECTORS_RunScan(ReportRow));
  EXPECT_LT(90, VECTORS_RunString(ReportRow));
  EXPECT_LT(70, VECTORS_RunValueText(ReportRow));
}

TEST_P(UtilChoice, StrCaseCmpAgreesWithTheModelAtTheEndOfAPage) {
  std::mt19937 Random(1);
  for (size_t Len = 0; Len <= MAX_BYTES; Len++) {
    const std::string A = RandomText(&Random, Len);
    std::string       B = InOtherCase(A);
    ASSERT_EQ(0, UTIL_StrCaseCmp(Memory.Text(A), Other.Text(B))) << Len;
    ASSERT_EQ(ComparedByModel(A, B + "x"), UTIL_StrCaseCmp(Memory.Text(A), Other.Text(B + "x")));
    if (Len > 0) {
      B[Random() % Len] = (char)(1 + Random() % 255);
      ASSERT_EQ(ComparedByModel(A, B), UTIL_StrCaseCmp(Memory.Text(A), Other.Text(B))) << Len;
      ASSERT_EQ(ComparedByModel(B, A), UTIL_StrCaseCmp(Memory.Text(B), Other.Text(A))) << Len;
    }
  }
}

TEST_P(UtilChoice, StrCaseCmpCrossesPagesAtEveryPairOfAlignments) {
  std::mt19937      Random(2);
  const std::string A    = RandomText(&Random, 150);
  const std::string B    = InOtherCase(A);
  const uint32_t    PAGE = 4096;
  std::vector<char> aPages(5 * PAGE);
  char*             pFirst = aPages.data() + (PAGE - (uintptr_t)aPages.data() % PAGE);
  for (uint32_t i = 0; i <= 70; i++) {
    for (uint32_t k = 0; k <= 70; k++) {
      char* pA = (char*)memcpy(pFirst + PAGE - i, A.c_str(), A.size() + 1);
      char* pB = (char*)memcpy(pFirst + 3 * PAGE - k, B.c_str(), B.size() + 1);
      ASSERT_EQ(0, UTIL_StrCaseCmp(pA, pB)) << i << " " << k;
      pB[i + k] ^= 0x40;
      ASSERT_EQ(ComparedByModel(pA, pB), UTIL_StrCaseCmp(pA, pB)) << i << " " << k;
    }
  }
}

TEST_P(UtilChoice, MemCaseCmpAgreesWithTheModelAtEveryLength) {
  std::mt19937 Random(3);
  for (uint32_t Len = 0; Len <= MAX_BYTES; Len++) {
    const std::string A = RandomText(&Random, Len);
    std::string       B = InOtherCase(A);
    memcpy(Memory.Last(Len), A.data(), Len);
    memcpy(Other.Last(Len), B.data(), Len);
    ASSERT_EQ(0, UTIL_MemCaseCmp(Memory.Last(Len), Other.Last(Len), Len)) << Len;
    ASSERT_EQ(-1, UTIL_FindDiffNoCase(Memory.Last(Len), Other.Last(Len), (int32_t)Len)) << Len;
    for (uint32_t i = 0; i < Len; i++) {
      Other.Last(Len)[i] ^= 0x40;
      ASSERT_EQ((int32_t)i, UTIL_FindDiffNoCase(Memory.Last(Len), Other.Last(Len), (int32_t)Len));
      Other.Last(Len)[i] ^= 0x40;
    }
  }
}

TEST_P(UtilChoice, FindDiffFindsTheFirstOfTwoDifferencesAtEveryPlace) {
  std::mt19937 Random(4);
  for (uint32_t Len = 0; Len <= MAX_BYTES; Len++) {
    uint8_t* pA = Memory.Last(Len);
    uint8_t* pB = Other.First();
    for (uint32_t i = 0; i < Len; i++) {
      pA[i] = pB[i] = (uint8_t)Random();
    }
    ASSERT_EQ(-1, UTIL_FindDiff(pA, pB, (int32_t)Len)) << Len;
    ASSERT_EQ(0, UTIL_MemCmp(pA, pB, Len)) << Len;
    for (uint32_t i = 0; i < Len; i++) {
      const uint32_t Later = i + (uint32_t)Random() % (Len - i);
      pB[i]                = (uint8_t)(pB[i] ^ 0x80);
      pB[Later]            = Later == i ? pB[i] : (uint8_t)(pB[Later] ^ 1);
      ASSERT_EQ((int32_t)i, UTIL_FindDiff(pA, pB, (int32_t)Len)) << Len;
      ASSERT_EQ(pA[i] - pB[i], UTIL_MemCmp(pA, pB, Len)) << Len;
      pB[Later] = pA[Later];
      pB[i]     = pA[i];
    }
  }
}

TEST_P(UtilChoice, FindNotEqualFindsTheFirstOfTwoOtherBytesAtEveryPlace) {
  std::mt19937 Random(5);
  for (uint32_t Len = 0; Len <= MAX_BYTES; Len++) {
    const uint8_t Value = (uint8_t)Random();
    uint8_t*      p     = Len % 2 == 0 ? Memory.Last(Len) : Memory.First();
    memset(p, Value, Len);
    ASSERT_EQ(-1, UTIL_FindNotEqual(p, Value, Len)) << Len;
    for (uint32_t i = 0; i < Len; i++) {
      const uint32_t Later = i + (uint32_t)Random() % (Len - i);
      p[i] = p[Later] = (uint8_t)(Value ^ (1u << i % 8));
      ASSERT_EQ((int32_t)i, UTIL_FindNotEqual(p, Value, Len)) << Len;
      p[i] = p[Later] = Value;
    }
  }
}

TEST_P(UtilChoice, CopiesAndAppendsReadAndWriteNoByteTooManyAtTheEndOfAPage) {
  std::mt19937 Random(6);
  for (uint32_t Len = 0; Len <= 80; Len++) {
    const std::string Text    = RandomText(&Random, Len);
    const char*       sSource = Memory.Text(Text);
    for (uint32_t Size = 1; Size <= 90; Size++) {
      char* sDest = (char*)Other.Last(Size);
      memset(sDest, '#', Size);
      UTIL_CopyString(sDest, sSource, Size);
      const std::string Expected = Text.substr(0, Size - 1);
      ASSERT_EQ(Expected, sDest) << Len << " " << Size;
      for (size_t i = Expected.size() + 1; i < Size; i++) {
        ASSERT_EQ('#', sDest[i]) << "behind the terminator: " << Len << " " << Size;
      }
      strcpy(sDest, Size > 2 ? "ab" : "");
      UTIL_AppendString(sDest, sSource, Size);
      ASSERT_EQ(((Size > 2 ? "ab" : "") + Text).substr(0, Size - 1), sDest) << Len << " " << Size;
    }
    ASSERT_EQ(Len, UTIL_StrLen(sSource));
    ASSERT_EQ(std::min(Len, 40u), UTIL_StrNLen(sSource, 40));
  }
}

TEST_P(UtilChoice, FormatsReadAndWriteNoByteTooManyAtTheEndOfAPage) {
  std::mt19937 Random(7);
  for (uint32_t Len = 0; Len <= 80; Len++) {
    const std::string Text    = RandomText(&Random, Len);
    const std::string Format  = Text + "%s%.3d%x%";
    const std::string Full    = Text + Text + "007fade";
    const char*       sFormat = Memory.Text(Format);
    const char*       sText   = Third.Text(Text);
    for (int32_t Size = 1; Size <= 190; Size++) {
      char* sDest = (char*)Other.Last((size_t)Size);
      memset(sDest, '#', (size_t)Size);
      const char*       pEnd     = UTIL_snprintf(sDest, Size, sFormat, sText, 7, 0xFADE);
      const std::string Expected = Full.substr(0, (size_t)Size - 1);
      ASSERT_EQ(Expected, sDest) << Len << " " << Size;
      ASSERT_EQ(sDest + Expected.size(), pEnd);
      for (size_t i = Expected.size() + 1; i < (size_t)Size; i++) {
        ASSERT_EQ('#', sDest[i]) << "behind the terminator: " << Len << " " << Size;
      }
    }
  }
}

TEST_P(UtilChoice, PlainTextOfAFormatEndsOrGoesOnAtTheEndOfAPage) {
  std::vector<char> aPages(3 * 4096);
  char*             pPage = aPages.data() + (4096 - (uintptr_t)aPages.data() % 4096);
  for (uint32_t Len = 0; Len <= 40; Len++) {
    const std::string Text(Len, 'a');
    char              ac[64];
    ASSERT_EQ(ac + Len, UTIL_snprintf(ac, sizeof(ac), Memory.Text(Text))) << Len;
    ASSERT_EQ(Text, ac);
    for (uint32_t Before = 0; Before <= 20; Before++) {
      const char* sFormat = strcpy(pPage + 4096 - Before, (Text + "%d").c_str());
      UTIL_snprintf(ac, sizeof(ac), sFormat, 7);
      ASSERT_EQ(Text + "7", ac) << Before;
    }
  }
}

// The number at the beginning of the text, digit by digit, and where its digits end.
static uint64_t NumberByModel(const char* s, uint32_t Base, const char** psEnd) {
  static const std::string Digits = "0123456789abcdef";
  uint64_t                 Value  = 0;
  for (; *s != 0; s++) {
    const size_t Digit = Digits.find((char)tolower(*s));
    if (Digit >= Base) {
      break;
    }
    Value = Value * Base + Digit;
  }
  *psEnd = s;
  return Value;
}

TEST_P(UtilChoice, NumbersOfEveryLengthAreReadAtTheEndOfAPageAndAcrossIt) {
  std::mt19937      Random(8);
  std::vector<char> aPages(3 * 4096);
  char*             pPage = aPages.data() + (4096 - (uintptr_t)aPages.data() % 4096);
  for (int i = 0; i < 40000; i++) {
    const bool  IsHex = Random() % 2 != 0;
    std::string Text  = IsHex ? "0x" : "";
    for (uint32_t k = 1 + (uint32_t)Random() % 26; k > 0; k--) {
      Text += "0123456789abcdefABCDEF"[Random() % (IsHex ? 22 : 10)];
    }
    // Often one character after the digits, of any kind
    Text += std::string(Random() % 3, (char)(1 + Random() % 255));
    const char* s =
        Random() % 2 != 0 ? Memory.Text(Text) : strcpy(pPage + 4096 - Random() % 30, Text.c_str());
    const char*    sEnd = nullptr;
    const char*    p    = s;
    const char*    sDig = s + (IsHex ? 2 : 0);
    int64_t        Value;
    const uint64_t Expected = NumberByModel(sDig, IsHex ? 16 : 10, &sEnd);
    if (!IsHex && Text.size() > 1 && Text[0] == '0' && (Text[1] == 'x' || Text[1] == 'X')) {
      continue;  // a prefix by chance
    }
    ASSERT_EQ(0, UTIL_ParseInt(&p, &Value, 0)) << Text;
    ASSERT_EQ((int64_t)Expected, Value) << Text;
    ASSERT_EQ(sEnd, p) << Text;
  }
}

TEST_P(UtilChoice, ArraySwapsAreRightAtEveryLengthAndAlignmentAndTouchNothingElse) {
  static void (*const apf[])(void*, const void*, uint32_t) = {UTIL_SwapArrayU16, UTIL_SwapArrayU32,
                                                              UTIL_SwapArrayU64};
  std::mt19937         Random(9);
  std::vector<uint8_t> aSource(1200), aDest(1200), aExpected(1200);
  for (uint8_t& b : aSource) {
    b = (uint8_t)Random();
  }
  for (uint32_t Width = 0; Width < 3; Width++) {
    const uint32_t UnitSize = 2u << Width;
    for (uint32_t NumItems = 0; NumItems <= 1000 / UnitSize; NumItems++) {
      const uint32_t From = (uint32_t)Random() % 64;
      const uint32_t To   = (uint32_t)Random() % 64;
      std::fill(aExpected.begin(), aExpected.end(), (uint8_t)0xEE);
      for (uint32_t i = 0; i < NumItems * UnitSize; i++) {
        aExpected[To + i] = aSource[From + (i ^ (UnitSize - 1))];
      }
      std::fill(aDest.begin(), aDest.end(), (uint8_t)0xEE);
      apf[Width](&aDest[To], &aSource[From], NumItems);
      ASSERT_EQ(aExpected, aDest) << UnitSize << " " << NumItems << " " << From << " " << To;
      std::fill(aDest.begin(), aDest.end(), (uint8_t)0xEE);
      std::copy_n(&aSource[From], NumItems * UnitSize, &aDest[To]);
      apf[Width](&aDest[To], &aDest[To], NumItems);
      ASSERT_EQ(aExpected, aDest) << "in place " << UnitSize << " " << NumItems << " " << To;
    }
  }
}

static std::string DumpedByModel(const std::string& Data, bool ShowAddr, uint64_t Addr,
                                 uint32_t BytesPerLine, std::vector<size_t>* pEnds) {
  std::string Text;
  char        ac[16];
  for (size_t i = 0; i < Data.size(); i++) {
    if (ShowAddr && i % BytesPerLine == 0) {
      snprintf(ac, sizeof(ac), "0x%08X: ", (unsigned)(Addr + i));
      Text += ac;
      pEnds->push_back(Text.size());
    }
    snprintf(ac, sizeof(ac), "%02X ", (unsigned)(uint8_t)Data[i]);
    Text += ac;
    pEnds->push_back(Text.size());
    if ((i + 1) % BytesPerLine == 0) {
      Text += "\r\n";
      pEnds->push_back(Text.size());
    }
  }
  return Text;
}

TEST_P(UtilChoice, HexDumpIsCutAfterTheLastWholePieceInABufferOfEverySize) {
  std::mt19937 Random(10);
  for (int Round = 0; Round < 60; Round++) {
    std::string    Data((size_t)(1 + Random() % 70), 0);
    const uint64_t Addr = Random() * (uint64_t)1000003;
    const uint32_t BytesPerLine =
        Round % 2 == 0 ? 16 * (1 + (uint32_t)Random() % 3) : 1 + (uint32_t)Random() % 40;
    const bool ShowAddr = Random() % 2 != 0;
    for (char& c : Data) {
      c = (char)Random();
    }
    memcpy(Memory.Last(Data.size()), Data.data(), Data.size());
    std::vector<size_t> aEnd = {0};
    const std::string   Full = DumpedByModel(Data, ShowAddr, Addr, BytesPerLine, &aEnd);
    for (uint32_t Size = 0; Size <= Full.size() + 2; Size++) {
      char* sDest = (char*)Other.Last(Size);
      memset(sDest, '#', Size);
      size_t Len = 0;
      for (const size_t End : aEnd) {
        Len = End <= Size ? End : Len;
      }
      std::string Expected = Full.substr(0, Len) + std::string(Size - Len, '#');
      if (Len < Size) {
        Expected[Len++] = 0;
      }
      ASSERT_EQ(Len, UTIL_HexDump(sDest, Size, Memory.Last(Data.size()), (uint32_t)Data.size(),
                                  ShowAddr, Addr, BytesPerLine));
      ASSERT_EQ(Expected, std::string(sDest, Size)) << Size << " " << BytesPerLine;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, UtilChoice, testing::Values(CPU_PLAIN, CPU_AVX2),
                         [](const testing::TestParamInfo<CPU_LEVEL>& Info) {
                           return std::string(Info.param == CPU_PLAIN ? "Plain" : "AVX2");
                         });
