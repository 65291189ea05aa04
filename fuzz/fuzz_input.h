// SPDX-License-Identifier: MIT

// The bytes of one fuzz input, taken from its front as numbers and at the end as a text.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>

class FUZZ_INPUT {
 public:
  FUZZ_INPUT(const uint8_t* pData, size_t NumBytes) : p(pData), NumLeft(NumBytes) {}
  // The next bytes as a number, 0 where there are none left.
  template <typename TYPE>
  TYPE Take() {
    TYPE         Value    = 0;
    const size_t NumBytes = NumLeft < sizeof(Value) ? NumLeft : sizeof(Value);
    memcpy(&Value, p, NumBytes);
    p += NumBytes;
    NumLeft -= NumBytes;
    return Value;
  }
  const uint8_t* Data() const { return p; }
  size_t         Size() const { return NumLeft; }
  // What is left, up to its first zero.
  std::string Text() const { return std::string((const char*)p, strnlen((const char*)p, NumLeft)); }

 private:
  const uint8_t* p;
  size_t         NumLeft;
};

// A block of exactly NumBytes bytes, so that AddressSanitizer sees the first byte beyond it.
class FUZZ_BLOCK {
 public:
  explicit FUZZ_BLOCK(size_t NumBytes) : pBytes(new char[NumBytes]) {
    memset(pBytes.get(), '#', NumBytes);
  }
  explicit FUZZ_BLOCK(const std::string& Text) : pBytes(new char[Text.size() + 1]) {
    memcpy(pBytes.get(), Text.c_str(), Text.size() + 1);
  }
  char* Get() const { return pBytes.get(); }

 private:
  std::unique_ptr<char[]> pBytes;
};

#define FUZZ_EXPECT(Condition)                                                \
  do {                                                                        \
    if (!(Condition)) {                                                       \
      fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #Condition); \
      abort();                                                                \
    }                                                                         \
  } while (0)
