// SPDX-License-Identifier: MIT

#include "app/text.h"

#include "util/string.h"

int CompareNoCase(const char* a, const char* b) {
  return UTIL_StrCaseCmp(a, b) == 0;
}

int32_t ParseDec(const char* sText, uint32_t* pValue) {
  // Not strtoul(): it accepts a sign, and which characters it skips depends on the locale.
  while (*sText == '\t' || *sText == '\n' || *sText == '\r' || *sText == ' ') {
    sText++;
  }
  if (*sText < '0' || *sText > '9') {
    return -1;
  }
  // Required: a number beyond 32 bits wraps, it is not refused (4294967297 is 1).
  uint32_t Value = 0;
  while (*sText >= '0' && *sText <= '9') {
    Value = Value * 10 + (uint32_t)(*sText++ - '0');
  }
  *pValue = Value;
  return 0;
}
