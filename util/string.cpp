#include "util/string.h"

#include <stddef.h>

void UTIL_CopyString(char* pDest, const char* sSource, uint32_t BufferSize) {
  if (pDest == NULL || sSource == NULL || BufferSize == 0) {
    return;
  }
  uint32_t i = 0;
  while (i < BufferSize - 1 && sSource[i] != 0) {
    pDest[i] = sSource[i];
    i++;
  }
  pDest[i] = 0;
}
