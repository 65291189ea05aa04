// SPDX-License-Identifier: MIT

#include "options/json_read.h"

#include <string.h>

namespace {
struct JSON_READER {
  const char* p;
  JSON_VISIT* pfVisit;
  void*       pContext;
  uint32_t    Depth;
  // The name of the value being read, for each depth.
  char acName[JSON_MAX_DEPTH + 1][JSON_TEXT_SIZE];
};
}  // namespace

static void SkipBlanks(JSON_READER* pReader) {
  pReader->p += strspn(pReader->p, " \t\r\n");
}

static bool Take(JSON_READER* pReader, char Character) {
  SkipBlanks(pReader);
  if (*pReader->p != Character) {
    return false;
  }
  pReader->p++;
  return true;
}

static int32_t HexDigit(char Digit) {
  const char* sDigits = "0123456789ABCDEFabcdef";
  const char* pFound  = Digit != 0 ? strchr(sDigits, Digit) : nullptr;
  if (pFound == nullptr) {
    return -1;
  }
  const int32_t Index = (int32_t)(pFound - sDigits);
  return Index < 16 ? Index : Index - 6;
}

// The character after a backslash; -1: none such.
static int32_t TakeEscape(JSON_READER* pReader) {
  static const char NAMES[]  = "\"\\/bfnrt";
  static const char VALUES[] = "\"\\/\b\f\n\r\t";
  const char        Name     = *pReader->p++;
  if (Name != 'u') {
    const char* pFound = Name != 0 ? strchr(NAMES, Name) : nullptr;
    return pFound != nullptr ? VALUES[pFound - NAMES] : -1;
  }
  int32_t Value = 0;
  for (uint32_t i = 0; i < 4; i++) {
    const int32_t Digit = HexDigit(*pReader->p);
    if (Digit < 0) {
      return -1;
    }
    Value = Value * 16 + Digit;
    pReader->p++;
  }
  return Value > 0 && Value < 0x80 ? Value : '?';
}

static bool TakeText(JSON_READER* pReader, char (&acText)[JSON_TEXT_SIZE]) {
  uint32_t Length = 0;
  if (!Take(pReader, '"')) {
    return false;
  }
  while (*pReader->p != '"') {
    int32_t Character = (unsigned char)*pReader->p;
    if (Character < 0x20 || Length + 1 >= JSON_TEXT_SIZE) {
      return false;
    }
    pReader->p++;
    if (Character == '\\') {
      Character = TakeEscape(pReader);
      if (Character < 0) {
        return false;
      }
    }
    acText[Length++] = (char)Character;
  }
  acText[Length] = 0;
  pReader->p++;
  return true;
}

static bool TakeOther(JSON_READER* pReader, char (&acText)[JSON_TEXT_SIZE]) {
  const size_t Length = strspn(pReader->p, "+-.0123456789abcdefghijklmnopqrstuvwxyzE");
  if (Length == 0 || Length >= JSON_TEXT_SIZE) {
    return false;
  }
  memcpy(acText, pReader->p, Length);
  acText[Length] = 0;
  pReader->p += Length;
  // A number is checked by its first character only.
  return strchr("-0123456789", acText[0]) != nullptr || strcmp(acText, "true") == 0 ||
         strcmp(acText, "false") == 0 || strcmp(acText, "null") == 0;
}

static void Visit(JSON_READER* pReader, JSON_KIND Kind, const char* sText) {
  const uint32_t Depth = pReader->Depth;
  pReader->pfVisit(pReader->pContext, Depth, Depth > 0 ? pReader->acName[Depth - 1] : "",
                   pReader->acName[Depth], Kind, sText);
}

static bool TakeValue(JSON_READER* pReader);

// The members of an object or the elements of an array, after its opening bracket.
static bool TakeItems(JSON_READER* pReader, bool IsArray) {
  const char End = IsArray ? ']' : '}';
  Visit(pReader, JSON_IS_BEGIN, "");
  if (pReader->Depth == JSON_MAX_DEPTH) {
    return false;
  }
  pReader->Depth++;
  bool IsDone = Take(pReader, End);
  while (!IsDone) {
    char(&acName)[JSON_TEXT_SIZE] = pReader->acName[pReader->Depth];
    acName[0]                     = 0;
    if (!IsArray && (!TakeText(pReader, acName) || !Take(pReader, ':'))) {
      return false;
    }
    if (!TakeValue(pReader)) {
      return false;
    }
    IsDone = Take(pReader, End);
    if (!IsDone && !Take(pReader, ',')) {
      return false;
    }
  }
  pReader->Depth--;
  Visit(pReader, JSON_IS_END, "");
  return true;
}

// Calls itself for what is inside; no deeper than JSON_MAX_DEPTH.
static bool TakeValue(JSON_READER* pReader) {  // NOLINT(misc-no-recursion)
  SkipBlanks(pReader);
  const char First = *pReader->p;
  if (First == '{' || First == '[') {
    pReader->p++;
    return TakeItems(pReader, First == '[');
  }
  char       acText[JSON_TEXT_SIZE];
  const bool IsText = First == '"';
  if (!(IsText ? TakeText(pReader, acText) : TakeOther(pReader, acText))) {
    return false;
  }
  Visit(pReader, IsText ? JSON_IS_TEXT : JSON_IS_OTHER, acText);
  return true;
}

int32_t JSON_Read(const char* sText, JSON_VISIT* pfVisit, void* pContext, uint32_t* pLine) {
  static JSON_READER Reader;  // too large for a stack
  Reader.p            = sText;
  Reader.pfVisit      = pfVisit;
  Reader.pContext     = pContext;
  Reader.Depth        = 0;
  Reader.acName[0][0] = 0;
  bool IsGood         = TakeValue(&Reader);
  SkipBlanks(&Reader);
  IsGood = IsGood && *Reader.p == 0;
  *pLine = 1;
  for (const char* p = sText; p < Reader.p; p++) {
    *pLine += *p == '\n';
  }
  return IsGood ? 0 : -1;
}
