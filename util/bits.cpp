// SPDX-License-Identifier: MIT

#include "util/bits.h"

#include <stddef.h>
#include <string.h>

#include "util/block.h"

static const uint32_t MAX_FIELD_BITS = 16;

uint16_t BITS_aReversed[65536];

// Seven bits of each of eight bytes, the first byte's lowest, side by side; and back. Neighbours go
// to pairs, pairs to fours, fours to one.

// 8 bytes to 56 bits.
static inline uint64_t JoinSevens(uint64_t x) {
  x &= 0x7F7F7F7F7F7F7F7F;
  x = (x & 0x007F007F007F007F) | (x & 0x7F007F007F007F00) >> 1;
  x = (x & 0x00003FFF00003FFF) | (x & 0x3FFF00003FFF0000) >> 2;
  return (x & 0x000000000FFFFFFF) | (x & 0x0FFFFFFF00000000) >> 4;
}

// The low 56 bits to 8 bytes.
static inline uint64_t SplitSevens(uint64_t x) {
  x = (x & 0x000000000FFFFFFF) | (x & 0x00FFFFFFF0000000) << 4;
  x = (x & 0x00003FFF00003FFF) | (x & 0x0FFFC0000FFFC000) << 2;
  return (x & 0x007F007F007F007F) | (x & 0x3F803F803F803F80) << 1;
}

static const uint64_t GO_ON = 0x8080808080808080;  // bit 7 of each byte: another one follows

// Byte by byte from any one on: at the end of a page, and from the ninth byte on.
__attribute__((noinline)) static const uint8_t* ReadByByte(const uint8_t* p, uint32_t Shift,
                                                           uint64_t* pValue) {
  uint64_t Value = *pValue;
  uint8_t  b;
  do {
    b = *p++;
    if (Shift < 64) {  // later bytes are consumed, and their bits dropped
      Value |= (uint64_t)(b & 0x7F) << Shift;
      Shift += 7;
    }
  } while ((b & 0x80) != 0);
  *pValue = Value;
  return p;
}

const uint8_t* BITS_ReadLongLEB128(const uint8_t* p, uint64_t* pValue) {
  *pValue = 0;
  // Eight bytes may reach beyond the number. Within its page they can be read all the same.
  if (!BLOCK_IsInPage(p, 8)) {
    return ReadByByte(p, 0, pValue);
  }
  const uint64_t x      = BLOCK_LoadTextU64(p);
  const uint64_t IsLast = ~x & GO_ON;
  if (IsLast == 0) {
    *pValue = JoinSevens(x);
    return ReadByByte(p + 8, 56, pValue);
  }
  // IsLast ^ (IsLast - 1) is its lowest set bit and all bits below: the bytes up to the first last
  // byte. Those after it are not part of the number.
  *pValue = JoinSevens(x & (IsLast ^ (IsLast - 1)));
  return p + __builtin_ctzll(IsLast) / 8 + 1;
}

// Copies 2 to 12 bytes without a branch on how many, which cannot be predicted: a copy that a
// length does not need goes to a place that is never read.
static inline void CopyFrom2To12(uint8_t* p, const uint8_t* pSource, uint32_t NumBytes) {
  uint8_t        acUnused[8];
  uint8_t* const apDest[] = {acUnused, p};
  uint8_t*       p4       = apDest[NumBytes >= 4];
  const uint32_t Last4    = NumBytes >= 4 ? NumBytes - 4 : 0;
  const uint32_t Last2    = NumBytes - 2;
  memcpy(apDest[NumBytes >= 8], pSource, 8);
  memcpy(p4, pSource, 4);
  memcpy(p4 + Last4, pSource + Last4, 4);
  memcpy(p, pSource, 2);
  memcpy(p + Last2, pSource + Last2, 2);
}

uint8_t* BITS_WriteLongLEB128(uint8_t* p, uint64_t Value) {
  // Bit 7 of all bytes but the last, by the number of bytes
  static const uint64_t aGoOn[]  = {0,           0,           GO_ON >> 56, GO_ON >> 48,
                                    GO_ON >> 40, GO_ON >> 32, GO_ON >> 24, GO_ON >> 16,
                                    GO_ON >> 8,  GO_ON,       GO_ON};
  const uint32_t        NumBits  = 64 - (uint32_t)__builtin_clzll(Value);
  const uint32_t        NumBytes = (NumBits * 9 + 64) / 64;  // NumBits / 7, rounded up
  // The first eight bytes; then bits 56 to 62, and for bit 63 a tenth byte of 1, which makes the
  // ninth one go on: 0x180 is both.
  const uint64_t aByte[] = {SplitSevens(Value) | aGoOn[NumBytes],
                            (Value >> 56 & 0x7F) | (Value >> 63) * 0x180};
  CopyFrom2To12(p, (const uint8_t*)aByte, NumBytes);
  return p + NumBytes;
}

// The NumBytes bytes at p (at most 8), the first one lowest.
static uint64_t LoadBytes(const uint8_t* p, uint32_t NumBytes) {
  uint64_t Value = 0;
  for (uint32_t i = 0; i < NumBytes; i++) {
    Value |= (uint64_t)p[i] << (8 * i);
  }
  return Value;
}

uint16_t UTIL_ReadBits(const void* pBuffer, uint32_t BitOffset, uint32_t NumBits) {
  if (NumBits == 0 || NumBits > MAX_FIELD_BITS) {
    return 0;
  }
  // Only the bytes that hold the field: the next one may be beyond the buffer.
  const uint8_t* p     = (const uint8_t*)pBuffer + BitOffset / 8;
  const uint32_t Shift = BitOffset % 8;
  const uint64_t Field = LoadBytes(p, (Shift + NumBits + 7) / 8) >> Shift;
  return (uint16_t)(Field & ((1u << NumBits) - 1));
}

// A field of 32 bits from bit Shift of the byte at p on; four bytes hold it when Shift is 0, else
// five.
static uint32_t ReadField32(const uint8_t* p, uint32_t Shift) {
  return (uint32_t)(LoadBytes(p, Shift != 0 ? 5 : 4) >> Shift);
}

// Stores such a field. BitOffset counts from pBuffer on and has 64 bits: in an array of fields it
// can exceed 32.
static void WriteField32(uint8_t* pBuffer, uint64_t BitOffset, uint32_t Value) {
  uint8_t*       p        = pBuffer + BitOffset / 8;
  const uint32_t Shift    = (uint32_t)(BitOffset % 8);
  const uint32_t NumBytes = Shift != 0 ? 5 : 4;
  const uint64_t Mask     = (uint64_t)UINT32_MAX << Shift;
  const uint64_t Field    = (uint64_t)Value << Shift;
  const uint64_t Merged   = (LoadBytes(p, NumBytes) & ~Mask) | Field;
  for (uint32_t i = 0; i < NumBytes; i++) {
    p[i] = (uint8_t)(Merged >> (8 * i));
  }
}

uint32_t UTIL_ReadBits32(const void* pBuffer, uint32_t BitOffset) {
  return ReadField32((const uint8_t*)pBuffer + BitOffset / 8, BitOffset % 8);
}

void UTIL_WriteBits32(void* pBuffer, uint32_t BitOffset, uint32_t Value) {
  WriteField32((uint8_t*)pBuffer, BitOffset, Value);
}

void UTIL_WriteBitArray(void* pBuffer, const uint32_t* pValues, uint32_t StartBit, uint32_t NumBits,
                        uint32_t NumValues) {
  // In this order: each field overwrites the bits that the one before it has above its width.
  uint64_t BitOffset = StartBit;
  for (uint32_t i = 0; i < NumValues; i++) {
    WriteField32((uint8_t*)pBuffer, BitOffset, pValues[i]);
    BitOffset += NumBits;
  }
}

// Runs of bits. FILL is all ones to set, 0 to clear: one code for both.

template <uint64_t FILL, typename UNIT>
static inline UNIT Merged(UNIT Value, UNIT Mask) {
  return (UNIT)(FILL != 0 ? Value | Mask : Value & ~Mask);
}

// A run in the NumBytes bytes from p on, of which the first Shift and the last Pad bits stay. It
// takes more than one unit and at most two, which may overlap. Both are loaded before one is
// stored: a load of what is just being stored has to wait.
template <uint64_t FILL, typename UNIT>
static inline void MergeEnds(uint8_t* p, uint64_t NumBytes, uint32_t Shift, uint32_t Pad) {
  uint8_t* pLast = p + NumBytes - sizeof(UNIT);
  UNIT     First, Last;
  memcpy(&First, p, sizeof(UNIT));
  memcpy(&Last, pLast, sizeof(UNIT));
  First = Merged<FILL>(First, (UNIT)(UINT64_MAX << Shift));
  Last  = Merged<FILL>(Last, (UNIT)((UNIT)UINT64_MAX >> Pad));
  memcpy(p, &First, sizeof(UNIT));
  memcpy(pLast, &Last, sizeof(UNIT));
}

// The same for more than eight bytes.
template <uint64_t FILL>
__attribute__((noinline)) static void FillLong(uint8_t* p, uint64_t NumBytes, uint32_t Shift,
                                               uint32_t Pad) {
  const uint64_t Fill = FILL;
  MergeEnds<FILL, uint64_t>(p, NumBytes, Shift, Pad);
  // The ends are done. What is between them is filled whole, with as few stores as its length
  // needs.
  if (NumBytes > 32) {
    memset(p + 8, (int)(FILL & 0xFF), NumBytes - 16);
  } else if (NumBytes > 16) {
    memcpy(p + 8, &Fill, 8);
    memcpy(p + NumBytes - 16, &Fill, 8);
  }
}

template <uint64_t FILL>
static inline void FillBits(uint8_t* pBitmap, uint32_t FirstBit, uint32_t NumBits) {
  if (pBitmap == NULL || NumBits == 0) {
    return;
  }
  uint8_t*       p      = pBitmap + FirstBit / 8;
  const uint32_t Shift  = FirstBit % 8;
  const uint64_t NumAll = (uint64_t)Shift + NumBits;  // from bit 0 of the first byte on
  // The cases differ in how many bytes hold the run. None of them touches another byte.
  if (NumAll <= 16) {
    const uint32_t Mask = ((1u << NumBits) - 1) << Shift;
    if (NumAll <= 8) {
      *p = Merged<FILL>(*p, (uint8_t)Mask);
    } else {
      uint16_t Both;
      memcpy(&Both, p, sizeof(Both));
      Both = Merged<FILL>(Both, (uint16_t)Mask);
      memcpy(p, &Both, sizeof(Both));
    }
    return;
  }
  const uint64_t NumBytes = (NumAll + 7) / 8;
  const uint32_t Pad      = (0 - (uint32_t)NumAll) % 8;  // bits of the last byte after the run
  if (NumBytes > 8) {
    FillLong<FILL>(p, NumBytes, Shift, Pad);
  } else if (NumBytes > 4) {
    MergeEnds<FILL, uint32_t>(p, NumBytes, Shift, Pad);
  } else {
    MergeEnds<FILL, uint16_t>(p, NumBytes, Shift, Pad);
  }
}

void UTIL_SetBits(void* pBitmap, uint32_t FirstBit, uint32_t NumBits) {
  FillBits<UINT64_MAX>((uint8_t*)pBitmap, FirstBit, NumBits);
}

void UTIL_ClearBits(void* pBitmap, uint32_t FirstBit, uint32_t NumBits) {
  FillBits<0>((uint8_t*)pBitmap, FirstBit, NumBits);
}

// Sums of 2, 4 and 8 neighbouring bits side by side; the product adds up the four bytes. Not the
// compiler's builtin, which calls a library where the baseline has no instruction for it.
uint32_t UTIL_CountBits(uint32_t Value) {
  Value = Value - ((Value >> 1) & 0x55555555);
  Value = (Value & 0x33333333) + ((Value >> 2) & 0x33333333);
  Value = (Value + (Value >> 4)) & 0x0F0F0F0F;
  return (Value * 0x01010101) >> 24;
}

uint32_t UTIL_GetParity(uint32_t Value) {
  // Folding a half onto the other keeps the parity, until four bits are left.
  Value ^= Value >> 16;
  Value ^= Value >> 8;
  Value ^= Value >> 4;
  return (0x6996u >> (Value & 0xF)) & 1;  // the parities of 0 to 15, one bit each
}

int32_t UTIL_GetHighestBit32(uint32_t Value) {
  return UTIL_GetHighestBit64(Value);
}

int32_t UTIL_GetHighestBit64(uint64_t Value) {
  // The builtins that count zeros are undefined for 0.
  return Value == 0 ? -1 : 63 - __builtin_clzll(Value);
}

int32_t UTIL_GetLowestBit32(uint32_t Value) {
  return Value == 0 ? -1 : __builtin_ctz(Value);
}

int32_t UTIL_GetLog2(int32_t Value) {
  return Value < 1 ? 31 : UTIL_GetHighestBit32((uint32_t)Value);
}

// Every entry is written once and with its final value, so a thread that reads an entry while
// another one builds the table again cannot see anything else. ThreadSanitizer cannot know that.
__attribute__((no_sanitize("thread"))) void BITS_BuildReversed() {
  for (uint32_t i = 0; i < 0xFFFF; i++) {
    // Neighbouring bits change places, then pairs, fours and the two bytes.
    uint32_t x        = i;
    x                 = ((x >> 1) & 0x5555) | ((x & 0x5555) << 1);
    x                 = ((x >> 2) & 0x3333) | ((x & 0x3333) << 2);
    x                 = ((x >> 4) & 0x0F0F) | ((x & 0x0F0F) << 4);
    BITS_aReversed[i] = (uint16_t)((x >> 8) | (x << 8));
  }
  // Last, and visible only after all others.
  __atomic_store_n(&BITS_aReversed[0xFFFF], (uint16_t)0xFFFF, __ATOMIC_RELEASE);
}
