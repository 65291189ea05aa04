// SPDX-License-Identifier: MIT

#include "util/bits.h"

#include <gtest/gtest.h>
#include <string.h>

#include <bitset>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/util/guarded.h"
#include "tests/util/vector_report.h"
#include "tests/util/vectors_bits.h"

static const int NUM_RANDOM = 100000;

TEST(UtilBits, EveryRowOfTheTablesHolds) {
  EXPECT_LT(320, VECTORS_RunBits(ReportRow));
}

// Numbers of variable length

TEST(UtilLEB128, WritesSevenBitsPerByteLowestFirst) {
  uint8_t  ab[4] = {0xEE, 0xEE, 0xEE, 0xEE};
  uint8_t* p     = ab;
  UTIL_WriteLEB128(&p, 0);
  EXPECT_EQ(ab + 1, p);
  EXPECT_EQ(0, memcmp(ab, "\x00\xEE", 2));
  UTIL_WriteLEB128(&p, 300);
  EXPECT_EQ(ab + 3, p);
  EXPECT_EQ(0, memcmp(ab, "\x00\xAC\x02\xEE", 4));
}

TEST(UtilLEB128, ReadsPaddedNumbersAndDropsWhatExceeds64Bits) {
  const uint8_t  abPadded[] = {0x85, 0x80, 0x00, 0x7F};
  const uint8_t* p          = abPadded;
  EXPECT_EQ(5u, UTIL_ReadLEB128(&p));
  EXPECT_EQ(abPadded + 3, p);
  uint8_t abLong[14];
  memset(abLong, 0xFF, sizeof(abLong));
  abLong[12] = 0x7F;
  p          = abLong;
  EXPECT_EQ(UINT64_MAX, UTIL_ReadLEB128(&p));
  EXPECT_EQ(abLong + 13, p);
}

TEST(UtilLEB128, ReadsBackWhatItWroteOverRandomValues) {
  std::mt19937_64 Random(1);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const uint64_t Value = Random() >> (Random() % 64);
    uint64_t       Bytes = 1;
    for (uint64_t Rest = Value / 128; Rest > 0; Rest /= 128) {
      Bytes++;
    }
    ASSERT_EQ(Bytes, VECTORS_RunLEB128(Value)) << Value;
  }
}

// Byte by byte, as the format says.
static std::vector<uint8_t> WrittenByModel(uint64_t Value) {
  std::vector<uint8_t> Bytes;
  for (; Value > 0x7F; Value >>= 7) {
    Bytes.push_back((uint8_t)(Value | 0x80));
  }
  Bytes.push_back((uint8_t)Value);
  return Bytes;
}

TEST(UtilLEB128, WritesEveryLengthExactlyAndNoByteMore) {
  GUARDED         Memory;
  std::mt19937_64 Random(7);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const uint64_t             Value    = i < 64 ? (uint64_t)1 << i : Random() >> (Random() % 64);
    const std::vector<uint8_t> Expected = WrittenByModel(Value);
    for (const bool IsAtEnd : {true, false}) {
      uint8_t* pFirst = IsAtEnd ? Memory.Last(Expected.size()) : Memory.First() + 1;
      uint8_t* p      = pFirst;
      pFirst[-1]      = 0xEE;
      memset(pFirst, 0xEE, Expected.size() + !IsAtEnd);
      UTIL_WriteLEB128(&p, Value);
      ASSERT_EQ(pFirst + Expected.size(), p) << Value;
      ASSERT_EQ(Expected, std::vector<uint8_t>(pFirst, p)) << Value;
      ASSERT_EQ(0xEE, pFirst[-1]) << Value;
      ASSERT_TRUE(IsAtEnd || *p == 0xEE) << Value;
    }
  }
}

TEST(UtilLEB128, ReadsNumbersAtTheEndOfAPageAndWithOthersAfterThem) {
  GUARDED         Memory;
  std::mt19937_64 Random(8);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const uint64_t             Value = Random() >> (Random() % 64);
    const std::vector<uint8_t> Bytes = WrittenByModel(Value);
    uint8_t* const             pEnd  = Memory.First() + Memory.Size();
    uint8_t* const             pCopy = pEnd - Bytes.size() - (size_t)(Random() % 10);
    memset(pCopy, (int)Random() & 0xFF, (size_t)(pEnd - pCopy));
    memcpy(pCopy, Bytes.data(), Bytes.size());
    const uint8_t* p = pCopy;
    ASSERT_EQ(Value, UTIL_ReadLEB128(&p)) << i;
    ASSERT_EQ(pCopy + Bytes.size(), p) << i;
  }
}

// Fields, against a model that keeps a buffer as a row of single bits

static const uint32_t FIELD_BYTES = 40;

class BIT_MODEL {
 public:
  explicit BIT_MODEL(const uint8_t* p) {
    for (uint32_t i = 0; i < 8 * FIELD_BYTES; i++) {
      Bits[i] = (p[i / 8] >> (i % 8)) % 2 != 0;
    }
  }
  uint32_t Read(uint32_t First, uint32_t NumBits) const {
    uint32_t Value = 0;
    for (uint32_t i = NumBits; i > 0; i--) {
      Value = Value * 2 + (Bits[First + i - 1] ? 1 : 0);
    }
    return Value;
  }
  void Write(uint32_t First, uint32_t Value) {
    for (uint32_t i = 0; i < 32; i++) {
      Bits[First + i] = (Value >> i) % 2 != 0;
    }
  }
  void Fill(uint32_t First, uint32_t NumBits, bool IsSet) {
    for (uint32_t i = 0; i < NumBits; i++) {
      Bits[First + i] = IsSet;
    }
  }
  bool Equals(const uint8_t* p) const { return BIT_MODEL(p).Bits == Bits; }

 private:
  std::bitset<8 * FIELD_BYTES> Bits;
};

static void FillRandomly(uint8_t* p, size_t NumBytes, std::mt19937* pRandom) {
  for (size_t i = 0; i < NumBytes; i++) {
    p[i] = (uint8_t)(*pRandom)();
  }
}

TEST(UtilReadBits, AgreesWithTheModelAtEveryOffsetAndWidth) {
  std::mt19937 Random(2);
  uint8_t      ab[FIELD_BYTES];
  for (int Round = 0; Round < 20; Round++) {
    FillRandomly(ab, sizeof(ab), &Random);
    const BIT_MODEL Model(ab);
    for (uint32_t Offset = 0; Offset <= 8 * FIELD_BYTES; Offset++) {
      for (uint32_t NumBits = 0; NumBits <= 16 && Offset + NumBits <= 8 * FIELD_BYTES; NumBits++) {
        ASSERT_EQ(Model.Read(Offset, NumBits), UTIL_ReadBits(ab, Offset, NumBits));
      }
    }
    for (uint32_t Offset = 0; Offset + 32 <= 8 * FIELD_BYTES; Offset++) {
      ASSERT_EQ(Model.Read(Offset, 32), UTIL_ReadBits32(ab, Offset));
    }
  }
}

TEST(UtilReadBits, WidthAboveSixteenGivesZero) {
  const uint8_t ab[8] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(0xFFFFu, UTIL_ReadBits(ab, 3, 16));
  EXPECT_EQ(0u, UTIL_ReadBits(ab, 3, 17));
  EXPECT_EQ(0u, UTIL_ReadBits(ab, 0, 0xFFFFFFFF));
}

TEST(UtilReadBits, ReadsNoByteAfterTheField) {
  GUARDED Memory;
  for (uint32_t Shift = 0; Shift < 8; Shift++) {
    for (uint32_t NumBits = 0; NumBits <= 16; NumBits++) {
      const uint32_t NumBytes = NumBits == 0 ? 0 : (Shift + NumBits + 7) / 8;
      uint8_t*       p        = Memory.Last(NumBytes);
      memset(p, 0xFF, NumBytes);
      EXPECT_EQ((1u << NumBits) - 1, UTIL_ReadBits(p, Shift, NumBits)) << Shift << " " << NumBits;
    }
    uint8_t* p = Memory.Last(Shift == 0 ? 4 : 5);
    UTIL_WriteBits32(p, Shift, 0xFFFFFFFF);
    EXPECT_EQ(0xFFFFFFFFu, UTIL_ReadBits32(p, Shift));
    EXPECT_EQ(0u, UTIL_ReadBits(nullptr, Shift, 0));
  }
}

TEST(UtilWriteBits32, PreservesAllOtherBits) {
  std::mt19937 Random(3);
  uint8_t      ab[FIELD_BYTES];
  FillRandomly(ab, sizeof(ab), &Random);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const uint32_t Offset = (uint32_t)Random() % (8 * FIELD_BYTES - 31);
    const uint32_t Value  = (uint32_t)Random();
    BIT_MODEL      Model(ab);
    Model.Write(Offset, Value);
    UTIL_WriteBits32(ab, Offset, Value);
    ASSERT_TRUE(Model.Equals(ab)) << Offset;
    ASSERT_EQ(Value, UTIL_ReadBits32(ab, Offset));
    const uint32_t Other = (uint32_t)Random() % (8 * FIELD_BYTES - 31);
    ASSERT_EQ(Model.Read(Other, 32), UTIL_ReadBits32(ab, Other)) << Other;
  }
}

TEST(UtilWriteBitArray, LaterValuesOverwriteTheBitsAboveTheWidth) {
  std::mt19937 Random(4);
  uint8_t      ab[FIELD_BYTES];
  uint32_t     aValue[12];
  for (int i = 0; i < NUM_RANDOM; i++) {
    FillRandomly(ab, sizeof(ab), &Random);
    for (uint32_t& Value : aValue) {
      Value = (uint32_t)Random();
    }
    const uint32_t StartBit  = (uint32_t)Random() % 8;
    const uint32_t NumBits   = (uint32_t)Random() % 24;
    const uint32_t NumValues = (uint32_t)Random() % 13;
    BIT_MODEL      Model(ab);
    for (uint32_t k = 0; k < NumValues; k++) {
      Model.Write(StartBit + k * NumBits, aValue[k]);
    }
    UTIL_WriteBitArray(ab, aValue, StartBit, NumBits, NumValues);
    ASSERT_TRUE(Model.Equals(ab)) << StartBit << " " << NumBits << " " << NumValues;
  }
}

TEST(UtilWriteBitArray, BitsOfTheLastValueRemain) {
  uint8_t        ab[6]    = {0, 0, 0, 0, 0, 0};
  const uint32_t aValue[] = {0xFFFFFFFF, 0xFFFFFFF0};
  UTIL_WriteBitArray(ab, aValue, 4, 4, 2);
  EXPECT_EQ(0, memcmp(ab, "\xF0\xF0\xFF\xFF\xFF\x00", 6));
}

TEST(UtilSetBits, SetsAndClearsExactlyTheRun) {
  for (uint32_t First = 0; First <= 8 * FIELD_BYTES; First++) {
    for (uint32_t NumBits = 0; First + NumBits <= 8 * FIELD_BYTES; NumBits++) {
      uint8_t ab[FIELD_BYTES];
      memset(ab, 0xA5, sizeof(ab));
      BIT_MODEL Model(ab);
      Model.Fill(First, NumBits, true);
      UTIL_SetBits(ab, First, NumBits);
      ASSERT_TRUE(Model.Equals(ab)) << First << " " << NumBits;
      memset(ab, 0xA5, sizeof(ab));
      Model = BIT_MODEL(ab);
      Model.Fill(First, NumBits, false);
      UTIL_ClearBits(ab, First, NumBits);
      ASSERT_TRUE(Model.Equals(ab)) << First << " " << NumBits;
    }
  }
}

TEST(UtilSetBits, TouchesNoByteBesideTheRun) {
  GUARDED Memory;
  for (uint32_t NumBits = 1; NumBits <= 600; NumBits++) {
    const size_t         NumBytes = (NumBits + 7) / 8;
    const uint32_t       First    = (uint32_t)(8 * NumBytes) - NumBits;
    std::vector<uint8_t> Expected(NumBytes, 0);
    for (uint32_t i = 0; i < 8 * NumBytes; i++) {
      Expected[i / 8] = (uint8_t)(Expected[i / 8] | (i < NumBits || i >= First) << i % 8);
    }
    for (uint8_t* p : {Memory.First(), Memory.Last(NumBytes)}) {
      memset(p, 0, NumBytes);
      UTIL_SetBits(p, 0, NumBits);
      UTIL_SetBits(p, First, NumBits);
      ASSERT_EQ(Expected, std::vector<uint8_t>(p, p + NumBytes)) << NumBits;
      UTIL_ClearBits(p, First, NumBits);
      UTIL_ClearBits(p, 0, NumBits);
      ASSERT_EQ(std::vector<uint8_t>(NumBytes, 0), std::vector<uint8_t>(p, p + NumBytes))
          << NumBits;
    }
  }
}

TEST(UtilSetBits, NullBitmapOrNoBitsDoNothing) {
  UTIL_SetBits(nullptr, 0, 10);
  UTIL_ClearBits(nullptr, 0, 10);
  uint8_t b = 0x5A;
  UTIL_SetBits(&b, 3, 0);
  UTIL_ClearBits(&b, 3, 0);
  EXPECT_EQ(0x5A, b);
}

// Counts and positions

TEST(UtilBitCounts, AgreeWithAModelOverRandomValues) {
  std::mt19937_64 Random(5);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const uint64_t Wide    = Random() >> (Random() % 64);
    const uint32_t Value   = (uint32_t)(Wide >> (Random() % 32));
    int32_t        Highest = -1, Lowest = -1, Highest64 = -1;
    uint32_t       Count = 0;
    for (int32_t k = 0; k < 64; k++) {
      if ((Wide >> k) % 2 != 0) {
        Highest64 = k;
      }
      if (k < 32 && (Value >> k) % 2 != 0) {
        Highest = k;
        Lowest  = Lowest < 0 ? k : Lowest;
        Count++;
      }
    }
    ASSERT_EQ(Highest, UTIL_GetHighestBit32(Value));
    ASSERT_EQ(Highest64, UTIL_GetHighestBit64(Wide));
    ASSERT_EQ(Lowest, UTIL_GetLowestBit32(Value));
    ASSERT_EQ(Count, UTIL_CountBits(Value));
    ASSERT_EQ(Count % 2, UTIL_GetParity(Value));
    ASSERT_EQ((int32_t)Value > 0 ? Highest : 31, UTIL_GetLog2((int32_t)Value));
  }
}

// Reversed bits

static uint32_t Reversed(uint32_t Value, int NumBits) {
  uint32_t Result = 0;
  for (int i = 0; i < NumBits; i++) {
    Result = Result * 2 + Value % 2;
    Value /= 2;
  }
  return Result;
}

TEST(UtilBitRev, ConcurrentFirstUsesSeeTheRightTable) {
  std::vector<std::thread> Threads;
  std::vector<int>         NumWrong(4);
  for (size_t i = 0; i < NumWrong.size(); i++) {
    Threads.emplace_back([&NumWrong, i] {
      for (uint32_t Value = 0; Value < 0x10000; Value++) {
        NumWrong[i] += UTIL_GetBitRev16((uint16_t)Value) != Reversed(Value, 16);
      }
    });
  }
  for (std::thread& Thread : Threads) {
    Thread.join();
  }
  EXPECT_EQ(std::vector<int>(4, 0), NumWrong);
}

TEST(UtilBitRev, AgreesWithAModel) {
  for (uint32_t Value = 0; Value < 0x10000; Value++) {
    ASSERT_EQ(Reversed(Value, 16), UTIL_GetBitRev16((uint16_t)Value));
  }
  std::mt19937 Random(6);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const uint32_t Value = (uint32_t)Random();
    ASSERT_EQ(Reversed(Value, 32), UTIL_GetBitRev32(Value));
  }
}
