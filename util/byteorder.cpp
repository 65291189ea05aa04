#include "util/byteorder.h"

#include <stddef.h>
#include <string.h>

// UTIL_BASELINE_ONLY leaves out the loops for wider instructions: the tests build that too.
#if defined(__x86_64__) && !defined(UTIL_BASELINE_ONLY)
#define HAS_WIDE_LOOPS 1
#include <cpuid.h>
#else
#define HAS_WIDE_LOOPS 0
#endif

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the host's order is taken as LE");

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

// Array swaps. One plain loop is compiled for the baseline and, on x86-64, once more for AVX2,
// whose byte shuffle makes a swap one instruction for 32 bytes. Every ARM64 processor has such a
// shuffle.

template <typename UNIT>
FORCE_INLINE void SwapLoop(uint8_t* pDest, const uint8_t* pSource, size_t NumItems) {
  for (size_t i = 0; i < NumItems; i++) {  // coverage: narrow in util_byteorder_baseline_test
    Store(pDest + i * sizeof(UNIT), Swap(Load<UNIT>(pSource + i * sizeof(UNIT))));
  }
}

// In place the compiler must see that there is only one array: it otherwise guards against an
// overlap and takes its slow loop for it.
template <typename UNIT>
FORCE_INLINE void SwapApartOrInPlace(uint8_t* pDest, const uint8_t* pSource, size_t NumItems) {
  if (pDest == pSource) {  // coverage: narrow in util_byteorder_baseline_test
    SwapLoop<UNIT>(pDest, pDest, NumItems);
  } else {
    SwapLoop<UNIT>(pDest, pSource, NumItems);
  }
}

#if HAS_WIDE_LOOPS

template <typename UNIT>
__attribute__((target("avx2"))) static void SwapWide(uint8_t* pDest, const uint8_t* pSource,
                                                     size_t NumItems) {
  SwapApartOrInPlace<UNIT>(pDest, pSource, NumItems);
}

// AVX2 in the processor, and its registers saved by the system.
static int32_t AskForAVX2() {
  const uint32_t XCR0_SSE_AVX = 0x6;
  uint32_t       a, b, c, d, Saved, High;
  __cpuid(1, a, b, c, d);
  if ((c & bit_OSXSAVE) == 0) {  // coverage: only an emulated processor is that old
    return 0;                    // coverage: see above
  }
  __asm__("xgetbv" : "=a"(Saved), "=d"(High) : "c"(0));
  return (Saved & XCR0_SSE_AVX) == XCR0_SSE_AVX &&        // coverage: see above
         __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 &&  // coverage: see above
         (b & bit_AVX2) != 0;                             // coverage: see above
}

// Asked once: under a virtual machine each question costs thousands of cycles. Two threads that ask
// at the same time get the same answer.
static int32_t HasAVX2() {
  static int32_t Answer = -1;
  int32_t        Known  = __atomic_load_n(&Answer, __ATOMIC_RELAXED);
  if (Known < 0) {
    Known = AskForAVX2();
    __atomic_store_n(&Answer, Known, __ATOMIC_RELAXED);
  }
  return Known;
}

#endif

template <typename UNIT>
static void SwapArray(void* pDest, const void* pSource, size_t NumItems) {
#if HAS_WIDE_LOOPS
  if (HasAVX2()) {  // coverage: depends on the processor
    SwapWide<UNIT>((uint8_t*)pDest, (const uint8_t*)pSource, NumItems);
    return;
  }
#endif
  SwapApartOrInPlace<UNIT>((uint8_t*)pDest, (const uint8_t*)pSource, NumItems);
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
    NumBytes &= 3;
  }
  if ((Flags & UTIL_SWAP_NO_U16) == 0) {
    UTIL_SwapArrayU16(p, p, NumBytes / 2);
  }
}

void UTIL_CopySwapTargetMem(void* pDest, const void* pSource, uint32_t Addr, uint32_t NumBytes) {
  if (NumBytes > 0) {
    memmove(pDest, pSource, NumBytes);
    UTIL_SwapTargetMem(pDest, Addr, NumBytes, 0);
  }
}
