#include "util/bits.h"

#include <stddef.h>
#include <string.h>

static const uint32_t MAX_FIELD_BITS  = 16;
static const uint32_t NUM_REV_ENTRIES = 65536;

// Counts as built when the last entry holds 0xFFFF.
static uint16_t aBitRev[NUM_REV_ENTRIES];

uint64_t UTIL_ReadLEB128(const uint8_t** pp) {
  const uint8_t* p     = *pp;
  uint64_t       Value = 0;
  uint32_t       Shift = 0;
  uint8_t        b;
  do {
    b = *p++;
    if (Shift < 64) {
      Value |= (uint64_t)(b & 0x7F) << Shift;
      Shift += 7;
    }
  } while ((b & 0x80) != 0);
  *pp = p;
  return Value;
}

void UTIL_WriteLEB128(uint8_t** pp, uint64_t Value) {
  uint8_t* p = *pp;
  while (Value > 0x7F) {
    *p++ = (uint8_t)(Value | 0x80);
    Value >>= 7;
  }
  *p++ = (uint8_t)Value;
  *pp  = p;
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
  const uint8_t* p     = (const uint8_t*)pBuffer + BitOffset / 8;
  const uint32_t Shift = BitOffset % 8;
  const uint64_t Field = LoadBytes(p, (Shift + NumBits + 7) / 8) >> Shift;
  return (uint16_t)(Field & ((1u << NumBits) - 1));
}

static uint32_t ReadField32(const uint8_t* p, uint32_t Shift) {
  return (uint32_t)(LoadBytes(p, Shift != 0 ? 5 : 4) >> Shift);
}

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
  uint64_t BitOffset = StartBit;
  for (uint32_t i = 0; i < NumValues; i++) {
    WriteField32((uint8_t*)pBuffer, BitOffset, pValues[i]);
    BitOffset += NumBits;
  }
}

// Puts the bits of Value that are set in Mask to p.
static void Merge(uint8_t* p, uint32_t Mask, uint32_t Value) {
  *p = (uint8_t)((*p & ~Mask) | (Value & Mask));
}

// Value: 0xFF to set, 0 to clear.
static void FillBits(uint8_t* pBitmap, uint32_t FirstBit, uint32_t NumBits, uint8_t Value) {
  if (pBitmap == NULL || NumBits == 0) {
    return;
  }
  const uint64_t LastBit   = (uint64_t)FirstBit + NumBits - 1;
  uint8_t*       pFirst    = pBitmap + FirstBit / 8;
  uint8_t*       pLast     = pBitmap + LastBit / 8;
  const uint32_t FirstMask = 0xFFu << (FirstBit % 8);
  const uint32_t LastMask  = 0xFFu >> (7 - LastBit % 8);
  if (pFirst == pLast) {
    Merge(pFirst, FirstMask & LastMask, Value);
    return;
  }
  Merge(pFirst, FirstMask, Value);
  memset(pFirst + 1, Value, (size_t)(pLast - pFirst - 1));
  Merge(pLast, LastMask, Value);
}

void UTIL_SetBits(void* pBitmap, uint32_t FirstBit, uint32_t NumBits) {
  FillBits((uint8_t*)pBitmap, FirstBit, NumBits, 0xFF);
}

void UTIL_ClearBits(void* pBitmap, uint32_t FirstBit, uint32_t NumBits) {
  FillBits((uint8_t*)pBitmap, FirstBit, NumBits, 0);
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
  Value ^= Value >> 16;
  Value ^= Value >> 8;
  Value ^= Value >> 4;
  return (0x6996u >> (Value & 0xF)) & 1;  // the parities of 0 to 15, one bit each
}

int32_t UTIL_GetHighestBit32(uint32_t Value) {
  return UTIL_GetHighestBit64(Value);
}

int32_t UTIL_GetHighestBit64(uint64_t Value) {
  return Value == 0 ? -1 : 63 - __builtin_clzll(Value);
}

int32_t UTIL_GetLowestBit32(uint32_t Value) {
  return Value == 0 ? -1 : __builtin_ctz(Value);
}

int32_t UTIL_GetLog2(int32_t Value) {
  return Value < 1 ? 31 : UTIL_GetHighestBit32((uint32_t)Value);
}

// Every entry is written once and with its final value, so that a thread which reads an entry while
// another one builds the table again cannot see anything else. ThreadSanitizer cannot know that.
__attribute__((no_sanitize("thread"))) static void BuildBitRev() {
  for (uint32_t i = 0; i < NUM_REV_ENTRIES - 1; i++) {
    uint32_t x = i;
    x          = ((x >> 1) & 0x5555) | ((x & 0x5555) << 1);
    x          = ((x >> 2) & 0x3333) | ((x & 0x3333) << 2);
    x          = ((x >> 4) & 0x0F0F) | ((x & 0x0F0F) << 4);
    aBitRev[i] = (uint16_t)((x >> 8) | (x << 8));
  }
  // Last, and visible only after all others.
  __atomic_store_n(&aBitRev[NUM_REV_ENTRIES - 1], (uint16_t)0xFFFF, __ATOMIC_RELEASE);
}

static inline void NeedBitRev() {
  if (__atomic_load_n(&aBitRev[NUM_REV_ENTRIES - 1], __ATOMIC_ACQUIRE) != 0xFFFF) {
    BuildBitRev();
  }
}

__attribute__((no_sanitize("thread"))) uint16_t UTIL_GetBitRev16(uint16_t Value) {
  NeedBitRev();
  return aBitRev[Value];
}

__attribute__((no_sanitize("thread"))) uint32_t UTIL_GetBitRev32(uint32_t Value) {
  NeedBitRev();
  return ((uint32_t)aBitRev[Value & 0xFFFF] << 16) | aBitRev[Value >> 16];
}
