// tests/util/vectors_identity.h
// SPDX-License-Identifier: MIT
//
// Rows for the structure copy and the identity texts; vectors.h tells how to run them.

#ifndef TESTS_UTIL_VECTORS_IDENTITY_H
#define TESTS_UTIL_VECTORS_IDENTITY_H

#include "tests/util/vectors.h"
#include "util/identity.h"

// Size fields, and what becomes of the destination's payload.
struct VECTORS_STRUCT_ROW {
  uint32_t DestSize;
  uint32_t SourceSize;
  uint32_t NumCopied;
  uint32_t NumCleared;  // behind those
};

static const VECTORS_STRUCT_ROW VECTORS_StructRows[] = {
    {12, 20, 8, 0},
    {12, 12, 8, 0},
    {20, 12, 8, 8},
    {20, 9, 5, 11},
    {12, 4, 0, 8},
    {4, 20, 0, 0},
    // A source below 4 counts as one without end.
    {12, 3, 8, 0},
    {12, 0, 8, 0},
    {4100, 4100, 4096, 0},
    {4100, 8, 4, 4092},
    // Refused
    {4104, 4100, 0, 0},
    {4101, 4100, 0, 0},
    {5, 20, 0, 0},
    {6, 20, 0, 0},
    {3, 20, 0, 0},
    {0, 20, 0, 0},
    {0xFFFFFFFF, 20, 0, 0},
};

struct VECTORS_OS_ROW {
  uint32_t    Id;
  const char* sName;
};

static const VECTORS_OS_ROW VECTORS_OSRows[] = {
    {0x1000, "Windows"},      {0x1001, "Windows 2000"},  {0x1002, "Windows XP"},
    {0x1003, "Windows XP64"}, {0x1004, "Windows Vista"}, {0x1005, "Windows 7"},
    {0x1006, "Windows 8"},    {0x1007, "Windows 8.1"},   {0x1008, "Windows 10"},
    {0x2000, "Linux"},        {0x3000, "macOS"},         {0, "Unknown"},
    {0x0FFF, "Unknown"},      {0x1009, "Unknown"},       {0x1FFF, "Unknown"},
    {0x2001, "Unknown"},      {0x3001, "Unknown"},       {0xFFFFFFFF, "Unknown"},
};

enum { VECTORS_STRUCT_BUFFER = 4200 };

static inline void VECTORS_FillStruct(uint8_t* p, uint32_t SizeField, int Value) {
  memset(p, Value, VECTORS_STRUCT_BUFFER);
  memcpy(p, &SizeField, sizeof(SizeField));
}

static inline int VECTORS_RunIdentity(VECTORS_REPORT* pfReport) {
  static uint8_t abDest[VECTORS_STRUCT_BUFFER];
  static uint8_t abSource[VECTORS_STRUCT_BUFFER];
  static uint8_t abExpected[VECTORS_STRUCT_BUFFER];
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_StructRows); i++) {
    const VECTORS_STRUCT_ROW* pRow = &VECTORS_StructRows[i];
    VECTORS_FillStruct(abDest, pRow->DestSize, 0x11);
    VECTORS_FillStruct(abSource, pRow->SourceSize, 0x22);
    VECTORS_FillStruct(abExpected, pRow->DestSize, 0x11);
    memset(abExpected + 4, 0x22, pRow->NumCopied);
    memset(abExpected + 4 + pRow->NumCopied, 0, pRow->NumCleared);
    UTIL_CopyAPIStruct(abDest, abSource, "STRUCT");
    VECTORS_Check(memcmp(abDest, abExpected, sizeof(abDest)) == 0, pfReport, "structure", i,
                  "bytes differ");
  }
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_OSRows); i++) {
    VECTORS_Check(VECTORS_SameText(UTIL_GetOSName(VECTORS_OSRows[i].Id), VECTORS_OSRows[i].sName),
                  pfReport, "operating system", i, VECTORS_OSRows[i].sName);
  }
  const char* sYear  = UTIL_GetYear();
  int         IsYear = strlen(sYear) == 4;
  for (int i = 0; IsYear && i < 4; i++) {
    IsYear = sYear[i] >= '0' && sYear[i] <= '9';
  }
  VECTORS_Check(IsYear, pfReport, "identity", 0, "year");
  VECTORS_Check(UTIL_GetCompanyName()[0] != 0, pfReport, "identity", 1, "company");
  VECTORS_Check(UTIL_GetCompanyURL()[0] != 0, pfReport, "identity", 2, "web address");
  return VECTORS_NUM_ROWS(VECTORS_StructRows) + VECTORS_NUM_ROWS(VECTORS_OSRows) + 3;
}

#endif
