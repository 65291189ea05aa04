// SPDX-License-Identifier: MIT

// Numbers are read eight characters at a time, as one 64-bit value: they are what the callers read
// most. The other scanners are plain loops.

#include "util/scan.h"

#include <stddef.h>
#include <string.h>

#include "util/block.h"
#include "util/string.h"

static const uint32_t PARSE_VALUE_ERROR = 0xFFFFFFFF;

// Eight characters of a text as a number, the first one in its lowest byte. What follows the
// terminator does not matter.
static inline uint64_t LoadEight(const char* s) {
  if (BLOCK_IsInPage(s, 8)) {
    return BLOCK_LoadTextU64(s);
  }
  // Near the end of a page only what belongs to the text may be read. The rest stays zero.
  uint64_t Eight = 0;
  for (uint32_t i = 0; i < 8 && s[i] != 0; i++) {
    Eight |= (uint64_t)(uint8_t)s[i] << (8 * i);
  }
  return Eight;
}

// One byte eight times.
static constexpr uint64_t Bytes(uint8_t Byte) {
  return Byte * (uint64_t)0x0101010101010101;
}

// The index of the first byte whose highest bit is set, 8 when there is none.
static inline uint32_t FirstMarked(uint64_t Eight) {
  Eight &= Bytes(0x80);
  return Eight == 0 ? 8 : (uint32_t)__builtin_ctzll(Eight) / 8;
}

// The sums in the following functions reach the highest bit of a byte where its character is past
// the end of a range. One that is no digit may carry into later bytes, which do not count then.

// Takes the digits at the beginning of eight characters. Returns how many there are; without any
// *pValue is not set.
static inline uint32_t TakeDecimal(uint64_t Eight, uint64_t* pValue) {
  // 0 to 9 for a digit, 10 or more for any other character.
  uint64_t       x         = Eight ^ Bytes('0');
  const uint32_t NumDigits = FirstMarked((x + Bytes(0x80 - 10)) | x);
  if (NumDigits > 0) {
    x <<= 64 - 8 * NumDigits;  // leading zeros in the first bytes, nothing after the digits
    // Neighbours to numbers of two digits: bytes 0, 2, 4 and 6, the highest digits in byte 0. The
    // bytes between them are garbage, which the masks remove.
    x = x * 10 + (x >> 8);
    // Each product multiplies two of these numbers by their powers of 100, so that both arrive in
    // its upper half. The lower halves are too small to carry into it.
    *pValue = ((x & 0x000000FF000000FF) * (100 + ((uint64_t)1000000 << 32)) +
               ((x >> 16) & 0x000000FF000000FF) * (1 + ((uint64_t)10000 << 32))) >>
              32;
  }
  return NumDigits;
}

// The same for hexadecimal digits of either case.
static inline uint32_t TakeHex(uint64_t Eight, uint64_t* pValue) {
  // A range is tested by two sums: the highest bit is set from its first character on, and set in
  // the second sum past its last one. Characters are cut to seven bits, so no sum carries into the
  // next byte; those from 0x80 on are refused by the last term.
  const uint64_t Low7      = Eight & Bytes(0x7F);
  const uint64_t Lower     = Low7 | Bytes(0x20);
  const uint64_t IsDecimal = (Low7 + Bytes(0x80 - '0')) & ~(Low7 + Bytes(0x80 - '9' - 1));
  const uint64_t IsLetter  = (Lower + Bytes(0x80 - 'a')) & ~(Lower + Bytes(0x80 - 'f' - 1));
  const uint32_t NumDigits = FirstMarked(~(IsDecimal | IsLetter) | Eight);
  if (NumDigits > 0) {
    // The low four bits are the value, of a letter 9 less; bit 6 tells letters.
    uint64_t x = (Eight & Bytes(0x0F)) + ((Eight >> 6) & Bytes(1)) * 9;
    x <<= 64 - 8 * NumDigits;  // leading zeros, as above
    // Neighbours to bytes, bytes to 16 bits, these to 32. The first digit, in the lowest byte, is
    // the highest.
    x       = (x << 4 | x >> 8) & 0x00FF00FF00FF00FF;
    x       = (x << 8 | x >> 16) & 0x0000FFFF0000FFFF;
    *pValue = (x << 16 | x >> 32) & 0xFFFFFFFF;
  }
  return NumDigits;
}

// The rest of UTIL_ParseInt for the number whose digits begin at s.

// Stores value and cursor; the digits end at sEnd.
static inline int32_t Finish(const char** ps, int64_t* pValue, const char* sEnd, uint64_t Value,
                             int32_t IsNegative) {
  *pValue = (int64_t)(IsNegative ? 0 - Value : Value);  // unsigned: wraps without overflow
  *ps     = sEnd;
  return 0;
}

// In steps of eight characters, up to the first step that is not all digits.
template <bool IS_HEX>
__attribute__((noinline)) static int32_t FinishAny(const char** ps, int64_t* pValue, const char* s,
                                                   int32_t IsNegative) {
  static const uint32_t aPowerOfTen[] = {1,      10,      100,      1000,     10000,
                                         100000, 1000000, 10000000, 100000000};

  const char* sEnd      = s;
  uint64_t    Value     = 0;
  uint32_t    NumDigits = 8;
  while (NumDigits == 8) {
    uint64_t       Part  = 0;
    const uint64_t Eight = LoadEight(sEnd);
    NumDigits            = IS_HEX ? TakeHex(Eight, &Part) : TakeDecimal(Eight, &Part);
    Value = IS_HEX ? Value << (4 * NumDigits) | Part : Value * aPowerOfTen[NumDigits] + Part;
    sEnd += NumDigits;
  }
  return sEnd == s ? -1 : Finish(ps, pValue, sEnd, Value, IsNegative);
}

// Most numbers take one step, and without a call they take half the time.

static int32_t FinishDecimal(const char** ps, int64_t* pValue, const char* s, int32_t IsNegative) {
  if (BLOCK_IsInPage(s, 8)) {
    uint64_t       Value     = 0;
    const uint32_t NumDigits = TakeDecimal(BLOCK_LoadTextU64(s), &Value);
    if (NumDigits > 0 && NumDigits < 8) {
      return Finish(ps, pValue, s + NumDigits, Value, IsNegative);
    }
  }
  return FinishAny<false>(ps, pValue, s, IsNegative);
}

static int32_t FinishHex(const char** ps, int64_t* pValue, const char* s, int32_t IsNegative) {
  if (BLOCK_IsInPage(s, 8)) {
    uint64_t       Value     = 0;
    const uint32_t NumDigits = TakeHex(BLOCK_LoadTextU64(s), &Value);
    // These numbers often have all eight digits. What comes after the digits belongs to the text
    // and can be read; below '0' it is not a ninth one.
    if (NumDigits > 0 && (uint8_t)s[NumDigits] < '0') {
      return Finish(ps, pValue, s + NumDigits, Value, IsNegative);
    }
  }
  return FinishAny<true>(ps, pValue, s, IsNegative);
}

// Reads a number from s on, whose sign has been taken.
static inline int32_t FinishNumber(const char** ps, int64_t* pValue, const char* s,
                                   int32_t IsNegative, int32_t AlwaysHex) {
  if (s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    return FinishHex(ps, pValue, s + 2, IsNegative);
  }
  return AlwaysHex ? FinishHex(ps, pValue, s, IsNegative)
                   : FinishDecimal(ps, pValue, s, IsNegative);
}

static const char* SkipWhite(const char* s) {
  // One comparison ends the loop at nearly every character that is not white.
  while ((uint8_t)*s <= ' ' && UTIL_IsWhite((uint8_t)*s)) {
    s++;
  }
  return s;
}

static int32_t IsLineEnd(char c) {
  return c == 0 || c == '\n' || c == '\r';
}

static int32_t IsWordEnd(char c) {
  return IsLineEnd(c) || c == ' ';
}

// The blanks that UTIL_Trim removes.
static int32_t IsTrimmed(char c) {
  return c == ' ' || (c >= 0x09 && c <= 0x0D);
}

int32_t UTIL_IsWhite(uint32_t c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

void UTIL_SkipWhite(const char** ps) {
  *ps = SkipWhite(*ps);
}

int32_t UTIL_EatChar(const char** ps, char c) {
  if (**ps != c) {
    return -1;
  }
  (*ps)++;
  return 0;
}

int32_t UTIL_FindChar(const char* s, char c) {
  const char* pFound = c == 0 ? NULL : strchr(s, c);  // strchr() would find the terminator
  return pFound == NULL ? -1 : (int32_t)(pFound - s);
}

int32_t UTIL_IsPlainString(const char* s) {
  while (*s != 0 && *s != '"' && (uint8_t)*s < 0x80) {
    s++;
  }
  return *s == 0;
}

int32_t UTIL_IsPlainNonEmptyString(const char* s) {
  return *s != 0 && UTIL_IsPlainString(s);
}

int32_t UTIL_ParseInt(const char** ps, int64_t* pValue, int32_t AlwaysHex) {
  const char*   s          = SkipWhite(*ps);
  const int32_t IsNegative = *s == '-';
  return FinishNumber(ps, pValue, s + IsNegative, IsNegative, AlwaysHex);
}

void UTIL_ParseInt32(const char** ps, int32_t* pValue) {
  int64_t Value = 0;
  UTIL_ParseInt(ps, &Value, 0);
  *pValue = (int32_t)Value;
}

int32_t UTIL_ParseHex(const char** ps, uint64_t* pValue) {
  int64_t Value;
  if (UTIL_ParseInt(ps, &Value, 1) != 0) {
    return -1;
  }
  *pValue = (uint64_t)Value;
  return 0;
}

int32_t UTIL_ParseHex32(const char** ps, uint32_t* pValue) {
  uint64_t      Value  = 0;
  const int32_t Result = UTIL_ParseHex(ps, &Value);
  *pValue              = (uint32_t)Value;
  return Result;
}

int32_t UTIL_ParseU32(const char* s, uint32_t* pValue) {
  int64_t Value;
  if (FinishNumber(&s, &Value, s, 0, 0) != 0) {
    return -1;
  }
  *pValue = (uint32_t)Value;
  return 0;
}

int32_t UTIL_ParseVersion(const char** ps, uint32_t* pMajor, uint32_t* pMinor,
                          uint32_t* pRevision) {
  const char* s        = SkipWhite(*ps);
  int64_t     Major    = 0;
  int64_t     Minor    = 0;
  uint32_t    Revision = 0;
  if (*s == 'V') {
    s++;
  }
  int32_t Result = UTIL_ParseInt(&s, &Major, 0);
  // After a missing part the reading goes on, so that all that is there gets stored and consumed.
  Result |= UTIL_EatChar(&s, '.');
  Result |= UTIL_ParseInt(&s, &Minor, 0);
  if (Result == 0 && *s != 0) {
    const char c = *s++;
    if (c >= 'a' && c <= 'z') {
      Revision = (uint32_t)(c - 'a' + 1);
    } else {
      // By way of int8_t: whether char is signed depends on the processor.
      Revision = (uint32_t)(int32_t)(int8_t)c;
      Result   = -1;
    }
  }
  // All results are stored, whatever Result is.
  if (pMajor != NULL) {
    *pMajor = (uint32_t)Major;
  }
  if (pMinor != NULL) {
    *pMinor = (uint32_t)Minor;
  }
  if (pRevision != NULL) {
    *pRevision = Revision;
  }
  *ps = s;
  return Result;
}

void UTIL_DecodeVersion(VERSION_INFO* pInfo, uint32_t Version) {
  if (pInfo == NULL) {
    return;
  }
  const uint32_t Revision = Version % 100;
  pInfo->Major            = Version / 10000;
  pInfo->Minor            = Version / 100 % 100;
  memset(pInfo->Revision, 0, sizeof(pInfo->Revision));
  if (Revision > 26) {  // the letters are used up: z01, z02, ...
    pInfo->Revision[0] = 'z';
    pInfo->Revision[1] = (char)('0' + (Revision - 26) / 10);
    pInfo->Revision[2] = (char)('0' + (Revision - 26) % 10);
  } else if (Revision > 0) {
    pInfo->Revision[0] = (char)('a' + Revision - 1);
  }
}

int32_t UTIL_ParseIPAddr(const char* s, uint32_t* pAddr) {
  uint32_t Addr = 0;
  for (uint32_t i = 0; i < 4; i++) {
    int64_t Value;
    if ((i > 0 && UTIL_EatChar(&s, '.') != 0) || UTIL_ParseInt(&s, &Value, 0) != 0) {
      return -1;
    }
    Addr |= (uint32_t)Value << (8 * i);  // above 255 it spills into the next part: see the header
  }
  if (pAddr != NULL) {
    *pAddr = Addr;
  }
  return 0;
}

int32_t UTIL_CheckDottedNumbers(const char** ps) {
  // Goes on after a failure, so that the cursor is after the last part that is there.
  int32_t Result = 0;
  for (uint32_t i = 0; i < 4; i++) {
    int64_t Value;
    Result |= UTIL_ParseInt(ps, &Value, 0);
    Result |= UTIL_EatChar(ps, '.');
  }
  return Result;
}

const char* UTIL_ParseToken(const char** ps, char* pBuffer, uint32_t BufferSize, char Delimiter) {
  const char* s   = SkipWhite(*ps);
  size_t      Len = 0;
  *ps             = s;  // past the white space also after a failure
  if (BufferSize > 0) {
    pBuffer[0] = 0;
  }
  while (!IsWordEnd(s[Len]) && s[Len] != Delimiter) {
    Len++;
  }
  if (Len >= BufferSize) {
    return "Maximum string length exceeded";
  }
  if (Len == 0) {
    return "Expected a string";
  }
  memcpy(pBuffer, s, Len);
  pBuffer[Len] = 0;
  *ps          = s + Len;
  return NULL;
}

int32_t UTIL_ParseUntil(const char** ps, char* pBuffer, uint32_t BufferSize, char Delimiter) {
  const char* s   = SkipWhite(*ps);
  size_t      Len = 0;
  while (s[Len] != 0 && s[Len] != Delimiter) {
    Len++;
  }
  *ps                  = s + Len + (s[Len] != 0);  // the delimiter, but not the terminator
  const int32_t WasCut = Len >= BufferSize;
  if (BufferSize > 0) {
    Len = WasCut ? BufferSize - 1 : Len;
    memcpy(pBuffer, s, Len);
    pBuffer[Len] = 0;
  }
  return WasCut;
}

void UTIL_ParseQuotedString(const char** ps, char* pBuffer, uint32_t BufferSize) {
  if (pBuffer == NULL || BufferSize == 0) {
    return;
  }
  const char*   s        = SkipWhite(*ps);
  const int32_t IsQuoted = *s == '"';
  uint32_t      Len      = 0;
  s += IsQuoted;
  // The room is checked first: a full buffer ends the scan even before a closing quote.
  while (Len < BufferSize - 1 && !(IsQuoted ? IsLineEnd(*s) : IsWordEnd(*s))) {
    if (*s == '"') {
      s++;
      break;
    }
    pBuffer[Len++] = *s++;
  }
  pBuffer[Len] = 0;
  // To the next entry: past one comma and the white space on either side of it.
  s   = SkipWhite(s);
  *ps = *s == ',' ? SkipWhite(s + 1) : s;
}

uint32_t UTIL_ParseValue(const char** ps, char* pBuffer, uint32_t BufferSize) {
  if (pBuffer == NULL || BufferSize == 0) {
    return PARSE_VALUE_ERROR;
  }
  pBuffer[0]             = 0;
  const char*   s        = SkipWhite(*ps);
  const int32_t IsQuoted = *s == '"';
  uint32_t      Len      = 0;
  s += IsQuoted;
  if (!IsQuoted && (*s == 0 || *s == ':')) {
    return 0;  // no other end of a word can follow white space
  }
  while (IsQuoted ? *s != '"' : !IsWordEnd(*s) && *s != ':') {
    if (*s == 0) {
      return PARSE_VALUE_ERROR;  // without a terminator behind the characters, as promised
    }
    if (Len < BufferSize - 1) {
      pBuffer[Len++] = *s;
    }
    s++;
  }
  pBuffer[Len] = 0;
  *ps          = s + IsQuoted;
  return 0;
}

void UTIL_Trim(char* s, int32_t TrimLeft, int32_t TrimRight) {
  size_t Len = strlen(s);
  if (TrimLeft) {
    size_t NumBlanks = 0;
    while (IsTrimmed(s[NumBlanks])) {
      NumBlanks++;
    }
    Len -= NumBlanks;
    memmove(s, s + NumBlanks, Len + 1);
  }
  if (TrimRight && Len > 0) {
    // Down to the first character, which stays even if it is a blank: see the header.
    while (Len > 1 && IsTrimmed(s[Len - 1])) {
      Len--;
    }
    s[Len] = 0;
  }
}

void UTIL_ConvertBackslashes(char* sPath) {
  UTIL_ReplaceChar(sPath, '\\', '/');
}

void UTIL_AddTrailingSlash(char* sPath, uint32_t BufferSize) {
  // Bounded: of a text without a terminator nothing beyond the buffer is looked at.
  const uint32_t Len = UTIL_StrNLen(sPath, BufferSize);
  if (Len > 0 && (sPath[Len - 1] == '/' || sPath[Len - 1] == '\\')) {
    return;
  }
  if (Len + 1 < BufferSize) {
    sPath[Len]     = '/';
    sPath[Len + 1] = 0;
  }
}
