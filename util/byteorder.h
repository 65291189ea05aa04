// util/byteorder.h
// SPDX-License-Identifier: MIT
//
// Loads, stores and swaps in a stated byte order, for data that crosses between the host and a
// target or a wire.
//
// LE is little-endian (least significant byte first), BE big-endian. Functions ending in Order take
// the order as a flag: 0 for LE, any other value for BE. No data needs an alignment. Pointers must
// not be NULL unless the count is 0. No allocation; any thread may call these on its own memory.

#ifndef UTIL_BYTEORDER_H
#define UTIL_BYTEORDER_H

#include <stdint.h>

// Loads a value in the host's byte order.
uint8_t  UTIL_LoadU8(const uint8_t* p);
uint16_t UTIL_LoadU16(const uint8_t* p);
uint32_t UTIL_LoadU32(const uint8_t* p);
uint64_t UTIL_LoadU64(const uint8_t* p);

// Loads 64 bits from two 32-bit words in the host's order, the high half first.
uint64_t UTIL_LoadU64Words(const uint8_t* p);

// Loads a big-endian value.
uint16_t UTIL_LoadU16BE(const uint8_t* p);
uint32_t UTIL_LoadU32BE(const uint8_t* p);

// Loads a value in the order that a flag states.
uint16_t UTIL_LoadU16Order(const uint8_t* p, int32_t IsBE);
uint32_t UTIL_LoadU32Order(const uint8_t* p, int32_t IsBE);
uint64_t UTIL_LoadU64Order(const uint8_t* p, int32_t IsBE);

// Stores a little-endian value.
void UTIL_StoreU16LE(uint8_t* p, uint16_t Value);
void UTIL_StoreU32LE(uint8_t* p, uint32_t Value);
void UTIL_StoreU64LE(uint8_t* p, uint64_t Value);

// Stores a big-endian value.
void UTIL_StoreU16BE(uint8_t* p, uint16_t Value);
void UTIL_StoreU32BE(uint8_t* p, uint32_t Value);
void UTIL_StoreU64BE(uint8_t* p, uint64_t Value);

// Stores a value in the order that a flag states.
void UTIL_StoreU16Order(uint8_t* p, uint16_t Value, int32_t IsBE);
void UTIL_StoreU32Order(uint8_t* p, uint32_t Value, int32_t IsBE);
void UTIL_StoreU64Order(uint8_t* p, uint64_t Value, int32_t IsBE);

// Stores 32 bits little-endian at the cursor and moves it by 4.
void UTIL_StoreU32LEAdvance(uint8_t** pp, uint32_t Value);

// Stores 128 bits, given as halves, in the host's order: 16 bytes, the low half first.
void UTIL_StoreU128(uint8_t* p, uint64_t High, uint64_t Low);

// Stores 128 bits, given as halves, big-endian: 16 bytes, the high half first.
void UTIL_StoreU128BE(uint8_t* p, uint64_t High, uint64_t Low);

// Reverses the bytes of one value.
uint16_t UTIL_SwapU16(uint16_t Value);
uint32_t UTIL_SwapU32(uint32_t Value);
uint64_t UTIL_SwapU64(uint64_t Value);

// Reverses the bytes of each unit of an array.
//
// pDest may equal pSource; otherwise the two must not overlap.
void UTIL_SwapArrayU16(void* pDest, const void* pSource, uint32_t NumItems);
void UTIL_SwapArrayU32(void* pDest, const void* pSource, uint32_t NumItems);
void UTIL_SwapArrayU64(void* pDest, const void* pSource, uint32_t NumItems);

// Flags of UTIL_SwapTargetMem
static const uint32_t UTIL_SWAP_NO_U16 = 0x40000000;  // leave out the steps with 2-byte units
static const uint32_t UTIL_SWAP_NO_U32 = 0x80000000;  // leave out the step with 4-byte units

// Swaps target memory in place, in the units in which a bus accesses it.
//
// The NumBytes bytes are at Addr in the target. The byte at an odd address stays. A 2-byte unit
// before the first 4-byte boundary is swapped, then all whole 4-byte units, then the 2-byte unit
// that remains. A last single byte stays.
//
// A step that Flags leave out takes no bytes; they are left to the steps after it. So without the
// 4-byte step everything is swapped in 2-byte units, and without the 2-byte steps the 4-byte units
// begin at the first even address. With both left out nothing changes.
void UTIL_SwapTargetMem(void* pBuffer, uint32_t Addr, uint32_t NumBytes, uint32_t Flags);

// Copies target memory with the same swapping, no step left out.
//
// pDest may equal pSource; otherwise the two must not overlap.
void UTIL_CopySwapTargetMem(void* pDest, const void* pSource, uint32_t Addr, uint32_t NumBytes);

#endif
