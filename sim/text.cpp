// SPDX-License-Identifier: MIT

#include "sim/text.h"

#include <ctype.h>
#include <stdarg.h>
#include <stdio.h>
#include <strings.h>

#include <charconv>

namespace sim {

std::string Format(const char* sFormat, ...) {
  va_list Args;
  va_start(Args, sFormat);
  va_list Again;
  va_copy(Again, Args);
  const int Length = vsnprintf(nullptr, 0, sFormat, Args);
  va_end(Args);
  std::string sText(Length > 0 ? static_cast<size_t>(Length) : 0, '\0');
  vsnprintf(sText.data(), sText.size() + 1, sFormat, Again);
  va_end(Again);
  return sText;
}

std::string Trim(const std::string& sText) {
  const size_t First = sText.find_first_not_of(" \t\r\n");
  if (First == std::string::npos) {
    return "";
  }
  return sText.substr(First, sText.find_last_not_of(" \t\r\n") - First + 1);
}

std::vector<std::string> Split(const std::string& sText, char Separator) {
  std::vector<std::string> Parts;
  size_t                   Start = 0;
  for (;;) {
    const size_t End = sText.find(Separator, Start);
    if (End == std::string::npos) {
      Parts.push_back(Trim(sText.substr(Start)));
      return Parts;
    }
    Parts.push_back(Trim(sText.substr(Start, End - Start)));
    Start = End + 1;
  }
}

std::vector<std::string> SplitWords(const std::string& sText) {
  std::vector<std::string> Words;
  size_t                   i = 0;
  while (i < sText.size()) {
    if (isspace(static_cast<unsigned char>(sText[i]))) {
      i++;
      continue;
    }
    std::string sWord;
    if (sText[i] == '"') {
      const size_t End = sText.find('"', i + 1);
      sWord            = sText.substr(i + 1, End == std::string::npos ? End : End - i - 1);
      i                = End == std::string::npos ? sText.size() : End + 1;
    } else {
      while (i < sText.size() && !isspace(static_cast<unsigned char>(sText[i]))) {
        sWord += sText[i++];
      }
    }
    Words.push_back(sWord);
  }
  return Words;
}

bool EqualNoCase(const std::string& sA, const std::string& sB) {
  return strcasecmp(sA.c_str(), sB.c_str()) == 0;
}

bool ParseNumber(const std::string& sText, uint64_t* pValue) {
  const bool IsHex =
      sText.size() > 2 && (sText.compare(0, 2, "0x") == 0 || sText.compare(0, 2, "0X") == 0);
  const char* sEnd  = sText.data() + sText.size();
  uint64_t    Value = 0;
  const auto Result = std::from_chars(sText.data() + (IsHex ? 2 : 0), sEnd, Value, IsHex ? 16 : 10);
  if (Result.ec != std::errc() || Result.ptr != sEnd) {
    return false;
  }
  *pValue = Value;
  return true;
}

bool ParseU32(const std::string& sText, uint32_t* pValue) {
  uint64_t Value = 0;
  if (!ParseNumber(sText, &Value) || Value > UINT32_MAX) {
    return false;
  }
  *pValue = static_cast<uint32_t>(Value);
  return true;
}

}  // namespace sim
