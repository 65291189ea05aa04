// tests/util/vectors_value_text.h
// SPDX-License-Identifier: MIT
//
// Rows for the texts of values; vectors.h tells how to run them.

#ifndef TESTS_UTIL_VECTORS_VALUE_TEXT_H
#define TESTS_UTIL_VECTORS_VALUE_TEXT_H

#include "tests/util/vectors.h"
#include "util/value_text.h"

enum VECTORS_VALUE_KIND { VALUE_SIZE, VALUE_TIME, VALUE_IP, VALUE_FLOAT };

struct VECTORS_VALUE_ROW {
  VECTORS_VALUE_KIND Kind;
  uint64_t           Value;
  uint32_t           BufferSize;
  const char*        sExpected;
};

static const VECTORS_VALUE_ROW VECTORS_ValueRows[] = {
    // Sizes
    {VALUE_SIZE, 0, 64, "0 Bytes"},
    {VALUE_SIZE, 1, 64, "1 Byte"},
    {VALUE_SIZE, (uint64_t)-1, 64, "-1 Byte"},
    {VALUE_SIZE, 2, 64, "2 Bytes"},
    {VALUE_SIZE, (uint64_t)-2, 64, "-2 Bytes"},
    {VALUE_SIZE, 511, 64, "511 Bytes"},
    {VALUE_SIZE, 512, 64, "512 Bytes"},
    {VALUE_SIZE, 1024, 64, "1 KB"},
    {VALUE_SIZE, 1025, 64, "1025 Bytes"},
    {VALUE_SIZE, 1536, 64, "1.5 KB"},
    {VALUE_SIZE, 2048, 64, "2 KB"},
    {VALUE_SIZE, 0x80000, 64, "512 KB"},
    {VALUE_SIZE, 0x80200, 64, "512.5 KB"},
    {VALUE_SIZE, 0x100000, 64, "1 MB"},
    {VALUE_SIZE, 0x180000, 64, "1.5 MB"},
    {VALUE_SIZE, 0x20000000, 64, "512 MB"},
    {VALUE_SIZE, 0x20080000, 64, "512.5 MB"},
    {VALUE_SIZE, 0x40000000, 64, "1 GB"},
    {VALUE_SIZE, 0x60000000, 64, "1.5 GB"},
    {VALUE_SIZE, 0x40100000, 64, "1025 MB"},
    {VALUE_SIZE, 0x100000000, 64, "4 GB"},
    {VALUE_SIZE, 0x7FFFFFFFE0000000, 64, "8589934591.5 GB"},
    {VALUE_SIZE, 0x1000000000000000, 64, "1073741824 GB"},
    {VALUE_SIZE, 0x4000000000000000, 64, "0 GB"},
    {VALUE_SIZE, 0x100000001, 64, "1 Bytes"},
    {VALUE_SIZE, (uint64_t)-1536, 64, "-1536 Bytes"},
    {VALUE_SIZE, (uint64_t)-2048, 64, "-2 KB"},
    {VALUE_SIZE, (uint64_t)-0x100000, 64, "-1 MB"},
    {VALUE_SIZE, (uint64_t)-0x180000, 64, "-1536 KB"},
    {VALUE_SIZE, (uint64_t)-0x40000000, 64, "-1 GB"},
    {VALUE_SIZE, 0x8000000000000000, 64, "0 GB"},
    {VALUE_SIZE, 0x8000000000000001, 64, "-4294967295 Bytes"},
    {VALUE_SIZE, 5, 8, "5 Bytes"},
    {VALUE_SIZE, 5, 7, "5 Byte"},
    {VALUE_SIZE, 5, 6, "5 Byt"},
    {VALUE_SIZE, 5, 1, ""},
    {VALUE_SIZE, 0, 4, "0 B"},
    {VALUE_SIZE, 1536, 4, "1.5"},
    // Durations
    {VALUE_TIME, 0, 64, "0.000 000"},
    {VALUE_TIME, 5, 64, "0.000 005"},
    {VALUE_TIME, 1234567, 64, "1.234 567"},
    {VALUE_TIME, 59999999, 64, "59.999 999"},
    {VALUE_TIME, 60000000, 64, "1:00.000 000"},
    {VALUE_TIME, 61000000, 64, "1:01.000 000"},
    {VALUE_TIME, 3599999999, 64, "59:59.999 999"},
    {VALUE_TIME, 3600000000, 64, "1:00:00.000 000"},
    {VALUE_TIME, 3723004005, 64, "1:02:03.004 005"},
    {VALUE_TIME, 360000000000, 64, "100:00:00.000 000"},
    {VALUE_TIME, 0x100000000 * 3600000000ull + 61000001, 64, "1:01.000 001"},
    {VALUE_TIME, 0x80000000 * 3600000000ull, 64, "-2147483648:00:00.000 000"},
    {VALUE_TIME, 1234567, 6, "1.234"},
    {VALUE_TIME, 1234567, 1, ""},
    {VALUE_TIME, 3723004005, 8, "1:02:03"},
    // IPv4
    {VALUE_IP, 0x0201A8C0, 64, "192.168.1.2"},
    {VALUE_IP, 0, 64, "0.0.0.0"},
    {VALUE_IP, 0xFFFFFFFF, 64, "255.255.255.255"},
    {VALUE_IP, 0xFFFFFFFF, 16, "255.255.255.255"},
    {VALUE_IP, 0xFFFFFFFF, 15, "255.255.255.25"},
    // Floats
    {VALUE_FLOAT, 0x00000000, 64, "0.0"},
    {VALUE_FLOAT, 0x80000000, 64, "-0.0"},
    {VALUE_FLOAT, 0x7F800000, 64, "Infinite"},
    {VALUE_FLOAT, 0xFF800000, 64, "-Infinite"},
    {VALUE_FLOAT, 0x7FC00000, 64, "NaNq"},
    {VALUE_FLOAT, 0xFFFFFFFF, 64, "NaNq"},
    {VALUE_FLOAT, 0x7F800001, 64, "NaNs"},
    {VALUE_FLOAT, 0xFFBFFFFF, 64, "NaNs"},
    {VALUE_FLOAT, 0x3F800000, 64, "1"},
    {VALUE_FLOAT, 0xBF000000, 64, "-0.5"},
    {VALUE_FLOAT, 0x3DCCCCCD, 64, "0.1"},
    {VALUE_FLOAT, 0x40490FDB, 64, "3.14159"},
    {VALUE_FLOAT, 0x4B800000, 64, "1.67772E+07"},
    {VALUE_FLOAT, 0x00000001, 64, "1.4013E-45"},
    {VALUE_FLOAT, 0x80000001, 64, "-1.4013E-45"},
    {VALUE_FLOAT, 0x007FFFFF, 64, "1.17549E-38"},
    {VALUE_FLOAT, 0x00800000, 64, "1.17549E-38"},
    {VALUE_FLOAT, 0x7F7FFFFF, 64, "3.40282E+38"},
    {VALUE_FLOAT, 0x40490FDB, 5, "3.14"},
    {VALUE_FLOAT, 0x7F800000, 4, "Inf"},
    {VALUE_FLOAT, 0x7F800000, 1, ""},
};

struct VECTORS_MAC_ROW {
  const char* sAddr;  // 6 bytes
  char        Separator;
  uint32_t    BufferSize;
  const char* sExpected;
};

static const VECTORS_MAC_ROW VECTORS_MACRows[] = {
    {"\x00\x1A\x2B\x3C\x4D\x5E", ':', 64, "00:1A:2B:3C:4D:5E"},
    {"\xFF\xFE\x00\x01\x80\x7F", '-', 18, "FF-FE-00-01-80-7F"},
    {"\xFF\xFE\x00\x01\x80\x7F", '-', 17, "FF-FE-00-01-80-7"},
    {"\xFF\xFE\x00\x01\x80\x7F", '-', 3, "FF"},
    {"\xFF\xFE\x00\x01\x80\x7F", '-', 1, ""},
};

static inline int VECTORS_RunMACAddr(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_MACRows); i++) {
    const VECTORS_MAC_ROW* pRow = &VECTORS_MACRows[i];
    VECTORS_OUTPUT         Out;
    VECTORS_Arm(&Out);
    const char* pEnd =
        UTIL_FormatMACAddr((const uint8_t*)pRow->sAddr, pRow->Separator, Out.ac, pRow->BufferSize);
    VECTORS_Check(VECTORS_Holds(&Out, pRow->sExpected, pRow->BufferSize) &&
                      pEnd == Out.ac + strlen(pRow->sExpected),
                  pfReport, "MAC address", i, pRow->sExpected);
  }
  return VECTORS_NUM_ROWS(VECTORS_MACRows);
}

// The first NumLists of: a flash of 1 MB in blocks of three sizes, none, 1 byte, an empty one, and
// one whose total wraps to 2 bytes.
struct VECTORS_LIST_ROW {
  uint32_t    NumLists;
  uint32_t    BufferSize;
  uint32_t    Result;
  const char* sExpected;
};

static const VECTORS_LIST_ROW VECTORS_ListRows[] = {
    {0, 64, 0, "-"},
    {0, 2, 0, "-"},
    {0, 1, 0, ""},
    {1, 64, 0x100000, "1 MB"},
    {2, 64, 0x100000, "1 MB + 0 Bytes"},
    {5, 64, 0x100003, "1 MB + 0 Bytes + 1 Byte + 0 Bytes + 2 Bytes"},
    {5, 44, 0x100003, "1 MB + 0 Bytes + 1 Byte + 0 Bytes + 2 Bytes"},
    {5, 43, 0x100003, "1 MB + 0 Bytes + 1 Byte + 0 Bytes + 2 Byte"},
    {5, 6, 0x100003, "1 MB "},
    {5, 2, 0x100003, "1"},
    {5, 1, 0, ""},
};

static inline int VECTORS_RunSizeList(VECTORS_REPORT* pfReport) {
  static const MEMORY_REGION aFlash[] = {
      {4, 0x4000, 1}, {1, 0x10000, 2}, {7, 0x20000, 3}, {0, 9, 9}};
  static const MEMORY_REGION        aOne[]   = {{1, 1, 0}, {0, 0, 0}};
  static const MEMORY_REGION        aNone[]  = {{0, 5, 0}};
  static const MEMORY_REGION        aWraps[] = {{0x10000, 0x10000, 0}, {1, 2, 0}, {0, 0, 0}};
  static const MEMORY_REGION* const apList[] = {aFlash, NULL, aOne, aNone, aWraps};
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_ListRows); i++) {
    const VECTORS_LIST_ROW* pRow = &VECTORS_ListRows[i];
    VECTORS_OUTPUT          Out;
    VECTORS_Arm(&Out);
    const uint32_t Result = UTIL_FormatSizeList(apList, pRow->NumLists, Out.ac, pRow->BufferSize);
    VECTORS_Check(Result == pRow->Result && VECTORS_Holds(&Out, pRow->sExpected, pRow->BufferSize),
                  pfReport, "size list", i, pRow->sExpected);
  }
  return VECTORS_NUM_ROWS(VECTORS_ListRows);
}

struct VECTORS_DUMP_ROW {
  const char* sData;
  uint32_t    NumBytes;
  int32_t     ShowAddr;
  uint64_t    Addr;
  uint32_t    BytesPerLine;
  uint32_t    BufferSize;
  uint32_t    Result;
  const char* sExpected;  // not terminated in the buffer when Result does not count it
};

static const VECTORS_DUMP_ROW VECTORS_DumpRows[] = {
    {"\x12\xAB\x00\xFF", 4, 1, 0x20000000, 4, 64, 27, "0x20000000: 12 AB 00 FF \r\n"},
    {"\x12\xAB\x00\xFF", 4, 0, 0x20000000, 4, 64, 15, "12 AB 00 FF \r\n"},
    {"\x12\xAB\x00\xFF", 4, 0, 0, 3, 64, 15, "12 AB 00 \r\nFF "},
    {"\x12\xAB\x00\xFF", 4, 0, 0, 5, 64, 13, "12 AB 00 FF "},
    {"\x12\xAB\x00\xFF", 4, 0, 0, 0, 64, 15, "12 AB 00 FF \r\n"},
    {"\x12\xAB", 2, 1, 0x1FFFFFFFF, 1, 64, 35, "0xFFFFFFFF: 12 \r\n0x00000000: AB \r\n"},
    {"\x12\xAB", 2, 0, 0, 2, 9, 9, "12 AB \r\n"},
    {"\x12\xAB", 2, 0, 0, 2, 8, 8, "12 AB \r\n"},
    {"\x12\xAB", 2, 0, 0, 2, 7, 7, "12 AB "},
    {"\x12\xAB", 2, 0, 0, 2, 6, 6, "12 AB "},
    {"\x12\xAB", 2, 0, 0, 2, 5, 4, "12 "},
    {"\x12\xAB", 2, 0, 0, 2, 3, 3, "12 "},
    {"\x12\xAB", 2, 0, 0, 2, 2, 1, ""},
    {"\x12\xAB", 2, 0, 0, 2, 1, 1, ""},
    {"\x12\xAB", 2, 0, 0, 2, 0, 0, ""},
    {"\x12\xAB", 2, 1, 0, 2, 15, 15, "0x00000000: 12 "},
    {"\x12\xAB", 2, 1, 0, 2, 12, 12, "0x00000000: "},
    {"\x12\xAB", 2, 1, 0, 2, 11, 1, ""},
    {"\x12\xAB", 2, 1, 0, 1, 20, 18, "0x00000000: 12 \r\n"},
};

static inline void VECTORS_CallValue(const VECTORS_VALUE_ROW* pRow, char* pBuffer) {
  switch (pRow->Kind) {
    case VALUE_SIZE:
      UTIL_FormatSize((int64_t)pRow->Value, pBuffer, pRow->BufferSize);
      break;
    case VALUE_TIME:
      UTIL_FormatTime(pRow->Value, pBuffer, pRow->BufferSize);
      break;
    case VALUE_IP:
      UTIL_FormatIPAddr((uint32_t)pRow->Value, pBuffer, pRow->BufferSize);
      break;
    case VALUE_FLOAT:
      UTIL_FormatFloatBits(pBuffer, pRow->BufferSize, (uint32_t)pRow->Value);
      break;
  }
}

static inline int VECTORS_RunValueText(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_ValueRows); i++) {
    const VECTORS_VALUE_ROW* pRow = &VECTORS_ValueRows[i];
    VECTORS_OUTPUT           Out;
    VECTORS_Arm(&Out);
    VECTORS_CallValue(pRow, Out.ac);
    VECTORS_Check(VECTORS_Holds(&Out, pRow->sExpected, pRow->BufferSize), pfReport, "value text", i,
                  pRow->sExpected);
  }
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_DumpRows); i++) {
    const VECTORS_DUMP_ROW* pRow = &VECTORS_DumpRows[i];
    const size_t            Len  = strlen(pRow->sExpected);
    VECTORS_OUTPUT          Expected;
    VECTORS_OUTPUT          Out;
    VECTORS_Arm(&Expected);
    VECTORS_Arm(&Out);
    memcpy(Expected.ac, pRow->sExpected, Len);
    if (pRow->Result > Len) {
      Expected.ac[Len] = 0;
    }
    const uint32_t Result = UTIL_HexDump(Out.ac, pRow->BufferSize, pRow->sData, pRow->NumBytes,
                                         pRow->ShowAddr, pRow->Addr, pRow->BytesPerLine);
    VECTORS_Check(Result == pRow->Result && memcmp(&Out, &Expected, sizeof(Out)) == 0, pfReport,
                  "hex dump", i, pRow->sExpected);
  }
  return VECTORS_NUM_ROWS(VECTORS_ValueRows) + VECTORS_NUM_ROWS(VECTORS_DumpRows) +
         VECTORS_RunMACAddr(pfReport) + VECTORS_RunSizeList(pfReport);
}

#endif
