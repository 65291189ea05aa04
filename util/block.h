// util/block.h
// SPDX-License-Identifier: MIT
//
// Blocks of 16 bytes, for UTIL's own loops: what SSE2 and NEON registers hold, which every x86-64
// and every ARM64 processor has.
//
// A block of a text may reach beyond the text's end, where the contents do not matter, but not
// beyond the end of the page: what lies there may not be readable.

#ifndef UTIL_BLOCK_H
#define UTIL_BLOCK_H

#include <stdint.h>
#include <string.h>

#include "util/cpu.h"

#if defined(__x86_64__)
#include <immintrin.h>
#else
#include <arm_neon.h>
#endif

typedef uint8_t BLOCK __attribute__((vector_size(16)));

static const uint32_t BLOCK_BYTES = 16;

// The smallest page of any system that this runs on; larger ones are multiples of it.
static const uint32_t BLOCK_PAGE = 4096;

// 1 when NumBytes bytes at p, at most a page, lie in one page.
static inline int32_t BLOCK_IsInPage(const void* p, uint32_t NumBytes) {
  return ((uintptr_t)p & (BLOCK_PAGE - 1)) <= BLOCK_PAGE - NumBytes;
}

// Loads that may reach beyond a text within its page. These are the two places where sanitizers
// must not look: they cannot know that the extra bytes do not count.
__attribute__((no_sanitize("address", "thread"))) static inline BLOCK BLOCK_LoadText(
    const void* p) {
  typedef BLOCK UNALIGNED __attribute__((aligned(1), may_alias));
  return *(const UNALIGNED*)p;
}

__attribute__((no_sanitize("address", "thread"))) static inline uint64_t BLOCK_LoadTextU64(
    const void* p) {
  typedef uint64_t UNALIGNED __attribute__((aligned(1), may_alias));
  return *(const UNALIGNED*)p;
}

// 16 bytes that are all part of the buffer.
static inline BLOCK BLOCK_Load(const void* p) {
  BLOCK Block;
  memcpy(&Block, p, sizeof(Block));
  return Block;
}

static inline BLOCK BLOCK_Fill(uint8_t Value) {
  return Value - (BLOCK){};
}

// Bits for a comparison's result, BLOCK_MASK_BITS set ones for each byte that is true (0xFF), and
// with all bytes true BLOCK_ALL_TRUE.
#if defined(__x86_64__)
static const uint32_t BLOCK_MASK_BITS = 1;
static const uint64_t BLOCK_ALL_TRUE  = 0xFFFF;

static inline uint64_t BLOCK_Mask(BLOCK IsTrue) {
  return (uint64_t)_mm_movemask_epi8((__m128i)IsTrue);
}
#else
static const uint32_t BLOCK_MASK_BITS = 4;
static const uint64_t BLOCK_ALL_TRUE  = UINT64_MAX;

static inline uint64_t BLOCK_Mask(BLOCK IsTrue) {
  const uint8x8_t Narrow = vshrn_n_u16(vreinterpretq_u16_u8((uint8x16_t)IsTrue), 4);
  return vget_lane_u64(vreinterpret_u64_u8(Narrow), 0);
}
#endif

// The index of the first byte that a mask has, which must not be 0.
static inline uint32_t BLOCK_FirstOf(uint64_t Mask) {
  return (uint32_t)__builtin_ctzll(Mask) / BLOCK_MASK_BITS;
}

// The index of the first byte for which a comparison is true, BLOCK_BYTES when there is none.
static inline uint32_t BLOCK_FirstTrue(BLOCK IsTrue) {
  const uint64_t Mask = BLOCK_Mask(IsTrue);
  return Mask == 0 ? BLOCK_BYTES : BLOCK_FirstOf(Mask);
}

// The same for the first one that is false.
static inline uint32_t BLOCK_FirstFalse(BLOCK IsTrue) {
  const uint64_t Mask = BLOCK_Mask(IsTrue) ^ BLOCK_ALL_TRUE;
  return Mask == 0 ? BLOCK_BYTES : BLOCK_FirstOf(Mask);
}

#if CPU_HAS_WIDE

// The same in 32 bytes, for functions marked CPU_TARGET_AVX2.
typedef uint8_t WIDE __attribute__((vector_size(32)));

static const uint32_t WIDE_BYTES = 32;

__attribute__((no_sanitize("address", "thread"))) CPU_TARGET_AVX2 static inline WIDE WIDE_LoadText(
    const void* p) {
  typedef WIDE UNALIGNED __attribute__((aligned(1), may_alias));
  return *(const UNALIGNED*)p;
}

CPU_TARGET_AVX2 static inline WIDE WIDE_Load(const void* p) {
  WIDE Block;
  memcpy(&Block, p, sizeof(Block));
  return Block;
}

CPU_TARGET_AVX2 static inline void WIDE_Store(void* p, WIDE Block) {
  memcpy(p, &Block, sizeof(Block));
}

// One bit for each byte.
CPU_TARGET_AVX2 static inline uint32_t WIDE_Mask(WIDE IsTrue) {
  return (uint32_t)_mm256_movemask_epi8((__m256i)IsTrue);
}

#endif

// Copies 1 to 16 bytes. Two copies that may overlap cover any length.
static inline void BLOCK_CopyUpTo16(void* pDest, const void* pSource, uint32_t NumBytes) {
  uint8_t*       pd = (uint8_t*)pDest;
  const uint8_t* ps = (const uint8_t*)pSource;
  if (NumBytes >= 8) {
    uint64_t First, Last;
    memcpy(&First, ps, 8);
    memcpy(&Last, ps + NumBytes - 8, 8);
    memcpy(pd, &First, 8);
    memcpy(pd + NumBytes - 8, &Last, 8);
  } else if (NumBytes >= 4) {
    uint32_t First, Last;
    memcpy(&First, ps, 4);
    memcpy(&Last, ps + NumBytes - 4, 4);
    memcpy(pd, &First, 4);
    memcpy(pd + NumBytes - 4, &Last, 4);
  } else {
    pd[0]            = ps[0];
    pd[NumBytes / 2] = ps[NumBytes / 2];
    pd[NumBytes - 1] = ps[NumBytes - 1];
  }
}

#endif
