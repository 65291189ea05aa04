// SPDX-License-Identifier: MIT

// The texts of any values, into buffers of any size.
#include <math.h>

#include "fuzz/fuzz_input.h"
#include "util/value_text.h"

// What a buffer of any size holds is the beginning of the whole text.
static void ExpectCut(const FUZZ_BLOCK& Cut, uint32_t Size, const char* sWhole) {
  FUZZ_EXPECT(Size == 0 || std::string(sWhole).substr(0, Size - 1) == Cut.Get());
}

// The same for those that return the address of the terminator, which they store in any case.
static void ExpectCutUpTo(const char* pEnd, const FUZZ_BLOCK& Cut, uint32_t Size,
                          const char* sWhole) {
  const size_t Len = strnlen(sWhole, Size > 0 ? Size - 1 : 0);
  FUZZ_EXPECT(pEnd == Cut.Get() + Len && *pEnd == 0 && memcmp(Cut.Get(), sWhole, Len) == 0);
}

static void FormatNumbers(FUZZ_INPUT* pInput, uint32_t Size) {
  const FUZZ_BLOCK Buffer(Size > 0 ? Size : 1);
  const uint64_t   Value = pInput->Take<uint64_t>();
  char             acWhole[64];
  UTIL_FormatSize((int64_t)Value, acWhole, sizeof(acWhole));
  UTIL_FormatSize((int64_t)Value, Buffer.Get(), Size);
  ExpectCut(Buffer, Size, acWhole);
  UTIL_FormatTime(Value, acWhole, sizeof(acWhole));
  ExpectCutUpTo(UTIL_FormatTime(Value, Buffer.Get(), Size), Buffer, Size, acWhole);
  snprintf(acWhole, sizeof(acWhole), "%u.%u.%u.%u", (unsigned)Value % 256,
           (unsigned)(Value >> 8) % 256, (unsigned)(Value >> 16) % 256,
           (unsigned)(Value >> 24) % 256);
  ExpectCutUpTo(UTIL_FormatIPAddr((uint32_t)Value, Buffer.Get(), Size), Buffer, Size, acWhole);
  const uint8_t* pb = (const uint8_t*)&Value;
  snprintf(acWhole, sizeof(acWhole), "%02X-%02X-%02X-%02X-%02X-%02X", pb[0], pb[1], pb[2], pb[3],
           pb[4], pb[5]);
  ExpectCutUpTo(UTIL_FormatMACAddr(pb, '-', Buffer.Get(), Size), Buffer, Size, acWhole);
}

static void FormatFloat(uint32_t Bits, uint32_t Size) {
  const FUZZ_BLOCK Buffer(Size);
  char             acWhole[32];
  float            Value;
  UTIL_FormatFloatBits(acWhole, sizeof(acWhole), Bits);
  FUZZ_EXPECT(UTIL_FormatFloatBits(Buffer.Get(), Size, Bits) == 0);
  ExpectCut(Buffer, Size, acWhole);
  memcpy(&Value, &Bits, sizeof(Value));
  if (isfinite(Value) && Value != 0) {
    char ac[32];
    snprintf(ac, sizeof(ac), "%.6G", (double)Value);
    FUZZ_EXPECT(strcmp(ac, acWhole) == 0);
  }
}

static void FormatLists(const FUZZ_INPUT* pInput, uint32_t Size) {
  // Lists out of what is left, each ended by an empty region.
  MEMORY_REGION        aaRegion[4][4] = {};
  const MEMORY_REGION* apList[4];
  size_t               At  = 0;
  uint32_t             Sum = 0;
  for (size_t i = 0; i < 4; i++) {
    for (size_t k = 0; k < 3 && At + sizeof(MEMORY_REGION) <= pInput->Size(); k++) {
      memcpy(&aaRegion[i][k], pInput->Data() + At, sizeof(MEMORY_REGION));
      At += sizeof(MEMORY_REGION);
    }
    for (size_t k = 0; aaRegion[i][k].NumBlocks != 0; k++) {
      Sum += aaRegion[i][k].NumBlocks * aaRegion[i][k].BlockSize;
    }
    apList[i] = aaRegion[i];
  }
  const FUZZ_BLOCK Buffer(Size);
  FUZZ_EXPECT(UTIL_FormatSizeList(apList, 4, Buffer.Get(), Size) == (Size > 1 ? Sum : 0));
  char acWhole[256];
  FUZZ_EXPECT(UTIL_FormatSizeList(apList, 4, acWhole, sizeof(acWhole)) == Sum);
  ExpectCut(Buffer, Size, acWhole);
}

static void Dump(FUZZ_INPUT* pInput, uint32_t Size) {
  const int32_t    ShowAddr     = pInput->Take<uint8_t>() & 1;
  const uint64_t   Addr         = pInput->Take<uint64_t>();
  const uint32_t   BytesPerLine = pInput->Take<uint8_t>();
  const FUZZ_BLOCK Buffer(Size);
  const uint32_t   Len = UTIL_HexDump(Buffer.Get(), Size, pInput->Data(), (uint32_t)pInput->Size(),
                                      ShowAddr, Addr, BytesPerLine);
  FUZZ_EXPECT(Len <= Size);
  FUZZ_EXPECT(Len == 0 || Len == Size || Buffer.Get()[Len - 1] == 0);
  const size_t     WholeSize = pInput->Size() * 17 + 1;  // each byte in a line of its own
  const FUZZ_BLOCK Whole(WholeSize);
  const uint32_t   WholeLen  = UTIL_HexDump(Whole.Get(), (uint32_t)WholeSize, pInput->Data(),
                                            (uint32_t)pInput->Size(), ShowAddr, Addr, BytesPerLine);
  const size_t     NumShared = Len > 0 && Buffer.Get()[Len - 1] == 0 ? Len - 1 : Len;
  FUZZ_EXPECT(WholeLen >= Len && memcmp(Whole.Get(), Buffer.Get(), NumShared) == 0);
  FUZZ_EXPECT(WholeLen == 0 || Whole.Get()[WholeLen - 1] == 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t NumBytes) {
  FUZZ_INPUT     Input(pData, NumBytes);
  const uint32_t Size = Input.Take<uint8_t>();
  FormatNumbers(&Input, Size);
  FormatFloat(Input.Take<uint32_t>(), Size);
  FormatLists(&Input, Size);
  Dump(&Input, Size);
  return 0;
}
