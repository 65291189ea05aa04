// SPDX-License-Identifier: MIT

#include "openocd/text.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

void TEXT_Format(char* pBuffer, size_t Size, const char* sFormat, ...) {
  va_list Args;
  va_start(Args, sFormat);
  vsnprintf(pBuffer, Size, sFormat, Args);
  va_end(Args);
}

void TEXT_Append(char* pBuffer, size_t Size, const char* sFormat, ...) {
  const size_t Used = strnlen(pBuffer, Size);
  va_list      Args;
  va_start(Args, sFormat);
  if (Used < Size) {
    vsnprintf(pBuffer + Used, Size - Used, sFormat, Args);
  }
  va_end(Args);
}

static char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

bool TEXT_EqualNoCase(const char* sA, const char* sB) {
  while (*sA != '\0' && Lower(*sA) == Lower(*sB)) {
    sA++;
    sB++;
  }
  return Lower(*sA) == Lower(*sB);
}

bool TEXT_ParseU32(const char* sText, uint32_t* pValue) {
  uint64_t Value = 0;
  if (*sText == '\0') {
    return false;
  }
  for (; *sText != '\0'; sText++) {
    if (*sText < '0' || *sText > '9') {
      return false;
    }
    Value = 10 * Value + static_cast<uint64_t>(*sText - '0');
    if (Value > UINT32_MAX) {
      return false;
    }
  }
  *pValue = static_cast<uint32_t>(Value);
  return true;
}

bool TEXT_IsPlain(const char* sText) {
  static const char sAllowed[] =
      "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz._:/-";
  return *sText != '\0' && sText[strspn(sText, sAllowed)] == '\0';
}

char* TEXT_Trim(char* sText) {
  static const char sBlanks[] = " \t\r\n";
  sText += strspn(sText, sBlanks);
  size_t Length = strlen(sText);
  while (Length > 0 && strchr(sBlanks, sText[Length - 1]) != NULL) {
    sText[--Length] = '\0';
  }
  return sText;
}

void TEXT_MakeOneLine(char* sText) {
  for (; *sText != '\0'; sText++) {
    const unsigned char Byte = static_cast<unsigned char>(*sText);
    if (Byte < ' ' || Byte == 0x7F) {
      *sText = ' ';
    }
  }
}

int64_t TEXT_NowUs() {
  timespec Time = {};
  clock_gettime(CLOCK_MONOTONIC, &Time);
  return int64_t{Time.tv_sec} * 1000000 + Time.tv_nsec / 1000;
}

int64_t TEXT_NowMs() {
  return TEXT_NowUs() / 1000;
}
