// SPDX-License-Identifier: MIT

// The engine writes straight into the caller's buffer, without a second one and without calling the
// C library for a number. Most calls are short: several functions below have a quick way for the
// usual case, and a slow one, kept out of line, for all others.

#include "util/format.h"

#include <string.h>

#include "util/block.h"
#include "util/digits.h"

namespace {

// What a '%' asks for, up to the conversion.
struct SPEC {
  uint32_t Width;
  uint32_t Precision;
  uint32_t NumL;  // counted up to 2
};

enum BASE { DECIMAL, HEX_LOWER, HEX_UPPER };

const uint32_t FIELD_LIMIT   = 0x7FFFFFFF;  // width and precision saturate here
const uint32_t POINTER_WIDTH = 8;
const uint32_t MAX_DIGITS    = 20;  // of 2^64 - 1

}  // namespace

// The next integer argument, as wide as it was passed. Of a long only the low 32 bits count. A
// macro, because not every system lets a va_list be passed on by address.
#define INTEGER_ARG(Args, NumL)                          \
  ((NumL) == 0   ? (uint64_t)va_arg(Args, unsigned int)  \
   : (NumL) == 1 ? (uint64_t)va_arg(Args, unsigned long) \
                 : (uint64_t)va_arg(Args, unsigned long long))

// Each Put function writes to p what fits before pLast, the buffer's last byte, which is kept for
// the terminator. It returns where the next character goes.

static inline char* PutChar(char* p, const char* pLast, char c) {
  if (p < pLast) {
    *p++ = c;
  }
  return p;
}

static inline char* PutBytes(char* p, const char* pLast, const char* s, size_t NumBytes) {
  // Most texts are short and need no call of memcpy().
  const size_t Room = (size_t)(pLast - p);
  NumBytes          = NumBytes < Room ? NumBytes : Room;
  if (NumBytes > BLOCK_BYTES) {
    memcpy(p, s, NumBytes);
  } else if (NumBytes > 0) {
    BLOCK_CopyUpTo16(p, s, (uint32_t)NumBytes);
  }
  return p + NumBytes;
}

static inline char* PutString(char* p, const char* pLast, const char* s) {
  // The end of a short text is found in one block. Otherwise the search goes only as far as the
  // buffer has room.
  size_t Len = BLOCK_BYTES;
  if (BLOCK_IsInPage(s, BLOCK_BYTES)) {
    Len = BLOCK_FirstTrue((BLOCK)(BLOCK_LoadText(s) == 0));
  }
  if (Len == BLOCK_BYTES) {
    Len = strnlen(s, (size_t)(pLast - p));
  }
  return PutBytes(p, pLast, s, Len);
}

// How many characters of a format at s, at most BLOCK_BYTES, come before a '%' and the end.
static inline uint32_t LiteralLen(const char* s) {
  if (BLOCK_IsInPage(s, BLOCK_BYTES)) {
    const BLOCK Block = BLOCK_LoadText(s);
    return BLOCK_FirstTrue((BLOCK)(Block == '%') | (BLOCK)(Block == 0));
  }
  uint32_t Len = 0;
  while (Len < BLOCK_BYTES && s[Len] != '%' && s[Len] != 0) {
    Len++;
  }
  return Len;
}

// Count times the character c.
static char* PutRepeated(char* p, const char* pLast, char c, size_t Count) {
  const size_t Room = (size_t)(pLast - p);
  Count             = Count < Room ? Count : Room;
  memset(p, c, Count);
  return p + Count;
}

// How many digits to write at once: leading zeros come with them up to MAX_DIGITS. For a higher
// precision, which is rare, the digits alone; the caller puts the zeros before them.
static inline uint32_t NumDigitsOf(uint64_t Value, BASE Base, uint32_t Precision) {
  const uint32_t NumDigits = Base == DECIMAL ? DIGITS_Count(Value) : DIGITS_CountHex(Value);
  return NumDigits < Precision && Precision <= MAX_DIGITS ? Precision : NumDigits;
}

static inline void StoreDigits(char* p, uint64_t Value, BASE Base, uint32_t NumDigits) {
  if (Base == DECIMAL) {
    DIGITS_StoreDecimal(p, Value, NumDigits);
  } else {
    DIGITS_StoreHex(p, Value, NumDigits, Base == HEX_LOWER);
  }
}

// A number with spaces before it, with more zeros than digits, or at the end of the buffer.
__attribute__((noinline)) static char* PutNumberSlowly(char* p, const char* pLast, uint32_t Width,
                                                       uint32_t Precision, uint64_t Value,
                                                       BASE Base) {
  char           ac[MAX_DIGITS];
  const uint32_t NumDigits = NumDigitsOf(Value, Base, Precision);
  const uint32_t NumAll    = Precision > NumDigits ? Precision : NumDigits;
  if (Width > NumAll) {
    p = PutRepeated(p, pLast, ' ', Width - NumAll);
  }
  p = PutRepeated(p, pLast, '0', NumAll - NumDigits);
  StoreDigits(ac, Value, Base, NumDigits);
  return PutBytes(p, pLast, ac, NumDigits);
}

static inline char* PutNumber(char* p, const char* pLast, SPEC Spec, uint64_t Value, BASE Base) {
  if (p == pLast) {  // full: the digits need not be made
    return p;
  }
  const uint32_t NumDigits = NumDigitsOf(Value, Base, Spec.Precision);
  if (Spec.Width > NumDigits || Spec.Precision > NumDigits || pLast - p < NumDigits) {
    return PutNumberSlowly(p, pLast, Spec.Width, Spec.Precision, Value, Base);
  }
  StoreDigits(p, Value, Base, NumDigits);
  return p + NumDigits;
}

// Not inlined: PutNumber() is large, and these copies of it serve all conversions.

__attribute__((noinline)) static char* PutDecimal(char* p, const char* pLast, SPEC Spec,
                                                  uint64_t Value) {
  return PutNumber(p, pLast, Spec, Value, DECIMAL);
}

__attribute__((noinline)) static char* PutHex(char* p, const char* pLast, SPEC Spec, uint64_t Value,
                                              BASE Base) {
  return PutNumber(p, pLast, Spec, Value, Base);
}

static inline char* PutSigned(char* p, const char* pLast, SPEC Spec, int64_t Value) {
  uint64_t Magnitude = (uint64_t)Value;
  if (Value < 0) {
    p = PutChar(p, pLast, '-');  // before the fill and not counted in the width: callers rely on it
    Magnitude = 0 - Magnitude;
  }
  return PutDecimal(p, pLast, Spec, Magnitude);
}

// Reads the digits of a width or a precision, none of which is 0. Returns where they end.
static const char* ScanField(const char* s, uint32_t* pValue) {
  uint64_t Value = 0;
  while (*s >= '0' && *s <= '9') {
    Value = Value * 10 + (uint64_t)(*s++ - '0');
    if (Value > FIELD_LIMIT) {  // at each digit, so that no number of digits makes 64 bits wrap
      Value = FIELD_LIMIT;
    }
  }
  *pValue = (uint32_t)Value;
  return s;
}

// Reads what follows a '%', up to the conversion, which the result points at.
static inline const char* ScanSpec(const char* s, SPEC* pSpec) {
  *pSpec = {0, 0, 0};
  if (*s >= '0' && *s <= '9') {
    s = ScanField(s, &pSpec->Width);
  }
  if (*s == '.') {
    s = ScanField(s + 1, &pSpec->Precision);
  }
  while (*s == 'l') {
    pSpec->NumL += pSpec->NumL < 2;
    s++;
  }
  return s;
}

char* UTIL_vsnprintf(char* pBuffer, int32_t BufferSize, const char* sFormat, va_list Args) {
  char*       p     = pBuffer;
  const char* pLast = pBuffer + (BufferSize > 0 ? BufferSize - 1 : 0);  // for the terminator
  const char* s     = sFormat;
  while (*s != 0) {
    if (*s != '%') {
      // A single character between two conversions is the most frequent text.
      const uint32_t Len = s[1] == '%' ? 1 : LiteralLen(s);
      p                  = Len == 1 ? PutChar(p, pLast, *s) : PutBytes(p, pLast, s, Len);
      s += Len;
      continue;
    }
    if (s[1] == '%') {
      p = PutChar(p, pLast, '%');
      s += 2;
      continue;
    }
    SPEC Spec;
    s = ScanSpec(s + 1, &Spec);
    switch (*s) {
      case 'd':
      case 'i': {
        const uint64_t Slot = INTEGER_ARG(Args, Spec.NumL);
        p = PutSigned(p, pLast, Spec, Spec.NumL < 2 ? (int32_t)Slot : (int64_t)Slot);
        break;
      }
      case 'u': {
        const uint64_t Slot = INTEGER_ARG(Args, Spec.NumL);
        p                   = PutDecimal(p, pLast, Spec, Spec.NumL < 2 ? (uint32_t)Slot : Slot);
        break;
      }
      case 'x':
      case 'X': {
        const uint64_t Slot = INTEGER_ARG(Args, Spec.NumL);
        p                   = PutHex(p, pLast, Spec, Spec.NumL < 2 ? (uint32_t)Slot : Slot,
                   *s == 'X' ? HEX_UPPER : HEX_LOWER);
        break;
      }
      case 'p':
        Spec.Width = POINTER_WIDTH;
        p          = PutHex(p, pLast, Spec, (uint32_t)(uintptr_t)va_arg(Args, void*), HEX_LOWER);
        break;
      case 'c':
        p = PutChar(p, pLast, (char)va_arg(Args, int));
        break;
      case 's':
        p = PutString(p, pLast, va_arg(Args, const char*));
        break;
      default:
        break;  // dropped without output; the text goes on after it
    }
    s += *s != 0;  // past the conversion, unless the format ends before it
  }
  *p = 0;
  return p;
}

char* UTIL_snprintf(char* pBuffer, int32_t BufferSize, const char* sFormat, ...) {
  va_list Args;
  va_start(Args, sFormat);
  char* pEnd = UTIL_vsnprintf(pBuffer, BufferSize, sFormat, Args);
  va_end(Args);
  return pEnd;
}
