#include "util/format.h"

struct OUTPUT {
  char*   pBuffer;
  int32_t BufferSize;
  int32_t Pos;  // next character goes here; at most BufferSize - 1 once anything was stored
};

struct CONVERSION {
  uint32_t Width;
  uint32_t Precision;
};

static const uint32_t FIELD_LIMIT      = 0x7FFFFFFF;  // width and precision saturate here
static const uint32_t POINTER_WIDTH    = 8;
static const char     DigitsLower[]    = "0123456789abcdef";
static const char     DigitsUpper[]    = "0123456789ABCDEF";
static const int      MAX_VALUE_DIGITS = 20;  // 2^64 - 1 in decimal

// The next integer argument, as wide as it was passed. Of a long only the low 32 bits are used
// afterwards, on purpose. A macro, because not every system lets a va_list be passed on by address.
#define INTEGER_ARG(Args, NumL)                          \
  ((NumL) == 0   ? (uint64_t)va_arg(Args, unsigned int)  \
   : (NumL) == 1 ? (uint64_t)va_arg(Args, unsigned long) \
                 : (uint64_t)va_arg(Args, unsigned long long))

static void StoreChar(OUTPUT* pOut, char c) {
  if (pOut->Pos < pOut->BufferSize - 1) {
    pOut->pBuffer[pOut->Pos++] = c;
  }
}

// The loop ends with the buffer: a width of two thousand million must not cost as many steps.
static void StoreRepeated(OUTPUT* pOut, char c, uint32_t Count) {
  while (Count > 0 && pOut->Pos < pOut->BufferSize - 1) {
    pOut->pBuffer[pOut->Pos++] = c;
    Count--;
  }
}

static void StoreString(OUTPUT* pOut, const char* s) {
  while (*s != 0) {
    StoreChar(pOut, *s++);
  }
}

static void StoreUnsigned(OUTPUT* pOut, const CONVERSION* pConv, uint64_t Value, uint32_t Base,
                          const char* sDigits) {
  char     acReversed[MAX_VALUE_DIGITS];
  uint32_t NumValueDigits = 0;
  do {
    acReversed[NumValueDigits++] = sDigits[Value % Base];
    Value /= Base;
  } while (Value != 0);

  const uint32_t NumDigits = pConv->Precision > NumValueDigits ? pConv->Precision : NumValueDigits;
  if (pConv->Width > NumDigits) {
    StoreRepeated(pOut, ' ', pConv->Width - NumDigits);
  }
  StoreRepeated(pOut, '0', NumDigits - NumValueDigits);
  while (NumValueDigits > 0) {
    StoreChar(pOut, acReversed[--NumValueDigits]);
  }
}

static void StoreSigned(OUTPUT* pOut, const CONVERSION* pConv, int64_t Value) {
  uint64_t Magnitude = (uint64_t)Value;
  if (Value < 0) {
    StoreChar(pOut, '-');  // before the fill and not counted in the width, on purpose
    Magnitude = 0 - Magnitude;
  }
  StoreUnsigned(pOut, pConv, Magnitude, 10, DigitsLower);
}

static const char* ScanField(const char* s, uint32_t* pValue) {
  uint64_t Value = 0;
  while (*s >= '0' && *s <= '9') {
    Value = Value * 10 + (uint64_t)(*s++ - '0');
    if (Value > FIELD_LIMIT) {
      Value = FIELD_LIMIT;
    }
  }
  *pValue = (uint32_t)Value;
  return s;
}

char* UTIL_vsnprintf(char* pBuffer, int32_t BufferSize, const char* sFormat, va_list Args) {
  OUTPUT      Out = {pBuffer, BufferSize > 0 ? BufferSize : 1, 0};
  const char* s   = sFormat;

  while (*s != 0) {
    if (*s != '%') {
      StoreChar(&Out, *s++);
      continue;
    }
    s++;
    if (*s == '%') {
      StoreChar(&Out, *s++);
      continue;
    }
    CONVERSION Conv = {0, 0};
    s               = ScanField(s, &Conv.Width);
    if (*s == '.') {
      s = ScanField(s + 1, &Conv.Precision);
    }
    uint32_t NumL = 0;
    while (*s == 'l') {
      NumL += NumL < 2;
      s++;
    }
    if (*s == 0) {
      break;  // the format ends inside a conversion
    }
    const char Conversion = *s++;
    switch (Conversion) {
      case 'd':
      case 'i': {
        const uint64_t Slot = INTEGER_ARG(Args, NumL);
        StoreSigned(&Out, &Conv, NumL < 2 ? (int32_t)Slot : (int64_t)Slot);
        break;
      }
      case 'u':
      case 'x':
      case 'X': {
        const uint64_t Slot = INTEGER_ARG(Args, NumL);
        StoreUnsigned(&Out, &Conv, NumL < 2 ? (uint32_t)Slot : Slot, Conversion == 'u' ? 10 : 16,
                      Conversion == 'X' ? DigitsUpper : DigitsLower);
        break;
      }
      case 'p':
        Conv.Width = POINTER_WIDTH;
        StoreUnsigned(&Out, &Conv, (uint32_t)(uintptr_t)va_arg(Args, void*), 16, DigitsLower);
        break;
      case 'c':
        StoreChar(&Out, (char)va_arg(Args, int));
        break;
      case 's':
        StoreString(&Out, va_arg(Args, const char*));
        break;
      default:
        break;  // dropped without output; the text goes on behind it
    }
  }
  Out.pBuffer[Out.Pos] = 0;
  return Out.pBuffer + Out.Pos;
}

char* UTIL_snprintf(char* pBuffer, int32_t BufferSize, const char* sFormat, ...) {
  va_list Args;
  va_start(Args, sFormat);
  char* pEnd = UTIL_vsnprintf(pBuffer, BufferSize, sFormat, Args);
  va_end(Args);
  return pEnd;
}
