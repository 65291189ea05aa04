#include "util/string.h"

#include <stddef.h>
#include <string.h>

#include "util/arith.h"

// So many bytes are looked at without a test in between, so that the compiler can use wide
// registers.
static const uint32_t BLOCK_SIZE = 64;

// The one place that folds case: 'A'..'Z' become 'a'..'z', every other byte stays.
static constexpr uint8_t Folded(uint8_t c) {
  return (uint8_t)(c + (c >= 'A' && c <= 'Z' ? 0x20 : 0));
}

struct FOLD_TABLE {
  uint8_t a[256];
};

static constexpr FOLD_TABLE BuildFoldTable() {
  FOLD_TABLE Table = {};
  for (int i = 0; i < 256; i++) {
    Table.a[i] = Folded((uint8_t)i);
  }
  return Table;
}

static constexpr FOLD_TABLE FoldTable = BuildFoldTable();

static int32_t FoldedDiff(char A, char B) {
  return (int8_t)FoldTable.a[(uint8_t)A] - (int8_t)FoldTable.a[(uint8_t)B];
}

void UTIL_CopyString(char* pDest, const char* sSource, uint32_t BufferSize) {
  if (pDest == NULL || sSource == NULL || BufferSize == 0) {
    return;
  }
  const uint32_t Len = UTIL_StrNLen(sSource, BufferSize - 1);
  memcpy(pDest, sSource, Len);
  pDest[Len] = 0;
}

void UTIL_CopyStringEx(char* pDest, const char* sSource, uint32_t BufferSize, uint32_t Unused) {
  (void)Unused;
  UTIL_CopyString(pDest, sSource, BufferSize);
}

void UTIL_AppendString(char* pDest, const char* sSource, uint32_t BufferSize) {
  UTIL_AppendStringN(pDest, sSource, UINT32_MAX, BufferSize);
}

void UTIL_AppendStringN(char* pDest, const char* sSource, uint32_t MaxChars, uint32_t BufferSize) {
  const uint32_t DestLen = UTIL_StrNLen(pDest, BufferSize);
  if (DestLen == BufferSize) {
    return;  // size 0, or a text longer than its buffer
  }
  const uint32_t Len = UTIL_StrNLen(sSource, UTIL_MinU32(MaxChars, BufferSize - 1 - DestLen));
  if (Len > 0) {
    memcpy(pDest + DestLen, sSource, Len);
    pDest[DestLen + Len] = 0;
  }
}

uint32_t UTIL_StrLen(const char* s) {
  return (uint32_t)strlen(s);
}

uint32_t UTIL_StrNLen(const char* s, uint32_t MaxLen) {
  return (uint32_t)strnlen(s, MaxLen);
}

int32_t UTIL_StrCaseCmp(const char* sA, const char* sB) {
  int32_t Diff = FoldedDiff(*sA, *sB);
  while (Diff == 0 && *sA != 0) {
    sA++;
    sB++;
    Diff = FoldedDiff(*sA, *sB);
  }
  return Diff;
}

int32_t UTIL_StrNCaseCmp(const char* sA, const char* sB, uint32_t MaxChars) {
  for (uint32_t i = 0; i < MaxChars; i++) {
    const int32_t Diff = FoldedDiff(sA[i], sB[i]);
    if (Diff != 0 || sA[i] == 0) {
      return Diff;
    }
  }
  return 0;
}

static int32_t IsSameBlockNoCase(const uint8_t* pA, const uint8_t* pB) {
  uint8_t Diff = 0;
  for (size_t i = 0; i < BLOCK_SIZE; i++) {
    Diff |= (uint8_t)(Folded(pA[i]) ^ Folded(pB[i]));
  }
  return Diff == 0;
}

// Index of the first difference that is not one of case, NumBytes when there is none.
static uint32_t FirstDiffNoCase(const uint8_t* pA, const uint8_t* pB, uint32_t NumBytes) {
  uint32_t i = 0;
  while (NumBytes - i >= BLOCK_SIZE && IsSameBlockNoCase(pA + i, pB + i)) {
    i += BLOCK_SIZE;
  }
  while (i < NumBytes && Folded(pA[i]) == Folded(pB[i])) {
    i++;
  }
  return i;
}

int32_t UTIL_MemCaseCmp(const void* pA, const void* pB, uint32_t NumBytes) {
  const uint8_t* pbA = (const uint8_t*)pA;
  const uint8_t* pbB = (const uint8_t*)pB;
  const uint32_t i   = FirstDiffNoCase(pbA, pbB, NumBytes);
  return i < NumBytes ? (int8_t)Folded(pbA[i]) - (int8_t)Folded(pbB[i]) : 0;
}

static uint32_t SkipEqualBlocks(const uint8_t* pA, const uint8_t* pB, uint32_t i, uint32_t NumBytes,
                                uint32_t BlockSize) {
  while (NumBytes - i >= BlockSize && memcmp(pA + i, pB + i, BlockSize) == 0) {
    i += BlockSize;
  }
  return i;
}

// Index of the first difference, NumBytes when there is none. The C library's memcmp is the fastest
// there is, but does not tell where: large equal blocks are skipped, then small ones, then bytes.
static uint32_t FirstDiff(const uint8_t* pA, const uint8_t* pB, uint32_t NumBytes) {
  uint32_t i = SkipEqualBlocks(pA, pB, 0, NumBytes, 512);
  i          = SkipEqualBlocks(pA, pB, i, NumBytes, 16);
  while (i < NumBytes && pA[i] == pB[i]) {
    i++;
  }
  return i;
}

int32_t UTIL_MemCmp(const void* pA, const void* pB, uint32_t NumBytes) {
  const uint8_t* pbA = (const uint8_t*)pA;
  const uint8_t* pbB = (const uint8_t*)pB;
  const uint32_t i   = FirstDiff(pbA, pbB, NumBytes);
  return i < NumBytes ? pbA[i] - pbB[i] : 0;
}

int32_t UTIL_FindDiff(const void* pA, const void* pB, int32_t NumBytes) {
  if (NumBytes < 1) {
    return -1;
  }
  const int32_t i = (int32_t)FirstDiff((const uint8_t*)pA, (const uint8_t*)pB, (uint32_t)NumBytes);
  return i < NumBytes ? i : -1;
}

int32_t UTIL_FindDiffNoCase(const void* pA, const void* pB, int32_t NumBytes) {
  if (NumBytes < 1) {
    return -1;
  }
  const int32_t i =
      (int32_t)FirstDiffNoCase((const uint8_t*)pA, (const uint8_t*)pB, (uint32_t)NumBytes);
  return i < NumBytes ? i : -1;
}

static int32_t IsFilledBlock(const uint8_t* p, uint8_t Value) {
  uint8_t Diff = 0;
  for (size_t i = 0; i < BLOCK_SIZE; i++) {
    Diff |= (uint8_t)(p[i] ^ Value);
  }
  return Diff == 0;
}

int32_t UTIL_FindNotEqual(const void* pBuffer, uint8_t Value, uint32_t NumBytes) {
  const uint8_t* pb = (const uint8_t*)pBuffer;
  uint32_t       i  = 0;
  while (NumBytes - i >= BLOCK_SIZE && IsFilledBlock(pb + i, Value)) {
    i += BLOCK_SIZE;
  }
  while (i < NumBytes && pb[i] == Value) {
    i++;
  }
  return i < NumBytes ? (int32_t)UTIL_MinU32(i, INT32_MAX) : -1;
}

char UTIL_ToUpper(char c) {
  return c >= 'a' && c <= 'z' ? (char)(c - 0x20) : c;
}

char UTIL_ToLower(char c) {
  return (char)Folded((uint8_t)c);
}

void UTIL_StrToUpper(char* s) {
  for (; *s != 0; s++) {
    *s = UTIL_ToUpper(*s);
  }
}

void UTIL_StrToLower(char* s) {
  for (; *s != 0; s++) {
    *s = UTIL_ToLower(*s);
  }
}

int32_t UTIL_IsPrintable(char c) {
  return c >= 0x20 && c <= 0x7E;
}

char UTIL_HexDigit(uint32_t Value) {
  return "0123456789ABCDEF"[Value & 0xF];
}

void UTIL_ReplaceChar(char* s, char Old, char New) {
  for (; *s != 0; s++) {
    if (*s == Old) {
      *s = New;
    }
  }
}

void UTIL_ReverseBytes(void* pBuffer, uint32_t NumBytes) {
  uint8_t* pFirst = (uint8_t*)pBuffer;
  uint8_t* pLast  = pFirst + NumBytes;
  uint64_t Front;
  uint64_t Back;
  while (pLast - pFirst >= (ptrdiff_t)(2 * sizeof(Front))) {
    pLast -= sizeof(Back);
    memcpy(&Front, pFirst, sizeof(Front));
    memcpy(&Back, pLast, sizeof(Back));
    Front = __builtin_bswap64(Front);
    Back  = __builtin_bswap64(Back);
    memcpy(pFirst, &Back, sizeof(Back));
    memcpy(pLast, &Front, sizeof(Front));
    pFirst += sizeof(Front);
  }
  while (pLast - pFirst >= 2) {
    const uint8_t b = *--pLast;
    *pLast          = *pFirst;
    *pFirst++       = b;
  }
}

void UTIL_CopyStructArray(void* pDest, uint32_t DestRecordSize, const void* pSource,
                          uint32_t SourceRecordSize, uint32_t NumRecords) {
  if (pDest == NULL || pSource == NULL || DestRecordSize == 0 || NumRecords == 0) {
    return;
  }
  const size_t DestSize = (size_t)NumRecords * DestRecordSize;
  if (SourceRecordSize == 0) {
    memset(pDest, 0, DestSize);
    return;
  }
  if (SourceRecordSize == DestRecordSize) {
    memmove(pDest, pSource, DestSize);
    return;
  }
  const uint32_t NumShared = UTIL_MinU32(DestRecordSize, SourceRecordSize);
  uint8_t*       pd        = (uint8_t*)pDest;
  const uint8_t* ps        = (const uint8_t*)pSource;
  for (uint32_t i = 0; i < NumRecords; i++) {
    memcpy(pd, ps, NumShared);
    memset(pd + NumShared, 0, DestRecordSize - NumShared);
    pd += DestRecordSize;
    ps += SourceRecordSize;
  }
}
