// SPDX-License-Identifier: MIT

#include "sys/memory.h"

#include <stdlib.h>

#include "util/format.h"

void* SYS_MEM_Alloc(uint32_t Size) {
  void* pMem = malloc(Size);
  if (pMem == NULL) {
    char acMessage[64];  // for a debugger that stops here
    UTIL_snprintf(acMessage, sizeof(acMessage), "Failed to allocate 0x%.8X bytes of memory!", Size);
  }
  return pMem;
}

// The description is for readers of the calling code; nothing stores it.
void* SYS_MEM_AllocNamed(uint32_t Size, const char* sDescription) {
  (void)sDescription;
  return SYS_MEM_Alloc(Size);
}

void* SYS_MEM_Realloc(void* pMem, uint32_t Size) {
  // Some libraries free the block for a size of 0 and return NULL, which would look like a failure.
  return realloc(pMem, Size == 0 ? 1 : Size);
}

void SYS_MEM_Free(void* pMem) {
  if (pMem != NULL) {
    free(pMem);
  }
}

void SYS_MEM_FreeAndClear(void** ppMem) {
  SYS_MEM_Free(*ppMem);
  *ppMem = NULL;
}
