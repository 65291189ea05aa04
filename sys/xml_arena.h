// sys/xml_arena.h
//
// XML arenas: the memory of one XML document, handed out in pieces and freed as a whole.
//
// Sizes are in bytes, unsigned 32 bit. Pieces are not aligned: each starts where the last one
// ended, so code that stores records asks for multiples of their alignment only. Chunks are 4 MiB,
// so a document is freed by a few calls. One thread at a time for each arena; no lock.

#ifndef SYS_XML_ARENA_H
#define SYS_XML_ARENA_H

#include <stdint.h>

// One chunk. The arena is the first chunk of a chain. The data follows the record in the same block
// and is aligned for any record of the XML document.
struct XmlArena {
  uint8_t*  pData;
  XmlArena* pNext;  // NULL for the last one
  XmlArena* pOpen;  // in the first chunk: the chunks before this one are full
  uint32_t  Used;
  uint32_t  Capacity;
};

// Makes an arena of one empty chunk of 0x400000 bytes.
// Returns NULL when there is no memory.
XmlArena* SYS_XML_CreateArena(void);

// Takes NumBytes bytes from the arena; their contents are undefined.
// They come from the first chunk with enough room. If there is none, a chunk of 0x400000 bytes is
// added. 0x400000 bytes or more always get a new chunk of exactly their size. Returns NULL when
// there is no memory; the arena is then unchanged. pArena must not be NULL.
void* SYS_XML_AllocFromArena(XmlArena* pArena, uint32_t NumBytes);

// Frees all chunks, and with them everything taken from the arena.
// Does nothing for NULL.
void SYS_XML_FreeArena(XmlArena* pArena);

#endif
