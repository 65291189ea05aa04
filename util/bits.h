// util/bits.h
// SPDX-License-Identifier: MIT
//
// Bits: numbers of variable length, fields at any bit offset, runs in a bitmap, counts, positions
// and reversed bits.
//
// Bit k of a buffer is bit k % 8 of byte k / 8, bit 0 being the least significant. A field holds
// its least significant bit first. Offsets, widths and counts are in bits. A buffer of bytes needs
// no alignment, an array of wider values needs that of its type. Pointers must not be NULL unless
// stated otherwise. No allocation; the only state is the table of reversed bits. Any thread may
// call these on its own buffers.

#ifndef UTIL_BITS_H
#define UTIL_BITS_H

#include <stdint.h>

#include "util/bits_inline.h"

// Numbers of variable length (LEB128): unsigned, seven bits per byte, least significant group
// first, bit 7 set in every byte but the last.

// Reads a number of variable length and moves the cursor past it.
//
// All bytes that have bit 7 set and one more are consumed, so a last byte must exist. Bits above 64
// are dropped.
inline uint64_t UTIL_ReadLEB128(const uint8_t** pp) {
  uint64_t Value = **pp;
  *pp            = Value < 0x80 ? *pp + 1 : BITS_ReadLongLEB128(*pp, &Value);
  return Value;
}

// Writes a number of variable length, 1 to 10 bytes, and moves the cursor past it.
inline void UTIL_WriteLEB128(uint8_t** pp, uint64_t Value) {
  if (Value < 0x80) {
    *(*pp)++ = (uint8_t)Value;
  } else {
    *pp = BITS_WriteLongLEB128(*pp, Value);
  }
}

// Reads a field of 0 to 16 bits; the result is 0 when NumBits is above 16.
//
// Only the bytes that hold the field are read. A width of 0 reads none.
uint16_t UTIL_ReadBits(const void* pBuffer, uint32_t BitOffset, uint32_t NumBits);

// Reads a field of 32 bits: 4 bytes, or 5 when BitOffset is not a multiple of 8.
uint32_t UTIL_ReadBits32(const void* pBuffer, uint32_t BitOffset);

// Writes a field of 32 bits and preserves all other bits.
//
// Only the 4 or 5 bytes that hold the field are accessed.
void UTIL_WriteBits32(void* pBuffer, uint32_t BitOffset, uint32_t Value);

// Writes NumValues fields, NumBits apart, the first one at bit StartBit.
//
// StartBit is 0 to 7; larger values count on. Each value is written as 32 bits. So its bits above
// NumBits are overwritten by the next value, and those of the last value stay: the buffer must have
// 32 bits from the start of the last field on. With NumBits above 32 the bits between the fields
// are preserved.
void UTIL_WriteBitArray(void* pBuffer, const uint32_t* pValues, uint32_t StartBit, uint32_t NumBits,
                        uint32_t NumValues);

// Sets or clears a run of bits; nothing happens when pBitmap is NULL or NumBits is 0.
//
// Only the bytes that hold the run are accessed.
void UTIL_SetBits(void* pBitmap, uint32_t FirstBit, uint32_t NumBits);
void UTIL_ClearBits(void* pBitmap, uint32_t FirstBit, uint32_t NumBits);

// Returns the number of set bits, 0 to 32.
uint32_t UTIL_CountBits(uint32_t Value);

// Returns 1 when the number of set bits is odd, else 0.
uint32_t UTIL_GetParity(uint32_t Value);

// Returns the index of the highest set bit, -1 for 0.
int32_t UTIL_GetHighestBit32(uint32_t Value);
int32_t UTIL_GetHighestBit64(uint64_t Value);

// Returns the index of the lowest set bit, -1 for 0.
int32_t UTIL_GetLowestBit32(uint32_t Value);

// Returns the logarithm to base 2, rounded down; 31 for 0 and negative values.
int32_t UTIL_GetLog2(int32_t Value);

// Reverses the order of 16 or 32 bits.
//
// The first call builds a table of 128 KB, without a lock: a second thread that calls at that
// moment writes the same contents again, which harms neither.
inline uint16_t UTIL_GetBitRev16(uint16_t Value) {
  return BITS_Reverse16(Value);
}
inline uint32_t UTIL_GetBitRev32(uint32_t Value) {
  return BITS_Reverse32(Value);
}

#endif
