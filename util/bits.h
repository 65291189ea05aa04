// util/bits.h
//
// Bits: fields at any bit offset of a buffer, runs in a bitmap, counts and positions, reversed
// bits, and numbers of variable length.
//
// Bit k of a buffer is bit k % 8 of byte k / 8, bit 0 being the least significant; a field holds
// its least significant bit first. Offsets, widths and counts are in bits. A buffer of bytes needs
// no alignment, an array of wider values that of its type; no pointer may be NULL unless stated
// otherwise. No allocation, no state but one table; any thread may call these on buffers of its
// own.

#ifndef UTIL_BITS_H
#define UTIL_BITS_H

#include <stdint.h>

// Numbers of variable length (LEB128): unsigned, seven bits per byte, least significant group
// first, bit 7 set on every byte but the last

// Reads one number and leaves the cursor behind it. It takes all bytes that have bit 7 set and one
// more, so a last byte must be there; what exceeds 64 bits is dropped.
uint64_t UTIL_ReadLEB128(const uint8_t** pp);

// Writes one number, 1 to 10 bytes, and leaves the cursor behind it.
void UTIL_WriteLEB128(uint8_t** pp, uint64_t Value);

// Fields

// A field of 0 to 16 bits; 0 when NumBits is above 16. Only the bytes that hold the field are read,
// for a width of 0 none.
uint16_t UTIL_ReadBits(const void* pBuffer, uint32_t BitOffset, uint32_t NumBits);

// A field of 32 bits: reads 4 bytes, and a fifth when the offset is not that of a byte.
uint32_t UTIL_ReadBits32(const void* pBuffer, uint32_t BitOffset);

// Writes a field of 32 bits and preserves all other bits. Only the 4 or 5 bytes that hold the field
// are touched.
void UTIL_WriteBits32(void* pBuffer, uint32_t BitOffset, uint32_t Value);

// Writes NumValues fields, NumBits apart, the first at bit StartBit (0 to 7, larger ones count on).
//
// Each value is written as 32 bits, so the bits of a value above NumBits are overwritten by the
// next one, and those of the last value remain in the buffer: it must reach to 32 bits behind the
// start of the last field. With NumBits above 32 the bits in between are preserved.
void UTIL_WriteBitArray(void* pBuffer, const uint32_t* pValues, uint32_t StartBit, uint32_t NumBits,
                        uint32_t NumValues);

// Runs in a bitmap. Nothing happens when pBitmap is NULL or NumBits is 0.

void UTIL_SetBits(void* pBitmap, uint32_t FirstBit, uint32_t NumBits);
void UTIL_ClearBits(void* pBitmap, uint32_t FirstBit, uint32_t NumBits);

// Counts and positions

// Number of set bits, 0 to 32.
uint32_t UTIL_CountBits(uint32_t Value);

// 1 when the number of set bits is odd, else 0.
uint32_t UTIL_GetParity(uint32_t Value);

// Index of the highest set bit, of the lowest one; -1 for 0.
int32_t UTIL_GetHighestBit32(uint32_t Value);
int32_t UTIL_GetHighestBit64(uint64_t Value);
int32_t UTIL_GetLowestBit32(uint32_t Value);

// The logarithm to base 2, rounded down, for values from 1; 31 for 0 and negative values.
int32_t UTIL_GetLog2(int32_t Value);

// Reversed bits, through a table of 128 KB that the first call builds, without a lock: a second
// thread that comes at that moment writes the same contents once more, which harms neither.

uint16_t UTIL_GetBitRev16(uint16_t Value);
uint32_t UTIL_GetBitRev32(uint32_t Value);

#endif
