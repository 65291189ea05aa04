// SPDX-License-Identifier: MIT

#include "util/byteorder.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

// Bytes 1, 2, 3 ... at every alignment, with a canary in front of and behind the bytes in use.
class UtilByteOrder : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    memset(ab, 0xEE, sizeof(ab));
    p = ab + 1 + GetParam();
  }
  void Fill(int NumBytes) {
    for (int i = 0; i < NumBytes; i++) {
      p[i] = (uint8_t)(i + 1);
    }
  }
  // True when exactly the expected bytes stand at p.
  bool Holds(const std::vector<uint8_t>& Expected) {
    std::vector<uint8_t> All(sizeof(ab), 0xEE);
    std::copy(Expected.begin(), Expected.end(), All.begin() + (p - ab));
    const bool IsSame = memcmp(ab, All.data(), sizeof(ab)) == 0;
    memset(ab, 0xEE, sizeof(ab));
    return IsSame;
  }
  alignas(16) uint8_t ab[40];
  uint8_t* p;
};

INSTANTIATE_TEST_SUITE_P(Alignments, UtilByteOrder, testing::Range(0, 8));

TEST_P(UtilByteOrder, LoadsEveryWidthAndOrder) {
  Fill(8);
  EXPECT_EQ(0x01u, UTIL_LoadU8(p));
  EXPECT_EQ(0x0201u, UTIL_LoadU16(p));
  EXPECT_EQ(0x04030201u, UTIL_LoadU32(p));
  EXPECT_EQ(0x0807060504030201u, UTIL_LoadU64(p));
  EXPECT_EQ(0x0403020108070605u, UTIL_LoadU64Words(p));
  EXPECT_EQ(0x0102u, UTIL_LoadU16BE(p));
  EXPECT_EQ(0x01020304u, UTIL_LoadU32BE(p));
  EXPECT_EQ(0x0201u, UTIL_LoadU16Order(p, 0));
  EXPECT_EQ(0x04030201u, UTIL_LoadU32Order(p, 0));
  EXPECT_EQ(0x0807060504030201u, UTIL_LoadU64Order(p, 0));
  for (int32_t IsBE : {1, 2, -1, 256, INT32_MIN}) {
    EXPECT_EQ(0x0102u, UTIL_LoadU16Order(p, IsBE));
    EXPECT_EQ(0x01020304u, UTIL_LoadU32Order(p, IsBE));
    EXPECT_EQ(0x0102030405060708u, UTIL_LoadU64Order(p, IsBE));
  }
}

TEST_P(UtilByteOrder, StoresEveryWidthAndOrder) {
  UTIL_StoreU16LE(p, 0x0102);
  EXPECT_TRUE(Holds({2, 1}));
  UTIL_StoreU32LE(p, 0x01020304);
  EXPECT_TRUE(Holds({4, 3, 2, 1}));
  UTIL_StoreU64LE(p, 0x0102030405060708);
  EXPECT_TRUE(Holds({8, 7, 6, 5, 4, 3, 2, 1}));
  UTIL_StoreU16BE(p, 0x0102);
  EXPECT_TRUE(Holds({1, 2}));
  UTIL_StoreU32BE(p, 0x01020304);
  EXPECT_TRUE(Holds({1, 2, 3, 4}));
  UTIL_StoreU64BE(p, 0x0102030405060708);
  EXPECT_TRUE(Holds({1, 2, 3, 4, 5, 6, 7, 8}));
  UTIL_StoreU16Order(p, 0x0102, 0);
  EXPECT_TRUE(Holds({2, 1}));
  UTIL_StoreU32Order(p, 0x01020304, 0);
  EXPECT_TRUE(Holds({4, 3, 2, 1}));
  UTIL_StoreU64Order(p, 0x0102030405060708, 0);
  EXPECT_TRUE(Holds({8, 7, 6, 5, 4, 3, 2, 1}));
  for (int32_t IsBE : {1, 2, -1, 256, INT32_MIN}) {
    UTIL_StoreU16Order(p, 0x0102, IsBE);
    EXPECT_TRUE(Holds({1, 2}));
    UTIL_StoreU32Order(p, 0x01020304, IsBE);
    EXPECT_TRUE(Holds({1, 2, 3, 4}));
    UTIL_StoreU64Order(p, 0x0102030405060708, IsBE);
    EXPECT_TRUE(Holds({1, 2, 3, 4, 5, 6, 7, 8}));
  }
}

TEST_P(UtilByteOrder, StoreAndAdvanceMovesTheCursorByFour) {
  uint8_t* pCursor = p;
  UTIL_StoreU32LEAdvance(&pCursor, 0x01020304);
  UTIL_StoreU32LEAdvance(&pCursor, 0x05060708);
  EXPECT_EQ(p + 8, pCursor);
  EXPECT_TRUE(Holds({4, 3, 2, 1, 8, 7, 6, 5}));
}

TEST_P(UtilByteOrder, StoresA128BitValueAsTwoHalves) {
  UTIL_StoreU128(p, 0x0102030405060708, 0x090A0B0C0D0E0F10);
  EXPECT_TRUE(Holds({16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1}));
  UTIL_StoreU128BE(p, 0x0102030405060708, 0x090A0B0C0D0E0F10);
  EXPECT_TRUE(Holds({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}));
}

// The bytes of a value, lowest first, or highest first.
static std::string BytesOf(uint64_t Value, size_t NumBytes, bool IsBE) {
  std::string Bytes;
  for (size_t i = 0; i < NumBytes; i++) {
    Bytes += (char)(Value % 256);
    Value /= 256;
  }
  return IsBE ? std::string(Bytes.rbegin(), Bytes.rend()) : Bytes;
}

TEST(UtilByteOrder, LoadsAgreeWithAModelOverRandomValues) {
  std::mt19937_64 Random(3);
  for (int i = 0; i < 100000; i++) {
    const uint64_t    Value = Random() >> (Random() % 64);
    const int32_t     IsBE  = (int32_t)(Random() | 1);
    const std::string Front((size_t)i % 8, '#');
    const std::string LE = Front + BytesOf(Value, 8, false), BE = Front + BytesOf(Value, 8, true);
    const uint8_t*    p = (const uint8_t*)LE.data() + Front.size();
    ASSERT_EQ((uint8_t)Value, UTIL_LoadU8(p));
    ASSERT_EQ((uint16_t)Value, UTIL_LoadU16(p));
    ASSERT_EQ((uint32_t)Value, UTIL_LoadU32(p));
    ASSERT_EQ(Value, UTIL_LoadU64(p));
    ASSERT_EQ((Value << 32) | (Value >> 32), UTIL_LoadU64Words(p));
    ASSERT_EQ((uint16_t)Value, UTIL_LoadU16Order(p, 0));
    ASSERT_EQ((uint32_t)Value, UTIL_LoadU32Order(p, 0));
    ASSERT_EQ(Value, UTIL_LoadU64Order(p, 0));
    p = (const uint8_t*)BE.data() + Front.size();
    ASSERT_EQ(Value >> 48, UTIL_LoadU16BE(p));
    ASSERT_EQ(Value >> 32, UTIL_LoadU32BE(p));
    ASSERT_EQ(Value >> 48, UTIL_LoadU16Order(p, IsBE));
    ASSERT_EQ(Value >> 32, UTIL_LoadU32Order(p, IsBE));
    ASSERT_EQ(Value, UTIL_LoadU64Order(p, IsBE));
  }
}

TEST(UtilByteOrder, StoresAgreeWithAModelOverRandomValues) {
  std::mt19937_64 Random(4);
  for (int i = 0; i < 100000; i++) {
    const uint64_t    Value = Random() >> (Random() % 64), High = Random();
    const int32_t     IsBE  = i % 2 == 0 ? 0 : (int32_t)(Random() | 1);
    const bool        Order = IsBE != 0;
    const size_t      Front = (size_t)i % 8;
    const std::string Unused(32, '#');
    std::string       Buffer = Unused;
    uint8_t*          p      = (uint8_t*)Buffer.data() + Front;
    // Exactly these bytes have changed, and are unused again.
    const auto Holds = [&](const std::string& Bytes) {
      const bool IsSame = Buffer == std::string(Unused).replace(Front, Bytes.size(), Bytes);
      memset(Buffer.data(), '#', Buffer.size());
      return IsSame;
    };
    UTIL_StoreU16LE(p, (uint16_t)Value);
    ASSERT_TRUE(Holds(BytesOf(Value, 2, false))) << Value;
    UTIL_StoreU32LE(p, (uint32_t)Value);
    ASSERT_TRUE(Holds(BytesOf(Value, 4, false))) << Value;
    UTIL_StoreU64LE(p, Value);
    ASSERT_TRUE(Holds(BytesOf(Value, 8, false))) << Value;
    UTIL_StoreU16BE(p, (uint16_t)Value);
    ASSERT_TRUE(Holds(BytesOf(Value, 2, true))) << Value;
    UTIL_StoreU32BE(p, (uint32_t)Value);
    ASSERT_TRUE(Holds(BytesOf(Value, 4, true))) << Value;
    UTIL_StoreU64BE(p, Value);
    ASSERT_TRUE(Holds(BytesOf(Value, 8, true))) << Value;
    UTIL_StoreU16Order(p, (uint16_t)Value, IsBE);
    ASSERT_TRUE(Holds(BytesOf(Value, 2, Order))) << Value;
    UTIL_StoreU32Order(p, (uint32_t)Value, IsBE);
    ASSERT_TRUE(Holds(BytesOf(Value, 4, Order))) << Value;
    UTIL_StoreU64Order(p, Value, IsBE);
    ASSERT_TRUE(Holds(BytesOf(Value, 8, Order))) << Value;
    UTIL_StoreU128(p, High, Value);
    ASSERT_TRUE(Holds(BytesOf(Value, 8, false) + BytesOf(High, 8, false))) << Value;
    UTIL_StoreU128BE(p, High, Value);
    ASSERT_TRUE(Holds(BytesOf(High, 8, true) + BytesOf(Value, 8, true))) << Value;
    uint8_t* pCursor = p;
    UTIL_StoreU32LEAdvance(&pCursor, (uint32_t)Value);
    ASSERT_EQ(p + 4, pCursor);
    ASSERT_TRUE(Holds(BytesOf(Value, 4, false))) << Value;
  }
}

TEST(UtilSwap, TwiceGivesTheValueBackOverRandomValues) {
  std::mt19937_64 Random(1);
  for (int i = 0; i < 100000; i++) {
    const uint64_t Value = Random();
    ASSERT_EQ((uint16_t)(Value * 256 + (uint16_t)Value / 256), UTIL_SwapU16((uint16_t)Value));
    ASSERT_EQ((uint16_t)Value, UTIL_SwapU16(UTIL_SwapU16((uint16_t)Value)));
    ASSERT_EQ(
        ((uint32_t)UTIL_SwapU16((uint16_t)Value) << 16) | UTIL_SwapU16((uint16_t)(Value >> 16)),
        UTIL_SwapU32((uint32_t)Value));
    ASSERT_EQ(
        ((uint64_t)UTIL_SwapU32((uint32_t)Value) << 32) | UTIL_SwapU32((uint32_t)(Value >> 32)),
        UTIL_SwapU64(Value));
  }
}

// Array swaps: every length, every pair of alignments, in place and into another buffer

struct ARRAY_SWAP {
  void (*pf)(void*, const void*, uint32_t);
  size_t UnitSize;
};

class UtilSwapArray : public testing::TestWithParam<ARRAY_SWAP> {};

INSTANTIATE_TEST_SUITE_P(Widths, UtilSwapArray,
                         testing::Values(ARRAY_SWAP{UTIL_SwapArrayU16, 2},
                                         ARRAY_SWAP{UTIL_SwapArrayU32, 4},
                                         ARRAY_SWAP{UTIL_SwapArrayU64, 8}));

static const size_t CANARY = 40;

static std::vector<uint8_t> RandomBytes(size_t NumBytes) {
  static std::mt19937  Random(2);
  std::vector<uint8_t> Bytes(NumBytes);
  for (uint8_t& b : Bytes) {
    b = (uint8_t)Random();
  }
  return Bytes;
}

static std::vector<uint8_t> Swapped(std::vector<uint8_t> Bytes, size_t First, size_t NumItems,
                                    size_t UnitSize) {
  for (size_t i = 0; i < NumItems; i++) {
    const auto Unit = Bytes.begin() + (long)(First + i * UnitSize);
    std::reverse(Unit, Unit + (long)UnitSize);
  }
  return Bytes;
}

TEST_P(UtilSwapArray, InPlaceAtEveryLengthAndAlignment) {
  const size_t UnitSize = GetParam().UnitSize;
  for (uint32_t NumItems = 0; NumItems <= 300; NumItems++) {
    for (size_t Align = 0; Align < 32; Align++) {
      std::vector<uint8_t>       Buffer   = RandomBytes(2 * CANARY + NumItems * UnitSize);
      const std::vector<uint8_t> Expected = Swapped(Buffer, Align, NumItems, UnitSize);
      GetParam().pf(&Buffer[Align], &Buffer[Align], NumItems);
      ASSERT_EQ(Expected, Buffer) << NumItems << " " << Align;
    }
  }
}

TEST_P(UtilSwapArray, IntoAnotherBufferAtEveryLengthAndAlignment) {
  const size_t         UnitSize = GetParam().UnitSize;
  std::vector<uint8_t> Dest, Expected;  // here, so that a round reuses their memory
  for (uint32_t NumItems = 0; NumItems <= 300; NumItems++) {
    const std::vector<uint8_t> Source   = RandomBytes(2 * CANARY + NumItems * UnitSize);
    const std::vector<uint8_t> Original = RandomBytes(2 * CANARY + NumItems * UnitSize);
    for (size_t AlignSource = 0; AlignSource < 32; AlignSource++) {
      const std::vector<uint8_t> Result = Swapped(Source, AlignSource, NumItems, UnitSize);
      for (size_t AlignDest = 0; AlignDest < 32; AlignDest++) {
        Dest     = Original;
        Expected = Original;
        std::copy_n(Result.begin() + (long)AlignSource, NumItems * UnitSize,
                    Expected.begin() + (long)AlignDest);
        GetParam().pf(&Dest[AlignDest], &Source[AlignSource], NumItems);
        ASSERT_EQ(Expected, Dest) << NumItems << " " << AlignSource << " " << AlignDest;
      }
    }
  }
}

TEST_P(UtilSwapArray, NoUnitsNeedNoBuffer) {
  GetParam().pf(nullptr, nullptr, 0);
}

// Target memory. The model asks for each byte which unit it belongs to.

static std::vector<uint8_t> TargetSwapped(const std::vector<uint8_t>& Bytes, uint32_t Addr) {
  std::vector<uint8_t> Result = Bytes;
  size_t               i      = 0;
  while (i < Bytes.size()) {
    const size_t At    = Addr + i;
    const size_t Left  = Bytes.size() - i;
    const size_t Units = At % 4 == 0 && Left >= 4 ? 4 : At % 2 == 0 && Left >= 2 ? 2 : 1;
    std::reverse(Result.begin() + (long)i, Result.begin() + (long)(i + Units));
    i += Units;
  }
  return Result;
}

TEST(UtilSwapTargetMem, SwapsInTheUnitsOfTheBusAtEveryLengthAndAddress) {
  for (uint32_t NumBytes = 0; NumBytes <= 300; NumBytes++) {
    for (uint32_t Addr = 0x20000000; Addr < 0x20000004; Addr++) {
      for (size_t Align = 0; Align < 8; Align++) {
        const std::vector<uint8_t> Bytes    = RandomBytes(NumBytes);
        const std::vector<uint8_t> Expected = TargetSwapped(Bytes, Addr);
        std::vector<uint8_t>       Buffer(NumBytes + 2 * CANARY, 0xEE);
        std::copy(Bytes.begin(), Bytes.end(), Buffer.begin() + (long)Align);
        std::vector<uint8_t> Whole = Buffer;
        std::copy(Expected.begin(), Expected.end(), Whole.begin() + (long)Align);

        UTIL_SwapTargetMem(&Buffer[Align], Addr, NumBytes, 0);
        ASSERT_EQ(Whole, Buffer) << NumBytes << " " << Addr;

        std::fill(Buffer.begin(), Buffer.end(), (uint8_t)0xEE);
        UTIL_CopySwapTargetMem(&Buffer[Align], Bytes.data(), Addr, NumBytes);
        ASSERT_EQ(Whole, Buffer) << NumBytes << " " << Addr;
      }
    }
  }
}

// What is left of the steps: 2-byte units alone, or 4-byte units alone, from the first even
// address; with neither nothing.
TEST(UtilSwapTargetMem, FlagsLeaveOutSteps) {
  for (uint32_t Flags : {0x40000000u, 0x80000000u, 0xC0000000u}) {
    const size_t UnitSize = Flags == 0x40000000 ? 4 : Flags == 0x80000000 ? 2 : 1;
    for (uint32_t NumBytes = 0; NumBytes <= 300; NumBytes++) {
      for (uint32_t Addr = 0x20000000; Addr < 0x20000004; Addr++) {
        const size_t               First    = Addr % 2;
        const size_t               Units    = NumBytes < First ? 0 : (NumBytes - First) / UnitSize;
        std::vector<uint8_t>       Buffer   = RandomBytes(NumBytes + 2 * CANARY);
        const std::vector<uint8_t> Expected = Swapped(Buffer, CANARY + First, Units, UnitSize);
        UTIL_SwapTargetMem(&Buffer[CANARY], Addr, NumBytes, Flags);
        ASSERT_EQ(Expected, Buffer) << Flags << " " << NumBytes << " " << Addr;
      }
    }
  }
}

TEST(UtilCopySwapTargetMem, SourceMayBeTheDestination) {
  uint8_t ab[] = {1, 2, 3, 4, 5, 6};
  UTIL_CopySwapTargetMem(ab, ab, 2, 6);
  EXPECT_EQ(0, memcmp(ab, "\2\1\6\5\4\3", 6));
  UTIL_CopySwapTargetMem(nullptr, nullptr, 1, 0);
}
