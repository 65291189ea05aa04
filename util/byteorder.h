// util/byteorder.h
//
// Loads, stores and swaps in a stated byte order, for data that crosses between the host and a
// target or a wire.
//
// LE is little-endian (least significant byte first), BE big-endian; functions ending in Order take
// the order as a flag, 0 for LE and any other value for BE. No data needs an alignment. Pointers
// must not be NULL unless the count is 0. No allocation; any thread may call these on memory of its
// own. The array swaps run over whole memory images: they ask once which instructions the processor
// has and remember the answer, which changes nothing but the time they take.

#ifndef UTIL_BYTEORDER_H
#define UTIL_BYTEORDER_H

#include <stdint.h>

// Loads, in the host's order

uint8_t  UTIL_LoadU8(const uint8_t* p);
uint16_t UTIL_LoadU16(const uint8_t* p);
uint32_t UTIL_LoadU32(const uint8_t* p);
uint64_t UTIL_LoadU64(const uint8_t* p);

// Two 32-bit words, each in the host's order, of which the first is the high half.
uint64_t UTIL_LoadU64Words(const uint8_t* p);

// Loads, in a stated order

uint16_t UTIL_LoadU16BE(const uint8_t* p);
uint32_t UTIL_LoadU32BE(const uint8_t* p);
uint16_t UTIL_LoadU16Order(const uint8_t* p, int32_t IsBE);
uint32_t UTIL_LoadU32Order(const uint8_t* p, int32_t IsBE);
uint64_t UTIL_LoadU64Order(const uint8_t* p, int32_t IsBE);

// Stores, in a stated order

void UTIL_StoreU16LE(uint8_t* p, uint16_t Value);
void UTIL_StoreU32LE(uint8_t* p, uint32_t Value);
void UTIL_StoreU64LE(uint8_t* p, uint64_t Value);
void UTIL_StoreU16BE(uint8_t* p, uint16_t Value);
void UTIL_StoreU32BE(uint8_t* p, uint32_t Value);
void UTIL_StoreU64BE(uint8_t* p, uint64_t Value);
void UTIL_StoreU16Order(uint8_t* p, uint16_t Value, int32_t IsBE);
void UTIL_StoreU32Order(uint8_t* p, uint32_t Value, int32_t IsBE);
void UTIL_StoreU64Order(uint8_t* p, uint64_t Value, int32_t IsBE);

// Stores at the cursor and moves it by 4.
void UTIL_StoreU32LEAdvance(uint8_t** pp, uint32_t Value);

// A 128-bit value, 16 bytes, given as its halves: in the host's order, low half first; and BE, the
// high half first.
void UTIL_StoreU128(uint8_t* p, uint64_t High, uint64_t Low);
void UTIL_StoreU128BE(uint8_t* p, uint64_t High, uint64_t Low);

// Swaps of one value

uint16_t UTIL_SwapU16(uint16_t Value);
uint32_t UTIL_SwapU32(uint32_t Value);
uint64_t UTIL_SwapU64(uint64_t Value);

// Swaps of NumItems units. pDest may equal pSource; otherwise the two must not overlap.

void UTIL_SwapArrayU16(void* pDest, const void* pSource, uint32_t NumItems);
void UTIL_SwapArrayU32(void* pDest, const void* pSource, uint32_t NumItems);
void UTIL_SwapArrayU64(void* pDest, const void* pSource, uint32_t NumItems);

// Swaps of target memory, in the units in which a bus accesses it unless flags leave out some

static const uint32_t UTIL_SWAP_NO_U16 = 0x40000000;  // leave out the steps with 2-byte units
static const uint32_t UTIL_SWAP_NO_U32 = 0x80000000;  // leave out the step with 4-byte units

// Swaps NumBytes bytes in place that lie at Addr in the target: the byte at an odd address stays,
// a 2-byte unit in front of the first 4-byte boundary is swapped, then whole 4-byte units, then the
// 2-byte unit that remains; a last single byte stays.
// A step that Flags leave out takes no bytes; they are left to the steps behind it. So without the
// 4-byte step all is swapped in 2-byte units, and without the 2-byte steps the 4-byte units begin
// at the first even address. With both left out nothing changes.
void UTIL_SwapTargetMem(void* pBuffer, uint32_t Addr, uint32_t NumBytes, uint32_t Flags);

// Copies NumBytes bytes with the same swapping, no step left out.
// pDest may equal pSource; otherwise the two must not overlap.
void UTIL_CopySwapTargetMem(void* pDest, const void* pSource, uint32_t Addr, uint32_t NumBytes);

#endif
