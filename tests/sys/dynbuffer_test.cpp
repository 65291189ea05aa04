// SPDX-License-Identifier: MIT

#include "sys/dynbuffer.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

static std::vector<std::string> Messages;

static const char LAST_INDEX_MESSAGE[] =
    "Debugger accesses memory in dynamic buffer at offset 0xFFFFFFFF which is out of array bounds.";

static void KeepMessage(const char* sMessage) {
  Messages.push_back(sMessage);
}

class SysDynBuffer : public testing::Test {
 protected:
  void SetUp() override { Messages.clear(); }
  void TearDown() override { DynBufferFree(&m_Buffer); }

  void Create(uint32_t MaxSize, uint32_t InitialSize, int32_t FillByte) {
    memset(&m_Buffer, 0xEE, sizeof(m_Buffer));  // the previous contents must be ignored
    ASSERT_EQ(0, DynBufferCreate(&m_Buffer, KeepMessage, MaxSize, InitialSize, FillByte));
  }

  DYNBUFFER m_Buffer = {};
};

TEST_F(SysDynBuffer, CreateFillsTheInitialBytesAndCountsNoneAsWritten) {
  Create(100, 10, 0xA5);
  EXPECT_EQ(10u, m_Buffer.AllocSize);
  EXPECT_EQ(100u, m_Buffer.MaxSize);
  EXPECT_EQ(0u, m_Buffer.HighestIndex);
  EXPECT_EQ(0u, m_Buffer.Written);
  EXPECT_EQ(0xA5, m_Buffer.FillByte);
  for (int i = 0; i < 10; i++) {
    EXPECT_EQ(0xA5, m_Buffer.pData[i]);
  }
}

TEST_F(SysDynBuffer, FreeClearsTheWholeRecordAndMayBeRepeated) {
  Create(100, 10, 0);
  EXPECT_EQ(0, DynBufferFree(&m_Buffer));
  DYNBUFFER Clear;
  memset(&Clear, 0, sizeof(Clear));
  EXPECT_EQ(nullptr, m_Buffer.pData);
  EXPECT_EQ(0, memcmp(&Clear, &m_Buffer, sizeof(Clear)));
  EXPECT_EQ(0, DynBufferFree(&m_Buffer));
}

TEST_F(SysDynBuffer, AppendingNothingToAnEmptyBufferIsOutOfBounds) {
  Create(100, 10, 0);
  EXPECT_EQ(DYNBUFFER_ERR_RANGE, DynBufferAppend(&m_Buffer, "", 0));
  ASSERT_EQ(1u, Messages.size());
  EXPECT_EQ(LAST_INDEX_MESSAGE, Messages[0]);
  EXPECT_EQ(0u, m_Buffer.Written);
}

TEST_F(SysDynBuffer, AppendingNothingBehindDataChangesNothing) {
  Create(100, 10, 0);
  ASSERT_EQ(0, DynBufferAppend(&m_Buffer, "abc", 3));
  EXPECT_EQ(0, DynBufferAppend(&m_Buffer, "", 0));
  EXPECT_EQ(0, DynBufferAppend(&m_Buffer, nullptr, 0));
  EXPECT_EQ(2u, m_Buffer.HighestIndex);
  EXPECT_EQ(1u, m_Buffer.Written);
  EXPECT_TRUE(Messages.empty());
}

TEST_F(SysDynBuffer, AGrowingStreamDoublesUpToTheMaximum) {
  Create(0x100000, 4096, 0);
  std::vector<uint32_t> Sizes = {m_Buffer.AllocSize};
  const std::string     sPiece(1000, 'x');
  uint32_t              NumBytes = 0;
  while (NumBytes + 1000 <= 0x100000) {
    ASSERT_EQ(0, DynBufferAppend(&m_Buffer, sPiece.data(), 1000));
    NumBytes += 1000;
    if (m_Buffer.AllocSize != Sizes.back()) {
      Sizes.push_back(m_Buffer.AllocSize);
    }
  }
  EXPECT_EQ((std::vector<uint32_t>{0x1000, 0x2000, 0x4000, 0x8000, 0x10000, 0x20000, 0x40000,
                                   0x80000, 0x100000}),
            Sizes);
  EXPECT_EQ(DYNBUFFER_ERR_RANGE, DynBufferAppend(&m_Buffer, sPiece.data(), 1000));
  EXPECT_EQ(NumBytes - 1, m_Buffer.HighestIndex);
  EXPECT_EQ(0, DynBufferAppend(&m_Buffer, sPiece.data(), 0x100000 - NumBytes));
  EXPECT_EQ(DYNBUFFER_ERR_RANGE, DynBufferAppend(&m_Buffer, sPiece.data(), 1));
  EXPECT_EQ(
      "Debugger accesses memory in dynamic buffer at offset 0x00100000 which is out of array "
      "bounds.",
      Messages.back());
  EXPECT_EQ(0x100000u, m_Buffer.AllocSize);
}

TEST_F(SysDynBuffer, TheMaximumCapsADoubledAllocation) {
  Create(100, 60, 0);
  ASSERT_EQ(0, DynBufferEnsure(&m_Buffer, 60));
  EXPECT_EQ(100u, m_Buffer.AllocSize);
}

TEST_F(SysDynBuffer, AFarWriteGrowsStraightToItsEnd) {
  Create(100000, 10, 0x11);
  ASSERT_EQ(0, DynBufferWriteAt(&m_Buffer, 5000, "ab", 2));
  EXPECT_EQ(5002u, m_Buffer.AllocSize);
  EXPECT_EQ(5001u, m_Buffer.HighestIndex);
  EXPECT_EQ(0x11, m_Buffer.pData[4999]);
  EXPECT_EQ('a', m_Buffer.pData[5000]);
  EXPECT_EQ('b', m_Buffer.pData[5001]);
}

TEST_F(SysDynBuffer, GrowingKeepsTheBytesAlreadyWrittenAndFillsTheFreshOnes) {
  Create(1000, 4, 0x77);
  ASSERT_EQ(0, DynBufferAppend(&m_Buffer, "abcd", 4));
  ASSERT_EQ(0, DynBufferEnsure(&m_Buffer, 20));
  EXPECT_EQ(21u, m_Buffer.AllocSize);
  EXPECT_EQ(0, memcmp("abcd", m_Buffer.pData, 4));
  for (int i = 4; i < 21; i++) {
    EXPECT_EQ(0x77, m_Buffer.pData[i]);
  }
  EXPECT_EQ(3u, m_Buffer.HighestIndex);
}

TEST_F(SysDynBuffer, ANegativeFillByteFillsNothingAndKeepsTheData) {
  Create(1000, 4, -1);
  ASSERT_EQ(0, DynBufferAppend(&m_Buffer, "abcd", 4));
  ASSERT_EQ(0, DynBufferAppend(&m_Buffer, "ef", 2));
  EXPECT_EQ(0, memcmp("abcdef", m_Buffer.pData, 6));
}

TEST_F(SysDynBuffer, AnInitialSizeOfZeroGrowsWithTheFirstWrite) {
  Create(1000, 0, 0);
  ASSERT_EQ(0, DynBufferAppend(&m_Buffer, "abc", 3));
  EXPECT_EQ(3u, m_Buffer.AllocSize);
  EXPECT_EQ(0, memcmp("abc", m_Buffer.pData, 3));
}

TEST_F(SysDynBuffer, WritingLowDoesNotLowerTheHighestIndex) {
  Create(100, 10, 0);
  ASSERT_EQ(0, DynBufferWriteAt(&m_Buffer, 0, "abcdef", 6));
  ASSERT_EQ(0, DynBufferWriteAt(&m_Buffer, 1, "XY", 2));
  EXPECT_EQ(5u, m_Buffer.HighestIndex);
  ASSERT_EQ(0, DynBufferAppend(&m_Buffer, "g", 1));
  EXPECT_EQ(0, memcmp("aXYdefg", m_Buffer.pData, 7));
}

TEST_F(SysDynBuffer, AFailedWriteLeavesRecordAndBytes) {
  Create(10, 4, 0x22);
  ASSERT_EQ(0, DynBufferAppend(&m_Buffer, "abcd", 4));
  const DYNBUFFER Before = m_Buffer;
  EXPECT_EQ(DYNBUFFER_ERR_RANGE, DynBufferWriteAt(&m_Buffer, 2, "123456789", 9));
  EXPECT_EQ(DYNBUFFER_ERR_RANGE, DynBufferEnsure(&m_Buffer, 10));
  EXPECT_EQ(0, memcmp(&Before, &m_Buffer, sizeof(Before)));
  EXPECT_EQ(0, memcmp("abcd", m_Buffer.pData, 4));
}

TEST_F(SysDynBuffer, ALengthThatWrapsAroundIsOutOfBounds) {
  // The last index of each wraps in 32 bits to one inside the buffer.
  static const struct {
    uint32_t Offset;
    uint32_t NumBytes;
  } Rows[] = {{5, 0xFFFFFFFF}, {2, 0xFFFFFFFF}, {0xFFFFFFFF, 2}, {0xFFFFFFF0, 0x11}};
  Create(100, 10, 0x22);
  for (const auto& Row : Rows) {
    Messages.clear();
    EXPECT_EQ(DYNBUFFER_ERR_RANGE, DynBufferWriteAt(&m_Buffer, Row.Offset, "abc", Row.NumBytes));
    ASSERT_EQ(1u, Messages.size());
    EXPECT_EQ(LAST_INDEX_MESSAGE, Messages[0]);
    EXPECT_EQ(0u, m_Buffer.Written);
    EXPECT_EQ(10u, m_Buffer.AllocSize);
    EXPECT_EQ(std::string(10, 0x22), std::string((const char*)m_Buffer.pData, 10));
  }
}

TEST_F(SysDynBuffer, WithoutACallbackFailuresAreSilent) {
  ASSERT_EQ(0, DynBufferCreate(&m_Buffer, nullptr, 10, 4, 0));
  EXPECT_EQ(DYNBUFFER_ERR_RANGE, DynBufferEnsure(&m_Buffer, 10));
  EXPECT_TRUE(Messages.empty());
}

// The model keeps the bytes in a plain array of the maximum size.
TEST_F(SysDynBuffer, RandomWritesAgreeWithAPlainArray) {
  std::mt19937 Random(6);
  const auto   Pick = [&](uint32_t Limit) { return (uint32_t)(Random() % Limit); };
  for (int Round = 0; Round < 2000; Round++) {
    const uint32_t MaxSize = 1 + Pick(300);
    const uint32_t Initial = Pick(MaxSize + 1);
    Create(MaxSize, Initial, 0x33);
    std::vector<uint8_t> Model(MaxSize, 0x33);
    uint32_t             NumInUse = 0;
    for (int i = 0; i < 30; i++) {
      uint8_t acBytes[64];
      std::generate(std::begin(acBytes), std::end(acBytes), [&] { return (uint8_t)Random(); });
      const uint32_t NumBytes = 1 + Pick(64);
      const bool     IsAppend = Pick(2) == 0;
      const uint32_t Offset   = IsAppend ? NumInUse : Pick(400);
      const int32_t  Expected = Offset + NumBytes <= MaxSize ? 0 : -3;
      EXPECT_EQ(Expected, IsAppend ? DynBufferAppend(&m_Buffer, acBytes, NumBytes)
                                   : DynBufferWriteAt(&m_Buffer, Offset, acBytes, NumBytes));
      if (Expected == 0) {
        memcpy(&Model[Offset], acBytes, NumBytes);
        NumInUse = std::max(NumInUse, Offset + NumBytes);
      }
      ASSERT_EQ(NumInUse, m_Buffer.Written ? m_Buffer.HighestIndex + 1 : 0);
      ASSERT_LE(m_Buffer.AllocSize, MaxSize);
      ASSERT_EQ(0, memcmp(Model.data(), m_Buffer.pData, m_Buffer.AllocSize));
    }
    DynBufferFree(&m_Buffer);
  }
}
