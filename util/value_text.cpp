#include "util/value_text.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "util/arith.h"
#include "util/format.h"
#include "util/string.h"

struct SIZE_UNIT {
  uint32_t    Shift;
  const char* sName;
};

static const SIZE_UNIT aSizeUnit[] = {{30, "GB"}, {20, "MB"}, {10, "KB"}};

// What a byte looks like in a dump: two digits, a blank, and a fourth character that nobody sees,
// as four are copied at once.
struct DUMP_TABLE {
  char a[256][4];
};

static const uint32_t DUMP_BYTE_LEN = 3;   // two digits, blank
static const uint32_t DUMP_ADDR_LEN = 12;  // 0x, eight digits, colon, blank
static const uint32_t DUMP_EOL_LEN  = 2;

static constexpr DUMP_TABLE BuildDumpTable() {
  constexpr char acDigit[] = "0123456789ABCDEF";
  DUMP_TABLE     Table     = {};
  for (int i = 0; i < 256; i++) {
    Table.a[i][0] = acDigit[i >> 4];
    Table.a[i][1] = acDigit[i & 15];
    Table.a[i][2] = ' ';
  }
  return Table;
}

static constexpr DUMP_TABLE DumpTable = BuildDumpTable();

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
  for (const SIZE_UNIT& Unit : aSizeUnit) {
    const int64_t One  = (int64_t)1 << Unit.Shift;
    const int64_t Half = One >> 1;
    if ((Size & (One - 1)) == 0) {
      UTIL_snprintf(pBuffer, OutSize, "%d %s", (int32_t)(Size >> Unit.Shift), Unit.sName);
      return;
    }
    if (Size >= One && (Size & (Half - 1)) == 0) {
      const double NumUnits = (double)(Size >> (Unit.Shift - 1)) * 0.5;
      snprintf(pBuffer, (size_t)OutSize, "%.1f %s", NumUnits, Unit.sName);
      return;
    }
  }
  const uint32_t Magnitude = (uint32_t)(Size < 0 ? 0 - (uint64_t)Size : (uint64_t)Size);
  char* pEnd = UTIL_snprintf(pBuffer, OutSize, Size < 0 ? "-%u Byte" : "%u Byte", Magnitude);
  if (Size != 1 && Size != -1 && pEnd - pBuffer < OutSize - 1) {
    pEnd[0] = 's';
    pEnd[1] = 0;
  }
}

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
    char           acSize[64];
    UTIL_FormatSize(Sum, acSize, sizeof(acSize));
    p         = UTIL_snprintf(p, (int32_t)(pEnd - p), "%s%s", sFirstSep, acSize);
    sFirstSep = " + ";
    Total += Sum;
  }
  if (p == pBuffer) {
    UTIL_CopyString(pBuffer, "-", BufferSize);
    return 0;
  }
  return Total;
}

char* UTIL_FormatTime(uint64_t Microseconds, char* pBuffer, uint32_t BufferSize) {
  const int32_t  OutSize = SignedSize(BufferSize);
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
  const uint32_t IsNegative = Bits >> 31;
  const int32_t  Exponent   = (int32_t)((Bits >> 23) & 0xFF);
  const uint32_t Fraction   = Bits & 0x7FFFFF;

  if (Exponent == 255 && Fraction != 0) {
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

// One load and one store for each byte. A loop that computes the digits is faster where the
// compiler finds the shuffles for groups of three, and twice as slow where it does not.
static char* StoreDumpBytes(char* p, const uint8_t* pData, uint32_t NumBytes) {
  if (NumBytes == 0) {
    return p;
  }
  const uint8_t* pLast = pData + NumBytes - 1;
  while (pData < pLast) {
    memcpy(p, DumpTable.a[*pData++], sizeof(DumpTable.a[0]));  // the next byte covers the fourth
    p += DUMP_BYTE_LEN;
  }
  memcpy(p, DumpTable.a[*pLast], DUMP_BYTE_LEN);
  return p + DUMP_BYTE_LEN;
}

static char* StoreDumpAddr(char* p, uint32_t Addr) {
  *p++ = '0';
  *p++ = 'x';
  for (int32_t Shift = 24; Shift >= 0; Shift -= 8) {
    memcpy(p, DumpTable.a[(Addr >> Shift) & 0xFF], 2);
    p += 2;
  }
  *p++ = ':';
  *p++ = ' ';
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
  const uint8_t* pb   = (const uint8_t*)pData;
  char*          p    = pBuffer;
  const char*    pEnd = pBuffer + BufferSize;
  while (NumBytes > 0) {
    if (ShowAddr) {
      if (pEnd - p < DUMP_ADDR_LEN) {
        break;
      }
      p = StoreDumpAddr(p, (uint32_t)Addr);
    }
    const uint32_t LineLen = UTIL_MinU32(NumBytes, BytesPerLine);
    const uint32_t NumFit  = UTIL_MinU32(LineLen, (uint32_t)(pEnd - p) / DUMP_BYTE_LEN);
    p                      = StoreDumpBytes(p, pb, NumFit);
    if (NumFit < LineLen) {
      break;
    }
    if (LineLen == BytesPerLine) {
      if (pEnd - p < DUMP_EOL_LEN) {
        break;
      }
      *p++ = '\r';
      *p++ = '\n';
    }
    pb += LineLen;
    NumBytes -= LineLen;
    Addr += BytesPerLine;
  }
  if (p < pEnd) {
    *p++ = 0;
  }
  return (uint32_t)(p - pBuffer);
}
