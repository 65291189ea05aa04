// SPDX-License-Identifier: MIT

// The comparisons of string.h: of texts and of bytes, with and without case.
//
// Each exists up to three times: byte by byte for short or awkward buffers, in blocks of 16 bytes
// for every processor, in blocks of 32 with AVX2. All give the same results; util/cpu.h chooses.

#include <stddef.h>

#include "util/arith.h"
#include "util/block.h"
#include "util/cpu.h"
#include "util/string.h"

namespace {

// Each byte in lower case, signed, as the comparisons take it.
struct FOLD_TABLE {
  int8_t a[256];
};

constexpr FOLD_TABLE BuildFoldTable() {
  FOLD_TABLE Table = {};
  for (int i = 0; i < 256; i++) {
    Table.a[i] = (int8_t)UTIL_ToLower((char)i);
  }
  return Table;
}

constexpr FOLD_TABLE FoldTable = BuildFoldTable();

}  // namespace

// The result of a comparison for two characters: the table's values are signed.
static inline int32_t FoldedDiff(char A, char B) {
  return FoldTable.a[(uint8_t)A] - FoldTable.a[(uint8_t)B];
}

// The steps of a comparison without case, for blocks of either width. Upper and lower case differ
// in bit 0x20 alone, so that bit is left out where A is a letter: then B is the same letter or
// differs in another bit too. Letters are found by one signed comparison: the offset makes 'z' the
// largest byte and all above it negative.
#define CASE_BIT      0x20
#define LETTER_OFFSET (0x7F - 'z')
#define BELOW_LETTERS (0x7F - 26)

// True where two bytes are equal but for the case of a letter.
static inline BLOCK AreSameLetters(BLOCK A, BLOCK B) {
  typedef int8_t SIGNED __attribute__((vector_size(16)));
  const BLOCK    IsLetter = (BLOCK)((SIGNED)((A | CASE_BIT) + LETTER_OFFSET) > BELOW_LETTERS);
  return (BLOCK)(((A ^ B) & ~(IsLetter & CASE_BIT)) == 0);
}

// Index of the first of at most NumBytes characters that differs or ends sA, NumBytes when there is
// none.
static uint32_t FirstStop(const char* sA, const char* sB, uint32_t NumBytes) {
  uint32_t i = 0;
  while (i < NumBytes && sA[i] != 0 && FoldedDiff(sA[i], sB[i]) == 0) {
    i++;
  }
  return i;
}

// UTIL_StrCaseCmp where one of the texts is near the end of a page. Compares as many bytes as the
// widest block one by one: then the end of the page has been passed, and blocks can be loaded
// again.
__attribute__((noinline)) static int32_t CompareAcrossPage(const char* sA, const char* sB) {
  const uint32_t NumBytes = 32;  // what the widest block needs
  const uint32_t i        = FirstStop(sA, sB, NumBytes);
  return i < NumBytes ? FoldedDiff(sA[i], sB[i]) : UTIL_StrCaseCmp(sA + i, sB + i);
}

// How many bytes from both texts on lie in one page. Without a branch: which text is nearer to the
// end of its page cannot be predicted.
static inline int32_t RoomInPage(const char* sA, const char* sB) {
  const int32_t OffsetA = (int32_t)((uintptr_t)sA & (BLOCK_PAGE - 1));
  const int32_t OffsetB = (int32_t)((uintptr_t)sB & (BLOCK_PAGE - 1));
  // Diff & (Diff >> 31) is Diff where that is negative, else 0: the larger offset is subtracted.
  const int32_t Diff = OffsetA - OffsetB;
  return (int32_t)BLOCK_PAGE - OffsetA + (Diff & (Diff >> 31));
}

// UTIL_StrCaseCmp for every processor.
static int32_t CompareByBlock(const char* sA, const char* sB) {
  const int64_t Last = RoomInPage(sA, sB) - (int32_t)BLOCK_BYTES;
  int64_t       i    = 0;
  for (; i <= Last; i += BLOCK_BYTES) {
    const BLOCK A = BLOCK_LoadText(sA + i);
    const BLOCK B = BLOCK_LoadText(sB + i);
    // Zero where they differ or where A has its terminator: one test for both.
    const uint32_t k = BLOCK_FirstTrue((BLOCK)((A & AreSameLetters(A, B)) == 0));
    if (k < BLOCK_BYTES) {
      return FoldedDiff(sA[i + k], sB[i + k]);
    }
  }
  return CompareAcrossPage(sA + i, sB + i);
}

#if CPU_HAS_WIDE

// A constant in a register, loaded from memory: compilers build it with three instructions each
// time.
CPU_TARGET_AVX2 static inline WIDE Loaded(const WIDE* pConstant) {
  WIDE Value;
  __asm__("vmovdqa %1, %0" : "=x"(Value) : "m"(*pConstant));
  return Value;
}

static const WIDE CaseBits      = WIDE{} + CASE_BIT;
static const WIDE LetterOffsets = WIDE{} + LETTER_OFFSET;
static const WIDE BelowLetters  = WIDE{} + BELOW_LETTERS;

// A bit for each character that differs or ends the text at pA.
CPU_TARGET_AVX2 static inline uint32_t WideStops(const char* pA, const char* pB) {
  typedef int8_t SIGNED __attribute__((vector_size(32)));
  const WIDE     CaseBit  = Loaded(&CaseBits);
  const WIDE     A        = WIDE_LoadText(pA);
  const WIDE     Diff     = A ^ WIDE_LoadText(pB);
  const WIDE     Letter   = (A | CaseBit) + Loaded(&LetterOffsets);
  const WIDE     IsLetter = (WIDE)((SIGNED)Letter > (SIGNED)Loaded(&BelowLetters));
  const WIDE     IsSame   = (WIDE)((Diff & ~(IsLetter & CaseBit)) == 0);
  return WIDE_Mask((WIDE)((A & IsSame) == 0));
}

// The result for the first character that WideStops() has marked; at least one is.
static inline int32_t FirstFoldedDiff(const char* sA, const char* sB, uint32_t Stops) {
  const size_t k = (size_t)__builtin_ctz(Stops);
  return FoldedDiff(sA[k], sB[k]);
}

// UTIL_StrCaseCmp for AVX2.
CPU_TARGET_AVX2 __attribute__((noinline)) static int32_t CompareLongByWide(const char* sA,
                                                                           const char* sB) {
  const int64_t Last = RoomInPage(sA, sB) - (int32_t)WIDE_BYTES;
  int64_t       i    = 0;
  for (; i <= Last; i += WIDE_BYTES) {
    const uint32_t Stops = WideStops(sA + i, sB + i);
    if (Stops != 0) {
      return FirstFoldedDiff(sA + i, sB + i, Stops);
    }
  }
  _mm256_zeroupper();  // compilers forget it before a call in place of a return
  return CompareAcrossPage(sA + i, sB + i);
}

// The same, in a hurry for a short text.
CPU_TARGET_AVX2 static int32_t CompareByWide(const char* sA, const char* sB) {
  uint32_t NumSame = 0;
  // One test for both: the or of the offsets is at least the larger one. If it is too careful, the
  // long way is taken.
  if (BLOCK_IsInPage((const void*)((uintptr_t)sA | (uintptr_t)sB), WIDE_BYTES)) {
    const uint32_t Stops = WideStops(sA, sB);
    if (Stops != 0) {
      return FirstFoldedDiff(sA, sB, Stops);
    }
    NumSame = WIDE_BYTES;
  }
  return CompareLongByWide(sA + NumSame, sB + NumSame);
}

#endif

// For processors without AVX2, and for the calls before the choice has been made.
__attribute__((noinline)) static int32_t CompareByAny(const char* sA, const char* sB) {
#if CPU_HAS_WIDE
  if (CPU_HasAVX2()) {
    return CompareByWide(sA, sB);
  }
#endif
  return CompareByBlock(sA, sB);
}

int32_t UTIL_StrCaseCmp(const char* sA, const char* sB) {
#if CPU_HAS_WIDE
  if (CPU_IsAVX2Chosen()) {
    return CompareByWide(sA, sB);
  }
#endif
  return CompareByAny(sA, sB);
}

int32_t UTIL_StrNCaseCmp(const char* sA, const char* sB, uint32_t MaxChars) {
  const uint32_t i = FirstStop(sA, sB, MaxChars);
  return i < MaxChars ? FoldedDiff(sA[i], sB[i]) : 0;
}

// Index of the first difference, -1 when there is none.
__attribute__((noinline)) static int64_t FirstDiffByByte(const uint8_t* pA, const uint8_t* pB,
                                                         uint32_t NumBytes) {
  uint32_t i = 0;
  while (i < NumBytes && pA[i] == pB[i]) {
    i++;
  }
  return i < NumBytes ? (int64_t)i : -1;
}

// The same for BLOCK_BYTES and more. A last block may overlap the one before it, which was equal.
static int64_t FirstDiffByBlock(const uint8_t* pA, const uint8_t* pB, uint32_t NumBytes) {
  for (uint64_t i = 0; i < NumBytes; i += BLOCK_BYTES) {
    i                = i < NumBytes - BLOCK_BYTES ? i : NumBytes - BLOCK_BYTES;
    const uint32_t k = BLOCK_FirstFalse((BLOCK)(BLOCK_Load(pA + i) == BLOCK_Load(pB + i)));
    if (k < BLOCK_BYTES) {
      return (int64_t)i + k;
    }
  }
  return -1;
}

#if CPU_HAS_WIDE

CPU_TARGET_AVX2 static inline WIDE IsSameWide(const uint8_t* pA, const uint8_t* pB) {
  return (WIDE)(WIDE_Load(pA) == WIDE_Load(pB));
}

// The same for WIDE_BYTES and more. Four blocks are looked at with one test.
CPU_TARGET_AVX2 static inline int64_t FirstDiffByWide(const uint8_t* pA, const uint8_t* pB,
                                                      uint32_t NumBytes) {
  int64_t i = 0;
  for (; i <= (int64_t)NumBytes - 4 * (int64_t)WIDE_BYTES; i += 4 * WIDE_BYTES) {
    const WIDE IsSame0 = IsSameWide(pA + i, pB + i);
    const WIDE IsSame1 = IsSameWide(pA + i + 32, pB + i + 32);
    const WIDE IsSame2 = IsSameWide(pA + i + 64, pB + i + 64);
    const WIDE IsSame3 = IsSameWide(pA + i + 96, pB + i + 96);
    if (WIDE_Mask((IsSame0 & IsSame1) & (IsSame2 & IsSame3)) != UINT32_MAX) {
      // One bit for each of 64 bytes; the first two blocks decide if they have any.
      const uint64_t First = ~(WIDE_Mask(IsSame0) | (uint64_t)WIDE_Mask(IsSame1) << 32);
      const uint64_t Last  = ~(WIDE_Mask(IsSame2) | (uint64_t)WIDE_Mask(IsSame3) << 32);
      return i + (First != 0 ? __builtin_ctzll(First) : 64 + __builtin_ctzll(Last));
    }
  }
  for (; i < NumBytes; i += WIDE_BYTES) {
    i                   = i < NumBytes - WIDE_BYTES ? i : (int64_t)(NumBytes - WIDE_BYTES);
    const uint32_t Mask = ~WIDE_Mask(IsSameWide(pA + i, pB + i));
    if (Mask != 0) {
      return i + __builtin_ctz(Mask);
    }
  }
  return -1;
}

// For UTIL_FindDiff(), into which AVX2 code cannot be inlined.
CPU_TARGET_AVX2 static int32_t FindDiffByWide(const uint8_t* pA, const uint8_t* pB,
                                              uint32_t NumBytes) {
  return (int32_t)FirstDiffByWide(pA, pB, NumBytes);
}

#endif

__attribute__((noinline)) static int64_t FirstDiff(const void* pA, const void* pB,
                                                   uint32_t NumBytes) {
  const uint8_t* pbA = (const uint8_t*)pA;
  const uint8_t* pbB = (const uint8_t*)pB;
#if CPU_HAS_WIDE
  if (NumBytes >= WIDE_BYTES && CPU_HasAVX2()) {
    return FirstDiffByWide(pbA, pbB, NumBytes);
  }
#endif
  return NumBytes >= BLOCK_BYTES ? FirstDiffByBlock(pbA, pbB, NumBytes)
                                 : FirstDiffByByte(pbA, pbB, NumBytes);
}

int32_t UTIL_MemCmp(const void* pA, const void* pB, uint32_t NumBytes) {
  const int64_t i = FirstDiff(pA, pB, NumBytes);
  return i < 0 ? 0 : ((const uint8_t*)pA)[i] - ((const uint8_t*)pB)[i];
}

int32_t UTIL_FindDiff(const void* pA, const void* pB, int32_t NumBytes) {
#if CPU_HAS_WIDE
  if (NumBytes >= (int32_t)WIDE_BYTES && CPU_IsAVX2Chosen()) {
    return FindDiffByWide((const uint8_t*)pA, (const uint8_t*)pB, (uint32_t)NumBytes);
  }
#endif
  return NumBytes < 1 ? -1 : (int32_t)FirstDiff(pA, pB, (uint32_t)NumBytes);
}

// Index of the first difference that is not one of case, -1 when there is none.
static int64_t FirstDiffNoCase(const uint8_t* pA, const uint8_t* pB, uint32_t NumBytes) {
  uint32_t i = 0;
  // Whole blocks only, and the rest byte by byte.
  for (; NumBytes - i >= BLOCK_BYTES; i += BLOCK_BYTES) {
    const BLOCK    IsSame = AreSameLetters(BLOCK_Load(pA + i), BLOCK_Load(pB + i));
    const uint32_t k      = BLOCK_FirstFalse(IsSame);
    if (k < BLOCK_BYTES) {
      return (int64_t)i + k;
    }
  }
  while (i < NumBytes && FoldedDiff((char)pA[i], (char)pB[i]) == 0) {
    i++;
  }
  return i < NumBytes ? (int64_t)i : -1;
}

int32_t UTIL_MemCaseCmp(const void* pA, const void* pB, uint32_t NumBytes) {
  const char*   pcA = (const char*)pA;
  const char*   pcB = (const char*)pB;
  const int64_t i   = FirstDiffNoCase((const uint8_t*)pA, (const uint8_t*)pB, NumBytes);
  return i < 0 ? 0 : FoldedDiff(pcA[i], pcB[i]);
}

int32_t UTIL_FindDiffNoCase(const void* pA, const void* pB, int32_t NumBytes) {
  return NumBytes < 1
             ? -1
             : (int32_t)FirstDiffNoCase((const uint8_t*)pA, (const uint8_t*)pB, (uint32_t)NumBytes);
}

// Fill checks: the result of UTIL_FindNotEqual for a number of bytes that is not 0.

__attribute__((noinline)) static int32_t FindNotEqualByByte(const uint8_t* p, uint8_t Value,
                                                            uint32_t NumBytes) {
  uint32_t i = 0;
  while (i < NumBytes && p[i] == Value) {
    i++;
  }
  return i < NumBytes ? (int32_t)i : -1;
}

// For BLOCK_BYTES and more. A last block may overlap the one before it.
static int32_t FindNotEqualByBlock(const uint8_t* p, uint8_t Value, uint32_t NumBytes) {
  for (uint64_t i = 0; i < NumBytes; i += BLOCK_BYTES) {
    i                = i < NumBytes - BLOCK_BYTES ? i : NumBytes - BLOCK_BYTES;
    const uint32_t k = BLOCK_FirstFalse((BLOCK)(BLOCK_Load(p + i) == Value));
    if (k < BLOCK_BYTES) {
      return (int32_t)UTIL_MinU32((uint32_t)i + k, INT32_MAX);
    }
  }
  return -1;
}

#if CPU_HAS_WIDE

// All ones where four blocks have this value in all their bytes.
CPU_TARGET_AVX2 static inline WIDE AreFourSame(const uint8_t* p, uint8_t Value) {
  const WIDE IsSame01 = (WIDE)(WIDE_Load(p) == Value) & (WIDE)(WIDE_Load(p + 32) == Value);
  const WIDE IsSame23 = (WIDE)(WIDE_Load(p + 64) == Value) & (WIDE)(WIDE_Load(p + 96) == Value);
  return IsSame01 & IsSame23;
}

// For WIDE_BYTES and more. Eight blocks are looked at with one test.
CPU_TARGET_AVX2 static int32_t FindNotEqualByWide(const uint8_t* pFirst, uint8_t Value,
                                                  uint32_t NumBytes) {
  // The large steps only find out that there is a difference; the small ones below find where.
  const uint8_t* p = pFirst;
  while (NumBytes >= 8 * WIDE_BYTES &&
         WIDE_Mask(AreFourSame(p, Value) & AreFourSame(p + 128, Value)) == UINT32_MAX) {
    p += 8 * WIDE_BYTES;
    NumBytes -= 8 * WIDE_BYTES;
  }
  if (NumBytes >= 4 * WIDE_BYTES && WIDE_Mask(AreFourSame(p, Value)) == UINT32_MAX) {
    p += 4 * WIDE_BYTES;
    NumBytes -= 4 * WIDE_BYTES;
  }
  while (NumBytes > 0) {
    const uint32_t NumTaken = UTIL_MinU32(NumBytes, WIDE_BYTES);
    p += NumTaken;  // a last block may overlap the one before it
    NumBytes -= NumTaken;
    const uint32_t Mask = ~WIDE_Mask((WIDE)(WIDE_Load(p - WIDE_BYTES) == Value));
    if (Mask != 0) {
      const size_t i = (size_t)(p - WIDE_BYTES - pFirst) + (size_t)__builtin_ctz(Mask);
      return (int32_t)UTIL_MinU32((uint32_t)i, INT32_MAX);
    }
  }
  return -1;
}

#endif

// For short buffers, for processors without AVX2, and for the calls before the choice has been
// made.
__attribute__((noinline)) static int32_t FindNotEqualByAny(const uint8_t* p, uint8_t Value,
                                                           uint32_t NumBytes) {
#if CPU_HAS_WIDE
  if (NumBytes >= WIDE_BYTES && CPU_HasAVX2()) {
    return FindNotEqualByWide(p, Value, NumBytes);
  }
#endif
  return NumBytes >= BLOCK_BYTES ? FindNotEqualByBlock(p, Value, NumBytes)
                                 : FindNotEqualByByte(p, Value, NumBytes);
}

int32_t UTIL_FindNotEqual(const void* pBuffer, uint8_t Value, uint32_t NumBytes) {
#if CPU_HAS_WIDE
  if (NumBytes >= WIDE_BYTES && CPU_IsAVX2Chosen()) {
    return FindNotEqualByWide((const uint8_t*)pBuffer, Value, NumBytes);
  }
#endif
  return FindNotEqualByAny((const uint8_t*)pBuffer, Value, NumBytes);
}
