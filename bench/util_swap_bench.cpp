// SPDX-License-Identifier: MIT

// The array swaps beside a loop in AVX2 instructions and VOLK, which chooses its instructions at
// run time as ours do and swaps in place.

#include <string.h>

#include <random>
#include <vector>

#include "bench/support/peer_bench.h"
#include "util/byteorder.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif
#if BENCH_HAS_VOLK
#include <volk/volk.h>
#endif

namespace {

const uint32_t SMALL = 16 << 10;
const uint32_t LARGE = 1 << 20;

std::vector<uint8_t> Source(LARGE);
std::vector<uint8_t> Dest(LARGE);

typedef void SWAP_FUNC(void* pDest, const void* pSource, uint32_t NumItems);

// A swap in place undoes the one before it: begin with the source each time that it counts.
std::string DestText(uint32_t NumBytes) {
  return std::string((const char*)Dest.data(), NumBytes);
}

#if defined(__x86_64__)
// Index of the byte in a lane of 16 that comes to place i.
template <int UNIT>
__attribute__((target("avx2"))) void SwapAVX2(void* pDest, const void* pSource, uint32_t NumItems) {
  alignas(32) uint8_t acIndex[32];
  for (int i = 0; i < 32; i++) {
    acIndex[i] = (uint8_t)((i & 15) ^ (UNIT - 1));
  }
  const __m256i  Index    = _mm256_load_si256((const __m256i*)acIndex);
  const uint32_t NumBytes = NumItems * UNIT;
  for (uint32_t i = 0; i < NumBytes; i += 32) {
    const __m256i v =
        _mm256_loadu_si256((const __m256i*)(const void*)((const uint8_t*)pSource + i));
    _mm256_storeu_si256((__m256i*)(void*)((uint8_t*)pDest + i), _mm256_shuffle_epi8(v, Index));
  }
}
#endif

void AddCopy(const char* sRow, uint32_t UnitSize, SWAP_FUNC* pfOurs,
             [[maybe_unused]] SWAP_FUNC* pfAVX2) {
  const auto Answer = [] { return DestText(SMALL); };
  BENCH_Row(sRow, 0.85);
  BENCH_Add(
      "ours", [=] { pfOurs(Dest.data(), Source.data(), SMALL / UnitSize); }, Answer);
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx2")) {
    BENCH_Add(
        "AVX2 loop", [=] { pfAVX2(Dest.data(), Source.data(), SMALL / UnitSize); }, Answer);
  }
#endif
}

// Twice in a run, so that each begins with the same bytes; the answer is the first one's.
template <typename VOLK>
void AddInPlace(const char* sRow, uint32_t NumBytes, uint32_t UnitSize, SWAP_FUNC* pfOurs,
                VOLK Volk) {
  BENCH_Row(sRow, 1.0);
  BENCH_Add(
      "ours", [=] { pfOurs(Dest.data(), Dest.data(), NumBytes / UnitSize); },
      [=] {
        Dest = Source;
        pfOurs(Dest.data(), Dest.data(), NumBytes / UnitSize);
        return DestText(NumBytes);
      });
#if BENCH_HAS_VOLK
  BENCH_Add(
      "VOLK", [=] { Volk(Dest.data(), NumBytes / UnitSize); },
      [=] {
        Dest = Source;
        Volk(Dest.data(), NumBytes / UnitSize);
        return DestText(NumBytes);
      });
#else
  (void)Volk;
#endif
}

void AddGrowth() {
  BENCH_Growth("copy, for each byte", 1.5);
  for (const int64_t Size : BENCH_aSize) {
    BENCH_AddSize(Size, Size,
                  [Size] { UTIL_SwapArrayU32(Dest.data(), Source.data(), (uint32_t)(Size / 4)); });
  }
}

}  // namespace

#if BENCH_HAS_VOLK
#define VOLK_SWAP(Bits) \
  [](void* p, uint32_t NumItems) { volk_##Bits##u_byteswap((uint##Bits##_t*)p, NumItems); }
#else
#define VOLK_SWAP(Bits) 0
#endif
#if defined(__x86_64__)
#define AVX2_SWAP(Size) SwapAVX2<Size>
#else
#define AVX2_SWAP(Size) NULL
#endif

int main(int NumArgs, char** pasArgs) {
  std::mt19937 Random(1);
  for (uint8_t& b : Source) {
    b = (uint8_t)Random();
  }
  BENCH_Job("swap", "Byte swaps of arrays");
  AddCopy("copy 16 KiB, 16-bit units", 2, UTIL_SwapArrayU16, AVX2_SWAP(2));
  AddCopy("copy 16 KiB, 32-bit units", 4, UTIL_SwapArrayU32, AVX2_SWAP(4));
  AddCopy("copy 16 KiB, 64-bit units", 8, UTIL_SwapArrayU64, AVX2_SWAP(8));
  AddInPlace("in place 16 KiB, 16-bit units", SMALL, 2, UTIL_SwapArrayU16, VOLK_SWAP(16));
  AddInPlace("in place 16 KiB, 32-bit units", SMALL, 4, UTIL_SwapArrayU32, VOLK_SWAP(32));
  AddInPlace("in place 16 KiB, 64-bit units", SMALL, 8, UTIL_SwapArrayU64, VOLK_SWAP(64));
  AddInPlace("in place 1 MiB, 16-bit units", LARGE, 2, UTIL_SwapArrayU16, VOLK_SWAP(16));
  AddInPlace("in place 1 MiB, 32-bit units", LARGE, 4, UTIL_SwapArrayU32, VOLK_SWAP(32));
  AddInPlace("in place 1 MiB, 64-bit units", LARGE, 8, UTIL_SwapArrayU64, VOLK_SWAP(64));
  AddGrowth();
  return BENCH_Main(NumArgs, pasArgs);
}
