// SPDX-License-Identifier: MIT

// Everything that has a version of its own for a level of instructions, at each level: the results
// and what is written are the same, in blocks of exactly the bytes that are asked for.
#include "fuzz/fuzz_input.h"
#include "util/bits.h"
#include "util/byteorder.h"
#include "util/cpu.h"
#include "util/string.h"
#include "util/value_text.h"

static void Add(std::string* pAll, int64_t Result) {
  *pAll += std::to_string(Result) + ' ';
}

static void Compare(std::string* pAll, const FUZZ_BLOCK& A, const FUZZ_BLOCK& B,
                    uint32_t NumBytes) {
  Add(pAll, UTIL_MemCmp(A.Get(), B.Get(), NumBytes));
  Add(pAll, UTIL_MemCaseCmp(A.Get(), B.Get(), NumBytes));
  Add(pAll, UTIL_FindDiff(A.Get(), B.Get(), (int32_t)NumBytes));
  Add(pAll, UTIL_FindDiffNoCase(A.Get(), B.Get(), (int32_t)NumBytes));
  Add(pAll, NumBytes > 0 ? UTIL_FindNotEqual(A.Get(), (uint8_t)*A.Get(), NumBytes) : 0);
}

static void Swap(std::string* pAll, const FUZZ_BLOCK& A, uint32_t NumBytes) {
  const FUZZ_BLOCK Dest(NumBytes);
  UTIL_SwapArrayU16(Dest.Get(), A.Get(), NumBytes / 2);
  pAll->append(Dest.Get(), NumBytes);
  UTIL_SwapArrayU32(Dest.Get(), A.Get(), NumBytes / 4);
  pAll->append(Dest.Get(), NumBytes);
  UTIL_SwapArrayU64(Dest.Get(), Dest.Get(), NumBytes / 8);
  pAll->append(Dest.Get(), NumBytes);
}

static void Dump(std::string* pAll, const FUZZ_BLOCK& A, uint32_t NumBytes, uint32_t Choice) {
  const uint32_t   Size = NumBytes * (Choice % 8) + Choice;
  const FUZZ_BLOCK Text(Size);
  Add(pAll, UTIL_HexDump(Text.Get(), Size, A.Get(), NumBytes, (int32_t)(Choice & 1),
                         Choice * (uint64_t)0x1234567, Choice % 70));
  pAll->append(Text.Get(), Size);
}

static std::string RunAll(CPU_LEVEL Level, FUZZ_INPUT Input) {
  CPU_Limit(Level);
  std::string      All;
  const uint32_t   Choice   = Input.Take<uint8_t>();
  const uint32_t   NumBytes = (uint32_t)Input.Size() / 2;
  const FUZZ_BLOCK A(NumBytes), B(NumBytes);
  memcpy(A.Get(), Input.Data(), NumBytes);
  memcpy(B.Get(), Input.Data() + (Choice % 4 == 0 ? 0 : NumBytes), NumBytes);
  if (NumBytes > 0) {
    B.Get()[Choice % NumBytes] ^= (char)(Choice & 0x20);
  }
  Compare(&All, A, B, NumBytes);
  Swap(&All, A, NumBytes);
  Dump(&All, A, NumBytes, Choice);
  const FUZZ_BLOCK TextA(std::string(A.Get(), strnlen(A.Get(), NumBytes)));
  const FUZZ_BLOCK TextB(std::string(B.Get(), strnlen(B.Get(), NumBytes)));
  Add(&All, UTIL_StrCaseCmp(TextA.Get(), TextB.Get()));
  Add(&All, UTIL_StrNCaseCmp(TextA.Get(), TextB.Get(), Choice));
  return All;
}

// A run of bits and a number of variable length, in blocks that they fill.
static void FillBlocks(FUZZ_INPUT Input) {
  const uint32_t   First = Input.Take<uint8_t>();
  const uint32_t   Num   = Input.Take<uint16_t>() % 2000 + 1;
  const FUZZ_BLOCK Bitmap((First + Num + 7) / 8);
  UTIL_SetBits(Bitmap.Get(), First, Num);
  UTIL_ClearBits(Bitmap.Get(), First, Num);
  const uint64_t Value    = Input.Take<uint64_t>() >> First % 64;
  size_t         NumBytes = 1;
  for (uint64_t Rest = Value / 128; Rest > 0; Rest /= 128) {
    NumBytes++;
  }
  const FUZZ_BLOCK Number(NumBytes);
  uint8_t*         pEnd = (uint8_t*)Number.Get();
  const uint8_t*   p    = pEnd;
  UTIL_WriteLEB128(&pEnd, Value);
  FUZZ_EXPECT(UTIL_ReadLEB128(&p) == Value && p == pEnd);
  FUZZ_EXPECT(pEnd == (uint8_t*)Number.Get() + NumBytes);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t NumBytes) {
  const FUZZ_INPUT Input(pData, NumBytes);
  FUZZ_EXPECT(RunAll(CPU_PLAIN, Input) == RunAll(CPU_AVX2, Input));
  FillBlocks(Input);
  return 0;
}
