// tests/util/vectors_words.h
// SPDX-License-Identifier: MIT
//
// Rows for the scanners of words and values, and for texts that change in place. VECTORS_RunScan of
// vectors_scan.h runs them.

#ifndef TESTS_UTIL_VECTORS_WORDS_H
#define TESTS_UTIL_VECTORS_WORDS_H

#include "tests/util/vectors.h"
#include "util/scan.h"

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

static inline int VECTORS_RunWords(VECTORS_REPORT* pfReport) {
  return VECTORS_RunParseUntil(pfReport) + VECTORS_RunInPlace(pfReport) +
         VECTORS_RunParseQuotedString(pfReport) + VECTORS_RunParseValue(pfReport) +
         VECTORS_RunParseToken(pfReport) + VECTORS_RunAddTrailingSlash(pfReport);
}

#endif
