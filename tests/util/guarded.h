// tests/util/guarded.h
// SPDX-License-Identifier: MIT
//
// Memory that ends where nobody may read or write, so that one byte too many ends the test: in every
// build, not under AddressSanitizer alone.

#ifndef TESTS_UTIL_GUARDED_H
#define TESTS_UTIL_GUARDED_H

#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

class GUARDED {
 public:
  GUARDED()
      : PageSize((size_t)sysconf(_SC_PAGESIZE)),
        p((uint8_t*)mmap(nullptr, 3 * PageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1,
                         0)) {
    mprotect(p, PageSize, PROT_NONE);
    mprotect(p + 2 * PageSize, PageSize, PROT_NONE);
  }
  ~GUARDED() { munmap(p, 3 * PageSize); }
  GUARDED(const GUARDED&)            = delete;
  GUARDED& operator=(const GUARDED&) = delete;

  // NumBytes bytes, up to one page, with the guard after the last one or before the first one.
  uint8_t* Last(size_t NumBytes) { return p + 2 * PageSize - NumBytes; }
  uint8_t* First() { return p + PageSize; }
  size_t   Size() const { return PageSize; }

  // A copy of the text with its terminator in the last byte.
  char* Text(const std::string& Text) {
    return (char*)memcpy(Last(Text.size() + 1), Text.c_str(), Text.size() + 1);
  }

 private:
  const size_t PageSize;
  uint8_t*     p;
};

#endif
