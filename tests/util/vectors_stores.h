// tests/util/vectors_stores.h
// SPDX-License-Identifier: MIT
//
// Rows for what writes into memory: stores, fields and runs of bits, and swaps. VECTORS_RunBits of
// vectors_bits.h runs them.

#ifndef TESTS_UTIL_VECTORS_STORES_H
#define TESTS_UTIL_VECTORS_STORES_H

#include "tests/util/vectors.h"
#include "util/bits.h"
#include "util/byteorder.h"

// Writes into the bytes 1 to 24, and what stands there then; the bytes behind must not change.
enum VECTORS_WRITE_OP {
  OP_STORE16_LE,
  OP_STORE32_LE,
  OP_STORE64_LE,
  OP_STORE16_BE,
  OP_STORE32_BE,
  OP_STORE64_BE,
  OP_STORE16_ORDER,
  OP_STORE32_ORDER,
  OP_STORE64_ORDER,
  OP_STORE32_ADVANCE,
  OP_STORE128,
  OP_STORE128_BE,
  OP_WRITE_LEB128,
  OP_WRITE_BITS32,
  OP_WRITE_BIT_ARRAY,  // of VECTORS_aFields, from a bit on, so many bits apart and so many of them
  OP_SET_BITS,
  OP_CLEAR_BITS
};

static const uint32_t VECTORS_aFields[] = {0xF1234567, 0x89ABCDE2, 0x0000FFF3};

struct VECTORS_WRITE_ROW {
  VECTORS_WRITE_OP Op;
  uint64_t         a[3];
  uint32_t         NumBytes;
  const char*      sExpected;
};

static const VECTORS_WRITE_ROW VECTORS_WriteRows[] = {
    {OP_STORE16_LE, {0x4142}, 2, "BA"},
    {OP_STORE32_LE, {0x41424344}, 4, "DCBA"},
    {OP_STORE64_LE, {0x4142434445464748}, 8, "HGFEDCBA"},
    {OP_STORE16_BE, {0x4142}, 2, "AB"},
    {OP_STORE32_BE, {0x41424344}, 4, "ABCD"},
    {OP_STORE64_BE, {0x4142434445464748}, 8, "ABCDEFGH"},
    {OP_STORE16_ORDER, {0x4142, 0}, 2, "BA"},
    {OP_STORE16_ORDER, {0x4142, 2}, 2, "AB"},
    {OP_STORE32_ORDER, {0x41424344, 0}, 4, "DCBA"},
    {OP_STORE32_ORDER, {0x41424344, 2}, 4, "ABCD"},
    {OP_STORE64_ORDER, {0x4142434445464748, 0}, 8, "HGFEDCBA"},
    {OP_STORE64_ORDER, {0x4142434445464748, 2}, 8, "ABCDEFGH"},
    {OP_STORE32_ADVANCE, {0x41424344, 0x45464748}, 8, "DCBAHGFE"},
    {OP_STORE128, {0x4142434445464748, 0x494A4B4C4D4E4F50}, 16, "PONMLKJIHGFEDCBA"},
    {OP_STORE128_BE, {0x4142434445464748, 0x494A4B4C4D4E4F50}, 16, "ABCDEFGHIJKLMNOP"},
    {OP_WRITE_BITS32, {8, 0x41424344}, 5, "\1DCBA"},
    {OP_WRITE_BITS32, {12, 0x41424344}, 6, "\1\x42\x34\x24\x14\4"},
    {OP_WRITE_LEB128, {0}, 1, "\0"},
    {OP_WRITE_LEB128, {127}, 1, "\x7F"},
    {OP_WRITE_LEB128, {128}, 2, "\x80\1"},
    {OP_WRITE_LEB128, {300}, 2, "\xAC\2"},
    {OP_WRITE_LEB128, {0xFFFFFFFF}, 5, "\xFF\xFF\xFF\xFF\x0F"},
    {OP_WRITE_LEB128, {UINT64_MAX}, 10, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\1"},
    {OP_WRITE_BIT_ARRAY, {0, 8, 0}, 1, "\1"},
    {OP_WRITE_BIT_ARRAY, {0, 8, 1}, 4, "\x67\x45\x23\xF1"},
    {OP_WRITE_BIT_ARRAY, {4, 8, 1}, 5, "\x71\x56\x34\x12\x0F"},
    {OP_WRITE_BIT_ARRAY, {0, 8, 3}, 6, "\x67\xE2\xF3\xFF\0\0"},
    {OP_WRITE_BIT_ARRAY, {4, 4, 3}, 6, "\x71\x32\xFF\x0F\0\0"},
    {OP_WRITE_BIT_ARRAY, {4, 0, 2}, 5, "\x21\xDE\xBC\x9A\x08"},
    {OP_WRITE_BIT_ARRAY, {0, 32, 2}, 8, "\x67\x45\x23\xF1\xE2\xCD\xAB\x89"},
    {OP_WRITE_BIT_ARRAY, {0, 40, 2}, 9, "\x67\x45\x23\xF1\5\xE2\xCD\xAB\x89"},
    {OP_SET_BITS, {4, 16}, 3, "\xF1\xFF\x0F"},
    {OP_SET_BITS, {1, 2}, 1, "\x07"},
    {OP_SET_BITS, {4, 0}, 1, "\1"},
    {OP_CLEAR_BITS, {1, 15}, 3, "\1\0\3"},
    {OP_CLEAR_BITS, {9, 1}, 2, "\1\0"},
    {OP_CLEAR_BITS, {8, 0}, 2, "\1\2"},
};

static inline void VECTORS_CallWrite(const VECTORS_WRITE_ROW* pRow, uint8_t* p) {
  const uint64_t a0   = pRow->a[0];
  const uint64_t a1   = pRow->a[1];
  const int32_t  IsBE = (int32_t)a1;
  switch (pRow->Op) {
    case OP_STORE16_LE:
      UTIL_StoreU16LE(p, (uint16_t)a0);
      break;
    case OP_STORE32_LE:
      UTIL_StoreU32LE(p, (uint32_t)a0);
      break;
    case OP_STORE64_LE:
      UTIL_StoreU64LE(p, a0);
      break;
    case OP_STORE16_BE:
      UTIL_StoreU16BE(p, (uint16_t)a0);
      break;
    case OP_STORE32_BE:
      UTIL_StoreU32BE(p, (uint32_t)a0);
      break;
    case OP_STORE64_BE:
      UTIL_StoreU64BE(p, a0);
      break;
    case OP_STORE16_ORDER:
      UTIL_StoreU16Order(p, (uint16_t)a0, IsBE);
      break;
    case OP_STORE32_ORDER:
      UTIL_StoreU32Order(p, (uint32_t)a0, IsBE);
      break;
    case OP_STORE64_ORDER:
      UTIL_StoreU64Order(p, a0, IsBE);
      break;
    case OP_STORE32_ADVANCE:
      UTIL_StoreU32LEAdvance(&p, (uint32_t)a0);
      UTIL_StoreU32LEAdvance(&p, (uint32_t)a1);
      break;
    case OP_STORE128:
      UTIL_StoreU128(p, a0, a1);
      break;
    case OP_STORE128_BE:
      UTIL_StoreU128BE(p, a0, a1);
      break;
    case OP_WRITE_BITS32:
      UTIL_WriteBits32(p, (uint32_t)a0, (uint32_t)a1);
      break;
    case OP_WRITE_LEB128:
      UTIL_WriteLEB128(&p, a0);
      break;
    case OP_WRITE_BIT_ARRAY:
      UTIL_WriteBitArray(p, VECTORS_aFields, (uint32_t)a0, (uint32_t)a1, (uint32_t)pRow->a[2]);
      break;
    case OP_SET_BITS:
      UTIL_SetBits(p, (uint32_t)a0, (uint32_t)a1);
      break;
    case OP_CLEAR_BITS:
      UTIL_ClearBits(p, (uint32_t)a0, (uint32_t)a1);
      break;
  }
}

static inline int VECTORS_RunWrites(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_WriteRows); i++) {
    const VECTORS_WRITE_ROW* pRow = &VECTORS_WriteRows[i];
    uint8_t                  ab[25];  // the first byte keeps the others from being aligned
    uint8_t                  abExpected[25];
    for (uint32_t k = 0; k < sizeof(ab); k++) {
      ab[k] = (uint8_t)k;
    }
    memcpy(abExpected, ab, sizeof(ab));
    memcpy(abExpected + 1, pRow->sExpected, pRow->NumBytes);
    VECTORS_CallWrite(pRow, ab + 1);
    VECTORS_Check(memcmp(ab, abExpected, sizeof(ab)) == 0, pfReport, "write", i, "bytes differ");
  }
  return VECTORS_NUM_ROWS(VECTORS_WriteRows);
}

// Array swaps of 0 to 40 units: byte i of a result is byte i ^ (unit size - 1) of the source.
static inline int VECTORS_RunArraySwaps(VECTORS_REPORT* pfReport) {
  static void (*const apf[])(void*, const void*, uint32_t) = {UTIL_SwapArrayU16, UTIL_SwapArrayU32,
                                                              UTIL_SwapArrayU64};
  int NumRows                                              = 0;
  for (uint32_t Width = 0; Width < 3; Width++) {
    const uint32_t UnitSize = 2u << Width;
    for (uint32_t NumItems = 0; NumItems <= 40; NumItems++) {
      uint8_t  abSource[330];
      uint8_t  abDest[330];
      uint32_t NumWrong = 0;
      for (uint32_t i = 0; i < sizeof(abSource); i++) {
        abSource[i] = (uint8_t)(i * 7 + i / 256);
        abDest[i]   = 0xEE;
      }
      apf[Width](abDest + 3, abSource + 1, NumItems);
      for (uint32_t i = 0; i < sizeof(abDest) - 3; i++) {
        const uint8_t Expected =
            i < NumItems * UnitSize ? abSource[1 + (i ^ (UnitSize - 1))] : (uint8_t)0xEE;
        NumWrong += abDest[3 + i] != Expected;
      }
      apf[Width](abSource + 1, abSource + 1, NumItems);
      NumWrong += memcmp(abSource + 1, abDest + 3, NumItems * UnitSize) != 0;
      VECTORS_Check(NumWrong == 0, pfReport, "swap of an array", NumRows, "bytes differ");
      NumRows++;
    }
  }
  return NumRows;
}

// Swaps of target memory: the bytes 1 to 9 at an address.
struct VECTORS_SWAP_ROW {
  uint32_t    Addr;
  uint32_t    NumBytes;
  uint32_t    Flags;
  const char* sExpected;
};

static const VECTORS_SWAP_ROW VECTORS_SwapRows[] = {
    {0x20000000, 9, 0, "\4\3\2\1\10\7\6\5\11"},
    {0x20000001, 9, 0, "\1\3\2\7\6\5\4\11\10"},
    {0x20000002, 9, 0, "\2\1\6\5\4\3\10\7\11"},
    {0x20000003, 9, 0, "\1\5\4\3\2\11\10\7\6"},
    {0x20000000, 7, 0, "\4\3\2\1\6\5\7\10\11"},
    {0x20000001, 2, 0, "\1\2\3\4\5\6\7\10\11"},
    {0x20000001, 1, 0, "\1\2\3\4\5\6\7\10\11"},
    {0x20000001, 0, 0, "\1\2\3\4\5\6\7\10\11"},
    {0x20000002, 1, 0, "\1\2\3\4\5\6\7\10\11"},
    {0x20000000, 9, 0x80000000, "\2\1\4\3\6\5\10\7\11"},
    {0x20000002, 9, 0x80000000, "\2\1\4\3\6\5\10\7\11"},
    {0x20000003, 9, 0x80000000, "\1\3\2\5\4\7\6\11\10"},
    {0x20000000, 7, 0x40000000, "\4\3\2\1\5\6\7\10\11"},
    {0x20000002, 7, 0x40000000, "\4\3\2\1\5\6\7\10\11"},
    {0x20000000, 9, 0xC0000000, "\1\2\3\4\5\6\7\10\11"},
    {0x20000000, 9, 0x3FFFFFFF, "\4\3\2\1\10\7\6\5\11"},
};

static inline int VECTORS_RunTargetMemSwaps(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_SwapRows); i++) {
    const VECTORS_SWAP_ROW* pRow = &VECTORS_SwapRows[i];
    uint8_t                 ab[9];
    uint8_t                 abCopy[9];
    memcpy(ab, "\1\2\3\4\5\6\7\10\11", 9);
    memcpy(abCopy, ab, 9);
    UTIL_CopySwapTargetMem(abCopy, ab, pRow->Addr, pRow->NumBytes);
    UTIL_SwapTargetMem(ab, pRow->Addr, pRow->NumBytes, pRow->Flags);
    VECTORS_Check(memcmp(ab, pRow->sExpected, 9) == 0, pfReport, "swap of target memory", i,
                  "in place");
    VECTORS_Check((pRow->Flags & 0xC0000000) != 0 || memcmp(abCopy, pRow->sExpected, 9) == 0,
                  pfReport, "swap of target memory", i, "copy");
  }
  return VECTORS_NUM_ROWS(VECTORS_SwapRows);
}

static inline int VECTORS_RunStores(VECTORS_REPORT* pfReport) {
  return VECTORS_RunWrites(pfReport) + VECTORS_RunArraySwaps(pfReport) +
         VECTORS_RunTargetMemSwaps(pfReport);
}

#endif
