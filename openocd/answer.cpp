// SPDX-License-Identifier: MIT

#include "openocd/answer.h"

#include <string.h>

#include "openocd/text.h"

// What is left of a frame, and where decoded text goes.
struct SCAN {
  const char* pNext;
  const char* pEnd;
  char*       pText;
  size_t      Size;
  size_t      Length;
};

static bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

static void Put(SCAN* pScan, char c) {
  if (pScan->Length + 1 < pScan->Size) {
    pScan->pText[pScan->Length++] = c;
  }
}

static char Escaped(char c) {
  switch (c) {
    case 'n':
      return '\n';
    case 't':
      return '\t';
    case 'r':
      return '\r';
    default:
      return c;
  }
}

// Between braces nothing is replaced; a backslash keeps the brace after it from being counted.
static bool ScanBraces(SCAN* pScan) {
  int Depth = 1;
  for (pScan->pNext++; pScan->pNext < pScan->pEnd; pScan->pNext++) {
    const char c = *pScan->pNext;
    if (c == '\\' && pScan->pNext + 1 < pScan->pEnd) {
      Put(pScan, c);
      pScan->pNext++;
    } else if (c == '{') {
      Depth++;
    } else if (c == '}' && --Depth == 0) {
      pScan->pNext++;
      return true;
    }
    Put(pScan, *pScan->pNext);
  }
  return false;
}

// Quote: the character that ends the word, or 0 for a word that a blank ends.
static bool ScanWord(SCAN* pScan, char Quote) {
  if (Quote != '\0') {
    pScan->pNext++;
  }
  while (pScan->pNext < pScan->pEnd) {
    char c = *pScan->pNext;
    if (Quote != '\0' ? c == Quote : IsBlank(c)) {
      pScan->pNext += Quote != '\0';
      return true;
    }
    if (c == '\\' && pScan->pNext + 1 < pScan->pEnd) {
      pScan->pNext++;
      c = Escaped(*pScan->pNext);
    }
    Put(pScan, c);
    pScan->pNext++;
  }
  return Quote == '\0';
}

static bool ScanElement(SCAN* pScan) {
  if (pScan->pNext == pScan->pEnd) {
    return false;
  }
  switch (*pScan->pNext) {
    case '{':
      return ScanBraces(pScan);
    case '"':
      return ScanWord(pScan, '"');
    default:
      return ScanWord(pScan, '\0');
  }
}

// A number of one to nine digits; more could overflow. It may have a '-'.
static bool ScanCode(SCAN* pScan, int* pCode) {
  const bool IsNegative = pScan->pNext < pScan->pEnd && *pScan->pNext == '-';
  int        NumDigits  = 0;
  int        Code       = 0;
  pScan->pNext += IsNegative;
  while (pScan->pNext < pScan->pEnd && *pScan->pNext >= '0' && *pScan->pNext <= '9') {
    if (++NumDigits > 9) {
      return false;
    }
    Code = 10 * Code + (*pScan->pNext - '0');
    pScan->pNext++;
  }
  if (NumDigits == 0 || pScan->pNext == pScan->pEnd || *pScan->pNext != ' ') {
    return false;
  }
  pScan->pNext++;
  *pCode = IsNegative ? -Code : Code;
  return true;
}

// The answer "CODE TEXT", which must reach to the end of the frame.
static bool ScanAnswer(SCAN* pScan, int* pCode) {
  if (!ScanCode(pScan, pCode) || !ScanElement(pScan)) {
    return false;
  }
  while (pScan->pNext < pScan->pEnd && IsBlank(*pScan->pNext)) {
    pScan->pNext++;
  }
  return pScan->pNext == pScan->pEnd;
}

bool ANSWER_Parse(const char* pFrame, size_t Length, uint32_t Number, int* pCode, char* pText,
                  size_t Size) {
  char acMark[16];
  TEXT_Format(acMark, sizeof(acMark), "q%u ", Number);
  const size_t MarkLength = strlen(acMark);
  for (size_t i = 0; i + MarkLength <= Length; i++) {
    if (memcmp(pFrame + i, acMark, MarkLength) != 0) {
      continue;
    }
    SCAN Scan = {pFrame + i + MarkLength, pFrame + Length, pText, Size, 0};
    if (ScanAnswer(&Scan, pCode)) {
      while (Scan.Length > 0 && IsBlank(pText[Scan.Length - 1])) {
        Scan.Length--;
      }
      pText[Scan.Length] = '\0';
      return true;
    }
  }
  return false;
}

static int DigitOf(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : 16;
}

// Returns where the number ends, NULL if it is missing or too large.
static const char* ScanNumber(const char* s, uint32_t* pValue) {
  const bool  IsHex = s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
  const int   Base  = IsHex ? 16 : 10;
  const char* sFrom = IsHex ? s + 2 : s;
  uint64_t    Value = 0;
  for (s = sFrom; DigitOf(*s) < Base; s++) {
    Value = Value * static_cast<uint64_t>(Base) + static_cast<uint64_t>(DigitOf(*s));
    if (Value > UINT32_MAX) {
      return NULL;
    }
  }
  *pValue = static_cast<uint32_t>(Value);
  return s == sFrom ? NULL : s;
}

bool ANSWER_Numbers(const char* sText, uint32_t* pValues, uint32_t Count) {
  for (uint32_t i = 0; i < Count; i++) {
    while (IsBlank(*sText)) {
      sText++;
    }
    sText = ScanNumber(sText, &pValues[i]);
    if (sText == NULL || (*sText != '\0' && !IsBlank(*sText))) {
      return false;
    }
  }
  while (IsBlank(*sText)) {
    sText++;
  }
  return *sText == '\0';
}
