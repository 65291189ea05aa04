// SPDX-License-Identifier: MIT

#include "util/value_text.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/util/vector_report.h"
#include "tests/util/vectors_value_text.h"

TEST(UtilValueText, EveryRowOfTheTablesHolds) {
  EXPECT_LT(110, VECTORS_RunValueText(ReportRow));
}

// Sizes

static std::string SizeText(int64_t Size) {
  char ac[64];
  UTIL_FormatSize(Size, ac, sizeof(ac));
  return ac;
}

// Looks for the text by trying out the units, in text only.
static std::string SizeModel(int64_t Size) {
  if (Size == 0) {
    return "0 Bytes";
  }
  int64_t Unit = 1024 * 1024 * 1024;
  for (const char* sUnit : {" GB", " MB", " KB"}) {
    if (Size % Unit == 0) {
      return std::to_string((int32_t)(Size / Unit)) + sUnit;
    }
    if (Size > 0 && Size / Unit > 0 && Size % Unit == Unit / 2) {
      return std::to_string(Size / Unit) + ".5" + sUnit;
    }
    Unit /= 1024;
  }
  const std::string Text = std::to_string((uint32_t)(Size < 0 ? -(uint64_t)Size : (uint64_t)Size));
  return (Size < 0 ? "-" : "") + Text + (Size == 1 || Size == -1 ? " Byte" : " Bytes");
}

TEST(UtilFormatSize, AgreesWithAModelOverRandomSizes) {
  std::mt19937_64 Random(1);
  for (int i = 0; i < 200000; i++) {
    // Few set bits at every magnitude, so that each unit and its half comes up often.
    uint64_t Size = (Random() >> (2 + Random() % 62)) & (~0ull << (Random() % 40));
    if (Random() % 4 == 0) {
      Size = 0 - Size;
    }
    ASSERT_EQ(SizeModel((int64_t)Size), SizeText((int64_t)Size)) << Size;
  }
}

TEST(UtilFormatSize, SizeZeroWritesNothing) {
  char ac[2] = {'#', '#'};
  UTIL_FormatSize(5, ac, 0);
  EXPECT_EQ('#', ac[0]);
}

TEST(UtilFormatSize, HugeBufferSizesAreTaken) {
  char ac[16];
  UTIL_FormatSize(1536, ac, 0xFFFFFFFF);
  EXPECT_STREQ("1.5 KB", ac);
  UTIL_FormatSize(5, ac, 0xFFFFFFFF);
  EXPECT_STREQ("5 Bytes", ac);
}

// Size lists

static const MEMORY_REGION aFlash[] = {{4, 0x4000, 1}, {1, 0x10000, 2}, {7, 0x20000, 3}, {0, 9, 9}};
static const MEMORY_REGION aOne[]   = {{1, 1, 0}, {0, 0, 0}};

TEST(UtilFormatSizeList, WithoutListsItIsADash) {
  char ac[3] = {'#', '#', '#'};
  EXPECT_EQ(0u, UTIL_FormatSizeList(nullptr, 0, ac, 0));
  EXPECT_EQ('#', ac[0]);
  EXPECT_EQ(0u, UTIL_FormatSizeList(nullptr, 0, ac, 1));
  EXPECT_EQ(0, ac[0]);
  EXPECT_EQ('#', ac[1]);
  EXPECT_EQ(0u, UTIL_FormatSizeList(nullptr, 0, ac, 2));
  EXPECT_STREQ("-", ac);
  EXPECT_EQ('#', ac[2]);
}

TEST(UtilFormatSizeList, EverySizeCutsTheText) {
  const MEMORY_REGION* apList[] = {aFlash, aOne};
  for (uint32_t Size = 0; Size < 20; Size++) {
    char ac[32];
    memset(ac, '#', sizeof(ac));
    EXPECT_EQ(Size < 2 ? 0u : 0x100001u, UTIL_FormatSizeList(apList, 2, ac, Size)) << Size;
    if (Size > 0) {
      EXPECT_EQ(std::string("1 MB + 1 Byte").substr(0, Size - 1), ac) << Size;
    }
    EXPECT_EQ('#', ac[Size]) << Size;
  }
}

TEST(UtilFormatSizeList, AgreesWithAModelOverRandomLists) {
  std::mt19937 Random(6);
  for (int i = 0; i < 100000; i++) {
    MEMORY_REGION        aaRegion[3][4] = {};
    const MEMORY_REGION* apList[3]      = {};
    const uint32_t       NumLists       = 1 + (uint32_t)Random() % 3;
    uint32_t             Total          = 0;
    std::string          Expected;
    for (uint32_t k = 0; k < NumLists; k++) {
      uint32_t Sum = 0;
      apList[k]    = Random() % 8 == 0 ? nullptr : aaRegion[k];
      for (uint32_t n = 0; apList[k] != nullptr && n < Random() % 4; n++) {
        aaRegion[k][n] = {1 + (uint32_t)Random() % 100, (uint32_t)Random() << (Random() % 32), 7};
        Sum += aaRegion[k][n].NumBlocks * aaRegion[k][n].BlockSize;
      }
      Total += Sum;
      Expected += (k > 0 ? " + " : "") + SizeModel(Sum);
    }
    const uint32_t Size = 2 + (uint32_t)Random() % 60;
    std::string    Buffer(Size + 8, '#');
    ASSERT_EQ(Total, UTIL_FormatSizeList(apList, NumLists, Buffer.data(), Size));
    ASSERT_EQ(Expected.substr(0, Size - 1), Buffer.c_str());
    ASSERT_EQ("########", Buffer.substr(Size));
  }
}

// Durations and addresses

TEST(UtilFormatTime, AgreesWithAModelOverRandomDurations) {
  std::mt19937_64 Random(2);
  for (int i = 0; i < 100000; i++) {
    const uint64_t     t     = Random() >> (Random() % 64);
    unsigned long long Rest  = t;
    const unsigned     Micro = (unsigned)(Rest % 1000000);
    Rest /= 1000000;
    const unsigned Seconds = (unsigned)(Rest % 60);
    Rest /= 60;
    const unsigned Minutes = (unsigned)(Rest % 60);
    const int      Hours   = (int)(uint32_t)(Rest / 60);
    char           acExpected[64];
    if (Hours != 0) {
      snprintf(acExpected, sizeof(acExpected), "%d:%02u:%02u.%03u %03u", Hours, Minutes, Seconds,
               Micro / 1000, Micro % 1000);
    } else if (Minutes != 0) {
      snprintf(acExpected, sizeof(acExpected), "%u:%02u.%03u %03u", Minutes, Seconds, Micro / 1000,
               Micro % 1000);
    } else {
      snprintf(acExpected, sizeof(acExpected), "%u.%03u %03u", Seconds, Micro / 1000, Micro % 1000);
    }
    char  ac[64];
    char* pEnd = UTIL_FormatTime(t, ac, sizeof(ac));
    ASSERT_STREQ(acExpected, ac) << t;
    ASSERT_EQ(ac + strlen(acExpected), pEnd) << t;
  }
}

TEST(UtilFormatIPAddr, AgreesWithAModelOverRandomAddresses) {
  std::mt19937 Random(3);
  for (int i = 0; i < 100000; i++) {
    const uint32_t    Addr = (uint32_t)Random();
    const std::string Expected =
        std::to_string(Addr % 256) + "." + std::to_string(Addr / 256 % 256) + "." +
        std::to_string(Addr / 65536 % 256) + "." + std::to_string(Addr / 16777216);
    char ac[16];
    ASSERT_EQ(ac + Expected.size(), UTIL_FormatIPAddr(Addr, ac, sizeof(ac)));
    ASSERT_EQ(Expected, ac);
  }
}

TEST(UtilFormatMACAddr, AgreesWithAModelOverRandomAddressesAndSizes) {
  std::mt19937 Random(5);
  for (int i = 0; i < 100000; i++) {
    const char     Separator = i % 2 == 0 ? ':' : '-';
    const uint32_t Size      = 1 + (uint32_t)Random() % 20;
    uint8_t        ab[6];
    std::string    Expected;
    for (uint8_t& b : ab) {
      b = (uint8_t)Random();
      Expected += Expected.empty() ? "" : std::string(1, Separator);
      Expected += "0123456789ABCDEF"[b / 16];
      Expected += "0123456789ABCDEF"[b % 16];
    }
    Expected.resize(std::min<size_t>(Expected.size(), Size - 1));
    char ac[24];
    memset(ac, '#', sizeof(ac));
    ASSERT_EQ(ac + Expected.size(), UTIL_FormatMACAddr(ab, Separator, ac, Size));
    ASSERT_EQ(Expected, ac);
    ASSERT_EQ(std::string(sizeof(ac) - Size, '#'), std::string(ac + Size, sizeof(ac) - Size));
  }
}

TEST(UtilFormatTime, SizeZeroStoresATerminatorLikeTheEngine) {
  const uint8_t abMAC[6] = {};
  char          ac[2];
  ac[0] = '#';
  EXPECT_EQ(ac, UTIL_FormatTime(5, ac, 0));
  EXPECT_EQ(0, ac[0]);
  ac[0] = '#';
  EXPECT_EQ(ac, UTIL_FormatIPAddr(5, ac, 0));
  EXPECT_EQ(0, ac[0]);
  ac[0] = '#';
  EXPECT_EQ(ac, UTIL_FormatMACAddr(abMAC, ':', ac, 0));
  EXPECT_EQ(0, ac[0]);
}

// Floats

TEST(UtilFormatFloatBits, AgreesWithTheMachineOverRandomPatterns) {
  std::mt19937 Random(4);
  for (int i = 0; i < 200000; i++) {
    const uint32_t Bits = (uint32_t)Random() & (i % 8 == 0 ? 0x807FFFFF : 0xFFFFFFFF);
    if ((Bits & 0x7F800000) == 0x7F800000 || (Bits & 0x7FFFFFFF) == 0) {
      continue;
    }
    float Value;
    memcpy(&Value, &Bits, sizeof(Value));
    char acExpected[32];
    char ac[32];
    snprintf(acExpected, sizeof(acExpected), "%.6G", (double)Value);
    ASSERT_EQ(0, UTIL_FormatFloatBits(ac, sizeof(ac), Bits));
    ASSERT_STREQ(acExpected, ac) << Bits;
  }
}

TEST(UtilFormatFloatBits, SizeZeroWritesNothing) {
  for (uint32_t Bits : {0x3F800000u, 0x7F800000u, 0x7FC00000u, 0u}) {
    char ac[1] = {'#'};
    EXPECT_EQ(0, UTIL_FormatFloatBits(ac, 0, Bits));
    EXPECT_EQ('#', ac[0]);
  }
}

// Dumps

static std::string DumpModel(const std::vector<uint8_t>& Data, bool ShowAddr, uint64_t Addr,
                             uint32_t BytesPerLine, size_t BufferSize) {
  std::vector<std::string> Pieces;
  char                     ac[32];
  for (size_t i = 0; i < Data.size(); i++) {
    if (ShowAddr && i % BytesPerLine == 0) {
      snprintf(ac, sizeof(ac), "0x%08X: ", (unsigned)(Addr + i));
      Pieces.push_back(ac);
    }
    snprintf(ac, sizeof(ac), "%02X ", Data[i]);
    Pieces.push_back(ac);
    if (i % BytesPerLine == BytesPerLine - 1) {
      Pieces.push_back("\r\n");
    }
  }
  std::string Text;
  for (const std::string& Piece : Pieces) {
    if (Text.size() + Piece.size() > BufferSize) {
      break;
    }
    Text += Piece;
  }
  if (!Data.empty() && Text.size() < BufferSize) {
    Text.push_back(0);
  }
  return Text;
}

TEST(UtilHexDump, AgreesWithAModelAtEveryLengthAndAlignmentAndManySizes) {
  std::mt19937 Random(5);
  for (uint32_t NumBytes = 0; NumBytes <= 300; NumBytes++) {
    for (uint32_t i = 0; i < 40; i++) {
      const uint32_t       Align = i % 16;
      std::vector<uint8_t> Data(NumBytes);
      for (uint8_t& b : Data) {
        b = (uint8_t)Random();
      }
      const bool        ShowAddr     = Random() % 2 != 0;
      const uint64_t    Addr         = ((uint64_t)Random() << 32) | Random();
      const uint32_t    BytesPerLine = 1 + (uint32_t)Random() % 40;
      const uint32_t    Size         = (uint32_t)Random() % (NumBytes * 17 + 20);
      std::string       Buffer(Size + 16, '#');
      const std::string Expected = DumpModel(Data, ShowAddr, Addr, BytesPerLine, Size);
      Data.insert(Data.begin(), Align, 0xEE);
      ASSERT_EQ(Expected.size(), UTIL_HexDump(Buffer.data(), Size, Data.data() + Align, NumBytes,
                                              ShowAddr, Addr, BytesPerLine));
      ASSERT_EQ(Expected, Buffer.substr(0, Expected.size()));
      ASSERT_EQ(std::string::npos, Buffer.find_first_not_of('#', Expected.size()));
    }
  }
}

TEST(UtilHexDump, AgreesWithAModelOverRandomShortDumps) {
  std::mt19937 Random(7);
  for (int i = 0; i < 100000; i++) {
    std::vector<uint8_t> Data(1 + Random() % 9);
    for (uint8_t& b : Data) {
      b = (uint8_t)Random();
    }
    const uint32_t    BytesPerLine = (uint32_t)Random() % 6;
    const uint32_t    PerLine      = BytesPerLine == 0 ? (uint32_t)Data.size() : BytesPerLine;
    const bool        ShowAddr     = Random() % 2 != 0;
    const uint32_t    Size         = (uint32_t)Random() % 64;
    std::string       Buffer(Size + 4, '#');
    const std::string Expected = DumpModel(Data, ShowAddr, 0xFFFFFFFE, PerLine, Size);
    ASSERT_EQ(Expected.size(), UTIL_HexDump(Buffer.data(), Size, Data.data(), (uint32_t)Data.size(),
                                            ShowAddr, 0xFFFFFFFE, BytesPerLine));
    ASSERT_EQ(Expected, Buffer.substr(0, Expected.size()));
    ASSERT_EQ(std::string::npos, Buffer.find_first_not_of('#', Expected.size()));
  }
}

TEST(UtilHexDump, NothingComesOfNoBytesAndOfNoBuffer) {
  char ac[1] = {'#'};
  EXPECT_EQ(0u, UTIL_HexDump(ac, 1, ac, 0, 1, 0, 4));
  EXPECT_EQ('#', ac[0]);
  EXPECT_EQ(0u, UTIL_HexDump(nullptr, 0, ac, 1, 1, 0, 4));
}
