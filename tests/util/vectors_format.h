// tests/util/vectors_format.h
// SPDX-License-Identifier: MIT
//
// Rows for the formatting engine; vectors.h tells how to run them.

#ifndef TESTS_UTIL_VECTORS_FORMAT_H
#define TESTS_UTIL_VECTORS_FORMAT_H

#include "tests/util/vectors.h"
#include "util/format.h"

// What the one argument of a row is.
enum VECTORS_ARG { ARG_NONE, ARG_INT, ARG_LONG, ARG_LONGLONG, ARG_POINTER, ARG_TEXT };

struct VECTORS_FORMAT_ROW {
  const char* sFormat;
  VECTORS_ARG Kind;
  uint64_t    Value;
  const char* sText;  // the argument of ARG_TEXT
  int32_t     BufferSize;
  const char* sExpected;
};

static const VECTORS_FORMAT_ROW VECTORS_FormatRows[] = {
    // Plain text and the buffer's end
    {"", ARG_NONE, 0, NULL, 16, ""},
    {"text", ARG_NONE, 0, NULL, 16, "text"},
    {"text", ARG_NONE, 0, NULL, 5, "text"},
    {"text", ARG_NONE, 0, NULL, 4, "tex"},
    {"text", ARG_NONE, 0, NULL, 2, "t"},
    {"text", ARG_NONE, 0, NULL, 1, ""},
    {"text", ARG_NONE, 0, NULL, 0, ""},
    {"text", ARG_NONE, 0, NULL, -1, ""},
    {"text", ARG_NONE, 0, NULL, INT32_MIN, ""},
    {"100%%", ARG_NONE, 0, NULL, 16, "100%"},
    {"%%d", ARG_NONE, 0, NULL, 16, "%d"},
    // A format that ends inside a conversion
    {"a%", ARG_NONE, 0, NULL, 16, "a"},
    {"a%12", ARG_NONE, 0, NULL, 16, "a"},
    {"a%12.", ARG_NONE, 0, NULL, 16, "a"},
    {"a%.3", ARG_NONE, 0, NULL, 16, "a"},
    {"a%l", ARG_NONE, 0, NULL, 16, "a"},
    {"a%8.8ll", ARG_NONE, 0, NULL, 16, "a"},
    // d and i
    {"%d", ARG_INT, 0, NULL, 16, "0"},
    {"%d", ARG_INT, 12345, NULL, 16, "12345"},
    {"%i", ARG_INT, (uint64_t)-12345, NULL, 16, "-12345"},
    {"%d", ARG_INT, 0x80000000, NULL, 16, "-2147483648"},
    {"%d", ARG_INT, 0x7FFFFFFF, NULL, 16, "2147483647"},
    {"%5d", ARG_INT, (uint64_t)-3, NULL, 16, "-    3"},
    {"%5d", ARG_INT, 3, NULL, 16, "    3"},
    {"%05d", ARG_INT, 3, NULL, 16, "    3"},
    {"%2d", ARG_INT, 12345, NULL, 16, "12345"},
    {"%.4d", ARG_INT, 7, NULL, 16, "0007"},
    {"%6.4d", ARG_INT, (uint64_t)-7, NULL, 16, "-  0007"},
    {"%.0d", ARG_INT, 0, NULL, 16, "0"},
    {"%.d", ARG_INT, 0, NULL, 16, "0"},
    {"%.1d", ARG_INT, 0, NULL, 16, "0"},
    {"%.2d", ARG_INT, 0, NULL, 16, "00"},
    {"%5d", ARG_INT, (uint64_t)-3, NULL, 4, "-  "},
    {"%2147483648d", ARG_INT, 1, NULL, 4, "   "},
    {"%99999999999999999999d", ARG_INT, 1, NULL, 4, "   "},
    {"%4294967297d", ARG_INT, 1, NULL, 4, "   "},
    {"%.4294967298d", ARG_INT, 1, NULL, 4, "000"},
    {"%.99999999999999999999d", ARG_INT, 1, NULL, 4, "000"},
    // The argument's width: one 'l' is no wider than none
    {"%ld", ARG_LONG, 0x1FFFFFFFF, NULL, 32, "-1"},
    {"%ld", ARG_LONG, 0x100000005, NULL, 32, "5"},
    {"%lu", ARG_LONG, 0x1FFFFFFFE, NULL, 32, "4294967294"},
    {"%lx", ARG_LONG, 0x123456789, NULL, 32, "23456789"},
    {"%llu", ARG_LONGLONG, 0x1FFFFFFFE, NULL, 32, "8589934590"},
    {"%lllu", ARG_LONGLONG, 0x1FFFFFFFE, NULL, 32, "8589934590"},
    {"%lllllllu", ARG_LONGLONG, UINT64_MAX, NULL, 32, "18446744073709551615"},
    {"%lld", ARG_LONGLONG, 0x8000000000000000, NULL, 32, "-9223372036854775808"},
    {"%lld", ARG_LONGLONG, (uint64_t)-5, NULL, 32, "-5"},
    {"%lli", ARG_LONGLONG, 2147483648, NULL, 32, "2147483648"},
    {"%lld", ARG_LONGLONG, 0xFFFFFFFF7FFFFFFF, NULL, 32, "-2147483649"},
    {"%llx", ARG_LONGLONG, 0xFEDCBA9876543210, NULL, 32, "fedcba9876543210"},
    {"%20llX", ARG_LONGLONG, 0xFEDCBA9876543210, NULL, 32, "    FEDCBA9876543210"},
    // u, x and X
    {"%u", ARG_INT, 0, NULL, 16, "0"},
    {"%u", ARG_INT, 0xFFFFFFFF, NULL, 16, "4294967295"},
    {"%7u", ARG_INT, 42, NULL, 16, "     42"},
    {"%x", ARG_INT, 0xABCDEF, NULL, 16, "abcdef"},
    {"%X", ARG_INT, 0xABCDEF, NULL, 16, "ABCDEF"},
    {"%.4x", ARG_INT, 0x1F, NULL, 16, "001f"},
    {"%08X", ARG_INT, 0x1A, NULL, 16, "      1A"},
    {"0x%.8X", ARG_INT, 0x1A, NULL, 16, "0x0000001A"},
    {"%6.3X", ARG_INT, 0x1A, NULL, 16, "   01A"},
    // p
    {"%p", ARG_POINTER, 0x1234, NULL, 16, "    1234"},
    {"%p", ARG_POINTER, 0, NULL, 16, "       0"},
    {"%p", ARG_POINTER, 0xDEADBEEF, NULL, 16, "deadbeef"},
    {"%p", ARG_POINTER, 0x7FFF12345678, NULL, 16, "12345678"},
    {"%20p", ARG_POINTER, 0x1234, NULL, 32, "    1234"},
    {"%1p", ARG_POINTER, 0x1234, NULL, 32, "    1234"},
    {"%.6p", ARG_POINTER, 0x1234, NULL, 32, "  001234"},
    {"%.10p", ARG_POINTER, 0x1234, NULL, 32, "0000001234"},
    {"%llp", ARG_POINTER, 0x7FFF00001234, NULL, 32, "    1234"},
    // c and s
    {"<%c>", ARG_INT, 'A', NULL, 16, "<A>"},
    {"<%5.3c>", ARG_INT, 'A', NULL, 16, "<A>"},
    {"<%c>", ARG_INT, 0xFFFFFF41, NULL, 16, "<A>"},
    {"<%s>", ARG_TEXT, 0, "ab", 16, "<ab>"},
    {"<%10s>", ARG_TEXT, 0, "ab", 16, "<ab>"},
    {"<%.1s>", ARG_TEXT, 0, "ab", 16, "<ab>"},
    {"<%s>", ARG_TEXT, 0, "", 16, "<>"},
    {"<%s>", ARG_TEXT, 0, "abcdef", 5, "<abc"},
    {"%s", ARG_TEXT, 0, "%d", 16, "%d"},
    // What is not known is dropped, and takes no argument
    {"%-5d", ARG_INT, 7, NULL, 16, "5d"},
    {"%+d", ARG_INT, 7, NULL, 16, "d"},
    {"% d", ARG_INT, 7, NULL, 16, "d"},
    {"%#x", ARG_INT, 7, NULL, 16, "x"},
    {"%*d", ARG_INT, 7, NULL, 16, "d"},
    {"%.*d", ARG_INT, 7, NULL, 16, "d"},
    {"%.-3d", ARG_INT, 7, NULL, 16, "3d"},
    {"%hd", ARG_INT, 7, NULL, 16, "d"},
    {"%hhd", ARG_INT, 7, NULL, 16, "hd"},
    {"%zu", ARG_INT, 7, NULL, 16, "u"},
    {"%ju", ARG_INT, 7, NULL, 16, "u"},
    {"%tu", ARG_INT, 7, NULL, 16, "u"},
    {"%Lf", ARG_INT, 7, NULL, 16, "f"},
    {"%f%e%g%a%F%E%G%A", ARG_INT, 7, NULL, 16, ""},
    {"%n%o", ARG_INT, 7, NULL, 16, ""},
    {"%5%|", ARG_INT, 7, NULL, 16, "|"},
    {"%f%d", ARG_INT, 7, NULL, 16, "7"},
    {"%1.2.3d", ARG_INT, 7, NULL, 16, "3d"},
};

typedef char* VECTORS_FORMATTER(char* pBuffer, int32_t BufferSize, const char* sFormat, ...);

// The entry that takes an argument list.
static inline char* VECTORS_FormatList(char* pBuffer, int32_t BufferSize, const char* sFormat,
                                       ...) {
  va_list Args;
  va_start(Args, sFormat);
  char* pEnd = UTIL_vsnprintf(pBuffer, BufferSize, sFormat, Args);
  va_end(Args);
  return pEnd;
}

static inline char* VECTORS_CallFormat(VECTORS_FORMATTER* pf, const VECTORS_FORMAT_ROW* pRow,
                                       char* pBuffer) {
  const int32_t Size = pRow->BufferSize;
  switch (pRow->Kind) {
    case ARG_INT:
      return pf(pBuffer, Size, pRow->sFormat, (int)(uint32_t)pRow->Value);
    case ARG_LONG:
      return pf(pBuffer, Size, pRow->sFormat, (long)pRow->Value);
    case ARG_LONGLONG:
      return pf(pBuffer, Size, pRow->sFormat, (long long)pRow->Value);
    case ARG_POINTER:
      return pf(pBuffer, Size, pRow->sFormat, (void*)(uintptr_t)pRow->Value);
    case ARG_TEXT:
      return pf(pBuffer, Size, pRow->sFormat, pRow->sText);
    default:
      return pf(pBuffer, Size, pRow->sFormat);
  }
}

static inline int VECTORS_RunFormat(VECTORS_REPORT* pfReport) {
  static VECTORS_FORMATTER* const apf[]   = {UTIL_snprintf, VECTORS_FormatList};
  const int                       NumRows = VECTORS_NUM_ROWS(VECTORS_FormatRows);
  for (int i = 0; i < 2 * NumRows; i++) {
    const VECTORS_FORMAT_ROW* pRow = &VECTORS_FormatRows[i % NumRows];
    VECTORS_OUTPUT            Out;
    VECTORS_Arm(&Out);
    const char* pEnd = VECTORS_CallFormat(apf[i / NumRows], pRow, Out.ac);
    // Even a size of 0 or less stores the terminator.
    const uint32_t Size = pRow->BufferSize > 0 ? (uint32_t)pRow->BufferSize : 1;
    VECTORS_Check(
        VECTORS_Holds(&Out, pRow->sExpected, Size) && pEnd == Out.ac + strlen(pRow->sExpected),
        pfReport, i < NumRows ? "format" : "format by list", i % NumRows, pRow->sFormat);
  }
  return 2 * NumRows;
}

#endif
