// SPDX-License-Identifier: MIT

#include "util/string.h"

#include <stddef.h>
#include <string.h>

#include "util/arith.h"
#include "util/block.h"

// The length of s, at most MaxLen. A text that ends within one block needs no call.
static inline uint32_t TextLen(const char* s, uint32_t MaxLen) {
  if (BLOCK_IsInPage(s, BLOCK_BYTES)) {
    const uint32_t Len = BLOCK_FirstFalse((BLOCK)(BLOCK_LoadText(s) != 0));
    if (Len < BLOCK_BYTES || MaxLen <= BLOCK_BYTES) {
      return UTIL_MinU32(Len, MaxLen);
    }
  }
  return UTIL_StrNLen(s, MaxLen);
}

// Copies Len characters, at least one, and terminates.
static inline void StoreText(char* pDest, const char* sSource, uint32_t Len) {
  if (Len <= BLOCK_BYTES) {
    BLOCK_CopyUpTo16(pDest, sSource, Len);
  } else {
    memcpy(pDest, sSource, Len);
  }
  pDest[Len] = 0;
}

// UTIL_CopyString for a text that is long, near the end of its page, or cut.
__attribute__((noinline)) static void CopyAnyString(char* pDest, const char* sSource,
                                                    uint32_t BufferSize) {
  const uint32_t Len = TextLen(sSource, BufferSize - 1);
  pDest[0]           = 0;
  if (Len > 0) {
    StoreText(pDest, sSource, Len);
  }
}

void UTIL_CopyString(char* pDest, const char* sSource, uint32_t BufferSize) {
  if (pDest == NULL || sSource == NULL || BufferSize == 0) {
    return;
  }
  // The usual text ends within one block and fits.
  if (BLOCK_IsInPage(sSource, BLOCK_BYTES)) {
    const uint64_t Ends = BLOCK_Mask((BLOCK)(BLOCK_LoadText(sSource) == 0));
    if (Ends != 0 && BLOCK_FirstOf(Ends) < BufferSize) {
      BLOCK_CopyUpTo16(pDest, sSource, BLOCK_FirstOf(Ends) + 1);  // with its terminator
      return;
    }
  }
  CopyAnyString(pDest, sSource, BufferSize);
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
    return;  // size 0, or a text without a terminator in its buffer
  }
  const uint32_t Len = TextLen(sSource, UTIL_MinU32(MaxChars, BufferSize - 1 - DestLen));
  if (Len > 0) {
    StoreText(pDest + DestLen, sSource, Len);
  }
}

char UTIL_ToUpper(char c) {
  return c >= 'a' && c <= 'z' ? (char)(c - 0x20) : c;
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
  // Eight bytes from each end change places at a time, each reversed. Both are loaded before one is
  // stored, and they do not overlap while sixteen bytes are left.
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
  if (SourceRecordSize == DestRecordSize) {  // also in place, as memmove() allows
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
