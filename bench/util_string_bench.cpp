// SPDX-License-Identifier: MIT

// Comparisons, lengths and copies beside the C library's and the standard algorithms. Each run does
// 64 of them, on texts at different addresses.

#include <string.h>
#include <strings.h>

#include <algorithm>
#include <vector>

#include "bench/support/peer_bench.h"
#include "util/string.h"

namespace {

const int    NUM_PAIRS = 64;
const size_t TEXT_SIZE = 288;

struct PAIR {
  char acA[TEXT_SIZE];
  char acB[TEXT_SIZE];
};

std::vector<PAIR> aPair(NUM_PAIRS);
int64_t           aResult[NUM_PAIRS];
char              aacDest[NUM_PAIRS][TEXT_SIZE];

std::string Results() {
  std::string All;
  for (const int64_t Result : aResult) {
    All += std::to_string(Result) + ' ';
  }
  return All;
}

std::string Copies() {
  std::string All;
  for (const char* s : aacDest) {
    All += s;
    All += '\n';
  }
  return All;
}

// Texts of this length that differ in case alone, each pair a byte further in its place.
std::vector<PAIR> MakePairs(size_t Len) {
  std::vector<PAIR> aMade(NUM_PAIRS);
  for (int i = 0; i < NUM_PAIRS; i++) {
    for (size_t k = 0; k < Len; k++) {
      const char c                                   = (char)('a' + (k * 7 + (size_t)i) % 26);
      aMade[(size_t)i].acA[(size_t)(i % 16) + k]     = c;
      aMade[(size_t)i].acB[(size_t)(i * 3 % 16) + k] = (char)(c - (k % 3 == 0 ? 0x20 : 0));
    }
  }
  return aMade;
}

template <typename FUNC>
void Add(const char* sName, const std::vector<PAIR>& aMade, FUNC Func) {
  BENCH_Add(
      sName,
      [aMade, Func] {
        for (int i = 0; i < NUM_PAIRS; i++) {
          aResult[i] =
              (int64_t)Func(aMade[(size_t)i].acA + i % 16, aMade[(size_t)i].acB + i * 3 % 16);
        }
      },
      Results);
}

void AddCaseCompare(const char* sRow, size_t Len) {
  const std::vector<PAIR> aMade = MakePairs(Len);
  BENCH_Row(
      sRow, 1.2,
      "as many instructions as the peer's, which has newer ones than AVX2 for the masks. Tried: "
      "constants from memory, the first 32 bytes without a count of the page (both kept).");
  Add("ours", aMade, [](const char* a, const char* b) { return UTIL_StrCaseCmp(a, b); });
  Add("strcasecmp", aMade, [](const char* a, const char* b) { return strcasecmp(a, b); });
}

// Equal up to the last byte, whose place is what is asked for; memcmp says only that it differs.
void AddFirstDifference(uint32_t Len) {
  std::vector<PAIR> aMade = MakePairs(Len);
  for (int i = 0; i < NUM_PAIRS; i++) {
    PAIR& Pair = aMade[(size_t)i];
    memcpy(Pair.acB + i * 3 % 16, Pair.acA + i % 16, Len);
    Pair.acB[(size_t)(i * 3 % 16) + Len - 1]++;
  }
  BENCH_Row(
      "first difference, 256 B", 1.1,
      "memcmp need not find out which byte differs; ours takes 78 instructions, memcmp 76 and "
      "with instructions newer than AVX2. Tried: four blocks a test (kept), no frame around "
      "the call (1.28 to 1.15; kept).");
  Add("ours", aMade,
      [Len](const char* a, const char* b) { return UTIL_FindDiff(a, b, (int32_t)Len); });
  Add("memcmp", aMade, [Len](const char* a, const char* b) {
    return memcmp(a, b, Len) != 0 ? (int64_t)Len - 1 : -1;
  });
  Add("std::mismatch", aMade,
      [Len](const char* a, const char* b) { return std::mismatch(a, a + Len, b).first - a; });
}

void AddFillCheck(uint32_t Len) {
  std::vector<PAIR> aMade(NUM_PAIRS);
  for (PAIR& Pair : aMade) {
    memset(&Pair, 0xFF, sizeof(Pair));
  }
  BENCH_Row(
      "fill check, 256 B", 0.85,
      "the loads decide: half of them cross a cache line, in the peer too. Tried: eight blocks "
      "a test and counting down (1.0 to 0.73 .. 0.87; kept).");
  Add("ours", aMade, [Len](const char* a, const char*) { return UTIL_FindNotEqual(a, 0xFF, Len); });
  Add("memcmp with itself", aMade, [Len](const char* a, const char*) {
    return *a == (char)0xFF && memcmp(a, a + 1, Len - 1) == 0 ? -1 : 0;
  });
  Add("std::find_if", aMade, [Len](const char* a, const char*) {
    const char* p = std::find_if(a, a + Len, [](char c) { return c != (char)0xFF; });
    return p == a + Len ? -1 : p - a;
  });
}

void AddLengthAndCopy(size_t Len) {
  const std::vector<PAIR> aMade = MakePairs(Len);
  BENCH_Row("length, 8 B", 1.1);
  Add("ours", aMade, [](const char* a, const char*) { return UTIL_StrLen(a); });
  Add("strlen", aMade, [](const char* a, const char*) { return strlen(a); });

  BENCH_Row("copy, 8 B", 1.1);
  BENCH_Add(
      "ours",
      [aMade] {
        for (int i = 0; i < NUM_PAIRS; i++) {
          UTIL_CopyString(aacDest[i], aMade[(size_t)i].acA + i % 16, TEXT_SIZE);
        }
      },
      Copies);
  BENCH_Add(
      "strcpy",
      [aMade] {
        for (int i = 0; i < NUM_PAIRS; i++) {
          strcpy(aacDest[i], aMade[(size_t)i].acA + i % 16);
        }
      },
      Copies);
  BENCH_Add(
      "memccpy",
      [aMade] {
        for (int i = 0; i < NUM_PAIRS; i++) {
          memccpy(aacDest[i], aMade[(size_t)i].acA + i % 16, 0, TEXT_SIZE);
        }
      },
      Copies);
}

void AddGrowth() {
  static const std::vector<char> aByte((1 << 19) + 1, 'a');
  static const std::vector<char> aUpper((1 << 19) + 1, 'A');
  BENCH_Growth("case compare, for each byte", 1.5);
  for (const int64_t Size : BENCH_aSize) {
    BENCH_AddSize(Size, Size,
                  [Size] { return UTIL_MemCaseCmp(aByte.data(), aUpper.data(), (uint32_t)Size); });
  }
  BENCH_Growth("first difference, for each byte", 1.5);
  for (const int64_t Size : BENCH_aSize) {
    BENCH_AddSize(Size, Size,
                  [Size] { return UTIL_FindDiff(aByte.data(), aByte.data() + 1, (int32_t)Size); });
  }
  BENCH_Growth("fill check, for each byte", 1.5);
  for (const int64_t Size : BENCH_aSize) {
    BENCH_AddSize(Size, Size,
                  [Size] { return UTIL_FindNotEqual(aByte.data(), 'a', (uint32_t)Size); });
  }
}

void AddReversal(uint32_t NumBytes) {
  static std::vector<char> aByte(NumBytes, 'a');
  aByte[1]          = 'b';
  const auto Answer = [] { return std::string(); };  // each run undoes the one before it
  BENCH_Row("reverse 4 KiB", 1.0);
  BENCH_Add(
      "ours", [=] { UTIL_ReverseBytes(aByte.data(), NumBytes); }, Answer);
  BENCH_Add(
      "std::reverse", [] { std::reverse(aByte.begin(), aByte.end()); }, Answer);
}

}  // namespace

int main(int NumArgs, char** pasArgs) {
  BENCH_Job("string", "Texts and bytes, 64 of them");
  AddCaseCompare("case compare, 8 B", 8);
  AddCaseCompare("case compare, 24 B", 24);
  AddCaseCompare("case compare, 256 B", 256);
  AddFirstDifference(256);
  AddFillCheck(256);
  AddLengthAndCopy(8);
  AddReversal(4096);
  AddGrowth();
  return BENCH_Main(NumArgs, pasArgs);
}
