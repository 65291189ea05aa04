// tests/util/vectors_string.h
// SPDX-License-Identifier: MIT
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
    {"a\xFF", "a\x01", 2, -2, 1, 1},
    {"a\x01", "a\xFF", 2, 2, 1, 1},
    {"a", "b", 0, 0, -1, -1},
    {"ab", "abc", 3, -'c', 2, 2},
};

// Lengths, and the first byte that is not a value.
struct VECTORS_LENGTH_ROW {
  const char* sText;
  uint32_t    MaxLen;
  uint32_t    Len;
  uint8_t     Value;
  int32_t     FirstNotEqual;  // among MaxLen bytes
};

static const VECTORS_LENGTH_ROW VECTORS_LengthRows[] = {
    {"", 0, 0, 0, -1},
    {"", 1, 0, 0, -1},
    {"", 1, 0, 1, 0},
    {"abc", 4, 3, 'a', 1},
    {"abc", 3, 3, 'a', 1},
    {"abc", 2, 2, 'b', 0},
    {"abc", 0, 0, 'x', -1},
    {"aaa", 3, 3, 'a', -1},
    {"aaa", 4, 3, 'a', 3},
    {"\xFF\xFF", 2, 2, 0xFF, -1},
    {"\xFF\xFE", 2, 2, 0xFF, 1},
};

static inline int VECTORS_RunLengths(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_LengthRows); i++) {
    const VECTORS_LENGTH_ROW* pRow = &VECTORS_LengthRows[i];
    const char*               s    = pRow->sText;
    VECTORS_Check(UTIL_StrNLen(s, pRow->MaxLen) == pRow->Len &&
                      (pRow->MaxLen < pRow->Len + 1 || UTIL_StrLen(s) == pRow->Len) &&
                      UTIL_FindNotEqual(s, pRow->Value, pRow->MaxLen) == pRow->FirstNotEqual,
                  pfReport, "length", i, s);
  }
  return VECTORS_NUM_ROWS(VECTORS_LengthRows);
}

struct VECTORS_LETTER_ROW {
  char    c;
  char    Upper;
  char    Lower;
  int32_t IsPrintable;
};

static const VECTORS_LETTER_ROW VECTORS_LetterRows[] = {
    {'a', 'A', 'a', 1},
    {'z', 'Z', 'z', 1},
    {'A', 'A', 'a', 1},
    {'Z', 'Z', 'z', 1},
    {'`', '`', '`', 1},
    {'{', '{', '{', 1},
    {'@', '@', '@', 1},
    {'[', '[', '[', 1},
    {' ', ' ', ' ', 1},
    {'~', '~', '~', 1},
    {0x1F, 0x1F, 0x1F, 0},
    {0x7F, 0x7F, 0x7F, 0},
    {0, 0, 0, 0},
    {'\xC4', '\xC4', '\xC4', 0},
    {'\xE4', '\xE4', '\xE4', 0},
    {'\x80', '\x80', '\x80', 0},
    {'\xFF', '\xFF', '\xFF', 0},
};

static inline int VECTORS_RunLetters(VECTORS_REPORT* pfReport) {
  static const char acDigits[] = "0123456789ABCDEF";
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_LetterRows); i++) {
    const VECTORS_LETTER_ROW* pRow = &VECTORS_LetterRows[i];
    VECTORS_Check(UTIL_ToUpper(pRow->c) == pRow->Upper && UTIL_ToLower(pRow->c) == pRow->Lower &&
                      UTIL_IsPrintable(pRow->c) == pRow->IsPrintable,
                  pfReport, "letter", i, "case or kind");
  }
  for (uint32_t i = 0; i < 16; i++) {
    VECTORS_Check(UTIL_HexDigit(i) == acDigits[i] && UTIL_HexDigit(0xFFFFFFF0 + i) == acDigits[i],
                  pfReport, "hexadecimal digit", (int)i, &acDigits[i]);
  }
  return VECTORS_NUM_ROWS(VECTORS_LetterRows) + 16;
}

// Changes in place, of texts or of a number of bytes.
enum VECTORS_CHANGE_OP { OP_TO_UPPER, OP_TO_LOWER, OP_REPLACE, OP_REVERSE };

struct VECTORS_CHANGE_ROW {
  VECTORS_CHANGE_OP Op;
  const char*       sBytes;
  uint32_t          NumBytes;
  char              Old;
  char              New;
  const char*       sExpected;
};

static const VECTORS_CHANGE_ROW VECTORS_ChangeRows[] = {
    {OP_TO_UPPER, "aZ[\xE4{z\0z", 9, 0, 0, "AZ[\xE4{Z\0z"},
    {OP_TO_LOWER, "AZ[\xC4{z\0Z", 9, 0, 0, "az[\xC4{z\0Z"},
    {OP_REPLACE, "a.b..c", 7, '.', '/', "a/b//c"},
    {OP_REPLACE, "abc", 4, 0, 'x', "abc"},
    {OP_REPLACE, "a/b//c\0/", 9, '/', 0, "a\0b\0\0c\0/"},
    {OP_REVERSE, "ab", 0, 0, 0, "ab"},
    {OP_REVERSE, "ab", 1, 0, 0, "ab"},
    {OP_REVERSE, "ab", 2, 0, 0, "ba"},
    {OP_REVERSE, "a\0c", 3, 0, 0, "c\0a"},
    {OP_REVERSE, "0123456789ABCDE", 15, 0, 0, "EDCBA9876543210"},
    {OP_REVERSE, "0123456789ABCDEF", 16, 0, 0, "FEDCBA9876543210"},
    {OP_REVERSE, "0123456789ABCDEFGHIJKLMNOPQRSTUVW", 33, 0, 0,
     "WVUTSRQPONMLKJIHGFEDCBA9876543210"},
};

static inline int VECTORS_RunChanges(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_ChangeRows); i++) {
    const VECTORS_CHANGE_ROW* pRow = &VECTORS_ChangeRows[i];
    VECTORS_OUTPUT            Out;
    VECTORS_OUTPUT            Expected;
    VECTORS_Arm(&Out);
    VECTORS_Arm(&Expected);
    memcpy(Out.ac + 1, pRow->sBytes, pRow->NumBytes);
    memcpy(Expected.ac + 1, pRow->sExpected, pRow->NumBytes);
    switch (pRow->Op) {
      case OP_TO_UPPER:
        UTIL_StrToUpper(Out.ac + 1);
        break;
      case OP_TO_LOWER:
        UTIL_StrToLower(Out.ac + 1);
        break;
      case OP_REPLACE:
        UTIL_ReplaceChar(Out.ac + 1, pRow->Old, pRow->New);
        break;
      case OP_REVERSE:
        UTIL_ReverseBytes(Out.ac + 1, pRow->NumBytes);
        break;
    }
    VECTORS_Check(memcmp(&Out, &Expected, sizeof(Out)) == 0, pfReport, "change in place", i,
                  pRow->sBytes);
  }
  return VECTORS_NUM_ROWS(VECTORS_ChangeRows);
}

// Records out of "abcdefghijkl"; a '0' stands for a zero byte.
struct VECTORS_RECORD_ROW {
  uint32_t    DestSize;
  uint32_t    SourceSize;
  uint32_t    NumRecords;
  const char* sExpected;
};

static const VECTORS_RECORD_ROW VECTORS_RecordRows[] = {
    {4, 4, 3, "abcdefghijkl"},
    {2, 4, 3, "abefij"},
    {5, 3, 3, "abc00def00ghi00"},
    {5, 0, 2, "0000000000"},
    {0, 4, 3, ""},
    {4, 4, 0, ""},
    {1, 12, 1, "a"},
    {12, 1, 1, "a00000000000"},
};

static inline int VECTORS_RunRecords(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_RecordRows); i++) {
    const VECTORS_RECORD_ROW* pRow = &VECTORS_RecordRows[i];
    VECTORS_OUTPUT            Out;
    VECTORS_OUTPUT            Expected;
    VECTORS_Arm(&Out);
    VECTORS_Arm(&Expected);
    for (uint32_t k = 0; pRow->sExpected[k] != 0; k++) {
      Expected.ac[k] = (char)(pRow->sExpected[k] == '0' ? 0 : pRow->sExpected[k]);
    }
    UTIL_CopyStructArray(Out.ac, pRow->DestSize, "abcdefghijkl", pRow->SourceSize,
                         pRow->NumRecords);
    UTIL_CopyStructArray(Out.ac, 4, NULL, 4, 1);
    UTIL_CopyStructArray(NULL, 4, Out.ac, 4, 1);
    VECTORS_Check(memcmp(&Out, &Expected, sizeof(Out)) == 0, pfReport, "records", i,
                  pRow->sExpected);
  }
  return VECTORS_NUM_ROWS(VECTORS_RecordRows);
}

static inline int VECTORS_RunString(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_AppendRows); i++) {
    const VECTORS_APPEND_ROW* pRow = &VECTORS_AppendRows[i];
    VECTORS_OUTPUT            Out;
    VECTORS_Arm(&Out);
    if (pRow->sText == NULL) {
      VECTORS_OUTPUT OutEx;
      VECTORS_Arm(&OutEx);
      UTIL_CopyStringEx(OutEx.ac, pRow->sSource, pRow->BufferSize, 0xFFFFFFFF);
      UTIL_CopyString(Out.ac, pRow->sSource, pRow->BufferSize);
      VECTORS_Check(memcmp(&Out, &OutEx, sizeof(Out)) == 0, pfReport, "copy, other entry", i,
                    pRow->sSource);
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
    const int32_t k        = pRow->FirstDiff;
    const int32_t ByteDiff = k < 0 ? 0 : (uint8_t)pRow->sA[k] - (uint8_t)pRow->sB[k];
    VECTORS_Check(UTIL_MemCmp(pRow->sA, pRow->sB, n) == ByteDiff &&
                      UTIL_StrNCaseCmp(pRow->sA, pRow->sB, n) == pRow->NoCase &&
                      UTIL_MemCaseCmp(pRow->sA, pRow->sB, n) == pRow->NoCase &&
                      UTIL_FindDiff(pRow->sA, pRow->sB, (int32_t)n) == pRow->FirstDiff &&
                      UTIL_FindDiffNoCase(pRow->sA, pRow->sB, (int32_t)n) == pRow->FirstDiffNoCase,
                  pfReport, "compare", i, pRow->sA);
  }
  return VECTORS_NUM_ROWS(VECTORS_AppendRows) + VECTORS_NUM_ROWS(VECTORS_CompareRows) +
         VECTORS_RunLengths(pfReport) + VECTORS_RunLetters(pfReport) +
         VECTORS_RunChanges(pfReport) + VECTORS_RunRecords(pfReport);
}

#endif
