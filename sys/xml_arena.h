// sys/xml_arena.h
// SPDX-License-Identifier: MIT
//
// XML arenas: the memory of one XML document, handed out in pieces and freed as a whole.
//
// Sizes are in bytes, unsigned 32 bit. Pieces are not aligned: each starts where the last one
// ended, so code that stores records asks for multiples of their alignment only. Chunks are 4 MiB,
// so a document is freed by a few calls. One thread at a time for each arena; no lock.

#ifndef SYS_XML_ARENA_H
#define SYS_XML_ARENA_H

#include <stdint.h>

enum {
  // Bytes after each chunk's data. They are never handed out, so that a text may be copied in
  // blocks that read a little beyond its piece.
  SYS_XML_CHUNK_SLACK = 32,
  // Classes of sizes: below 512 bytes one for each multiple of 8, from there on one for each power
  // of 2 up to 4 MiB.
  SYS_XML_NUM_CLASSES = 64 + 13
};

// One chunk. The arena is the first chunk of a chain. The data follows the record in the same block
// and is aligned for any record of the XML document.
struct XmlArena {
  uint8_t*  pData;
  XmlArena* pNext;  // NULL for the last one
  uint32_t  Used;
  uint32_t  Capacity;

  // In the first chunk only.
  XmlArena* pLast;
  XmlArena* apOpen[SYS_XML_NUM_CLASSES];  // the chunks before it have no room for the class
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
