// The texts of any values, into buffers of any size.
#include <math.h>

#include "fuzz/fuzz_input.h"
#include "util/value_text.h"

static void FormatNumbers(FUZZ_INPUT* pInput, uint32_t Size) {
  const FUZZ_BLOCK Buffer(Size);
  const uint64_t   Value = pInput->Take<uint64_t>();
  UTIL_FormatSize((int64_t)Value, Buffer.Get(), Size);
  FUZZ_EXPECT(strlen(Buffer.Get()) < Size);
  FUZZ_EXPECT(UTIL_FormatTime(Value, Buffer.Get(), Size) == Buffer.Get() + strlen(Buffer.Get()));
  FUZZ_EXPECT(UTIL_FormatIPAddr((uint32_t)Value, Buffer.Get(), Size) ==
              Buffer.Get() + strlen(Buffer.Get()));
  UTIL_FormatMACAddr((const uint8_t*)&Value, '-', Buffer.Get(), Size);
  FUZZ_EXPECT(strlen(Buffer.Get()) < Size);
}

static void FormatFloat(uint32_t Bits, uint32_t Size) {
  const FUZZ_BLOCK Buffer(Size);
  FUZZ_EXPECT(UTIL_FormatFloatBits(Buffer.Get(), Size, Bits) == 0);
  float Value;
  memcpy(&Value, &Bits, sizeof(Value));
  if (isfinite(Value) && Value != 0) {
    char ac[32];
    snprintf(ac, sizeof(ac), "%.6G", (double)Value);
    FUZZ_EXPECT(std::string(ac).substr(0, Size - 1) == Buffer.Get());
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
  FUZZ_EXPECT(strlen(Buffer.Get()) < Size);
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
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t NumBytes) {
  FUZZ_INPUT     Input(pData, NumBytes);
  const uint32_t Size = 1 + Input.Take<uint8_t>();
  FormatNumbers(&Input, Size);
  FormatFloat(Input.Take<uint32_t>(), Size);
  FormatLists(&Input, Size);
  Dump(&Input, Size);
  return 0;
}
