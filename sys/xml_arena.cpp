#include "sys/xml_arena.h"

#include <stddef.h>

#include "sys/memory.h"

static const uint32_t CHUNK_SIZE = 0x400000;

static XmlArena* CreateChunk(uint32_t Capacity) {
  if (Capacity > UINT32_MAX - sizeof(XmlArena)) {
    return NULL;
  }
  XmlArena* pChunk = (XmlArena*)SYS_MEM_Alloc((uint32_t)sizeof(XmlArena) + Capacity);
  if (pChunk != NULL) {
    pChunk->pData    = (uint8_t*)(pChunk + 1);
    pChunk->pNext    = NULL;
    pChunk->pOpen    = pChunk;
    pChunk->Used     = 0;
    pChunk->Capacity = Capacity;
  }
  return pChunk;
}

// The first chunk with any room, or the last one. A document of many small pieces has dozens of
// full chunks in front of it; walking them for each piece would take most of the time of loading.
static XmlArena* FindOpenChunk(XmlArena* pArena) {
  XmlArena* pChunk = pArena->pOpen;
  while (pChunk->Used == pChunk->Capacity && pChunk->pNext != NULL) {
    pChunk = pChunk->pNext;
  }
  pArena->pOpen = pChunk;
  return pChunk;
}

static void* TakeFromChunk(XmlArena* pChunk, uint32_t NumBytes) {
  void* pMem = pChunk->pData + pChunk->Used;
  pChunk->Used += NumBytes;
  return pMem;
}

XmlArena* SYS_XML_CreateArena(void) {
  return CreateChunk(CHUNK_SIZE);
}

void* SYS_XML_AllocFromArena(XmlArena* pArena, uint32_t NumBytes) {
  XmlArena* pChunk = FindOpenChunk(pArena);
  for (;;) {
    if (NumBytes < CHUNK_SIZE && pChunk->Capacity - pChunk->Used >= NumBytes) {
      return TakeFromChunk(pChunk, NumBytes);
    }
    if (pChunk->pNext == NULL) {
      break;
    }
    pChunk = pChunk->pNext;
  }
  pChunk->pNext = CreateChunk(NumBytes < CHUNK_SIZE ? CHUNK_SIZE : NumBytes);
  return pChunk->pNext == NULL ? NULL : TakeFromChunk(pChunk->pNext, NumBytes);
}

void SYS_XML_FreeArena(XmlArena* pArena) {
  while (pArena != NULL) {
    XmlArena* pNext = pArena->pNext;
    SYS_MEM_Free(pArena);
    pArena = pNext;
  }
}
