// sys/dynbuffer.h
//
// DYNBUFFER: a growable byte array with a hard upper size.
//
// Sizes and indices are in bytes, unsigned 32 bit. The record is the caller's, the storage is the
// record's: one DynBufferFree for each successful DynBufferCreate. The bytes in use are 0 to
// HighestIndex once Written is set; bytes never written hold the fill byte, or are undefined
// without one. The allocation at least doubles when it grows, so n appends copy O(n) bytes.
//
// One thread at a time for each record; no lock. pBuffer must never be NULL.

#ifndef SYS_DYNBUFFER_H
#define SYS_DYNBUFFER_H

#include <stdint.h>

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
  int32_t  FillByte;      // 0 or more: fills fresh storage; negative: storage stays as it comes
  void (*pfError)(const char* sMessage);  // may be NULL; the text lives only during the call
};

// Sets the record up with InitialSize bytes allocated and nothing written. What the record held
// before is not looked at. InitialSize should not exceed MaxSize: indices below it are open.
//
// Returns 0, or DYNBUFFER_ERR_MEMORY: pfError, if set, was called with "Cannot allocate %d
// bytes of memory for dynamic buffer", and of the record only pfError is set.
int32_t DynBufferCreate(DYNBUFFER* pBuffer, void (*pfError)(const char* sMessage), uint32_t MaxSize,
                        uint32_t InitialSize, int32_t FillByte);

// Frees the storage, if any, and clears the whole record, pfError included. Returns 0.
int32_t DynBufferFree(DYNBUFFER* pBuffer);

// Makes the byte at Index addressable at pData[Index], moving the storage when it must grow.
//
// Returns 0, DYNBUFFER_ERR_MEMORY or DYNBUFFER_ERR_RANGE. Before an error is returned
// pfError, if set, is called with the message of DynBufferCreate or with "Debugger accesses memory
// in dynamic buffer at offset 0x%.8X which is out of array bounds."; the record is as before.
int32_t DynBufferEnsure(DYNBUFFER* pBuffer, uint32_t Index);

// Copies NumBytes bytes to Offset, growing the storage when needed.
// pBytes must not point into this buffer: growing frees the old storage.
//
// Returns the result of DynBufferEnsure for the last byte; after an error the record and its bytes
// are as before. Bytes that would reach beyond index 0xFFFFFFFF, where the 32 bits wrap, count as
// ending there: DYNBUFFER_ERR_RANGE.
//
// NumBytes 0 copies nothing, but otherwise acts as a write that ends before Offset: that byte is
// made addressable and counts as in use. At Offset 0 it would be index 0xFFFFFFFF: writing nothing
// there gives DYNBUFFER_ERR_RANGE, on purpose.
int32_t DynBufferWriteAt(DYNBUFFER* pBuffer, uint32_t Offset, const void* pBytes,
                         uint32_t NumBytes);

// DynBufferWriteAt behind the bytes in use: at HighestIndex + 1 once Written is set, else at 0.
// Appending nothing to an empty buffer therefore gives DYNBUFFER_ERR_RANGE, behind other bytes it
// gives 0.
int32_t DynBufferAppend(DYNBUFFER* pBuffer, const void* pBytes, uint32_t NumBytes);

#endif
