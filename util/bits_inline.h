// util/bits_inline.h
// SPDX-License-Identifier: MIT
//
// What the inline functions of util/bits.h need. For that header alone.

#ifndef UTIL_BITS_INLINE_H
#define UTIL_BITS_INLINE_H

#include <stdint.h>

// Numbers of two bytes and more. Both return where the number ends.
const uint8_t* BITS_ReadLongLEB128(const uint8_t* p, uint64_t* pValue);
uint8_t*       BITS_WriteLongLEB128(uint8_t* p, uint64_t Value);

// The table of reversed bits: entry i is i with its 16 bits in reverse order. It is complete when its
// last entry is 0xFFFF. Until it is built, its 128 KB take no memory.
extern __attribute__((visibility("hidden"))) uint16_t BITS_aReversed[65536];

void BITS_BuildReversed();

// Entries of the table, which is built first if necessary. Another thread may be building it again
// and storing the same values. ThreadSanitizer cannot know that this is harmless.

__attribute__((no_sanitize("thread"))) static inline uint16_t BITS_Reverse16(uint32_t Value) {
  if (__atomic_load_n(&BITS_aReversed[0xFFFF], __ATOMIC_ACQUIRE) != 0xFFFF) {
    BITS_BuildReversed();
  }
  return BITS_aReversed[Value];
}

__attribute__((no_sanitize("thread"))) static inline uint32_t BITS_Reverse32(uint32_t Value) {
  const uint32_t High = BITS_Reverse16(Value & 0xFFFF);
  return High << 16 | BITS_aReversed[Value >> 16];
}

#endif
