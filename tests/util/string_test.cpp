// SPDX-License-Identifier: MIT

#include "util/string.h"

#include <ctype.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/util/vector_report.h"
#include "tests/util/vectors_string.h"

TEST(UtilString, EveryRowOfTheTablesHolds) {
  EXPECT_LT(90, VECTORS_RunString(ReportRow));
}

TEST(UtilCopyString, SizeOneYieldsTheEmptyString) {
  char acBuffer[3] = {'x', 'y', 'z'};
  UTIL_CopyString(acBuffer, "abc", 1);
  EXPECT_EQ(0, acBuffer[0]);
  EXPECT_EQ('y', acBuffer[1]);
}

TEST(UtilCopyString, NullPointersAndSizeZeroChangeNothing) {
  char acBuffer[2] = {'x', 0};
  UTIL_CopyString(acBuffer, nullptr, 2);
  EXPECT_STREQ("x", acBuffer);
  UTIL_CopyString(acBuffer, "abc", 0);
  EXPECT_STREQ("x", acBuffer);
  UTIL_CopyString(nullptr, "abc", 2);
}

TEST(UtilAppendString, ExactlyFullBufferStaysUnchanged) {
  char acBuffer[6] = {'a', 'b', 'c', 0, '#', '#'};
  UTIL_AppendString(acBuffer, "xyz", 4);
  EXPECT_EQ(0, memcmp(acBuffer, "abc\0##", 6));
}

TEST(UtilAppendString, BufferWithoutATerminatorIsLeftAlone) {
  char acBuffer[4] = {'a', 'b', 'c', 'd'};
  UTIL_AppendString(acBuffer, "xyz", 4);
  UTIL_AppendString(acBuffer, "xyz", 0);
  EXPECT_EQ(0, memcmp(acBuffer, "abcd", 4));
}

TEST(UtilAppendStringN, AppendsAtMostThatManyCharacters) {
  char acBuffer[8] = "ab";
  UTIL_AppendStringN(acBuffer, "xyz", 2, sizeof(acBuffer));
  EXPECT_STREQ("abxy", acBuffer);
  UTIL_AppendStringN(acBuffer, "1", 5, sizeof(acBuffer));
  EXPECT_STREQ("abxy1", acBuffer);
  const char acOpen[2] = {'m', 'n'};
  UTIL_AppendStringN(acBuffer, acOpen, 2, sizeof(acBuffer));
  EXPECT_STREQ("abxy1mn", acBuffer);
  UTIL_AppendStringN(acBuffer, "q", 1, sizeof(acBuffer));
  EXPECT_STREQ("abxy1mn", acBuffer);
  UTIL_AppendStringN(acBuffer, "q", 0, sizeof(acBuffer));
  EXPECT_STREQ("abxy1mn", acBuffer);
}

TEST(UtilAppendStringN, NothingToAppendWritesNothingAtAll) {
  const size_t PageSize = (size_t)sysconf(_SC_PAGESIZE);
  void* pPage = mmap(nullptr, PageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  ASSERT_NE(MAP_FAILED, pPage);
  char* acText = (char*)pPage;
  strcpy(acText, "abc");
  ASSERT_EQ(0, mprotect(pPage, PageSize, PROT_READ));  // a write would end the test
  UTIL_AppendStringN(acText, "xyz", 0, 16);
  UTIL_AppendStringN(acText, "", 5, 16);
  UTIL_AppendStringN(acText, "xyz", 3, 4);
  UTIL_AppendString(acText, "xyz", 4);
  EXPECT_STREQ("abc", acText);
  munmap(pPage, PageSize);
}

TEST(UtilStrCaseCmp, FoldsOnlyAsciiLetters) {
  EXPECT_EQ(0, UTIL_StrCaseCmp("HeLLo [1]", "hEllO [1]"));
  EXPECT_EQ(0, UTIL_StrCaseCmp("", ""));
  EXPECT_EQ('a' - 'c', UTIL_StrCaseCmp("A", "c"));
  EXPECT_EQ('@' - '`', UTIL_StrCaseCmp("@", "`"));
  EXPECT_EQ('[' - '{', UTIL_StrCaseCmp("[", "{"));
  EXPECT_EQ(-'c', UTIL_StrCaseCmp("ab", "abC"));
  EXPECT_EQ('c', UTIL_StrCaseCmp("abC", "ab"));
  EXPECT_EQ(-32, UTIL_StrCaseCmp("\xC4", "\xE4"));
  EXPECT_EQ(-28 - 'a', UTIL_StrCaseCmp("\xE4", "A"));
}

TEST(UtilStrCaseCmp, FoldsEachOfTheCharactersByItself) {
  for (int i = 0; i < 256; i++) {
    const char    ac[]     = {(char)i, 0};
    const int32_t Expected = (signed char)(i >= 'A' && i <= 'Z' ? i + 32 : i);
    EXPECT_EQ(Expected, UTIL_StrCaseCmp(ac, "")) << i;
    EXPECT_EQ(-Expected, UTIL_StrNCaseCmp("", ac, 1)) << i;
    EXPECT_EQ(Expected - 'a', UTIL_MemCaseCmp(ac, "A", 1)) << i;
  }
}

TEST(UtilStrNCaseCmp, StopsAtTheCountOrACommonTerminator) {
  EXPECT_EQ(0, UTIL_StrNCaseCmp("abX", "ABy", 2));
  EXPECT_EQ('x' - 'y', UTIL_StrNCaseCmp("abX", "ABy", 3));
  EXPECT_EQ(0, UTIL_StrNCaseCmp("ab\0x", "AB\0y", 4));
  EXPECT_EQ(0, UTIL_StrNCaseCmp("a", "b", 0));
  EXPECT_EQ(-'c', UTIL_StrNCaseCmp("ab", "abc", 9));
}

TEST(UtilMemCaseCmp, GoesOnBehindATerminator) {
  EXPECT_EQ('x' - 'y', UTIL_MemCaseCmp("ab\0x", "AB\0Y", 4));
  EXPECT_EQ(0, UTIL_MemCaseCmp("ab\0x", "AB\0X", 4));
  EXPECT_EQ(0, UTIL_MemCaseCmp("a", "b", 0));
}

TEST(UtilFindDiff, IsMinusOneForACountBelowOne) {
  EXPECT_EQ(-1, UTIL_FindDiff("a", "b", 0));
  EXPECT_EQ(-1, UTIL_FindDiff("a", "b", -1));
  EXPECT_EQ(-1, UTIL_FindDiffNoCase("a", "b", 0));
  EXPECT_EQ(-1, UTIL_FindDiffNoCase("a", "b", -5));
}

TEST(UtilFindDiff, FindsTheOneDifferenceAtEveryPlaceOfEveryLength) {
  uint8_t abA[300], abB[300];
  for (int32_t i = 0; i < 300; i++) {
    abA[i] = abB[i] = (uint8_t)(i * 7);
  }
  for (int32_t Len = 0; Len <= 300; Len++) {
    ASSERT_EQ(-1, UTIL_FindDiff(abA, abB, Len));
    ASSERT_EQ(0, UTIL_MemCmp(abA, abB, (uint32_t)Len));
    for (int32_t i = 0; i < Len; i++) {
      abB[i] ^= 0x80;
      ASSERT_EQ(i, UTIL_FindDiff(abA, abB, Len));
      ASSERT_EQ(abA[i] - abB[i], UTIL_MemCmp(abA, abB, (uint32_t)Len));
      ASSERT_EQ(i, UTIL_FindDiffNoCase(abA, abB, Len));
      abB[i] ^= 0x80;
    }
  }
}

TEST(UtilFindDiff, FindsTheOneDifferenceInLongBuffers) {
  for (int32_t Len : {511, 512, 513, 1023, 1024, 1025, 1600}) {
    // Blocks of just the size: AddressSanitizer sees the first byte beyond them.
    const std::vector<uint8_t> A((size_t)Len, 0x5A);
    std::vector<uint8_t>       B = A;
    for (size_t i = 0; i < A.size(); i++) {
      B[i] = 0xA5;
      ASSERT_EQ((int32_t)i, UTIL_FindDiff(A.data(), B.data(), Len));
      B[i] = 0x5A;
    }
    ASSERT_EQ(-1, UTIL_FindDiff(A.data(), B.data(), Len));
  }
}

TEST(UtilFindDiffNoCase, AgreesWithTheFoldedTextsAtEveryLength) {
  std::mt19937 Random(4);
  for (uint32_t Len = 0; Len <= 300; Len++) {
    for (int i = 0; i < 100; i++) {
      std::vector<char> A(Len), B(Len);
      for (size_t k = 0; k < Len; k++) {
        A[k] = (char)Random();
        B[k] = isalpha((uint8_t)A[k]) ? (char)(A[k] ^ 0x20) : A[k];
      }
      ASSERT_EQ(-1, UTIL_FindDiffNoCase(A.data(), B.data(), (int32_t)Len));
      ASSERT_EQ(0, UTIL_MemCaseCmp(A.data(), B.data(), Len));
      if (Len > 0) {
        const size_t At = Random() % Len;
        A[At]           = 'M';
        B[At]           = '\xE4';
        ASSERT_EQ((int32_t)At, UTIL_FindDiffNoCase(A.data(), B.data(), (int32_t)Len));
        ASSERT_EQ('m' + 28, UTIL_MemCaseCmp(A.data(), B.data(), Len));
      }
    }
  }
}

TEST(UtilFindDiff, FindsEverySingleBitAtEveryAlignment) {
  std::vector<uint8_t> A(600, '1'), B(600, '1');
  for (size_t i = 0; i < 256; i++) {
    const uint8_t* pA = &A[i % 16];
    const uint8_t* pB = &B[i / 16];
    const size_t   At = i * 9 / 4;
    for (int Bit = 0; Bit < 8; Bit++) {
      const int32_t Other = '1' ^ (1 << Bit);
      B[i / 16 + At]      = (uint8_t)Other;
      ASSERT_EQ((int32_t)At, UTIL_FindDiffNoCase(pA, pB, 576));
      ASSERT_EQ((int32_t)At, UTIL_FindDiff(pA, pB, 576));
      ASSERT_EQ((int32_t)At, UTIL_FindDiff(pB, pA, 576));
      ASSERT_EQ('1' - Other, UTIL_MemCmp(pA, pB, 576));
      ASSERT_EQ(Other - '1', UTIL_MemCmp(pB, pA, 576));
    }
    B[i / 16 + At] = '1';
    ASSERT_EQ(-1, UTIL_FindDiffNoCase(pA, pB, 576));
    ASSERT_EQ(-1, UTIL_FindDiff(pA, pB, 576));
  }
}

TEST(UtilFindDiffNoCase, SeesNoDifferenceInCase) {
  EXPECT_EQ(-1, UTIL_FindDiffNoCase("aBc\0D", "AbC\0d", 5));
  EXPECT_EQ(4, UTIL_FindDiffNoCase("aBc\0D", "AbC\0e", 5));
  EXPECT_EQ(0, UTIL_FindDiffNoCase("@", "`", 1));
}

TEST(UtilFindNotEqual, FindsTheOneOtherByteAtEveryPlaceOfEveryLength) {
  for (uint32_t Len = 0; Len <= 300; Len++) {
    std::vector<uint8_t> Bytes(Len, 0xFF);
    ASSERT_EQ(-1, UTIL_FindNotEqual(Bytes.data(), 0xFF, Len));
    for (uint32_t i = 0; i < Len; i++) {
      Bytes[i] = 0xFE;
      ASSERT_EQ((int32_t)i, UTIL_FindNotEqual(Bytes.data(), 0xFF, Len));
      Bytes[i] = 0xFF;
    }
  }
}

// Reads 2 GB: only with script/test --slow.
TEST(UtilFindNotEqual, IndexBeyondTheResultIsItsLargestValue) {
  if (getenv("QUOBE_SLOW_TESTS") == nullptr) {
    GTEST_SKIP() << "reads 2 GB; runs under script/test --slow";
  }
  const uint32_t Size = 0x80000100;
  void*          pMap =
      mmap(nullptr, Size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON | MAP_NORESERVE, -1, 0);
  ASSERT_NE(MAP_FAILED, pMap);
  EXPECT_EQ(-1, UTIL_FindNotEqual(pMap, 0, Size));
  ((uint8_t*)pMap)[0x80000080] = 1;
  EXPECT_EQ(0x7FFFFFFF, UTIL_FindNotEqual(pMap, 0, Size));
  munmap(pMap, Size);
}

TEST(UtilToUpperLower, ChangeOnlyAsciiLetters) {
  for (int i = 0; i < 256; i++) {
    const char c     = (char)i;
    const char Upper = i >= 'a' && i <= 'z' ? (char)(i - 32) : c;
    const char Lower = i >= 'A' && i <= 'Z' ? (char)(i + 32) : c;
    EXPECT_EQ(Upper, UTIL_ToUpper(c)) << i;
    EXPECT_EQ(Lower, UTIL_ToLower(c)) << i;
    EXPECT_EQ(i >= 0x20 && i <= 0x7E ? 1 : 0, UTIL_IsPrintable(c)) << i;
  }
  char ac[] = "aZ[\xE4{z\0zZ";  // what follows the terminator stays
  UTIL_StrToUpper(ac);
  EXPECT_EQ(0, memcmp(ac, "AZ[\xE4{Z\0zZ", sizeof(ac)));
  UTIL_StrToLower(ac);
  EXPECT_EQ(0, memcmp(ac, "az[\xE4{z\0zZ", sizeof(ac)));
}

TEST(UtilReverseBytes, SwapsTheEndsTowardsTheMiddle) {
  for (uint32_t Len = 0; Len <= 300; Len++) {
    for (long Align = 1; Align <= 16; Align++) {
      std::vector<uint8_t> Bytes(320, 0xEE);
      for (uint32_t i = 0; i < Len; i++) {
        Bytes[(size_t)Align + i] = (uint8_t)(i * 3 + i / 256);
      }
      std::vector<uint8_t> Expected = Bytes;
      std::reverse(Expected.begin() + Align, Expected.begin() + Align + Len);
      UTIL_ReverseBytes(&Bytes[(size_t)Align], Len);
      ASSERT_EQ(Expected, Bytes) << Len << " " << Align;
    }
  }
}

TEST(UtilCopyStructArray, NullPointersChangeNothing) {
  char ac[4] = {'a', 'b', 'c', 'd'};
  UTIL_CopyStructArray(nullptr, 4, ac, 4, 1);
  UTIL_CopyStructArray(ac, 4, nullptr, 4, 1);
  UTIL_CopyStructArray(ac, 4, nullptr, 0, 1);
  EXPECT_EQ(0, memcmp(ac, "abcd", 4));
}

// Models over random inputs

static std::string RandomText(std::mt19937* pRandom, size_t MaxLen) {
  std::string s;
  for (size_t i = (*pRandom)() % (MaxLen + 1); i > 0; i--) {
    s += "abAB@`Z[z{\xC4\xE4"[(*pRandom)() % 12];
  }
  return s;
}

static std::string Folded(std::string s) {
  for (char& c : s) {
    if (c >= 'A' && c <= 'Z') {
      c = (char)(c - 'A' + 'a');
    }
  }
  return s;
}

// The first place where the texts differ, their terminators included, and what differs there.
static int32_t SignedDiff(const std::string& A, const std::string& B, size_t MaxChars) {
  for (size_t i = 0; i < MaxChars && i <= std::min(A.size(), B.size()); i++) {
    if (A.c_str()[i] != B.c_str()[i]) {
      return (signed char)A.c_str()[i] - (signed char)B.c_str()[i];
    }
  }
  return 0;
}

TEST(UtilString, ComparisonsAgreeWithAModelOverRandomTexts) {
  std::mt19937 Random(1);
  for (int i = 0; i < 100000; i++) {
    const std::string A = RandomText(&Random, 8);
    const std::string B = Random() % 4 == 0 ? A : RandomText(&Random, 8);
    const uint32_t    n = (uint32_t)Random() % 10;
    ASSERT_EQ(SignedDiff(Folded(A), Folded(B), 100), UTIL_StrCaseCmp(A.c_str(), B.c_str()));
    ASSERT_EQ(SignedDiff(Folded(A), Folded(B), n), UTIL_StrNCaseCmp(A.c_str(), B.c_str(), n));
    const uint32_t    NumShared = (uint32_t)std::min({A.size(), B.size(), (size_t)n});
    const std::string SharedA = A.substr(0, NumShared), SharedB = B.substr(0, NumShared);
    ASSERT_EQ(SignedDiff(Folded(SharedA), Folded(SharedB), 100),
              UTIL_MemCaseCmp(SharedA.data(), SharedB.data(), NumShared));
    const auto Diff = std::mismatch(SharedA.begin(), SharedA.end(), SharedB.begin());
    if (Diff.first == SharedA.end()) {
      ASSERT_EQ(-1, UTIL_FindDiff(SharedA.data(), SharedB.data(), (int32_t)NumShared));
      ASSERT_EQ(0, UTIL_MemCmp(SharedA.data(), SharedB.data(), NumShared));
    } else {
      ASSERT_EQ(Diff.first - SharedA.begin(),
                UTIL_FindDiff(SharedA.data(), SharedB.data(), (int32_t)NumShared));
      ASSERT_EQ((uint8_t)*Diff.first - (uint8_t)*Diff.second,
                UTIL_MemCmp(SharedA.data(), SharedB.data(), NumShared));
    }
  }
}

TEST(UtilString, CopiesAndAppendsAgreeWithAModelOverRandomTexts) {
  std::mt19937 Random(2);
  for (int i = 0; i < 100000; i++) {
    const std::string A        = RandomText(&Random, 12);
    const std::string B        = RandomText(&Random, 12);
    const size_t      Size     = A.size() + 1 + Random() % 16;
    const size_t      MaxChars = Random() % 14;
    std::string       Buffer(Size + 8, '#');
    UTIL_CopyString(Buffer.data(), A.c_str(), (uint32_t)Size);
    ASSERT_EQ(A, Buffer.c_str());
    ASSERT_EQ(A.size(), UTIL_StrLen(A.c_str()));
    ASSERT_EQ(std::min(A.size(), MaxChars), UTIL_StrNLen(A.c_str(), (uint32_t)MaxChars));
    UTIL_AppendStringN(Buffer.data(), B.c_str(), (uint32_t)MaxChars, (uint32_t)Size);
    const std::string Expected = (A + B.substr(0, MaxChars)).substr(0, Size - 1);
    ASSERT_EQ(Expected, Buffer.c_str());
    UTIL_AppendString(Buffer.data(), B.c_str(), (uint32_t)Size);
    ASSERT_EQ((Expected + B).substr(0, Size - 1), Buffer.c_str());
    ASSERT_EQ(std::string(8, '#'), Buffer.substr(Size));
  }
}

TEST(UtilString, ChangesInPlaceAgreeWithAModelOverRandomTexts) {
  std::mt19937 Random(5);
  for (int i = 0; i < 100000; i++) {
    const std::string Text     = RandomText(&Random, 12);
    const char        Old      = "abAB@`Z[z{\xC4\xE4"[Random() % 12];
    const char        New      = (char)Random();
    std::string       Replaced = Text, Lower = Text, Upper = Text;
    std::replace(Replaced.begin(), Replaced.end(), Old, New);
    UTIL_StrToLower(Lower.data());
    UTIL_StrToUpper(Upper.data());
    ASSERT_EQ(Folded(Text), Lower);
    ASSERT_EQ(Folded(Text), Folded(Upper));
    ASSERT_EQ(std::string::npos, Upper.find_first_of("abz"));
    std::string Buffer = Text;
    UTIL_ReplaceChar(Buffer.data(), Old, New);
    ASSERT_EQ(Replaced, Buffer);
    const size_t At = Text.find_first_not_of(Text[0]);
    ASSERT_EQ(At == std::string::npos ? -1 : (int32_t)At,
              UTIL_FindNotEqual(Text.data(), (uint8_t)Text[0], (uint32_t)Text.size()));
  }
}

TEST(UtilCopyStructArray, AgreesWithAModelOverRandomLayouts) {
  std::mt19937 Random(3);
  for (int i = 0; i < 100000; i++) {
    const size_t DestSize   = 1 + Random() % 12;
    const size_t SourceSize = Random() % 12;
    const size_t NumRecords = Random() % 6;
    std::string  Source(SourceSize * NumRecords, 0);
    for (char& c : Source) {
      c = (char)(1 + Random() % 200);
    }
    std::string Dest(DestSize * NumRecords + 8, '#');
    std::string Expected;
    for (size_t k = 0; k < NumRecords; k++) {
      std::string Record = Source.substr(k * SourceSize, SourceSize);
      Record.resize(DestSize, 0);
      Expected += Record;
    }
    UTIL_CopyStructArray(Dest.data(), (uint32_t)DestSize, Source.data(), (uint32_t)SourceSize,
                         (uint32_t)NumRecords);
    ASSERT_EQ(Expected + "########", Dest);
  }
}

TEST(UtilFindDiff, WorksAtEveryAlignment) {
  std::string A(400, 'x');
  for (uint32_t AlignA = 0; AlignA < 16; AlignA++) {
    for (uint32_t AlignB = 0; AlignB < 16; AlignB++) {
      for (uint32_t Len = 1; Len <= 300; Len += 13) {
        std::string B(400, 'x');
        ASSERT_EQ(-1, UTIL_FindDiff(&A[AlignA], &B[AlignB], (int32_t)Len));
        ASSERT_EQ(-1, UTIL_FindNotEqual(&B[AlignB], 'x', Len));
        B[AlignB + Len] = 'y';  // just behind
        ASSERT_EQ(-1, UTIL_FindDiff(&A[AlignA], &B[AlignB], (int32_t)Len));
        ASSERT_EQ(-1, UTIL_FindNotEqual(&B[AlignB], 'x', Len));
        B[AlignB + Len - 1] = 'y';
        ASSERT_EQ((int32_t)Len - 1, UTIL_FindDiff(&A[AlignA], &B[AlignB], (int32_t)Len));
        ASSERT_EQ((int32_t)Len - 1, UTIL_FindNotEqual(&B[AlignB], 'x', Len));
      }
    }
  }
}
