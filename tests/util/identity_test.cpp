// SPDX-License-Identifier: MIT

#include "util/identity.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/util/vector_report.h"
#include "tests/util/vectors_identity.h"

TEST(UtilIdentity, EveryRowOfTheTablesHolds) {
  EXPECT_LT(35, VECTORS_RunIdentity(ReportRow));
}

// A structure in memory: its size field, then payload bytes, then a canary.
static std::vector<uint8_t> Structure(uint32_t SizeField, size_t NumPayloadBytes, uint8_t Value) {
  std::vector<uint8_t> Bytes(4 + NumPayloadBytes + 8, 0xEE);
  memcpy(Bytes.data(), &SizeField, 4);
  std::fill_n(Bytes.begin() + 4, NumPayloadBytes, Value);
  return Bytes;
}

TEST(UtilCopyAPIStruct, EmptyDestinationIsLeftAlone) {
  std::vector<uint8_t> Dest = Structure(4, 0, 0);
  UTIL_CopyAPIStruct(Dest.data(), Structure(20, 16, 0x22).data(), "S");
  EXPECT_EQ(Structure(4, 0, 0), Dest);
}

TEST(UtilCopyAPIStruct, SourceSizeBelowFourCountsAsWithoutEnd) {
  for (uint32_t SourceSize : {0u, 1u, 2u, 3u}) {
    std::vector<uint8_t> Dest = Structure(12, 8, 0x11);
    UTIL_CopyAPIStruct(Dest.data(), Structure(SourceSize, 8, 0x22).data(), "S");
    EXPECT_EQ(Structure(12, 8, 0x22), Dest) << SourceSize;
  }
}

TEST(UtilCopyAPIStruct, LargestPayloadIs4096Bytes) {
  std::vector<uint8_t> Dest = Structure(4100, 4096, 0x11);
  UTIL_CopyAPIStruct(Dest.data(), Structure(4100, 4096, 0x22).data(), "S");
  EXPECT_EQ(Structure(4100, 4096, 0x22), Dest);
}

TEST(UtilCopyAPIStruct, IllegalDestinationSizesAreRefused) {
  for (uint32_t DestSize : {0u, 1u, 3u, 5u, 6u, 7u, 4101u, 4104u, 0x80000000u, 0xFFFFFFFFu}) {
    std::vector<uint8_t> Dest = Structure(DestSize, 16, 0x11);
    UTIL_CopyAPIStruct(Dest.data(), Structure(20, 16, 0x22).data(), std::string(1000, 'n').c_str());
    EXPECT_EQ(Structure(DestSize, 16, 0x11), Dest) << DestSize;
  }
}

TEST(UtilCopyAPIStruct, AgreesWithAModelOverRandomSizes) {
  std::mt19937 Random(1);
  for (int i = 0; i < 100000; i++) {
    const uint32_t       DestSize   = 4 + 4 * ((uint32_t)Random() % 30);
    const uint32_t       SourceSize = 4 + (uint32_t)Random() % 120;
    std::vector<uint8_t> Dest       = Structure(DestSize, DestSize - 4, 0x11);
    std::vector<uint8_t> Source     = Structure(SourceSize, SourceSize - 4, 0);
    for (size_t k = 4; k < SourceSize; k++) {
      Source[k] = (uint8_t)Random();
    }
    std::vector<uint8_t> Expected = Dest;
    for (size_t k = 4; k < DestSize; k++) {
      Expected[k] = k < SourceSize ? Source[k] : 0;
    }
    UTIL_CopyAPIStruct(Dest.data(), Source.data(), "S");
    ASSERT_EQ(Expected, Dest) << DestSize << " " << SourceSize;
  }
}
