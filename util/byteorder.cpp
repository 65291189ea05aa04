// SPDX-License-Identifier: MIT

#include "util/byteorder.h"

#include <stddef.h>
#include <string.h>

#include "util/block.h"
#include "util/cpu.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the host's order is taken as LE");

// One name for the three widths, so that the templates below serve them all.
#define FORCE_INLINE static inline __attribute__((always_inline))

FORCE_INLINE uint16_t Swap(uint16_t Value) {
  return __builtin_bswap16(Value);
}

FORCE_INLINE uint32_t Swap(uint32_t Value) {
  return __builtin_bswap32(Value);
}

FORCE_INLINE uint64_t Swap(uint64_t Value) {
  return __builtin_bswap64(Value);
}

// By memcpy(), which compiles to one access and works at any address.
template <typename UNIT>
FORCE_INLINE UNIT Load(const void* p) {
  UNIT Value;
  memcpy(&Value, p, sizeof(Value));
  return Value;
}

template <typename UNIT>
FORCE_INLINE void Store(void* p, UNIT Value) {
  memcpy(p, &Value, sizeof(Value));
}

template <typename UNIT>
FORCE_INLINE UNIT InOrder(UNIT Value, int32_t IsBE) {
  return IsBE ? Swap(Value) : Value;
}

// Loads and stores

uint8_t UTIL_LoadU8(const uint8_t* p) {
  return *p;
}

uint16_t UTIL_LoadU16(const uint8_t* p) {
  return Load<uint16_t>(p);
}

uint32_t UTIL_LoadU32(const uint8_t* p) {
  return Load<uint32_t>(p);
}

uint64_t UTIL_LoadU64(const uint8_t* p) {
  return Load<uint64_t>(p);
}

// The high word comes first, each word little-endian.
uint64_t UTIL_LoadU64Words(const uint8_t* p) {
  return ((uint64_t)Load<uint32_t>(p) << 32) | Load<uint32_t>(p + 4);
}

uint16_t UTIL_LoadU16BE(const uint8_t* p) {
  return Swap(Load<uint16_t>(p));
}

uint32_t UTIL_LoadU32BE(const uint8_t* p) {
  return Swap(Load<uint32_t>(p));
}

uint16_t UTIL_LoadU16Order(const uint8_t* p, int32_t IsBE) {
  return InOrder(Load<uint16_t>(p), IsBE);
}

uint32_t UTIL_LoadU32Order(const uint8_t* p, int32_t IsBE) {
  return InOrder(Load<uint32_t>(p), IsBE);
}

uint64_t UTIL_LoadU64Order(const uint8_t* p, int32_t IsBE) {
  return InOrder(Load<uint64_t>(p), IsBE);
}

void UTIL_StoreU16LE(uint8_t* p, uint16_t Value) {
  Store(p, Value);
}

void UTIL_StoreU32LE(uint8_t* p, uint32_t Value) {
  Store(p, Value);
}

void UTIL_StoreU64LE(uint8_t* p, uint64_t Value) {
  Store(p, Value);
}

void UTIL_StoreU16BE(uint8_t* p, uint16_t Value) {
  Store(p, Swap(Value));
}

void UTIL_StoreU32BE(uint8_t* p, uint32_t Value) {
  Store(p, Swap(Value));
}

void UTIL_StoreU64BE(uint8_t* p, uint64_t Value) {
  Store(p, Swap(Value));
}

void UTIL_StoreU16Order(uint8_t* p, uint16_t Value, int32_t IsBE) {
  Store(p, InOrder(Value, IsBE));
}

void UTIL_StoreU32Order(uint8_t* p, uint32_t Value, int32_t IsBE) {
  Store(p, InOrder(Value, IsBE));
}

void UTIL_StoreU64Order(uint8_t* p, uint64_t Value, int32_t IsBE) {
  Store(p, InOrder(Value, IsBE));
}

void UTIL_StoreU32LEAdvance(uint8_t** pp, uint32_t Value) {
  Store(*pp, Value);
  *pp += sizeof(Value);
}

void UTIL_StoreU128(uint8_t* p, uint64_t High, uint64_t Low) {
  Store(p, Low);
  Store(p + sizeof(Low), High);
}

void UTIL_StoreU128BE(uint8_t* p, uint64_t High, uint64_t Low) {
  Store(p, Swap(High));
  Store(p + sizeof(High), Swap(Low));
}

uint16_t UTIL_SwapU16(uint16_t Value) {
  return Swap(Value);
}

uint32_t UTIL_SwapU32(uint32_t Value) {
  return Swap(Value);
}

uint64_t UTIL_SwapU64(uint64_t Value) {
  return Swap(Value);
}

// Array swaps
//
// Short arrays and the rests of long ones are swapped unit by unit, long ones in blocks.

// One unit after the other; the compiler makes vector instructions of it where it can.
template <typename UNIT>
FORCE_INLINE void SwapLoop(uint8_t* pDest, const uint8_t* pSource, size_t NumItems) {
  for (size_t i = 0; i < NumItems; i++) {
    Store(pDest + i * sizeof(UNIT), Swap(Load<UNIT>(pSource + i * sizeof(UNIT))));
  }
}

template <typename UNIT>
static void SwapPlain(uint8_t* pDest, const uint8_t* pSource, size_t NumItems) {
  // In place the compiler must see that there is only one array: it otherwise guards against an
  // overlap and takes its slow loop.
  if (pDest == pSource) {
    SwapLoop<UNIT>(pDest, pDest, NumItems);
  } else {
    SwapLoop<UNIT>(pDest, pSource, NumItems);
  }
}

#if CPU_HAS_WIDE

// Swaps whole blocks, four at a time. Returns the number of bytes swapped. The four are loaded
// before the first one is stored, which is right in place too.
CPU_TARGET_AVX2 static size_t SwapBlocks(uint8_t* pDest, const uint8_t* pSource, size_t NumBytes,
                                         uint32_t UnitSize) {
  // Where each byte of a block of 16 comes from. Within a unit, whose size is a power of 2, the
  // exclusive or counts backwards. The shuffle works on the two halves of 16 bytes by themselves.
  alignas(16) uint8_t acFrom[16];
  for (uint32_t i = 0; i < 16; i++) {
    acFrom[i] = (uint8_t)(i ^ (UnitSize - 1));
  }
  const __m256i From = _mm256_broadcastsi128_si256(_mm_load_si128((const __m128i*)acFrom));
  size_t        i    = 0;
  for (; i + 4 * WIDE_BYTES <= NumBytes; i += 4 * WIDE_BYTES) {
    const WIDE Block0 = WIDE_Load(pSource + i);
    const WIDE Block1 = WIDE_Load(pSource + i + 32);
    const WIDE Block2 = WIDE_Load(pSource + i + 64);
    const WIDE Block3 = WIDE_Load(pSource + i + 96);
    WIDE_Store(pDest + i, (WIDE)_mm256_shuffle_epi8((__m256i)Block0, From));
    WIDE_Store(pDest + i + 32, (WIDE)_mm256_shuffle_epi8((__m256i)Block1, From));
    WIDE_Store(pDest + i + 64, (WIDE)_mm256_shuffle_epi8((__m256i)Block2, From));
    WIDE_Store(pDest + i + 96, (WIDE)_mm256_shuffle_epi8((__m256i)Block3, From));
  }
  for (; i + WIDE_BYTES <= NumBytes; i += WIDE_BYTES) {
    const WIDE Block = WIDE_Load(pSource + i);
    WIDE_Store(pDest + i, (WIDE)_mm256_shuffle_epi8((__m256i)Block, From));
  }
  return i;
}

#endif

template <typename UNIT>
FORCE_INLINE void SwapArray(void* pDest, const void* pSource, size_t NumItems) {
  uint8_t*       pd = (uint8_t*)pDest;
  const uint8_t* ps = (const uint8_t*)pSource;
#if CPU_HAS_WIDE
  if (NumItems * sizeof(UNIT) >= 8 * WIDE_BYTES && CPU_HasAVX2()) {
    // A store across two cache lines takes longer. So the units before the first aligned block are
    // swapped one by one. In an array that is not aligned to its units no block is aligned; that
    // only costs time.
    const size_t NumFirst = (0 - (uintptr_t)pd) % WIDE_BYTES / sizeof(UNIT);
    SwapPlain<UNIT>(pd, ps, NumFirst);
    const size_t NumBytes = NumFirst * sizeof(UNIT);
    const size_t NumDone =
        NumFirst + SwapBlocks(pd + NumBytes, ps + NumBytes, (NumItems - NumFirst) * sizeof(UNIT),
                              sizeof(UNIT)) /
                       sizeof(UNIT);
    pd += NumDone * sizeof(UNIT);
    ps += NumDone * sizeof(UNIT);
    NumItems -= NumDone;
  }
#endif
  SwapPlain<UNIT>(pd, ps, NumItems);
}

void UTIL_SwapArrayU16(void* pDest, const void* pSource, uint32_t NumItems) {
  SwapArray<uint16_t>(pDest, pSource, NumItems);
}

void UTIL_SwapArrayU32(void* pDest, const void* pSource, uint32_t NumItems) {
  SwapArray<uint32_t>(pDest, pSource, NumItems);
}

void UTIL_SwapArrayU64(void* pDest, const void* pSource, uint32_t NumItems) {
  SwapArray<uint64_t>(pDest, pSource, NumItems);
}

void UTIL_SwapTargetMem(void* pBuffer, uint32_t Addr, uint32_t NumBytes, uint32_t Flags) {
  // The steps up to the first 4-byte boundary, then the 4-byte units, then what is left of one.
  uint8_t* p = (uint8_t*)pBuffer;
  if ((Addr & 1) != 0 && NumBytes > 0) {
    p++;
    Addr++;
    NumBytes--;
  }
  if ((Flags & UTIL_SWAP_NO_U16) == 0 && (Addr & 2) != 0 && NumBytes >= 2) {
    UTIL_SwapArrayU16(p, p, 1);
    p += 2;
    NumBytes -= 2;
  }
  if ((Flags & UTIL_SWAP_NO_U32) == 0) {
    UTIL_SwapArrayU32(p, p, NumBytes / 4);
    p += NumBytes & ~3u;
    NumBytes &= 3;  // left to the last step, which without this one takes everything
  }
  if ((Flags & UTIL_SWAP_NO_U16) == 0) {
    UTIL_SwapArrayU16(p, p, NumBytes / 2);
  }
}

void UTIL_CopySwapTargetMem(void* pDest, const void* pSource, uint32_t Addr, uint32_t NumBytes) {
  if (NumBytes > 0) {  // memmove() may not be given a NULL pointer, even for nothing
    memmove(pDest, pSource, NumBytes);
    UTIL_SwapTargetMem(pDest, Addr, NumBytes, 0);
  }
}
