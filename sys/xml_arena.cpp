// SPDX-License-Identifier: MIT

#include "sys/xml_arena.h"

#include <stddef.h>

#include "sys/memory.h"

static const uint32_t CHUNK_SIZE = 0x400000;

// The first class of a power of 2 has the pieces from 2^FIRST_POWER bytes on.
static const uint32_t FIRST_POWER = 9;
static const uint32_t NUM_SMALL   = (1u << FIRST_POWER) / 8;

// Makes a chunk with room for Capacity bytes. NULL without memory.
static XmlArena* CreateChunk(uint32_t Capacity) {
  const uint32_t Overhead = (uint32_t)sizeof(XmlArena) + SYS_XML_CHUNK_SLACK;
  if (Capacity > UINT32_MAX - Overhead) {  // sizes of blocks are 32 bits
    return NULL;
  }
  XmlArena* pChunk = (XmlArena*)SYS_MEM_Alloc(Overhead + Capacity);
  if (pChunk != NULL) {
    pChunk->pData    = (uint8_t*)(pChunk + 1);
    pChunk->pNext    = NULL;
    pChunk->Used     = 0;
    pChunk->Capacity = Capacity;
  }
  return pChunk;
}

static uint32_t GetRoom(const XmlArena* pChunk) {
  return pChunk->Capacity - pChunk->Used;
}

// There is room: the caller has made sure.
static void* TakeFromChunk(XmlArena* pChunk, uint32_t NumBytes) {
  void* pMem = pChunk->pData + pChunk->Used;
  pChunk->Used += NumBytes;
  return pMem;
}

// Adds a chunk at the end of the chain and takes NumBytes bytes from it.
static void* TakeFromNewChunk(XmlArena* pArena, uint32_t Capacity, uint32_t NumBytes) {
  XmlArena* pChunk = CreateChunk(Capacity);
  if (pChunk == NULL) {
    return NULL;
  }
  pArena->pLast->pNext = pChunk;
  pArena->pLast        = pChunk;
  return TakeFromChunk(pChunk, NumBytes);
}

// Returns the class of a piece below CHUNK_SIZE bytes. *pLeast is the smallest piece of that class.
static uint32_t GetClass(uint32_t NumBytes, uint32_t* pLeast) {
  if (NumBytes < 8 * NUM_SMALL) {
    const uint32_t Class = NumBytes / 8;
    *pLeast              = Class > 0 ? 8 * Class : 1;
    return Class;
  }
  const uint32_t Power = 31 - (uint32_t)__builtin_clz(NumBytes);
  *pLeast              = 1u << Power;
  return NUM_SMALL + Power - FIRST_POWER;
}

// Returns the first chunk with at least NumBytes bytes of room, or NULL. Rooms only shrink, so a
// class never has to look again at a chunk that has no room for its smallest piece. Without that, a
// document of many small pieces would walk dozens of nearly full chunks for each of them.
static XmlArena* FindRoom(XmlArena* pArena, uint32_t NumBytes) {
  uint32_t       Least;
  const uint32_t Class  = GetClass(NumBytes, &Least);
  XmlArena*      pChunk = pArena->apOpen[Class];
  while (GetRoom(pChunk) < Least && pChunk->pNext != NULL) {
    pChunk = pChunk->pNext;
  }
  pArena->apOpen[Class] = pChunk;
  // Any other piece of the class may need more.
  while (pChunk != NULL && GetRoom(pChunk) < NumBytes) {
    pChunk = pChunk->pNext;
  }
  return pChunk;
}

XmlArena* SYS_XML_CreateArena(void) {
  XmlArena* pArena = CreateChunk(CHUNK_SIZE);
  if (pArena != NULL) {
    pArena->pLast = pArena;
    // Every class begins its search at the first chunk.
    for (XmlArena*& pOpen : pArena->apOpen) {
      pOpen = pArena;
    }
  }
  return pArena;
}

void* SYS_XML_AllocFromArena(XmlArena* pArena, uint32_t NumBytes) {
  // A large piece gets a chunk that it fills, and no class ever looks for room for one.
  if (NumBytes >= CHUNK_SIZE) {
    return TakeFromNewChunk(pArena, NumBytes, NumBytes);
  }
  XmlArena* pChunk = FindRoom(pArena, NumBytes);
  return pChunk != NULL ? TakeFromChunk(pChunk, NumBytes)
                        : TakeFromNewChunk(pArena, CHUNK_SIZE, NumBytes);
}

void SYS_XML_FreeArena(XmlArena* pArena) {
  while (pArena != NULL) {
    XmlArena* pNext = pArena->pNext;
    SYS_MEM_Free(pArena);
    pArena = pNext;
  }
}
