// tests/util/vectors.h
// SPDX-License-Identifier: MIT
//
// Tables of inputs and expected results for UTIL that any program can run: vectors_bits.h,
// vectors_format.h, vectors_identity.h, vectors_scan.h, vectors_string.h and vectors_value_text.h.
// They need the C headers and the header of the module, nothing else: no GoogleTest, no C++
// library. Every function of UTIL is called by one of them.
//
// To run them, write a report function and call each header's run function with it:
//
//   static void Report(const char* sTable, int Row, const char* sText) { ... count a failure ... }
//
//   int NumRows = VECTORS_RunBits(Report) + VECTORS_RunFormat(Report) +
//                 VECTORS_RunIdentity(Report) + VECTORS_RunScan(Report) +
//                 VECTORS_RunString(Report) + VECTORS_RunValueText(Report);
//
// A run function checks every row, calls Report for each one that fails (the table's name, the
// row's index from 0, and a text that tells which input it was) and returns the number of rows it
// checked, so that a caller can see that there were any. Everything is file-local: include each
// header in one source only, or in as many as you like.

#ifndef TESTS_UTIL_VECTORS_H
#define TESTS_UTIL_VECTORS_H

#include <stdint.h>
#include <string.h>

typedef void VECTORS_REPORT(const char* sTable, int Row, const char* sText);

enum { VECTORS_BUFFER = 256 };

#define VECTORS_NUM_ROWS(aTable) ((int)(sizeof(aTable) / sizeof(aTable[0])))

// A buffer whose bytes behind the stated size must not change.
struct VECTORS_OUTPUT {
  char ac[VECTORS_BUFFER];
};

static inline void VECTORS_Arm(VECTORS_OUTPUT* pOut) {
  memset(pOut->ac, '#', sizeof(pOut->ac));
}

// 1 when the buffer holds sExpected with its terminator and nothing from Size on has changed.
static inline int VECTORS_Holds(const VECTORS_OUTPUT* pOut, const char* sExpected, uint32_t Size) {
  for (uint32_t i = Size; i < sizeof(pOut->ac); i++) {
    if (pOut->ac[i] != '#') {
      return 0;
    }
  }
  return strncmp(pOut->ac, sExpected, sizeof(pOut->ac)) == 0;
}

static inline int VECTORS_SameText(const char* sA, const char* sB) {
  return sA == NULL || sB == NULL ? sA == sB : strcmp(sA, sB) == 0;
}

static inline void VECTORS_Check(int IsGood, VECTORS_REPORT* pfReport, const char* sTable, int Row,
                                 const char* sText) {
  if (!IsGood) {
    pfReport(sTable, Row, sText);
  }
}

#endif
