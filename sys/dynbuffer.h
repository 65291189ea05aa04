// sys/dynbuffer.h
// SPDX-License-Identifier: MIT
//
// DYNBUFFER: a growable byte array with a hard upper size.
//
// Sizes and indices are in bytes, unsigned 32 bit. The caller owns the record, and the record owns
// the storage: call DynBufferFree once for each successful DynBufferCreate. The bytes in use are
// those from 0 to HighestIndex, once Written is set. Bytes that were never written hold the fill
// byte, or are undefined without one. The allocation at least doubles when it grows, so n appends
// copy O(n) bytes.
//
// One thread at a time for each record; no lock. pBuffer must never be NULL.

#ifndef SYS_DYNBUFFER_H
#define SYS_DYNBUFFER_H

#include <stdint.h>
#include <string.h>

// Results other than 0.
enum {
  DYNBUFFER_ERR_MEMORY = -2,  // no memory
  DYNBUFFER_ERR_RANGE  = -3   // an index at MaxSize or beyond
};

struct DYNBUFFER {
  uint8_t* pData;         // NULL while nothing is allocated
  uint32_t MaxSize;       // no index may reach this
  uint32_t AllocSize;     // bytes allocated
  uint32_t HighestIndex;  // largest index written; meaningless until Written is set
  uint32_t Written;       // 0 until the first write
  int32_t  FillByte;      // 0 or more: fills new storage; negative: new storage is left undefined
  void (*pfError)(const char* sMessage);  // may be NULL; the text is valid only during the call
};

// Sets the record up with InitialSize bytes allocated and nothing written.
// The previous contents of the record are ignored. InitialSize should not exceed MaxSize: all
// indices below it can be written.
//
// Returns 0 or DYNBUFFER_ERR_MEMORY. In that case pfError, unless NULL, was called with "Cannot
// allocate %d bytes of memory for dynamic buffer", and only pfError is set in the record.
int32_t DynBufferCreate(DYNBUFFER* pBuffer, void (*pfError)(const char* sMessage), uint32_t MaxSize,
                        uint32_t InitialSize, int32_t FillByte);

// Frees the storage, if any, and clears the whole record, pfError included.
// Returns 0.
int32_t DynBufferFree(DYNBUFFER* pBuffer);

// Makes the byte at Index addressable as pData[Index].
// The storage moves when it has to grow.
//
// Returns 0, DYNBUFFER_ERR_MEMORY or DYNBUFFER_ERR_RANGE. Before an error is returned pfError,
// unless NULL, is called with the message of DynBufferCreate or with "Debugger accesses memory in
// dynamic buffer at offset 0x%.8X which is out of array bounds."; the record is unchanged.
int32_t DynBufferEnsure(DYNBUFFER* pBuffer, uint32_t Index);

// Copies NumBytes bytes to Offset, and grows the storage if necessary.
// pBytes must not point into this buffer: growing frees the old storage.
//
// Returns the result of DynBufferEnsure for the last byte. After an error the record and its bytes
// are unchanged. Bytes that would reach beyond index 0xFFFFFFFF, where 32 bits wrap, give
// DYNBUFFER_ERR_RANGE.
//
// With NumBytes 0 nothing is copied, but the last byte is still Offset - 1: it is made addressable
// and counts as in use. At Offset 0 it is index 0xFFFFFFFF, so writing nothing there gives
// DYNBUFFER_ERR_RANGE. Callers rely on that.
int32_t DynBufferWriteAt(DYNBUFFER* pBuffer, uint32_t Offset, const void* pBytes,
                         uint32_t NumBytes);

// Copies NumBytes bytes to the end of the bytes in use.
// This is DynBufferWriteAt at HighestIndex + 1 once Written is set, else at 0. Appending 0 bytes
// therefore gives DYNBUFFER_ERR_RANGE while nothing is written, and 0 afterwards.
inline int32_t DynBufferAppend(DYNBUFFER* pBuffer, const void* pBytes, uint32_t NumBytes) {
  // Nothing written yet is not the same as one byte written: HighestIndex is 0 in both cases.
  const uint32_t Offset = pBuffer->Written != 0 ? pBuffer->HighestIndex + 1 : 0;
  if (NumBytes == 0 || NumBytes > pBuffer->AllocSize - Offset) {
    return DynBufferWriteAt(pBuffer, Offset, pBytes, NumBytes);
  }
  memcpy(pBuffer->pData + Offset, pBytes, NumBytes);
  pBuffer->HighestIndex = Offset + NumBytes - 1;
  pBuffer->Written      = 1;
  return 0;
}

#endif
