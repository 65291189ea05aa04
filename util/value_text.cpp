// SPDX-License-Identifier: MIT

#include "util/value_text.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "util/arith.h"
#include "util/block.h"
#include "util/cpu.h"
#include "util/digits.h"
#include "util/format.h"
#include "util/string.h"

namespace {

struct SIZE_UNIT {
  uint32_t    Shift;
  const char* sName;
};

const SIZE_UNIT aSizeUnit[] = {{30, "GB"}, {20, "MB"}, {10, "KB"}};

// What a byte looks like in a dump: two digits, a blank, and a fourth character that nobody sees,
// as four are copied at once.
struct DUMP_TABLE {
  char a[256][4];
};

const uint32_t DUMP_BYTE_LEN = 3;   // two digits, blank
const uint32_t DUMP_ADDR_LEN = 12;  // 0x, eight digits, colon, blank
const uint32_t DUMP_EOL_LEN  = 2;

constexpr DUMP_TABLE BuildDumpTable() {
  constexpr char acDigit[] = "0123456789ABCDEF";
  DUMP_TABLE     Table     = {};
  for (int i = 0; i < 256; i++) {
    Table.a[i][0] = acDigit[i >> 4];
    Table.a[i][1] = acDigit[i & 15];
    Table.a[i][2] = ' ';
  }
  return Table;
}

constexpr DUMP_TABLE DumpTable = BuildDumpTable();

}  // namespace

// The engine takes signed sizes, and some snprintf refuse larger ones.
static int32_t SignedSize(uint32_t BufferSize) {
  return BufferSize < INT32_MAX ? (int32_t)BufferSize : INT32_MAX;
}

void UTIL_FormatSize(int64_t Size, char* pBuffer, uint32_t BufferSize) {
  if (BufferSize == 0) {
    return;
  }
  const int32_t OutSize = SignedSize(BufferSize);
  if (Size == 0) {
    UTIL_snprintf(pBuffer, OutSize, "%d Bytes", 0);
    return;
  }
  // The first unit that fits is the largest. A negative size is whole in a unit like its positive
  // one, as its low bits are zero too.
  for (const SIZE_UNIT& Unit : aSizeUnit) {
    const int64_t One  = (int64_t)1 << Unit.Shift;
    const int64_t Half = One >> 1;
    if ((Size & (One - 1)) == 0) {
      UTIL_snprintf(pBuffer, OutSize, "%d %s", (int32_t)(Size >> Unit.Shift), Unit.sName);
      return;
    }
    if (Size >= One && (Size & (Half - 1)) == 0) {
      // The engine has no floating point, so this is left to the C library.
      const double NumUnits = (double)(Size >> (Unit.Shift - 1)) * 0.5;
      snprintf(pBuffer, (size_t)OutSize, "%.1f %s", NumUnits, Unit.sName);
      return;
    }
  }
  // 0 - Size in unsigned arithmetic: the smallest size has no positive counterpart.
  const uint32_t Magnitude = (uint32_t)(Size < 0 ? 0 - (uint64_t)Size : (uint64_t)Size);
  char* pEnd = UTIL_snprintf(pBuffer, OutSize, Size < 0 ? "-%u Byte" : "%u Byte", Magnitude);
  if (Size != 1 && Size != -1 && pEnd - pBuffer < OutSize - 1) {
    pEnd[0] = 's';
    pEnd[1] = 0;
  }
}

// Bytes in all regions of a list, in 32 bits. NULL: no regions.
static uint32_t SumOfRegions(const MEMORY_REGION* pRegion) {
  uint32_t Sum = 0;
  if (pRegion != NULL) {
    for (; pRegion->NumBlocks != 0; pRegion++) {
      Sum += pRegion->NumBlocks * pRegion->BlockSize;
    }
  }
  return Sum;
}

uint32_t UTIL_FormatSizeList(const MEMORY_REGION* const* papList, uint32_t NumLists, char* pBuffer,
                             uint32_t BufferSize) {
  if (BufferSize == 0) {
    return 0;
  }
  char*       p         = pBuffer;
  const char* pEnd      = pBuffer + SignedSize(BufferSize);
  uint32_t    Total     = 0;
  const char* sFirstSep = "";
  for (uint32_t i = 0; i < NumLists; i++) {
    const uint32_t Sum = SumOfRegions(papList[i]);
    char           acSize[64];  // the longest text is "4294967295 Bytes"
    UTIL_FormatSize(Sum, acSize, sizeof(acSize));
    p         = UTIL_snprintf(p, (int32_t)(pEnd - p), "%s%s", sFirstSep, acSize);
    sFirstSep = " + ";
    Total += Sum;
  }
  if (p == pBuffer) {  // no lists, or no room for any text
    UTIL_CopyString(pBuffer, "-", BufferSize);
    return 0;
  }
  return Total;
}

char* UTIL_FormatTime(uint64_t Microseconds, char* pBuffer, uint32_t BufferSize) {
  const int32_t OutSize = SignedSize(BufferSize);
  // The precision, not the width, makes leading zeros (format.h).
  const uint32_t Hours   = (uint32_t)(Microseconds / 3600000000u);
  const uint32_t Minutes = (uint32_t)(Microseconds / 60000000 % 60);
  const uint32_t Seconds = (uint32_t)(Microseconds / 1000000 % 60);
  const uint32_t Millis  = (uint32_t)(Microseconds / 1000 % 1000);
  const uint32_t Micros  = (uint32_t)(Microseconds % 1000);
  if (Hours > 0) {
    return UTIL_snprintf(pBuffer, OutSize, "%.1d:%.2d:%.2d.%.3d %.3d", Hours, Minutes, Seconds,
                         Millis, Micros);
  }
  if (Minutes > 0) {
    return UTIL_snprintf(pBuffer, OutSize, "%.1d:%.2d.%.3d %.3d", Minutes, Seconds, Millis, Micros);
  }
  return UTIL_snprintf(pBuffer, OutSize, "%.1d.%.3d %.3d", Seconds, Millis, Micros);
}

char* UTIL_FormatIPAddr(uint32_t Addr, char* pBuffer, uint32_t BufferSize) {
  return UTIL_snprintf(pBuffer, SignedSize(BufferSize), "%d.%d.%d.%d", Addr & 0xFF,
                       (Addr >> 8) & 0xFF, (Addr >> 16) & 0xFF, Addr >> 24);
}

char* UTIL_FormatMACAddr(const uint8_t* pAddr, char Separator, char* pBuffer, uint32_t BufferSize) {
  return UTIL_snprintf(pBuffer, SignedSize(BufferSize), "%.2X%c%.2X%c%.2X%c%.2X%c%.2X%c%.2X",
                       pAddr[0], Separator, pAddr[1], Separator, pAddr[2], Separator, pAddr[3],
                       Separator, pAddr[4], Separator, pAddr[5]);
}

// 2 to the power of Exponent, exactly; -1022 to 1023.
static double PowerOfTwo(int32_t Exponent) {
  const uint64_t Bits = (uint64_t)(Exponent + 1023) << 52;
  double         Power;
  memcpy(&Power, &Bits, sizeof(Power));
  return Power;
}

int32_t UTIL_FormatFloatBits(char* pBuffer, uint32_t BufferSize, uint32_t Bits) {
  // The value is put together as a double, which holds every single exactly. Converting the bits as
  // a float would lose subnormal numbers on a processor that flushes them to zero.
  const uint32_t IsNegative = Bits >> 31;
  const int32_t  Exponent   = (int32_t)((Bits >> 23) & 0xFF);
  const uint32_t Fraction   = Bits & 0x7FFFFF;

  if (Exponent == 255 && Fraction != 0) {  // a quiet NaN has the fraction's highest bit set
    UTIL_CopyString(pBuffer, (Fraction & 0x400000) != 0 ? "NaNq" : "NaNs", BufferSize);
  } else if (Exponent == 255) {
    UTIL_CopyString(pBuffer, IsNegative ? "-Infinite" : "Infinite", BufferSize);
  } else if (Exponent == 0 && Fraction == 0) {
    UTIL_CopyString(pBuffer, IsNegative ? "-0.0" : "0.0", BufferSize);
  } else {
    const double Magnitude = Exponent == 0 ? (double)Fraction * PowerOfTwo(-149)
                                           : (Fraction | 0x800000) * PowerOfTwo(Exponent - 150);
    snprintf(pBuffer, (size_t)SignedSize(BufferSize), "%s%.6G", IsNegative ? "-" : "", Magnitude);
  }
  return 0;
}

// How far a dump has come.
struct DUMP {
  char*          p;            // where the next character goes
  const char*    pEnd;         // of the buffer
  const uint8_t* pData;        // the next byte
  int64_t        FullLineLen;  // with address and line end; 64 bits: three times a 32-bit number
  uint32_t       NumBytes;
  uint32_t       BytesPerLine;
  uint32_t       Addr;
  int32_t        ShowAddr;
};

// Stores the bytes and, except in blocks of 16, one character more: one load and one store for each
// byte, of which the next byte covers the fourth character.
static inline char* StoreDumpBytes(char* p, const uint8_t* pData, uint32_t NumBytes) {
  for (; NumBytes >= 4; NumBytes -= 4) {
    memcpy(p, DumpTable.a[pData[0]], sizeof(DumpTable.a[0]));
    memcpy(p + 3, DumpTable.a[pData[1]], sizeof(DumpTable.a[0]));
    memcpy(p + 6, DumpTable.a[pData[2]], sizeof(DumpTable.a[0]));
    memcpy(p + 9, DumpTable.a[pData[3]], sizeof(DumpTable.a[0]));
    p += 4 * DUMP_BYTE_LEN;
    pData += 4;
  }
  for (; NumBytes > 0; NumBytes--) {
    memcpy(p, DumpTable.a[*pData++], sizeof(DumpTable.a[0]));
    p += DUMP_BYTE_LEN;
  }
  return p;
}

// Stores "0x", eight digits, ": ". Returns where the bytes go.
static inline char* StoreDumpAddr(char* p, uint32_t Addr) {
  p[0] = '0';
  p[1] = 'x';
  DIGITS_StoreHex(p + 2, Addr, 8, 0);
  p[10] = ':';
  p[11] = ' ';
  return p + DUMP_ADDR_LEN;
}

#if CPU_HAS_WIDE

// The digits of 16 values below 16: the instruction looks each value up in a table of 16 bytes.
CPU_TARGET_AVX2 static inline __m128i HexDigits(__m128i Values) {
  const __m128i Digits =
      _mm_setr_epi8('0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'A', 'B', 'C', 'D', 'E', 'F');
  return _mm_shuffle_epi8(Digits, Values);
}

// Stores 16 bytes as 48 characters.
//
// The digits are made for all bytes at once and put in order. Then three shuffles spread them over
// three blocks, leaving a gap after each pair. First, Middle and Last say for each character of a
// block which digit it is. Middle's digits come from both halves, so a block that spans them is cut
// out first.
CPU_TARGET_AVX2 static inline void StoreDump16(char* p, __m128i Bytes) {
  const char    NONE = (char)0x80;  // becomes 0, and then a blank: it is less than any digit
  const __m128i First =
      _mm_setr_epi8(0, 1, NONE, 2, 3, NONE, 4, 5, NONE, 6, 7, NONE, 8, 9, NONE, 10);
  const __m128i Middle =
      _mm_setr_epi8(1, NONE, 2, 3, NONE, 4, 5, NONE, 6, 7, NONE, 8, 9, NONE, 10, 11);
  const __m128i Last =
      _mm_setr_epi8(NONE, 6, 7, NONE, 8, 9, NONE, 10, 11, NONE, 12, 13, NONE, 14, 15, NONE);
  const __m128i Blanks = _mm_set1_epi8(' ');
  const __m128i Low4   = _mm_set1_epi8(0x0F);
  const __m128i High   = HexDigits(_mm_and_si128(_mm_srli_epi16(Bytes, 4), Low4));
  const __m128i Low    = HexDigits(_mm_and_si128(Bytes, Low4));
  const __m128i Half0  = _mm_unpacklo_epi8(High, Low);       // of bytes 0 to 7
  const __m128i Half1  = _mm_unpackhi_epi8(High, Low);       // of bytes 8 to 15
  const __m128i Both   = _mm_alignr_epi8(Half1, Half0, 10);  // of bytes 5 to 12
  __m128i*      pOut   = (__m128i*)(void*)p;
  _mm_storeu_si128(pOut, _mm_max_epu8(_mm_shuffle_epi8(Half0, First), Blanks));
  _mm_storeu_si128(pOut + 1, _mm_max_epu8(_mm_shuffle_epi8(Both, Middle), Blanks));
  _mm_storeu_si128(pOut + 2, _mm_max_epu8(_mm_shuffle_epi8(Half1, Last), Blanks));
}

// The same text as StoreDumpAddr(). The bytes are swapped so that the highest digit comes first.
CPU_TARGET_AVX2 static inline char* StoreDumpAddrWide(char* p, uint32_t Addr) {
  const __m128i Low4  = _mm_set1_epi8(0x0F);
  const __m128i Bytes = _mm_cvtsi32_si128((int32_t)__builtin_bswap32(Addr));
  const __m128i High  = HexDigits(_mm_and_si128(_mm_srli_epi16(Bytes, 4), Low4));
  const __m128i Low   = HexDigits(_mm_and_si128(Bytes, Low4));
  p[0]                = '0';
  p[1]                = 'x';
  _mm_storel_epi64((__m128i*)(void*)(p + 2), _mm_unpacklo_epi8(High, Low));
  p[10] = ':';
  p[11] = ' ';
  return p + DUMP_ADDR_LEN;
}

// For a multiple of 16 bytes.
CPU_TARGET_AVX2 static inline char* StoreDumpBytesBy16(char* p, const uint8_t* pData,
                                                       uint32_t NumBytes) {
  for (; NumBytes >= 16; NumBytes -= 16) {
    StoreDump16(p, _mm_loadu_si128((const __m128i*)(const void*)pData));
    p += 16 * DUMP_BYTE_LEN;
    pData += 16;
  }
  return p;
}

// Whole blocks of 16, then the rest byte by byte.
CPU_TARGET_AVX2 static inline char* StoreDumpBytesWide(char* p, const uint8_t* pData,
                                                       uint32_t NumBytes) {
  p = StoreDumpBytesBy16(p, pData, NumBytes);
  return StoreDumpBytes(p, pData + NumBytes / 16 * 16, NumBytes % 16);
}

#endif

// Dumps full lines while each is sure to fit. One loop, compiled for each choice of instructions. A
// macro, because the attribute for AVX2 cannot depend on a template's argument. The character too
// many that StoreBytes leaves is overwritten by the line end.
#define DEFINE_DUMP_LINES(Name, TARGET, StoreAddr, StoreBytes)                   \
  TARGET __attribute__((noinline)) static void Name(DUMP* pDump) {               \
    const DUMP     Dump     = *pDump;                                            \
    const uint8_t* pData    = Dump.pData;                                        \
    char*          p        = Dump.p;                                            \
    uint32_t       NumBytes = Dump.NumBytes;                                     \
    uint32_t       Addr     = Dump.Addr;                                         \
    while (NumBytes >= Dump.BytesPerLine && Dump.pEnd - p >= Dump.FullLineLen) { \
      p = Dump.ShowAddr ? StoreAddr(p, Addr) : p;                                \
      p = StoreBytes(p, pData, Dump.BytesPerLine);                               \
      memcpy(p, "\r\n", DUMP_EOL_LEN);                                           \
      p += DUMP_EOL_LEN;                                                         \
      pData += Dump.BytesPerLine;                                                \
      NumBytes -= Dump.BytesPerLine;                                             \
      Addr += Dump.BytesPerLine;                                                 \
    }                                                                            \
    pDump->p        = p;                                                         \
    pDump->pData    = pData;                                                     \
    pDump->NumBytes = NumBytes;                                                  \
    pDump->Addr     = Addr;                                                      \
  }

DEFINE_DUMP_LINES(DumpLines, , StoreDumpAddr, StoreDumpBytes)
#if CPU_HAS_WIDE
DEFINE_DUMP_LINES(DumpLinesWide, CPU_TARGET_AVX2, StoreDumpAddrWide, StoreDumpBytesWide)
DEFINE_DUMP_LINES(DumpLinesBy16, CPU_TARGET_AVX2, StoreDumpAddrWide, StoreDumpBytesBy16)
#endif

// Dumps what remains: a partial line, or as much of a full one as fits. Returns the end.
__attribute__((noinline)) static char* DumpRest(const DUMP* pDump) {
  char* p = pDump->p;
  if (pDump->ShowAddr) {
    if (pDump->pEnd - p < DUMP_ADDR_LEN) {
      return p;
    }
    p = StoreDumpAddr(p, pDump->Addr);
  }
  const uint32_t LineLen = UTIL_MinU32(pDump->NumBytes, pDump->BytesPerLine);
  const uint32_t NumFit  = UTIL_MinU32(LineLen, (uint32_t)(pDump->pEnd - p) / DUMP_BYTE_LEN);
  if (NumFit > 0) {
    // The last byte alone, as there may be no room for the character too many.
    p = StoreDumpBytes(p, pDump->pData, NumFit - 1);
    memcpy(p, DumpTable.a[pDump->pData[NumFit - 1]], DUMP_BYTE_LEN);
    p += DUMP_BYTE_LEN;
  }
  return p;
}

uint32_t UTIL_HexDump(char* pBuffer, uint32_t BufferSize, const void* pData, uint32_t NumBytes,
                      int32_t ShowAddr, uint64_t Addr, uint32_t BytesPerLine) {
  if (NumBytes == 0) {
    return 0;
  }
  if (BytesPerLine == 0) {
    BytesPerLine = NumBytes;
  }
  const uint32_t AddrLen     = ShowAddr ? DUMP_ADDR_LEN : 0;
  const int64_t  FullLineLen = AddrLen + (int64_t)BytesPerLine * DUMP_BYTE_LEN + DUMP_EOL_LEN;
  DUMP           Dump        = {pBuffer,  pBuffer + BufferSize, (const uint8_t*)pData, FullLineLen,
                                NumBytes, BytesPerLine,         (uint32_t)Addr,        ShowAddr};
#if CPU_HAS_WIDE
  const int32_t IsWide = CPU_HasAVX2();
  // A line of whole blocks, which is the usual one, gets a loop without code for a rest.
  if (IsWide && BytesPerLine % 16 == 0) {
    DumpLinesBy16(&Dump);
  } else if (IsWide) {
    DumpLinesWide(&Dump);
  } else
#endif
  {
    DumpLines(&Dump);
  }
  char* p = Dump.NumBytes > 0 ? DumpRest(&Dump) : Dump.p;
  if (p < Dump.pEnd) {
    *p++ = 0;
  }
  return (uint32_t)(p - pBuffer);
}
