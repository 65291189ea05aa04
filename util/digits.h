// util/digits.h
// SPDX-License-Identifier: MIT
//
// Digits of numbers, for UTIL's own formatters. Each call writes exactly the bytes it says.

#ifndef UTIL_DIGITS_H
#define UTIL_DIGITS_H

#include <stdint.h>
#include <string.h>

// "00" to "99", one after the other.
struct DIGITS_PAIRS {
  char ac[200];
};

constexpr DIGITS_PAIRS DIGITS_BuildPairs() {
  DIGITS_PAIRS Pairs = {};
  for (int i = 0; i < 100; i++) {
    Pairs.ac[2 * i]     = (char)('0' + i / 10);
    Pairs.ac[2 * i + 1] = (char)('0' + i % 10);
  }
  return Pairs;
}

inline constexpr DIGITS_PAIRS DIGITS_Pairs = DIGITS_BuildPairs();

// How many decimal digits a value has, 1 to 20.
static inline uint32_t DIGITS_Count(uint64_t Value) {
  static const uint64_t aPowerOfTen[] = {0,
                                         10,
                                         100,
                                         1000,
                                         10000,
                                         100000,
                                         1000000,
                                         10000000,
                                         100000000,
                                         1000000000,
                                         10000000000,
                                         100000000000,
                                         1000000000000,
                                         10000000000000,
                                         100000000000000,
                                         1000000000000000,
                                         10000000000000000,
                                         100000000000000000,
                                         1000000000000000000,
                                         10000000000000000000u};
  // 1233 / 4096 is the logarithm of 2 to base 10: right or one too many.
  const uint32_t NumBits = 64 - (uint32_t)__builtin_clzll(Value | 1);
  const uint32_t Guess   = NumBits * 1233 >> 12;
  return Guess + (Value >= aPowerOfTen[Guess]);
}

// The four decimal digits of a Value below 10000, with leading zeros, the first in the lowest byte.
static inline uint32_t DIGITS_Four(uint32_t Value) {
  uint16_t First, Last;
  memcpy(&First, &DIGITS_Pairs.ac[2 * (Value / 100)], 2);
  memcpy(&Last, &DIGITS_Pairs.ac[2 * (Value % 100)], 2);
  return First | (uint32_t)Last << 16;
}

// Writes the lowest NumDigits decimal digits of Value, with leading zeros, from the end.
static inline void DIGITS_StoreDecimal(char* p, uint64_t Value, uint32_t NumDigits) {
  for (; NumDigits >= 4; NumDigits -= 4) {
    const uint32_t Text = DIGITS_Four((uint32_t)(Value % 10000));
    Value /= 10000;
    memcpy(p + NumDigits - 4, &Text, 4);
  }
  if (NumDigits > 0) {
    // One to three, without asking which: how many there are cannot be predicted.
    const uint32_t Text = DIGITS_Four((uint32_t)(Value % 10000)) >> (8 * (4 - NumDigits));
    p[0]                = (char)Text;
    p[NumDigits / 2]    = (char)(Text >> (8 * (NumDigits / 2)));
    p[NumDigits - 1]    = (char)(Text >> (8 * (NumDigits - 1)));
  }
}

// How many hexadecimal digits a value has, 1 to 16.
static inline uint32_t DIGITS_CountHex(uint64_t Value) {
  return (67 - (uint32_t)__builtin_clzll(Value | 1)) / 4;
}

// "00" to "FF", one after the other.
struct DIGITS_HEX_PAIRS {
  char ac[512];
};

constexpr DIGITS_HEX_PAIRS DIGITS_BuildHexPairs() {
  constexpr char   acDigit[] = "0123456789ABCDEF";
  DIGITS_HEX_PAIRS Pairs     = {};
  for (int i = 0; i < 256; i++) {
    Pairs.ac[2 * i]     = acDigit[i >> 4];
    Pairs.ac[2 * i + 1] = acDigit[i & 15];
  }
  return Pairs;
}

inline constexpr DIGITS_HEX_PAIRS DIGITS_HexPairs = DIGITS_BuildHexPairs();

// Writes the lowest NumDigits hexadecimal digits of Value, with leading zeros, from the end. The
// bit that makes a letter lower case is set in every digit anyway.
static inline void DIGITS_StoreHex(char* p, uint64_t Value, uint32_t NumDigits, int32_t IsLower) {
  const uint16_t CaseBits = IsLower ? 0x2020 : 0;
  uint16_t       Pair;
  for (; NumDigits >= 2; NumDigits -= 2) {
    memcpy(&Pair, &DIGITS_HexPairs.ac[2 * (Value & 0xFF)], 2);
    Pair |= CaseBits;
    memcpy(p + NumDigits - 2, &Pair, 2);
    Value >>= 8;
  }
  if (NumDigits > 0) {
    *p = (char)(DIGITS_HexPairs.ac[2 * (Value & 0xF) + 1] | (char)CaseBits);
  }
}

#endif
