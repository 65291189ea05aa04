// SPDX-License-Identifier: MIT

// The scanner of integers beside std::from_chars, which is given the end of the text and, for
// hexadecimal numbers, the digits after the prefix. Each run reads 2048 texts.

#include <stdio.h>
#include <string.h>

#include <charconv>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "bench/support/peer_bench.h"
#include "util/scan.h"

namespace {

// So many that no processor learns the sequence of lengths.
const int NUM_TEXTS = 2048;
const int TEXT_SIZE = 24;

struct TEXTS {
  char     aac[NUM_TEXTS][TEXT_SIZE];
  uint32_t aLen[NUM_TEXTS];
};

uint64_t aValue[NUM_TEXTS];

std::string AllValues() {
  std::string All;
  for (const uint64_t Value : aValue) {
    All += std::to_string(Value) + ' ';
  }
  return All;
}

// Numbers of MinDigits to MaxDigits digits, all lengths alike often.
TEXTS MakeDecimal(int MinDigits, int MaxDigits) {
  static std::mt19937_64 Random(1);
  TEXTS                  Texts;
  for (int i = 0; i < NUM_TEXTS; i++) {
    const int NumDigits = MinDigits + (int)(Random() % (uint64_t)(MaxDigits - MinDigits + 1));
    char*     p         = Texts.aac[i];
    *p++                = NumDigits == 20 ? '1' : (char)('1' + Random() % 9);
    for (int k = 1; k < NumDigits; k++) {
      *p++ = (char)('0' + Random() % (NumDigits == 20 && k < 3 ? 8 : 10));
    }
    *p            = 0;
    Texts.aLen[i] = (uint32_t)NumDigits;
  }
  return Texts;
}

TEXTS MakeHex() {
  static std::mt19937_64 Random(2);
  TEXTS                  Texts;
  for (int i = 0; i < NUM_TEXTS; i++) {
    Texts.aLen[i] =
        (uint32_t)snprintf(Texts.aac[i], TEXT_SIZE, "0x%.8X", (unsigned)(Random() & 0xFFFFFFFF));
  }
  return Texts;
}

void AddRow(const char* sRow, double Goal, const TEXTS& Made, bool IsHex) {
  static std::deque<TEXTS> aTexts;
  const TEXTS&             Texts = aTexts.emplace_back(Made);
  BENCH_Row(sRow, Goal);
  BENCH_Add(
      "ours",
      [&Texts] {
        for (int i = 0; i < NUM_TEXTS; i++) {
          const char* s = Texts.aac[i];
          int64_t     Value;
          UTIL_ParseInt(&s, &Value, 0);
          aValue[i] = (uint64_t)Value;
        }
      },
      AllValues);
  if (IsHex) {
    BENCH_Add(
        "from_chars",
        [&Texts] {
          for (int i = 0; i < NUM_TEXTS; i++) {
            const char* s = Texts.aac[i];
            if (s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
              std::from_chars(s + 2, s + Texts.aLen[i], aValue[i], 16);
            }
          }
        },
        AllValues);
  } else {
    BENCH_Add(
        "from_chars",
        [&Texts] {
          for (int i = 0; i < NUM_TEXTS; i++) {
            const char* s = Texts.aac[i];
            std::from_chars(s, s + Texts.aLen[i], aValue[i], 10);
          }
        },
        AllValues);
  }
}

void AddGrowth() {
  static std::vector<std::string> aText;
  static std::vector<char>        Token((1 << 19) + 1);
  BENCH_Growth("a word, for each character", 1.5);
  for (const int64_t Size : BENCH_aSize) {
    aText.emplace_back((size_t)Size, 'a');
    BENCH_AddSize(Size, Size, [i = aText.size() - 1] {
      const char* s = aText[i].c_str();
      return UTIL_ParseToken(&s, Token.data(), (uint32_t)Token.size(), '=');
    });
  }
}

}  // namespace

int main(int NumArgs, char** pasArgs) {
  BENCH_Job("scan", "Scanning integers, 2048 texts");
  AddRow("decimal, 1 to 10 digits", 0.75, MakeDecimal(1, 10), false);
  AddRow("0x and 8 digits", 0.75, MakeHex(), true);
  AddRow("decimal, 18 to 20 digits", 0.75, MakeDecimal(18, 20), false);
  AddRow("decimal, 1 to 3 digits", 1.0, MakeDecimal(1, 3), false);
  AddGrowth();
  return BENCH_Main(NumArgs, pasArgs);
}
