// tests/util/vectors_scan.h
// SPDX-License-Identifier: MIT
//
// Rows for the text scanners: characters, numbers, versions and addresses. Running them runs those
// of vectors_words.h too. vectors.h says how.

#ifndef TESTS_UTIL_VECTORS_SCAN_H
#define TESTS_UTIL_VECTORS_SCAN_H

#include "tests/util/vectors.h"
#include "tests/util/vectors_words.h"
#include "util/scan.h"

// What a result holds before the call.
static const int64_t UNTOUCHED = 0x5A5A5A5A5A5A5A5A;

// Single characters, and what a text holds.
enum VECTORS_CHAR_OP { OP_IS_WHITE, OP_SKIP_WHITE, OP_EAT, OP_FIND, OP_PLAIN, OP_PLAIN_NON_EMPTY };

struct VECTORS_CHAR_ROW {
  VECTORS_CHAR_OP Op;
  const char*     sText;
  uint32_t        c;  // for OP_IS_WHITE, OP_EAT and OP_FIND
  int32_t         Result;
  long            NumConsumed;
};

static const VECTORS_CHAR_ROW VECTORS_CharRows[] = {
    {OP_IS_WHITE, "", ' ', 1, 0},
    {OP_IS_WHITE, "", '\t', 1, 0},
    {OP_IS_WHITE, "", '\n', 1, 0},
    {OP_IS_WHITE, "", '\r', 1, 0},
    {OP_IS_WHITE, "", '\v', 0, 0},
    {OP_IS_WHITE, "", '\f', 0, 0},
    {OP_IS_WHITE, "", 0, 0, 0},
    {OP_IS_WHITE, "", 0xA0, 0, 0},
    {OP_IS_WHITE, "", 0x120, 0, 0},
    {OP_IS_WHITE, "", 0xFFFFFF20, 0, 0},
    {OP_SKIP_WHITE, " \t\r\nx ", 0, 0, 4},
    {OP_SKIP_WHITE, "\vx", 0, 0, 0},
    {OP_SKIP_WHITE, "\fx", 0, 0, 0},
    {OP_SKIP_WHITE, "\xA0", 0, 0, 0},
    {OP_SKIP_WHITE, "  ", 0, 0, 2},
    {OP_SKIP_WHITE, "", 0, 0, 0},
    {OP_EAT, "ab", 'a', 0, 1},
    {OP_EAT, "ab", 'b', -1, 0},
    {OP_EAT, "\xE4", 0xE4, 0, 1},
    {OP_EAT, "", 'a', -1, 0},
    {OP_EAT, "", 0, 0, 1},
    {OP_EAT, "a", 0, -1, 0},
    {OP_FIND, "abca", 'a', 0, 0},
    {OP_FIND, "abca", 'c', 2, 0},
    {OP_FIND, "a\xE4", 0xE4, 1, 0},
    {OP_FIND, "abca", 'x', -1, 0},
    {OP_FIND, "abca", 0, -1, 0},
    {OP_FIND, "", 'a', -1, 0},
    {OP_PLAIN, "a b\t\x7F", 0, 1, 0},
    {OP_PLAIN, "a\"b", 0, 0, 0},
    {OP_PLAIN, "a\x80", 0, 0, 0},
    {OP_PLAIN, "\xFF", 0, 0, 0},
    {OP_PLAIN, "", 0, 1, 0},
    {OP_PLAIN_NON_EMPTY, "a b", 0, 1, 0},
    {OP_PLAIN_NON_EMPTY, "a\"b", 0, 0, 0},
    {OP_PLAIN_NON_EMPTY, "", 0, 0, 0},
};

static inline int32_t VECTORS_CallChar(const VECTORS_CHAR_ROW* pRow, const char** ps) {
  switch (pRow->Op) {
    case OP_IS_WHITE:
      return UTIL_IsWhite(pRow->c);
    case OP_SKIP_WHITE:
      UTIL_SkipWhite(ps);
      return 0;
    case OP_EAT:
      return UTIL_EatChar(ps, (char)pRow->c);
    case OP_FIND:
      return UTIL_FindChar(*ps, (char)pRow->c);
    case OP_PLAIN:
      return UTIL_IsPlainString(*ps);
    case OP_PLAIN_NON_EMPTY:
      return UTIL_IsPlainNonEmptyString(*ps);
  }
  return -2;
}

static inline int VECTORS_RunChars(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_CharRows); i++) {
    const VECTORS_CHAR_ROW* pRow   = &VECTORS_CharRows[i];
    const char*             s      = pRow->sText;
    const int32_t           Result = VECTORS_CallChar(pRow, &s);
    VECTORS_Check(Result == pRow->Result && s - pRow->sText == pRow->NumConsumed, pfReport,
                  "characters", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_CharRows);
}

struct VECTORS_INT_ROW {
  const char* sText;
  int32_t     AlwaysHex;
  int32_t     Result;
  int64_t     Value;
  long        NumConsumed;
};

static const VECTORS_INT_ROW VECTORS_IntRows[] = {
    {"  -0x1F,", 0, 0, -31, 7},
    {"0x", 0, -1, UNTOUCHED, 0},
    {"0X", 0, -1, UNTOUCHED, 0},
    {"0xG", 0, -1, UNTOUCHED, 0},
    {"12", 1, 0, 0x12, 2},
    {"12", 0, 0, 12, 2},
    {"0", 1, 0, 0, 1},
    {"0123", 0, 0, 123, 4},
    {"0123", 1, 0, 0x123, 4},
    {"0XaBcDeF09g", 0, 0, 0xABCDEF09, 10},
    {"0x10", 1, 0, 0x10, 4},
    {"FFg", 1, 0, 0xFF, 2},
    {"FF", 0, -1, UNTOUCHED, 0},
    {"+5", 0, -1, UNTOUCHED, 0},
    {"--5", 0, -1, UNTOUCHED, 0},
    {"- 5", 0, -1, UNTOUCHED, 0},
    {"-", 0, -1, UNTOUCHED, 0},
    {"", 0, -1, UNTOUCHED, 0},
    {"   ", 0, -1, UNTOUCHED, 0},
    {" \t\r\n7", 0, 0, 7, 5},
    {"\v7", 0, -1, UNTOUCHED, 0},
    {"1x", 0, 0, 1, 1},
    {"00x1", 0, 0, 0, 2},
    {"9223372036854775807", 0, 0, INT64_MAX, 19},
    {"-9223372036854775808", 0, 0, INT64_MIN, 20},
    {"9223372036854775808", 0, 0, INT64_MIN, 19},
    {"18446744073709551615", 0, 0, -1, 20},
    {"18446744073709551621", 0, 0, 5, 20},
    {"0x1FFFFFFFFFFFFFFFF", 0, 0, -1, 19},
    {"-0", 0, 0, 0, 2},
    {"5/", 0, 0, 5, 1},
    {"5:", 0, 0, 5, 1},
    {"5/", 1, 0, 5, 1},
    {"5:", 1, 0, 5, 1},
    {"5G", 1, 0, 5, 1},
    {"@", 1, -1, UNTOUCHED, 0},
    {"`", 1, -1, UNTOUCHED, 0},
};

static inline int VECTORS_RunParseInt(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_IntRows); i++) {
    const VECTORS_INT_ROW* pRow   = &VECTORS_IntRows[i];
    const char*            s      = pRow->sText;
    int64_t                Value  = UNTOUCHED;
    const int32_t          Result = UTIL_ParseInt(&s, &Value, pRow->AlwaysHex);
    VECTORS_Check(
        Result == pRow->Result && Value == pRow->Value && s - pRow->sText == pRow->NumConsumed,
        pfReport, "integer", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_IntRows);
}

// The other scanners of numbers with a cursor.
enum VECTORS_NUMBER_OP { OP_INT32, OP_HEX, OP_HEX32 };

struct VECTORS_NUMBER_ROW {
  VECTORS_NUMBER_OP Op;
  const char*       sText;
  int32_t           Result;  // of OP_INT32, which has none, 0
  uint64_t          Value;   // 77 before the call
  const char*       sRest;
};

static const VECTORS_NUMBER_ROW VECTORS_NumberRows[] = {
    {OP_INT32, "0x123456789 x", 0, 0x23456789, " x"},
    {OP_INT32, " -2", 0, 0xFFFFFFFE, ""},
    {OP_INT32, "12a", 0, 12, "a"},
    {OP_INT32, " x", 0, 0, " x"},
    {OP_HEX, "0123", 0, 0x123, ""},
    {OP_HEX, "0", 0, 0, ""},
    {OP_HEX, " 0xFFFFFFFFFFFFFFFE,", 0, 0xFFFFFFFFFFFFFFFE, ","},
    {OP_HEX, "-1", 0, 0xFFFFFFFFFFFFFFFF, ""},
    {OP_HEX, "123456789 q", 0, 0x123456789, " q"},
    {OP_HEX, " 0xyz", -1, 77, " 0xyz"},
    {OP_HEX32, "0123", 0, 0x123, ""},
    {OP_HEX32, "123456789 q", 0, 0x23456789, " q"},
    {OP_HEX32, "-1", 0, 0xFFFFFFFF, ""},
    {OP_HEX32, " 0xyz", -1, 0, " 0xyz"},
};

static inline int VECTORS_RunNumbers(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_NumberRows); i++) {
    const VECTORS_NUMBER_ROW* pRow   = &VECTORS_NumberRows[i];
    const char*               s      = pRow->sText;
    int32_t                   Result = 0;
    int32_t                   Int32  = 77;
    uint32_t                  Hex32  = 77;
    uint64_t                  Value  = 77;
    switch (pRow->Op) {
      case OP_INT32:
        UTIL_ParseInt32(&s, &Int32);
        Value = (uint32_t)Int32;
        break;
      case OP_HEX:
        Result = UTIL_ParseHex(&s, &Value);
        break;
      case OP_HEX32:
        Result = UTIL_ParseHex32(&s, &Hex32);
        Value  = Hex32;
        break;
    }
    VECTORS_Check(
        Result == pRow->Result && Value == pRow->Value && VECTORS_SameText(s, pRow->sRest),
        pfReport, "number", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_NumberRows);
}

struct VECTORS_U32_ROW {
  const char* sText;
  int32_t     Result;
  uint32_t    Value;  // 77 before the call
};

static const VECTORS_U32_ROW VECTORS_U32Rows[] = {
    {"0", 0, 0},
    {"12ab", 0, 12},
    {"0x1Fg", 0, 0x1F},
    {"0XaB", 0, 0xAB},
    {"4294967296", 0, 0},
    {"4294967301", 0, 5},
    {"0x123456789", 0, 0x23456789},
    {"0x", -1, 77},
    {"0xg", -1, 77},
    {"", -1, 77},
    {" 1", -1, 77},
    {"-1", -1, 77},
    {"+1", -1, 77},
    {"A", -1, 77},
    {"99999999999999999999", 0, 1661992959},
};

static inline int VECTORS_RunParseU32(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_U32Rows); i++) {
    const VECTORS_U32_ROW* pRow   = &VECTORS_U32Rows[i];
    uint32_t               Value  = 77;
    const int32_t          Result = UTIL_ParseU32(pRow->sText, &Value);
    VECTORS_Check(Result == pRow->Result && Value == pRow->Value, pfReport, "unsigned", i,
                  pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_U32Rows);
}

struct VECTORS_VERSION_ROW {
  const char* sText;
  int32_t     Result;
  uint32_t    Major;
  uint32_t    Minor;
  uint32_t    Revision;
  const char* sRest;
};

static const VECTORS_VERSION_ROW VECTORS_VersionRows[] = {
    {"V6.22a", 0, 6, 22, 1, ""},
    {"6.22", 0, 6, 22, 0, ""},
    {"6.22A", -1, 6, 22, 'A', ""},
    {"  V6.22z rest", 0, 6, 22, 26, " rest"},
    {"v6.22", -1, 0, 0, 0, "v6.22"},
    {"VV6.22", -1, 0, 0, 0, "V6.22"},
    {"0x10.0x2a!", -1, 16, 42, 0xFFFFFFFF & '!', ""},
    {"6.22{", -1, 6, 22, '{', ""},
    {"6.22`", -1, 6, 22, '`', ""},
    {"6.22\xE4", -1, 6, 22, 0xFFFFFFE4, ""},
    {"6.22 a", -1, 6, 22, ' ', "a"},
    {"6.22\t", -1, 6, 22, '\t', ""},
    {"6. 22", 0, 6, 22, 0, ""},
    {"V 6.22", 0, 6, 22, 0, ""},
    {"-1.5", 0, 0xFFFFFFFF, 5, 0, ""},
    {"6 22a", -1, 6, 22, 0, "a"},
    {"6.0x", -1, 6, 0, 0, "0x"},
    {"6.x", -1, 6, 0, 0, "x"},
    {"6.", -1, 6, 0, 0, ""},
    {"6", -1, 6, 0, 0, ""},
    {".22", -1, 0, 22, 0, ""},
    {"", -1, 0, 0, 0, ""},
};

static inline int VECTORS_RunParseVersion(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_VersionRows); i++) {
    const VECTORS_VERSION_ROW* pRow     = &VECTORS_VersionRows[i];
    const char*                s        = pRow->sText;
    uint32_t                   Major    = 77;
    uint32_t                   Minor    = 77;
    uint32_t                   Revision = 77;
    const int32_t              Result   = UTIL_ParseVersion(&s, &Major, &Minor, &Revision);
    VECTORS_Check(Result == pRow->Result && Major == pRow->Major && Minor == pRow->Minor &&
                      Revision == pRow->Revision && VECTORS_SameText(s, pRow->sRest),
                  pfReport, "version", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_VersionRows);
}

struct VECTORS_DECODE_ROW {
  uint32_t    Version;
  uint32_t    Major;
  uint32_t    Minor;
  const char* sRevision;
};

static const VECTORS_DECODE_ROW VECTORS_DecodeRows[] = {
    {62227, 6, 22, "z01"}, {62201, 6, 22, "a"},
    {62200, 6, 22, ""},    {62226, 6, 22, "z"},
    {62236, 6, 22, "z10"}, {62299, 6, 22, "z73"},
    {0, 0, 0, ""},         {0xFFFFFFFF, 429496, 72, "z69"},
};

static inline int VECTORS_RunDecodeVersion(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_DecodeRows); i++) {
    const VECTORS_DECODE_ROW* pRow = &VECTORS_DecodeRows[i];
    VERSION_INFO              Info;
    memset(&Info, '#', sizeof(Info));
    UTIL_DecodeVersion(&Info, pRow->Version);
    VECTORS_Check(Info.Major == pRow->Major && Info.Minor == pRow->Minor &&
                      strncmp(Info.Revision, pRow->sRevision, 4) == 0,
                  pfReport, "encoded version", i, pRow->sRevision);
  }
  return VECTORS_NUM_ROWS(VECTORS_DecodeRows);
}

struct VECTORS_IP_ROW {
  const char* sText;
  int32_t     Result;
  uint32_t    Addr;  // 77 before the call
};

static const VECTORS_IP_ROW VECTORS_IPRows[] = {
    {"192.168.1.2", 0, 0x0201A8C0},
    {"192.168.1.2.", 0, 0x0201A8C0},
    {"256.0.0.1", 0, 0x01000100},
    {" 0x10. -0. 3. 4 rest", 0, 0x04030010},
    {"-1.0.0.0", 0, 0xFFFFFFFF},
    {"0.0.0.0", 0, 0},
    {"1.2.3", -1, 77},
    {"1.2.3.", -1, 77},
    {"1..2.3", -1, 77},
    {"1 .2.3.4", -1, 77},
    {"", -1, 77},
};

static inline int VECTORS_RunParseIPAddr(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_IPRows); i++) {
    const VECTORS_IP_ROW* pRow   = &VECTORS_IPRows[i];
    uint32_t              Addr   = 77;
    const int32_t         Result = UTIL_ParseIPAddr(pRow->sText, &Addr);
    VECTORS_Check(Result == pRow->Result && Addr == pRow->Addr &&
                      UTIL_ParseIPAddr(pRow->sText, NULL) == pRow->Result,
                  pfReport, "IP address", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_IPRows);
}

struct VECTORS_DOTTED_ROW {
  const char* sText;
  int32_t     Result;
  const char* sRest;
};

static const VECTORS_DOTTED_ROW VECTORS_DottedRows[] = {
    {"192.168.1.2", -1, ""},     {"192.168.1.2.", 0, ""}, {"1.2.3.4.5", 0, "5"},
    {"1.2.3", -1, ""},           {"1.2 3.4.", -1, ""},    {"a.b", -1, "a.b"},
    {" 0x1. -2.3. 4.x", 0, "x"}, {".1.2.3", -1, ""},      {"", -1, ""},
};

static inline int VECTORS_RunCheckDottedNumbers(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_DottedRows); i++) {
    const VECTORS_DOTTED_ROW* pRow   = &VECTORS_DottedRows[i];
    const char*               s      = pRow->sText;
    const int32_t             Result = UTIL_CheckDottedNumbers(&s);
    VECTORS_Check(Result == pRow->Result && VECTORS_SameText(s, pRow->sRest), pfReport,
                  "dotted numbers", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_DottedRows);
}

static inline int VECTORS_RunScan(VECTORS_REPORT* pfReport) {
  return VECTORS_RunChars(pfReport) + VECTORS_RunParseInt(pfReport) + VECTORS_RunNumbers(pfReport) +
         VECTORS_RunParseU32(pfReport) + VECTORS_RunParseVersion(pfReport) +
         VECTORS_RunDecodeVersion(pfReport) + VECTORS_RunParseIPAddr(pfReport) +
         VECTORS_RunCheckDottedNumbers(pfReport) + VECTORS_RunWords(pfReport);
}

#endif
