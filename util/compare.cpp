// The comparisons of string.h: of texts and of bytes, with and without case.

#include <stddef.h>

#include "util/arith.h"
#include "util/block.h"
#include "util/cpu.h"
#include "util/string.h"

namespace {

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

static inline int32_t FoldedDiff(char A, char B) {
  return FoldTable.a[(uint8_t)A] - FoldTable.a[(uint8_t)B];
}

// The steps of a comparison without case, for blocks of either width. Upper and lower case differ in
// bit 0x20 alone, so that bit is left out where A is a letter: then B is the same letter or differs
// in another bit too. Letters are found by one signed comparison: the offset makes 'z' the largest
// byte and all above it negative.
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

// UTIL_StrCaseCmp where one of the texts is near the end of a page.
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
  const int32_t Diff    = OffsetA - OffsetB;
  return (int32_t)BLOCK_PAGE - OffsetA + (Diff & (Diff >> 31));
}

// UTIL_StrCaseCmp for every processor.
static int32_t CompareByBlock(const char* sA, const char* sB) {
  const int64_t Last = RoomInPage(sA, sB) - (int32_t)BLOCK_BYTES;
  int64_t       i    = 0;
  for (; i <= Last; i += BLOCK_BYTES) {
    const BLOCK    A = BLOCK_LoadText(sA + i);
    const BLOCK    B = BLOCK_LoadText(sB + i);
    const uint32_t k = BLOCK_FirstTrue((BLOCK)((A & AreSameLetters(A, B)) == 0));
    if (k < BLOCK_BYTES) {
      return FoldedDiff(sA[i + k], sB[i + k]);
    }
  }
  return CompareAcrossPage(sA + i, sB + i);
}

#if CPU_HAS_WIDE

// A constant that the compiler loads, as that costs one instruction. One that it knows the value of
// it builds in a register, which costs three each time.
CPU_TARGET_AVX2 static inline WIDE Loaded(const WIDE* pConstant) {
  __asm__("" : "+r"(pConstant));
  return *pConstant;
}

// The same for AVX2.
CPU_TARGET_AVX2 static int32_t CompareByWide(const char* sA, const char* sB) {
  typedef int8_t    SIGNED __attribute__((vector_size(32)));
  static const WIDE aConstant[] = {WIDE{} + CASE_BIT, WIDE{} + LETTER_OFFSET,
                                   WIDE{} + BELOW_LETTERS};
  const WIDE        CaseBit     = Loaded(&aConstant[0]);
  const WIDE        Offset      = Loaded(&aConstant[1]);
  const SIGNED      Below       = (SIGNED)Loaded(&aConstant[2]);
  const int64_t     Last        = RoomInPage(sA, sB) - (int32_t)WIDE_BYTES;
  int64_t           i           = 0;
  for (; i <= Last; i += WIDE_BYTES) {
    const WIDE     A        = WIDE_LoadText(sA + i);
    const WIDE     Diff     = A ^ WIDE_LoadText(sB + i);
    const WIDE     IsLetter = (WIDE)((SIGNED)((A | CaseBit) + Offset) > Below);
    const WIDE     IsSame   = (WIDE)((Diff & ~(IsLetter & CaseBit)) == 0);
    const uint32_t Mask     = WIDE_Mask((WIDE)((A & IsSame) == 0));
    if (Mask != 0) {
      const uint32_t k = (uint32_t)__builtin_ctz(Mask);
      return FoldedDiff(sA[i + k], sB[i + k]);
    }
  }
  _mm256_zeroupper();  // compilers forget it before a call in place of a return
  return CompareAcrossPage(sA + i, sB + i);
}

#endif

int32_t UTIL_StrCaseCmp(const char* sA, const char* sB) {
#if CPU_HAS_WIDE
  if (CPU_HasAVX2()) {
    return CompareByWide(sA, sB);
  }
#endif
  return CompareByBlock(sA, sB);
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
CPU_TARGET_AVX2 static int64_t FirstDiffByWide(const uint8_t* pA, const uint8_t* pB,
                                               uint32_t NumBytes) {
  size_t i = 0;
  for (; NumBytes - i >= 4 * WIDE_BYTES; i += 4 * WIDE_BYTES) {
    const WIDE IsSame0 = IsSameWide(pA + i, pB + i);
    const WIDE IsSame1 = IsSameWide(pA + i + 32, pB + i + 32);
    const WIDE IsSame2 = IsSameWide(pA + i + 64, pB + i + 64);
    const WIDE IsSame3 = IsSameWide(pA + i + 96, pB + i + 96);
    if (WIDE_Mask((IsSame0 & IsSame1) & (IsSame2 & IsSame3)) != UINT32_MAX) {
      const uint64_t First = ~(WIDE_Mask(IsSame0) | (uint64_t)WIDE_Mask(IsSame1) << 32);
      const uint64_t Last  = ~(WIDE_Mask(IsSame2) | (uint64_t)WIDE_Mask(IsSame3) << 32);
      return (int64_t)i + (First != 0 ? __builtin_ctzll(First) : 64 + __builtin_ctzll(Last));
    }
  }
  for (; i < NumBytes; i += WIDE_BYTES) {
    i                   = i < NumBytes - WIDE_BYTES ? i : NumBytes - WIDE_BYTES;
    const uint32_t Mask = ~WIDE_Mask(IsSameWide(pA + i, pB + i));
    if (Mask != 0) {
      return (int64_t)i + __builtin_ctz(Mask);
    }
  }
  return -1;
}

#endif

static inline int64_t FirstDiff(const void* pA, const void* pB, uint32_t NumBytes) {
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
  return NumBytes < 1 ? -1 : (int32_t)FirstDiff(pA, pB, (uint32_t)NumBytes);
}

// Index of the first difference that is not one of case, -1 when there is none.
static int64_t FirstDiffNoCase(const uint8_t* pA, const uint8_t* pB, uint32_t NumBytes) {
  uint32_t i = 0;
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

// For WIDE_BYTES and more.
CPU_TARGET_AVX2 static int32_t FindNotEqualByWide(const uint8_t* pFirst, uint8_t Value,
                                                  uint32_t NumBytes) {
  const uint8_t* pEnd = pFirst + NumBytes;
  const uint8_t* p    = pFirst;
  while (pEnd - p >= 4 * WIDE_BYTES) {
    const WIDE IsSame01 = (WIDE)(WIDE_Load(p) == Value) & (WIDE)(WIDE_Load(p + 32) == Value);
    const WIDE IsSame23 = (WIDE)(WIDE_Load(p + 64) == Value) & (WIDE)(WIDE_Load(p + 96) == Value);
    if (WIDE_Mask(IsSame01 & IsSame23) != UINT32_MAX) {
      break;
    }
    p += 4 * WIDE_BYTES;
  }
  while (p < pEnd) {
    p                   = pEnd - p < WIDE_BYTES ? pEnd - WIDE_BYTES : p;
    const uint32_t Mask = ~WIDE_Mask((WIDE)(WIDE_Load(p) == Value));
    if (Mask != 0) {
      p += __builtin_ctz(Mask);
      return (int32_t)UTIL_MinU32((uint32_t)(p - pFirst), INT32_MAX);
    }
    p += WIDE_BYTES;
  }
  return -1;
}

#endif

int32_t UTIL_FindNotEqual(const void* pBuffer, uint8_t Value, uint32_t NumBytes) {
  const uint8_t* pb = (const uint8_t*)pBuffer;
#if CPU_HAS_WIDE
  if (NumBytes >= WIDE_BYTES && CPU_HasAVX2()) {
    return FindNotEqualByWide(pb, Value, NumBytes);
  }
#endif
  return NumBytes >= BLOCK_BYTES ? FindNotEqualByBlock(pb, Value, NumBytes)
                                 : FindNotEqualByByte(pb, Value, NumBytes);
}
