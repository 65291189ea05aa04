// tests/util/vectors_bits.h
// SPDX-License-Identifier: MIT
//
// Rows for bits, loads and arithmetic. Running them runs those of vectors_stores.h too. vectors.h
// says how.

#ifndef TESTS_UTIL_VECTORS_BITS_H
#define TESTS_UTIL_VECTORS_BITS_H

#include "tests/util/vectors.h"
#include "tests/util/vectors_stores.h"
#include "util/arith.h"
#include "util/bits.h"
#include "util/byteorder.h"

// One row: an operation, up to four numbers, and what comes of them.
enum VECTORS_BITS_OP {
  OP_LEB128,  // a value; the number of bytes that it takes, read back too
  OP_HIGHEST32,
  OP_HIGHEST64,
  OP_LOWEST32,
  OP_LOG2,
  OP_COUNT,
  OP_PARITY,
  OP_REV16,
  OP_REV32,
  OP_IN_RANGE,
  OP_OVERLAP,
  OP_MIN,
  OP_GCD,
  OP_ABS32,
  OP_ABS64,
  OP_MULDIV,
  OP_DIV,
  OP_MOD,
  OP_SIGNED_DIV,
  OP_DAYS,
  OP_SWAP16,
  OP_SWAP32,
  OP_SWAP64,
  // Reads of VECTORS_abBytes, at an offset
  OP_READ_LEB128,
  OP_LEB128_END,  // where the cursor is left
  OP_READ_BITS,
  OP_READ_BITS32,
  OP_LOAD8,
  OP_LOAD16,
  OP_LOAD32,
  OP_LOAD64,
  OP_LOAD64_WORDS,
  OP_LOAD16_BE,
  OP_LOAD32_BE,
  OP_LOAD16_ORDER,
  OP_LOAD32_ORDER,
  OP_LOAD64_ORDER
};

static const uint8_t VECTORS_abBytes[] = {
    0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xFE, 0xDC, 0x02, 0xAC, 0x02, 0x85,
    0x80, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F};

struct VECTORS_BITS_ROW {
  VECTORS_BITS_OP Op;
  uint64_t        a[4];
  uint64_t        Expected;  // signed results sign-extended
  const char*     sText;
};

static const VECTORS_BITS_ROW VECTORS_BitsRows[] = {
    {OP_LEB128, {0}, 1, "LEB128 of 0"},
    {OP_LEB128, {127}, 1, "LEB128 of 127"},
    {OP_LEB128, {128}, 2, "LEB128 of 128"},
    {OP_LEB128, {300}, 2, "LEB128 of 300"},
    {OP_LEB128, {0xFFFFFFFF}, 5, "LEB128 of 2^32 - 1"},
    {OP_LEB128, {UINT64_MAX}, 10, "LEB128 of 2^64 - 1"},
    {OP_HIGHEST32, {0}, (uint64_t)-1, "highest bit of 0"},
    {OP_HIGHEST32, {1}, 0, "highest bit of 1"},
    {OP_HIGHEST32, {0x80000000}, 31, "highest bit of 2^31"},
    {OP_HIGHEST32, {0x00012345}, 16, "highest bit of 0x12345"},
    {OP_HIGHEST64, {0}, (uint64_t)-1, "highest of 64 bits of 0"},
    {OP_HIGHEST64, {0x8000000000000000}, 63, "highest of 64 bits of 2^63"},
    {OP_HIGHEST64, {0x100000000}, 32, "highest of 64 bits of 2^32"},
    {OP_LOWEST32, {0}, (uint64_t)-1, "lowest bit of 0"},
    {OP_LOWEST32, {0x80000000}, 31, "lowest bit of 2^31"},
    {OP_LOWEST32, {0x00012340}, 6, "lowest bit of 0x12340"},
    {OP_LOG2, {0}, 31, "log2 of 0"},
    {OP_LOG2, {1}, 0, "log2 of 1"},
    {OP_LOG2, {1023}, 9, "log2 of 1023"},
    {OP_LOG2, {1024}, 10, "log2 of 1024"},
    {OP_LOG2, {0x7FFFFFFF}, 30, "log2 of 2^31 - 1"},
    {OP_LOG2, {0xFFFFFFFF}, 31, "log2 of -1"},
    {OP_LOG2, {0x80000000}, 31, "log2 of -2^31"},
    {OP_COUNT, {0}, 0, "set bits of 0"},
    {OP_COUNT, {0xFFFFFFFF}, 32, "set bits of 2^32 - 1"},
    {OP_COUNT, {0x80010100}, 3, "set bits of 0x80010100"},
    {OP_PARITY, {0}, 0, "parity of 0"},
    {OP_PARITY, {0x80000000}, 1, "parity of 2^31"},
    {OP_PARITY, {0xFFFFFFFF}, 0, "parity of 2^32 - 1"},
    {OP_REV16, {0x0001}, 0x8000, "reversed 0x0001"},
    {OP_REV16, {0x1234}, 0x2C48, "reversed 0x1234"},
    {OP_REV16, {0xFFFF}, 0xFFFF, "reversed 0xFFFF"},
    {OP_REV32, {0x00000001}, 0x80000000, "reversed 0x00000001"},
    {OP_REV32, {0x12345678}, 0x1E6A2C48, "reversed 0x12345678"},
    {OP_IN_RANGE, {100, 100, 0}, 0, "address in an empty range"},
    {OP_IN_RANGE, {100, 100, 1}, 1, "the only address of a range"},
    {OP_IN_RANGE, {109, 100, 10}, 1, "last address of a range"},
    {OP_IN_RANGE, {110, 100, 10}, 0, "address behind a range"},
    {OP_IN_RANGE, {99, 100, 10}, 0, "address in front of a range"},
    {OP_IN_RANGE, {UINT64_MAX, UINT64_MAX, 1}, 1, "highest address"},
    {OP_IN_RANGE, {0xFFFFFFFF, 0xFFFFFFF0, 0x10}, 1, "top of 32 bits"},
    {OP_IN_RANGE, {UINT64_MAX, UINT64_MAX, 2}, 0, "range that wraps"},
    {OP_IN_RANGE, {UINT64_MAX, 0, UINT64_MAX}, 0, "range that lacks the highest address"},
    {OP_OVERLAP, {0, 10, 10, 5}, 0, "ranges that touch"},
    {OP_OVERLAP, {0, 11, 10, 5}, 1, "ranges that share one address"},
    {OP_OVERLAP, {14, 9, 10, 5}, 1, "ranges that share one address, the other way round"},
    {OP_OVERLAP, {15, 9, 10, 5}, 0, "ranges that touch, the other way round"},
    {OP_OVERLAP, {12, 1, 10, 5}, 1, "range inside"},
    {OP_OVERLAP, {5, 0, 0, 10}, 0, "empty first range"},
    {OP_OVERLAP, {0, 10, 5, 0}, 0, "empty second range"},
    {OP_OVERLAP, {UINT64_MAX, 1, UINT64_MAX - 1, 2}, 1, "ranges that share the highest address"},
    {OP_OVERLAP, {UINT64_MAX, 2, UINT64_MAX, 1}, 0, "first range wraps"},
    {OP_OVERLAP, {UINT64_MAX, 1, UINT64_MAX, 2}, 0, "second range wraps"},
    {OP_OVERLAP, {0, 1, UINT64_MAX, 2}, 0, "second range wraps onto the first one"},
    {OP_OVERLAP, {UINT64_MAX, 2, UINT64_MAX, 2}, 0, "both ranges wrap"},
    {OP_OVERLAP, {2, UINT64_MAX, 5, 1}, 0, "longest range that wraps"},
    {OP_OVERLAP, {1, UINT64_MAX, UINT64_MAX, 1}, 1, "longest range that does not wrap"},
    {OP_MIN, {1, 0xFFFFFFFF}, 1, "smaller one of 1 and 2^32 - 1"},
    {OP_MIN, {0x80000001, 0x80000000}, 0x80000000, "smaller one of two above 2^31"},
    {OP_GCD, {12, 18}, 6, "divisor of 12 and 18"},
    {OP_GCD, {17, 5}, 1, "divisor of 17 and 5"},
    {OP_GCD, {0, 5}, 0, "divisor of 0 and 5"},
    {OP_GCD, {5, 0}, 0, "divisor of 5 and 0"},
    {OP_GCD, {0xFFFFFFFF, 0xFFFFFFFF}, 0xFFFFFFFF, "divisor of equal numbers"},
    {OP_ABS32, {5, 3}, 2, "difference of 5 and 3"},
    {OP_ABS32, {3, 5}, 2, "difference of 3 and 5"},
    {OP_ABS32, {0x7FFFFFFF, 0x80000000}, 0xFFFFFFFF, "widest difference"},
    {OP_ABS64, {(uint64_t)-5, 3}, 8, "difference of -5 and 3"},
    {OP_ABS64, {0x500000007, 0x300000002}, 5, "low half of a wide difference"},
    {OP_ABS64, {0x7FFFFFFFFFFFFFFF, 0x8000000000000000}, 0xFFFFFFFF, "widest of 64 bits"},
    {OP_MULDIV, {3, 1, 2}, 2, "3 * 1 / 2"},
    {OP_MULDIV, {1, 1, 3}, 0, "1 * 1 / 3"},
    {OP_MULDIV, {2, 1, 3}, 1, "2 * 1 / 3"},
    {OP_MULDIV, {0, 5, 3}, 0, "0 * 5 / 3"},
    {OP_MULDIV, {7, 5, 1}, 35, "7 * 5 / 1"},
    {OP_MULDIV, {5, 5, 0}, 0, "division by 0"},
    {OP_MULDIV, {0x7FFFFFFF, 0xFFFFFFFF, 0x7FFFFFFF}, 0xFFFFFFFF, "largest exact product"},
    {OP_MULDIV, {1000000000000, 1000000000000, 1000000000000}, 1000000000000, "in doubles"},
    {OP_MULDIV, {1ull << 62, 2, 1}, 1ull << 63, "in doubles, from 2^63 up"},
    {OP_MULDIV, {0x80000001, 0x80000001, 1}, 4611686022722355200, "smallest sum of indices"},
    {OP_MULDIV, {34039106549, 8293547642, 34375}, 8212507690334422, "product and sum rounded"},
    {OP_MULDIV, {3ull << 62, 1, 1}, 3ull << 62, "in doubles, above 2^63"},
    {OP_MULDIV, {1ull << 63, 2, 1}, UINT64_MAX, "does not fit"},
    {OP_DIV, {100, 7}, 14, "100 divided by 7"},
    {OP_DIV, {0xFFFFFFFF, 0x80000000}, 1, "divided by 2^31"},
    {OP_DIV, {0xFFFFFFFF, 0xFFFFFFFE}, 1, "divided by 2^32 - 2"},
    {OP_DIV, {5, 0}, 0xFFFFFFFF, "divided by 0"},
    {OP_MOD, {100, 7}, 2, "remainder of 100 by 7"},
    {OP_MOD, {0xFFFFFFFE, 0xFFFFFFFF}, 0xFFFFFFFE, "remainder of a smaller number"},
    {OP_MOD, {5, 0}, 5, "remainder by 0"},
    {OP_SIGNED_DIV, {(uint64_t)-100, 7}, (uint64_t)-14, "-100 divided by 7"},
    {OP_SIGNED_DIV, {100, 7}, 14, "100 divided by 7, signed"},
    {OP_SIGNED_DIV, {100, (uint64_t)-7}, 0, "100 divided by -7"},
    {OP_SIGNED_DIV, {(uint64_t)-100, (uint64_t)-7}, 0, "-100 divided by -7"},
    {OP_SIGNED_DIV, {0x80000000, 0x80000000}, (uint64_t)-1, "-2^31 by itself"},
    {OP_SIGNED_DIV, {0x80000000, 1}, (uint64_t)INT32_MIN, "-2^31 by 1"},
    {OP_DAYS, {20200301, 20200228}, 2, "over a leap day"},
    {OP_DAYS, {210101, 20201231}, 1, "over a new year, short and long form"},
    {OP_DAYS, {20201231, 210101}, (uint64_t)-1, "back over a new year"},
    {OP_DAYS, {20210301, 20210228}, 1, "over the end of February"},
    {OP_DAYS, {21000301, 21000228}, 1, "2100 is no leap year"},
    {OP_DAYS, {24000301, 24000228}, 2, "2400 is a leap year"},
    {OP_DAYS, {20241231, 20240101}, 365, "a leap year"},
    {OP_DAYS, {20250101, 20240101}, 366, "to the next year from a leap year"},
    {OP_DAYS, {20020101, 20010101}, 365, "2001 is the first year counted"},
    {OP_DAYS, {20010101, 20000101}, 0, "years before 2002 count as one"},
    {OP_DAYS, {20000301, 20000228}, 2, "2000 is a leap year"},
    {OP_DAYS, {20200001, 20200101}, 0, "month 0 is January"},
    {OP_DAYS, {20211301, 20211201}, 31, "month 13 follows December"},
    {OP_DAYS, {20219901, 20211301}, 0, "month 99 too"},
    {OP_DAYS, {10000000, 9999999}, (uint64_t)-364976, "the short form ends at 9999999"},
    {OP_SWAP16, {0x1234}, 0x3412, "swapped 0x1234"},
    {OP_SWAP32, {0x12345678}, 0x78563412, "swapped 0x12345678"},
    {OP_SWAP64, {0x0123456789ABCDEF}, 0xEFCDAB8967452301, "swapped 0x0123456789ABCDEF"},
    {OP_READ_LEB128, {0}, 1, "LEB128 of one byte"},
    {OP_READ_LEB128, {11}, 300, "LEB128 of two bytes"},
    {OP_READ_LEB128, {13}, 5, "LEB128 with padding"},
    {OP_READ_LEB128, {4}, 0xAE7EDF35589, "LEB128 of seven bytes"},
    {OP_READ_LEB128, {16}, UINT64_MAX, "LEB128 that exceeds 64 bits"},
    {OP_LEB128_END, {0}, 1, "end of a LEB128 of one byte"},
    {OP_LEB128_END, {11}, 13, "end of a LEB128 of two bytes"},
    {OP_LEB128_END, {13}, 16, "end of a LEB128 with padding"},
    {OP_LEB128_END, {4}, 11, "end of a LEB128 of seven bytes"},
    {OP_LEB128_END, {16}, 28, "end of a LEB128 that exceeds 64 bits"},
    {OP_READ_BITS, {0, 8}, 0x01, "first byte as a field"},
    {OP_READ_BITS, {4, 8}, 0x30, "field over two bytes"},
    {OP_READ_BITS, {4, 16}, 0x5230, "field over three bytes"},
    {OP_READ_BITS, {9, 1}, 1, "field of one bit"},
    {OP_READ_BITS, {79, 1}, 1, "highest bit of a byte"},
    {OP_READ_BITS, {223, 1}, 0, "last bit"},
    {OP_READ_BITS, {83, 0}, 0, "field of no bits"},
    {OP_READ_BITS, {0, 17}, 0, "field that is too wide"},
    {OP_READ_BITS32, {8}, 0x89674523, "32 bits at a byte"},
    {OP_READ_BITS32, {12}, 0xB8967452, "32 bits at half a byte"},
    {OP_LOAD8, {9}, 0xDC, "load of 8 bits"},
    {OP_LOAD16, {1}, 0x4523, "load of 16 bits"},
    {OP_LOAD32, {1}, 0x89674523, "load of 32 bits"},
    {OP_LOAD64, {1}, 0xFEEFCDAB89674523, "load of 64 bits"},
    {OP_LOAD64_WORDS, {1}, 0x89674523FEEFCDAB, "load of two words"},
    {OP_LOAD16_BE, {1}, 0x2345, "load of 16 bits, BE"},
    {OP_LOAD32_BE, {1}, 0x23456789, "load of 32 bits, BE"},
    {OP_LOAD16_ORDER, {1, 0}, 0x4523, "load of 16 bits, LE by flag"},
    {OP_LOAD16_ORDER, {1, 2}, 0x2345, "load of 16 bits, BE by flag"},
    {OP_LOAD32_ORDER, {1, 0}, 0x89674523, "load of 32 bits, LE by flag"},
    {OP_LOAD32_ORDER, {1, 2}, 0x23456789, "load of 32 bits, BE by flag"},
    {OP_LOAD64_ORDER, {1, 0}, 0xFEEFCDAB89674523, "load of 64 bits, LE by flag"},
    {OP_LOAD64_ORDER, {1, 2}, 0x23456789ABCDEFFE, "load of 64 bits, BE by flag"},
};

// The number of bytes written, if reading them back gives the value and takes as many.
static inline uint64_t VECTORS_RunLEB128(uint64_t Value) {
  uint8_t        ab[16];
  uint8_t*       pWrite = ab;
  const uint8_t* pRead  = ab;
  UTIL_WriteLEB128(&pWrite, Value);
  if (UTIL_ReadLEB128(&pRead) != Value || pRead != pWrite) {
    return 0;
  }
  return (uint64_t)(pWrite - ab);
}

// The number at p, and where it ends.
static inline uint64_t VECTORS_ReadLEB128(const uint8_t* p, uint64_t* pEnd) {
  const uint64_t Value = UTIL_ReadLEB128(&p);
  *pEnd                = (uint64_t)(p - VECTORS_abBytes);
  return Value;
}

static inline uint64_t VECTORS_CallBits(const VECTORS_BITS_ROW* pRow) {
  const uint64_t* a   = pRow->a;
  const uint32_t  a0  = (uint32_t)a[0];
  const uint32_t  a1  = (uint32_t)a[1];
  const int32_t   b1  = (int32_t)a[1];
  uint64_t        End = 0;
  // Only where it is an offset does the first number stay within the bytes.
  const uint8_t* p = VECTORS_abBytes + (a[0] < sizeof(VECTORS_abBytes) ? a[0] : 0);
  switch (pRow->Op) {
    case OP_LEB128:
      return VECTORS_RunLEB128(a[0]);
    case OP_HIGHEST32:
      return (uint64_t)(int64_t)UTIL_GetHighestBit32(a0);
    case OP_HIGHEST64:
      return (uint64_t)(int64_t)UTIL_GetHighestBit64(a[0]);
    case OP_LOWEST32:
      return (uint64_t)(int64_t)UTIL_GetLowestBit32(a0);
    case OP_LOG2:
      return (uint64_t)(int64_t)UTIL_GetLog2((int32_t)a0);
    case OP_COUNT:
      return UTIL_CountBits(a0);
    case OP_PARITY:
      return UTIL_GetParity(a0);
    case OP_REV16:
      return UTIL_GetBitRev16((uint16_t)a0);
    case OP_REV32:
      return UTIL_GetBitRev32(a0);
    case OP_IN_RANGE:
      return (uint64_t)UTIL_IsAddrInRange(a[0], a[1], a[2]);
    case OP_OVERLAP:
      return (uint64_t)UTIL_DoRangesOverlap(a[0], a[1], a[2], a[3]);
    case OP_MIN:
      return UTIL_MinU32(a0, a1);
    case OP_GCD:
      return UTIL_GetGCD(a0, a1);
    case OP_ABS32:
      return UTIL_AbsDiff32((int32_t)a0, (int32_t)a1);
    case OP_ABS64:
      return UTIL_AbsDiff64((int64_t)a[0], (int64_t)a[1]);
    case OP_MULDIV:
      return UTIL_MulDivRound(a[0], a[1], a[2]);
    case OP_DIV:
      return UTIL_DivU32(a0, a1, NULL);
    case OP_MOD:
      return UTIL_ModU32(a0, a1);
    case OP_SIGNED_DIV:
      return (uint64_t)(int64_t)UTIL_DivI32((int32_t)a0, (int32_t)a1);
    case OP_DAYS:
      return (uint64_t)(int64_t)UTIL_GetDaysDiff(a0, a1);
    case OP_SWAP16:
      return UTIL_SwapU16((uint16_t)a0);
    case OP_SWAP32:
      return UTIL_SwapU32(a0);
    case OP_SWAP64:
      return UTIL_SwapU64(a[0]);
    case OP_READ_LEB128:
      return VECTORS_ReadLEB128(p, &End);
    case OP_LEB128_END:
      VECTORS_ReadLEB128(p, &End);
      return End;
    case OP_READ_BITS:
      return UTIL_ReadBits(VECTORS_abBytes, a0, a1);
    case OP_READ_BITS32:
      return UTIL_ReadBits32(VECTORS_abBytes, a0);
    case OP_LOAD8:
      return UTIL_LoadU8(p);
    case OP_LOAD16:
      return UTIL_LoadU16(p);
    case OP_LOAD32:
      return UTIL_LoadU32(p);
    case OP_LOAD64:
      return UTIL_LoadU64(p);
    case OP_LOAD64_WORDS:
      return UTIL_LoadU64Words(p);
    case OP_LOAD16_BE:
      return UTIL_LoadU16BE(p);
    case OP_LOAD32_BE:
      return UTIL_LoadU32BE(p);
    case OP_LOAD16_ORDER:
      return UTIL_LoadU16Order(p, b1);
    case OP_LOAD32_ORDER:
      return UTIL_LoadU32Order(p, b1);
    case OP_LOAD64_ORDER:
      return UTIL_LoadU64Order(p, b1);
  }
  return 0;
}

// Quartiles of 800 samples, which begin at First and lie Distance apart; from the largest down.
struct VECTORS_QUARTILE_ROW {
  uint64_t First;
  uint64_t Distance;
  uint64_t Low;
  uint64_t High;
  uint32_t NumBuckets;  // at most 10
  uint64_t Resolution;
  int32_t  Result;
  uint64_t aExpected[3];  // 77 before the call
};

static const VECTORS_QUARTILE_ROW VECTORS_QuartileRows[] = {
    // The centres of the buckets that the samples 200, 400 and 600 lie in
    {0, 1, 0, 799, 10, 80, 0, {200, 360, 600}},
    {0, 1, 0, 799, 1, 800, 0, {400, 400, 400}},
    {1000, 1, 1000, 1799, 10, 80, 0, {1200, 1360, 1600}},
    // 800 buckets of a second level, each 1000 wide
    {0, 1000, 0, 799999, 1, 1000, 0, {199500, 399500, 599500}},
    {1000, 1000, 1000, 800999, 1, 1000, 0, {200500, 400500, 600500}},
    {0, 1000, 0, 799999, 1, 999, 0, {199000, 399000, 599000}},
    // All samples under the range, or above it: the second level reaches from the smallest up to
    // the range, or from there up to the largest
    {5000, 1000, 804999, 900000, 10, 1000, 0, {204500, 404500, 604500}},
    {5000, 1000, 10, 4001, 10, 1000, 0, {203501, 403501, 603501}},
    // A range of one address
    {0, 1, 400, 400, 10, 1, 0, {199, 399, 599}},
    // What cannot be reached
    {0, 1, 0, 799, 10, 0, -1, {77, 77, 77}},
    {0, 1, 0, 799, 0, 1, -1, {77, 77, 77}},
    {0, 1, 799, 0, 10, 1, -1, {77, 77, 77}},
};

static inline int VECTORS_RunQuartiles(VECTORS_REPORT* pfReport) {
  static uint64_t aSample[800];
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_QuartileRows); i++) {
    const VECTORS_QUARTILE_ROW* pRow = &VECTORS_QuartileRows[i];
    uint32_t                    aBucket[10];
    uint64_t                    a[3] = {77, 77, 77};
    for (uint32_t k = 0; k < 800; k++) {
      aSample[799 - k] = pRow->First + k * pRow->Distance;
    }
    const int32_t Result =
        UTIL_FindQuartiles(pRow->Low, pRow->High, aSample, 800, aBucket, pRow->NumBuckets,
                           pRow->Resolution, &a[0], &a[1], &a[2]);
    VECTORS_Check(Result == pRow->Result && memcmp(a, pRow->aExpected, sizeof(a)) == 0, pfReport,
                  "quartiles", i, "other estimates");
  }
  return VECTORS_NUM_ROWS(VECTORS_QuartileRows);
}

static inline int VECTORS_RunBits(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_BitsRows); i++) {
    const VECTORS_BITS_ROW* pRow = &VECTORS_BitsRows[i];
    VECTORS_Check(VECTORS_CallBits(pRow) == pRow->Expected, pfReport, "bits", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_BitsRows) + VECTORS_RunStores(pfReport) +
         VECTORS_RunQuartiles(pfReport);
}

#endif
