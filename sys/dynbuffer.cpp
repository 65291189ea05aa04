// SPDX-License-Identifier: MIT

#include "sys/dynbuffer.h"

#include <string.h>

#include "sys/memory.h"
#include "util/format.h"

// Not inline: its buffer would make every append set up a larger stack frame.
static __attribute__((noinline)) void Report(const DYNBUFFER* pBuffer, const char* sFormat,
                                             uint32_t Value) {
  if (pBuffer->pfError != NULL) {
    char acMessage[256];
    UTIL_snprintf(acMessage, sizeof(acMessage), sFormat, Value);
    pBuffer->pfError(acMessage);
  }
}

// pfError is the caller's only report.
static void ReportNoMemory(const DYNBUFFER* pBuffer, uint32_t Size) {
  Report(pBuffer, "Cannot allocate %d bytes of memory for dynamic buffer", Size);
}

// Fills the bytes from index From to the end of the allocation, if there is a fill byte.
static void FillFresh(DYNBUFFER* pBuffer, uint32_t From) {
  if (pBuffer->FillByte >= 0) {
    memset(pBuffer->pData + From, pBuffer->FillByte, pBuffer->AllocSize - From);
  }
}

int32_t DynBufferCreate(DYNBUFFER* pBuffer, void (*pfError)(const char* sMessage), uint32_t MaxSize,
                        uint32_t InitialSize, int32_t FillByte) {
  pBuffer->pfError = pfError;  // first: it reports that there is no memory
  // The description is for debuggers.
  uint8_t* pData = (uint8_t*)SYS_MEM_AllocNamed(InitialSize, "DYNBUFFER: dynamic buffer");
  if (pData == NULL) {
    ReportNoMemory(pBuffer, InitialSize);
    return DYNBUFFER_ERR_MEMORY;
  }
  pBuffer->pData        = pData;
  pBuffer->MaxSize      = MaxSize;
  pBuffer->AllocSize    = InitialSize;
  pBuffer->HighestIndex = 0;
  pBuffer->Written      = 0;
  pBuffer->FillByte     = FillByte;
  FillFresh(pBuffer, 0);
  return 0;
}

int32_t DynBufferFree(DYNBUFFER* pBuffer) {
  SYS_MEM_Free(pBuffer->pData);
  memset(pBuffer, 0, sizeof(*pBuffer));
  return 0;
}

int32_t DynBufferEnsure(DYNBUFFER* pBuffer, uint32_t Index) {
  const uint32_t OldSize = pBuffer->AllocSize;
  if (OldSize > Index) {
    return 0;
  }
  if (pBuffer->MaxSize <= Index) {
    Report(pBuffer,
           "Debugger accesses memory in dynamic buffer at offset 0x%.8X which is out of array "
           "bounds.",
           Index);
    return DYNBUFFER_ERR_RANGE;
  }
  // Doubling keeps the cost of many appends linear. 2 * OldSize may wrap; Index + 1 is then larger.
  uint32_t NewSize = Index + 1;
  if (NewSize < 2 * OldSize) {
    NewSize = 2 * OldSize;
  }
  if (NewSize > pBuffer->MaxSize) {
    NewSize = pBuffer->MaxSize;
  }
  // Large blocks are moved by changing the page tables, which copies nothing.
  uint8_t* pData = (uint8_t*)SYS_MEM_Realloc(pBuffer->pData, NewSize);
  if (pData == NULL) {
    ReportNoMemory(pBuffer, NewSize);
    return DYNBUFFER_ERR_MEMORY;
  }
  pBuffer->pData     = pData;
  pBuffer->AllocSize = NewSize;
  FillFresh(pBuffer, OldSize);  // only what is new
  return 0;
}

int32_t DynBufferWriteAt(DYNBUFFER* pBuffer, uint32_t Offset, const void* pBytes,
                         uint32_t NumBytes) {
  // Wraps to index 0xFFFFFFFF for 0 bytes at offset 0, which then fails: callers rely on that.
  uint32_t Last = Offset + NumBytes - 1;
  if (NumBytes > 0 && Last < Offset) {
    Last = UINT32_MAX;  // beyond the last possible index: no buffer can hold the bytes
  }
  const int32_t Result = DynBufferEnsure(pBuffer, Last);
  if (Result < 0) {
    return Result;
  }
  if (NumBytes > 0) {
    memcpy(pBuffer->pData + Offset, pBytes, NumBytes);
  }
  // Never down: a write in the middle leaves what is after it in use.
  if (Last > pBuffer->HighestIndex) {
    pBuffer->HighestIndex = Last;
  }
  pBuffer->Written = 1;
  return 0;
}
