#include "sys/dynbuffer.h"

#include <string.h>

#include "sys/memory.h"
#include "util/format.h"

static void Report(const DYNBUFFER* pBuffer, const char* sFormat, uint32_t Value) {
  if (pBuffer->pfError != NULL) {
    char acMessage[256];
    UTIL_snprintf(acMessage, sizeof(acMessage), sFormat, Value);
    pBuffer->pfError(acMessage);
  }
}

static uint8_t* AllocStorage(const DYNBUFFER* pBuffer, uint32_t Size) {
  uint8_t* pData = (uint8_t*)SYS_MEM_AllocNamed(Size, "DYNBUFFER: dynamic buffer");
  if (pData == NULL) {
    Report(pBuffer, "Cannot allocate %d bytes of memory for dynamic buffer", Size);
  }
  return pData;
}

// Fills the allocated bytes from index From on.
static void FillFresh(DYNBUFFER* pBuffer, uint32_t From) {
  if (pBuffer->FillByte >= 0) {
    memset(pBuffer->pData + From, pBuffer->FillByte, pBuffer->AllocSize - From);
  }
}

int32_t DynBufferCreate(DYNBUFFER* pBuffer, void (*pfError)(const char* sMessage), uint32_t MaxSize,
                        uint32_t InitialSize, int32_t FillByte) {
  pBuffer->pfError = pfError;
  uint8_t* pData   = AllocStorage(pBuffer, InitialSize);
  if (pData == NULL) {
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
  uint32_t NewSize = Index + 1;
  if (NewSize < 2 * OldSize) {
    NewSize = 2 * OldSize;
  }
  if (NewSize > pBuffer->MaxSize) {
    NewSize = pBuffer->MaxSize;
  }
  uint8_t* pData = AllocStorage(pBuffer, NewSize);
  if (pData == NULL) {
    return DYNBUFFER_ERR_MEMORY;
  }
  if (OldSize > 0) {
    memcpy(pData, pBuffer->pData, OldSize);
  }
  SYS_MEM_Free(pBuffer->pData);
  pBuffer->pData     = pData;
  pBuffer->AllocSize = NewSize;
  FillFresh(pBuffer, OldSize);
  return 0;
}

int32_t DynBufferWriteAt(DYNBUFFER* pBuffer, uint32_t Offset, const void* pBytes,
                         uint32_t NumBytes) {
  uint32_t Last = Offset + NumBytes - 1;  // wraps for nothing at offset 0, on purpose
  if (NumBytes > 0 && Last < Offset) {
    Last = UINT32_MAX;  // the bytes reach beyond the last index there is: none can hold them
  }
  const int32_t Result = DynBufferEnsure(pBuffer, Last);
  if (Result < 0) {
    return Result;
  }
  if (NumBytes > 0) {
    memcpy(pBuffer->pData + Offset, pBytes, NumBytes);
  }
  if (Last > pBuffer->HighestIndex) {
    pBuffer->HighestIndex = Last;
  }
  pBuffer->Written = 1;
  return 0;
}

int32_t DynBufferAppend(DYNBUFFER* pBuffer, const void* pBytes, uint32_t NumBytes) {
  return DynBufferWriteAt(pBuffer, pBuffer->Written != 0 ? pBuffer->HighestIndex + 1 : 0, pBytes,
                          NumBytes);
}
