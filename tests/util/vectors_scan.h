// tests/util/vectors_scan.h
//
// Rows for the text scanners; vectors.h tells how to run them.

#ifndef TESTS_UTIL_VECTORS_SCAN_H
#define TESTS_UTIL_VECTORS_SCAN_H

#include "tests/util/vectors.h"
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

struct VECTORS_TEXT_ROW {
  const char* sText;
  uint32_t    BufferSize;
  uint32_t    Result;
  const char* sValue;
  const char* sRest;
};

static const VECTORS_TEXT_ROW VECTORS_QuotedRows[] = {
    {" \"a b\" , next", 10, 0, "a b", "next"},
    {"plain,more next", 20, 0, "plain,more", "next"},
    {"a b", 10, 0, "a", "b"},
    {"a\tb", 10, 0, "a\tb", ""},
    {"a , , b", 10, 0, "a", ", b"},
    {"a ,\r\n\tb", 10, 0, "a", "b"},
    {", b", 10, 0, ",", "b"},
    {"\"a\nb\"", 10, 0, "a", "b\""},
    {"\"a\rb\"", 10, 0, "a", "b\""},
    {"\"a", 10, 0, "a", ""},
    {"a\nb", 10, 0, "a", "b"},
    {"a\rb", 10, 0, "a", "b"},
    {"a\"b", 10, 0, "a", "b"},
    {"\"\",x", 10, 0, "", "x"},
    {"", 10, 0, "", ""},
    {"  ", 10, 0, "", ""},
    {"abcdef,x", 4, 0, "abc", "def,x"},
    {"\"abcdef\",x", 4, 0, "abc", "def\",x"},
    {"\"abc\",x", 4, 0, "abc", "\",x"},
    {"abc,x", 4, 0, "abc", "x"},
    {"\"abc", 1, 0, "", "abc"},
    {"abc", 1, 0, "", "abc"},
};

static inline int VECTORS_RunParseQuotedString(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_QuotedRows); i++) {
    const VECTORS_TEXT_ROW* pRow = &VECTORS_QuotedRows[i];
    const char*             s    = pRow->sText;
    VECTORS_OUTPUT          Out;
    VECTORS_Arm(&Out);
    UTIL_ParseQuotedString(&s, Out.ac, pRow->BufferSize);
    VECTORS_Check(
        VECTORS_Holds(&Out, pRow->sValue, pRow->BufferSize) && VECTORS_SameText(s, pRow->sRest),
        pfReport, "quoted string", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_QuotedRows);
}

static const VECTORS_TEXT_ROW VECTORS_ParseValueRows[] = {
    {"key: value", 10, 0, "key", ": value"},
    {" key\t: value", 10, 0, "key\t", ": value"},
    {"key value", 10, 0, "key", " value"},
    {"key\nvalue", 10, 0, "key", "\nvalue"},
    {"key\rvalue", 10, 0, "key", "\rvalue"},
    {"key", 10, 0, "key", ""},
    {" \"a: b\nc\":x", 10, 0, "a: b\nc", ":x"},
    {"\"\":x", 10, 0, "", ":x"},
    {"a\"b:", 10, 0, "a\"b", ":"},
    {" :x", 10, 0, "", " :x"},
    {" \n", 10, 0, "", " \n"},
    {"", 10, 0, "", ""},
    {"abcdef:x", 4, 0, "abc", ":x"},
    {"\"abcdef\":x", 4, 0, "abc", ":x"},
    {"abc:x", 1, 0, "", ":x"},
    {" \"", 10, 0xFFFFFFFF, "", " \""},
};

static inline int VECTORS_RunParseValue(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_ParseValueRows); i++) {
    const VECTORS_TEXT_ROW* pRow = &VECTORS_ParseValueRows[i];
    const char*             s    = pRow->sText;
    VECTORS_OUTPUT          Out;
    VECTORS_Arm(&Out);
    const uint32_t Result = UTIL_ParseValue(&s, Out.ac, pRow->BufferSize);
    VECTORS_Check(Result == pRow->Result && VECTORS_Holds(&Out, pRow->sValue, pRow->BufferSize) &&
                      VECTORS_SameText(s, pRow->sRest),
                  pfReport, "value", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_ParseValueRows);
}

struct VECTORS_TOKEN_ROW {
  const char* sText;
  uint32_t    BufferSize;
  const char* sResult;
  const char* sValue;
  const char* sRest;
};

// Words up to '='.
static const VECTORS_TOKEN_ROW VECTORS_TokenRows[] = {
    {" \tabc=1", 10, NULL, "abc", "=1"},
    {"abc", 10, NULL, "abc", ""},
    {"a\tb c", 10, NULL, "a\tb", " c"},
    {"a\tb\nc", 10, NULL, "a\tb", "\nc"},
    {"a\tb\rc", 10, NULL, "a\tb", "\rc"},
    {"   ", 10, "Expected a string", "", ""},
    {"", 10, "Expected a string", "", ""},
    {" =", 10, "Expected a string", "", "="},
    {" 0123456789=", 10, "Maximum string length exceeded", "", "0123456789="},
    {" 0123456789=", 11, NULL, "0123456789", "="},
    {"a", 1, "Maximum string length exceeded", "", "a"},
    {"=", 1, "Expected a string", "", "="},
};

static inline int VECTORS_RunParseToken(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_TokenRows); i++) {
    const VECTORS_TOKEN_ROW* pRow = &VECTORS_TokenRows[i];
    const char*              s    = pRow->sText;
    VECTORS_OUTPUT           Out;
    VECTORS_Arm(&Out);
    const char* sResult = UTIL_ParseToken(&s, Out.ac, pRow->BufferSize, '=');
    VECTORS_Check(VECTORS_SameText(sResult, pRow->sResult) &&
                      VECTORS_Holds(&Out, pRow->sValue, pRow->BufferSize) &&
                      VECTORS_SameText(s, pRow->sRest),
                  pfReport, "token", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_TokenRows);
}

struct VECTORS_UNTIL_ROW {
  const char* sText;
  char        Delimiter;
  uint32_t    BufferSize;
  int32_t     Result;
  const char* sValue;
  const char* sRest;
};

static const VECTORS_UNTIL_ROW VECTORS_UntilRows[] = {
    {"\r\n a b\t ;rest", ';', 10, 0, "a b\t ", "rest"},
    {"rest", ';', 10, 0, "rest", ""},
    {"", ';', 10, 0, "", ""},
    {";;", ';', 10, 0, "", ";"},
    {"abcd;x", ';', 6, 0, "abcd", "x"},
    {"abcd;x", ';', 5, 0, "abcd", "x"},
    {"abcd;x", ';', 4, 1, "abc", "x"},
    {"abcd;x", ';', 2, 1, "a", "x"},
    {"abcd;x", ';', 1, 1, "", "x"},
    {";x", ';', 1, 0, "", "x"},
    {"abcd", ';', 3, 1, "ab", ""},
    {" a b\nc", ' ', 10, 0, "a", "b\nc"},
    {" a b\nc", '\n', 10, 0, "a b", "c"},
    {" a b\nc", 0, 10, 0, "a b\nc", ""},
};

static inline int VECTORS_RunParseUntil(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_UntilRows); i++) {
    const VECTORS_UNTIL_ROW* pRow = &VECTORS_UntilRows[i];
    const char*              s    = pRow->sText;
    VECTORS_OUTPUT           Out;
    VECTORS_Arm(&Out);
    const int32_t Result = UTIL_ParseUntil(&s, Out.ac, pRow->BufferSize, pRow->Delimiter);
    VECTORS_Check(Result == pRow->Result && VECTORS_Holds(&Out, pRow->sValue, pRow->BufferSize) &&
                      VECTORS_SameText(s, pRow->sRest),
                  pfReport, "text up to a delimiter", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_UntilRows);
}

// Texts that are changed in place.
enum VECTORS_IN_PLACE_OP { OP_TRIM, OP_BACKSLASHES };

struct VECTORS_IN_PLACE_ROW {
  VECTORS_IN_PLACE_OP Op;
  const char*         sText;
  int32_t             TrimLeft;
  int32_t             TrimRight;
  const char*         sExpected;
};

static const VECTORS_IN_PLACE_ROW VECTORS_InPlaceRows[] = {
    {OP_TRIM, "\t\n\v\f\r a b \t", 1, 0, "a b \t"},
    {OP_TRIM, " a b\t\n\v\f\r ", 0, 1, " a b"},
    {OP_TRIM, "\v\f a b \f\v", 1, 1, "a b"},
    {OP_TRIM, "\v\f a b \f\v", -1, 256, "a b"},
    {OP_TRIM, " a ", 0, 0, " a "},
    {OP_TRIM, "\x08", 1, 1, "\x08"},
    {OP_TRIM, "\x0E", 1, 1, "\x0E"},
    {OP_TRIM, "\x89", 1, 1, "\x89"},
    // The right end keeps the first character.
    {OP_TRIM, "   ", 0, 1, " "},
    {OP_TRIM, "a   ", 0, 1, "a"},
    {OP_TRIM, "\t \n", 0, 1, "\t"},
    {OP_TRIM, " ", 0, 1, " "},
    {OP_TRIM, "   ", 1, 1, ""},
    {OP_TRIM, "   ", 1, 0, ""},
    {OP_TRIM, "", 0, 1, ""},
    {OP_TRIM, "", 1, 1, ""},
    {OP_BACKSLASHES, "\\a\\\\b/c\\", 0, 0, "/a//b/c/"},
    {OP_BACKSLASHES, "abc", 0, 0, "abc"},
    {OP_BACKSLASHES, "", 0, 0, ""},
};

static inline int VECTORS_RunInPlace(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_InPlaceRows); i++) {
    const VECTORS_IN_PLACE_ROW* pRow = &VECTORS_InPlaceRows[i];
    VECTORS_OUTPUT              Out;
    VECTORS_Arm(&Out);
    strcpy(Out.ac, pRow->sText);
    if (pRow->Op == OP_TRIM) {
      UTIL_Trim(Out.ac, pRow->TrimLeft, pRow->TrimRight);
    } else {
      UTIL_ConvertBackslashes(Out.ac);
    }
    VECTORS_Check(VECTORS_Holds(&Out, pRow->sExpected, (uint32_t)strlen(pRow->sText) + 1), pfReport,
                  "change in place", i, pRow->sText);
  }
  return VECTORS_NUM_ROWS(VECTORS_InPlaceRows);
}

struct VECTORS_SLASH_ROW {
  const char* sPath;
  uint32_t    BufferSize;
  const char* sResult;
};

static const VECTORS_SLASH_ROW VECTORS_SlashRows[] = {
    {"abc", 5, "abc/"}, {"abc", 4, "abc"}, {"abc/", 9, "abc/"}, {"abc\\", 9, "abc\\"}, {"", 2, "/"},
    {"", 1, ""},        {"", 0, ""},       {"abc", 3, "abc"},   {"abc", 0, "abc"},
};

static inline int VECTORS_RunAddTrailingSlash(VECTORS_REPORT* pfReport) {
  for (int i = 0; i < VECTORS_NUM_ROWS(VECTORS_SlashRows); i++) {
    const VECTORS_SLASH_ROW* pRow = &VECTORS_SlashRows[i];
    VECTORS_OUTPUT           Out;
    VECTORS_Arm(&Out);
    strcpy(Out.ac, pRow->sPath);
    UTIL_AddTrailingSlash(Out.ac, pRow->BufferSize);
    VECTORS_Check(VECTORS_Holds(&Out, pRow->sResult, (uint32_t)strlen(pRow->sResult) + 1), pfReport,
                  "trailing slash", i, pRow->sPath);
  }
  return VECTORS_NUM_ROWS(VECTORS_SlashRows);
}

static inline int VECTORS_RunScan(VECTORS_REPORT* pfReport) {
  return VECTORS_RunChars(pfReport) + VECTORS_RunParseInt(pfReport) + VECTORS_RunNumbers(pfReport) +
         VECTORS_RunParseU32(pfReport) + VECTORS_RunParseUntil(pfReport) +
         VECTORS_RunInPlace(pfReport) + VECTORS_RunParseVersion(pfReport) +
         VECTORS_RunDecodeVersion(pfReport) + VECTORS_RunParseIPAddr(pfReport) +
         VECTORS_RunCheckDottedNumbers(pfReport) + VECTORS_RunParseQuotedString(pfReport) +
         VECTORS_RunParseValue(pfReport) + VECTORS_RunParseToken(pfReport) +
         VECTORS_RunAddTrailingSlash(pfReport);
}

#endif
