// SPDX-License-Identifier: MIT

#include "sys/xml_arena.h"

#include <gtest/gtest.h>
#include <string.h>

class SysXmlArena : public testing::Test {
 protected:
  void  SetUp() override { ASSERT_NE(nullptr, m_pArena); }
  void  TearDown() override { SYS_XML_FreeArena(m_pArena); }
  void* Take(uint32_t NumBytes) { return SYS_XML_AllocFromArena(m_pArena, NumBytes); }

  XmlArena* m_pArena = SYS_XML_CreateArena();
};

TEST_F(SysXmlArena, ANewArenaIsOneEmptyChunkOf4MiB) {
  EXPECT_EQ(0x400000u, m_pArena->Capacity);
  EXPECT_EQ(0u, m_pArena->Used);
  EXPECT_EQ(nullptr, m_pArena->pNext);
}

TEST_F(SysXmlArena, PiecesFollowEachOtherWithoutRounding) {
  uint8_t* pFirst = static_cast<uint8_t*>(Take(3));
  EXPECT_EQ(m_pArena->pData, pFirst);
  EXPECT_EQ(pFirst + 3, Take(5));
  EXPECT_EQ(pFirst + 8, Take(0));
  EXPECT_EQ(pFirst + 8, Take(1));
  EXPECT_EQ(9u, m_pArena->Used);
}

TEST_F(SysXmlArena, TheFirstChunkWithRoomIsTaken) {
  Take(0x3FFFF0);                                      // leaves 16 bytes
  uint8_t* pSecond = static_cast<uint8_t*>(Take(17));  // does not fit, so a chunk is added
  ASSERT_NE(nullptr, m_pArena->pNext);
  EXPECT_EQ(m_pArena->pNext->pData, pSecond);
  EXPECT_EQ(0x400000u, m_pArena->pNext->Capacity);
  EXPECT_EQ(17u, m_pArena->pNext->Used);
  EXPECT_EQ(m_pArena->pData + 0x3FFFF0, Take(16));  // just fits the first chunk
  EXPECT_EQ(pSecond + 17, Take(1));
  EXPECT_EQ(nullptr, m_pArena->pNext->pNext);
}

TEST_F(SysXmlArena, OneByteBelow4MiBTakesAChunkOf4MiB) {
  Take(2);
  ASSERT_NE(nullptr, Take(0x3FFFFF));
  EXPECT_EQ(0x400000u, m_pArena->pNext->Capacity);
  EXPECT_EQ(0x3FFFFFu, m_pArena->pNext->Used);
}

TEST_F(SysXmlArena, BigPiecesHaveAChunkOfTheirSizeAtTheEnd) {
  uint8_t* pBig = static_cast<uint8_t*>(Take(0x400000));  // although the first chunk has room
  ASSERT_NE(nullptr, m_pArena->pNext);
  EXPECT_EQ(0u, m_pArena->Used);
  EXPECT_EQ(m_pArena->pNext->pData, pBig);
  EXPECT_EQ(0x400000u, m_pArena->pNext->Capacity);
  EXPECT_EQ(0x400000u, m_pArena->pNext->Used);
  memset(pBig, 0xAA, 0x400000);
  Take(0x500001);
  ASSERT_NE(nullptr, m_pArena->pNext->pNext);
  EXPECT_EQ(0x500001u, m_pArena->pNext->pNext->Capacity);
  EXPECT_EQ(m_pArena->pData, Take(1));  // the first chunk is still the first with room
}

TEST_F(SysXmlArena, FullChunksAreSkippedAndAnyOtherIsStillFirst) {
  Take(0x3FFFF8);                                      // leaves 8 bytes
  uint8_t* pSecond = static_cast<uint8_t*>(Take(16));  // in a second chunk
  EXPECT_EQ(m_pArena->pData + 0x3FFFF8, Take(7));      // the first chunk has room for it
  EXPECT_EQ(pSecond + 16, Take(2));
  EXPECT_EQ(m_pArena->pData + 0x3FFFFF, Take(1));  // now the first chunk is full
  Take(0x400000);                                  // a third chunk, full from the start
  EXPECT_EQ(pSecond + 18, Take(0x400000 - 18));    // fills the second chunk
  uint8_t*        pFourth = static_cast<uint8_t*>(Take(1));
  const XmlArena* pChunk  = m_pArena->pNext->pNext->pNext;
  ASSERT_NE(nullptr, pChunk);
  EXPECT_EQ(pChunk->pData, pFourth);
  EXPECT_EQ(pFourth + 1, Take(1));
  EXPECT_EQ(pChunk, m_pArena->apOpen[0]);  // the chunks before it are not walked again
  EXPECT_EQ(nullptr, pChunk->pNext);
}

// A walk from the first chunk would end there, and the piece would come from a new chunk.
TEST_F(SysXmlArena, ChunksWithoutRoomAreNotWalkedAgain) {
  for (const uint32_t NumBytes : {1u, 7u, 8u, 16u, 64u, 504u, 512u, 1000u, 4096u, 100000u}) {
    SYS_XML_FreeArena(m_pArena);
    m_pArena            = SYS_XML_CreateArena();
    const uint32_t Left = NumBytes < 8 ? 0 : NumBytes < 512 ? NumBytes - 8 : NumBytes / 2 - 1;
    for (int i = 0; i < 4; i++) {
      Take(0x400000 - 1 - Left);  // leaves a little, which is used up or too small
      Take(1);
    }
    uint8_t* const  pPiece = static_cast<uint8_t*>(Take(NumBytes));
    XmlArena* const pNext  = m_pArena->pNext;
    m_pArena->pNext        = nullptr;
    EXPECT_EQ(pPiece + NumBytes, Take(NumBytes)) << NumBytes;
    m_pArena->pNext = pNext;
  }
}

TEST_F(SysXmlArena, ASizeThatNoBlockCanHaveGivesNullAndChangesNothing) {
  EXPECT_EQ(nullptr, Take(0xFFFFFFFF));
  EXPECT_EQ(nullptr, m_pArena->pNext);
  EXPECT_EQ(m_pArena->pData, Take(1));
}

TEST_F(SysXmlArena, FreeTakesNull) {
  SYS_XML_FreeArena(nullptr);
}
