// tests/util/vectors_string.h
//
// Rows for the string helpers; vectors.h tells how to run them.

#ifndef TESTS_UTIL_VECTORS_STRING_H
#define TESTS_UTIL_VECTORS_STRING_H

#include "tests/util/vectors.h"
#include "util/string.h"

struct VECTORS_APPEND_ROW {
  const char* sText;  // in the buffer before; NULL copies instead of appending
  const char* sSource;
  uint32_t    MaxChars;
  uint32_t    BufferSize;
  const char* sExpected;
};

static const uint32_t VECTORS_ALL = 0xFFFFFFFF;

static const VECTORS_APPEND_ROW VECTORS_AppendRows[] = {
    {NULL, "abcdef", VECTORS_ALL, 7, "abcdef"},
    {NULL, "abcdef", VECTORS_ALL, 6, "abcde"},
    {NULL, "abcdef", VECTORS_ALL, 2, "a"},
    {NULL, "abcdef", VECTORS_ALL, 1, ""},
    {NULL, "", VECTORS_ALL, 8, ""},
    {"ab", "xyz", VECTORS_ALL, 8, "abxyz"},
    {"ab", "xyz", VECTORS_ALL, 6, "abxyz"},
    {"ab", "xyz", VECTORS_ALL, 5, "abxy"},
    {"ab", "xyz", VECTORS_ALL, 4, "abx"},
    {"ab", "xyz", VECTORS_ALL, 3, "ab"},
    {"ab", "", VECTORS_ALL, 8, "ab"},
    {"", "xyz", VECTORS_ALL, 3, "xy"},
    {"ab", "xyz", 2, 8, "abxy"},
    {"ab", "xyz", 9, 8, "abxyz"},
    {"ab", "xyz", 2, 4, "abx"},
    {"ab", "xyz", 0, 8, "ab"},
};

struct VECTORS_COMPARE_ROW {
  const char* sA;
  const char* sB;
  uint32_t    NumChars;   // VECTORS_ALL compares up to the end
  int32_t     NoCase;     // UTIL_StrCaseCmp or UTIL_StrNCaseCmp
  int32_t     FirstDiff;  // over NumChars bytes; not looked at with VECTORS_ALL
  int32_t     FirstDiffNoCase;
};

static const VECTORS_COMPARE_ROW VECTORS_CompareRows[] = {
    {"HeLLo [1]", "hEllO [1]", VECTORS_ALL, 0, 0, 0},
    {"", "", VECTORS_ALL, 0, 0, 0},
    {"A", "c", VECTORS_ALL, 'a' - 'c', 0, 0},
    {"@", "`", VECTORS_ALL, '@' - '`', 0, 0},
    {"[", "{", VECTORS_ALL, '[' - '{', 0, 0},
    {"ab", "abC", VECTORS_ALL, -'c', 0, 0},
    {"abC", "ab", VECTORS_ALL, 'c', 0, 0},
    {"\xC4", "\xE4", VECTORS_ALL, -32, 0, 0},
    {"a", "\xE4", VECTORS_ALL, 'a' + 28, 0, 0},
    {"abX", "ABy", 2, 0, 0, -1},
    {"abX", "ABy", 3, 'x' - 'y', 0, 2},
    {"abX", "abX", 3, 0, -1, -1},
    {"abX", "abx", 3, 0, 2, -1},
    {"a", "b", 0, 0, -1, -1},
    {"ab", "abc", 3, -'c', 2, 2},
};

static inline int VECTORS_RunString(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_AppendRows); i++) {
    const VECTORS_APPEND_ROW* pRow = &VECTORS_AppendRows[i];
    VECTORS_OUTPUT            Out;
    VECTORS_Arm(&Out);
    if (pRow->sText == NULL) {
      UTIL_CopyString(Out.ac, pRow->sSource, pRow->BufferSize);
    } else {
      strcpy(Out.ac, pRow->sText);
      if (pRow->MaxChars == VECTORS_ALL) {
        UTIL_AppendString(Out.ac, pRow->sSource, pRow->BufferSize);
      } else {
        UTIL_AppendStringN(Out.ac, pRow->sSource, pRow->MaxChars, pRow->BufferSize);
      }
    }
    VECTORS_Check(VECTORS_Holds(&Out, pRow->sExpected, pRow->BufferSize), pfReport, "append", i,
                  pRow->sSource);
  }
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_CompareRows); i++) {
    const VECTORS_COMPARE_ROW* pRow = &VECTORS_CompareRows[i];
    const uint32_t             n    = pRow->NumChars;
    if (n == VECTORS_ALL) {
      VECTORS_Check(UTIL_StrCaseCmp(pRow->sA, pRow->sB) == pRow->NoCase, pfReport, "compare", i,
                    pRow->sA);
      continue;
    }
    VECTORS_Check(UTIL_StrNCaseCmp(pRow->sA, pRow->sB, n) == pRow->NoCase &&
                      UTIL_MemCaseCmp(pRow->sA, pRow->sB, n) == pRow->NoCase &&
                      UTIL_FindDiff(pRow->sA, pRow->sB, (int32_t)n) == pRow->FirstDiff &&
                      UTIL_FindDiffNoCase(pRow->sA, pRow->sB, (int32_t)n) == pRow->FirstDiffNoCase,
                  pfReport, "compare", i, pRow->sA);
  }
  return VECTORS_NUM_ROWS(VECTORS_AppendRows) + VECTORS_NUM_ROWS(VECTORS_CompareRows);
}

#endif
