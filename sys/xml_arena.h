// sys/xml_arena.h
//
// XmlArena: the memory of one XML document. It is handed out piece by piece and freed as a whole.
//
// Sizes are in bytes, unsigned 32 bit. Pieces are not aligned: each starts where the last one
// ended, so who stores records asks for multiples of their alignment only. Chunks are 4 MiB, so a
// document is freed with a handful of calls. One thread at a time for each arena; no lock.

#ifndef SYS_XML_ARENA_H
#define SYS_XML_ARENA_H

#include <stdint.h>

// One chunk; the arena is the first of a chain. The data area follows the record in the same block
// and starts aligned for any record of the XML document.
struct XmlArena {
  uint8_t*  pData;
  XmlArena* pNext;  // NULL for the last one
  XmlArena* pOpen;  // of the first chunk: those in front of this one are full
  uint32_t  Used;
  uint32_t  Capacity;
};

// An arena of one chunk of 0x400000 bytes, nothing used; NULL when there is no memory.
XmlArena* SYS_XML_CreateArena(void);

// Hands out NumBytes bytes with undefined contents, from the first chunk with that much room. When
// there is none a chunk is added: 0x400000 bytes for less than that. 0x400000 or more always get a
// chunk of exactly their size. NULL when there is no memory; the arena is then as before. pArena
// must not be NULL.
void* SYS_XML_AllocFromArena(XmlArena* pArena, uint32_t NumBytes);

// Frees all chunks, and so everything handed out; does nothing for NULL.
void SYS_XML_FreeArena(XmlArena* pArena);

#endif
