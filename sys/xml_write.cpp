// SPDX-License-Identifier: MIT

// The writer: the text is built in a DYNBUFFER and copied out. How long it gets is known only at
// the end, and a caller's buffer that is too small still receives its beginning.

#include <string.h>

#include "sys/dynbuffer.h"
#include "sys/xml.h"
#include "util/arith.h"

namespace {

// The DYNBUFFER is filled through p; its own count of bytes in use is not kept up to date.
struct WRITER {
  DYNBUFFER Buffer;
  uint8_t*  p;      // after the last byte written
  uint8_t*  pEnd;   // of the allocation
  int32_t   Error;  // the first one; nothing is written after it
};

}  // namespace

static const uint32_t INITIAL_SIZE = 4096;
static const uint32_t GROWTH = 4;  // times the former size: doubling would copy three times as much

// Short texts are copied in blocks of fixed size. The bytes after a text that are copied along are
// overwritten by what follows it, or are beyond the end of the text. Arenas have room for reading
// them.
static const uint32_t BLOCK_SIZE = 16;
static const uint32_t TWO_BLOCKS = 2 * BLOCK_SIZE;
static_assert(TWO_BLOCKS <= SYS_XML_CHUNK_SLACK, "blocks must stay inside the chunk");

// ---- Room ---------------------------------------------------------------------------------------

static uint32_t GetNumUsed(const WRITER* pWriter) {
  return (uint32_t)(pWriter->p - pWriter->Buffer.pData);
}

// Makes room for NumBytes more bytes and returns 1. Returns 0 when the text cannot get that long,
// and when there is no memory, which is an error.
static int MakeRoom(WRITER* pWriter, uint64_t NumBytes) {
  const uint32_t NumUsed = GetNumUsed(pWriter);
  if (pWriter->Error != SYS_XML_OK || NumBytes > SYS_XML_MAX_TEXT - NumUsed) {
    return 0;
  }
  // The limit is 1 MiB, so none of these sums wraps.
  uint32_t       NumNeeded = NumUsed + (uint32_t)NumBytes;
  const uint32_t Larger    = GROWTH * pWriter->Buffer.AllocSize;
  if (NumNeeded > pWriter->Buffer.AllocSize && NumNeeded < Larger) {
    NumNeeded = UTIL_MinU32(Larger, SYS_XML_MAX_TEXT);
  }
  if (DynBufferEnsure(&pWriter->Buffer, NumNeeded - 1) != 0) {
    pWriter->Error = SYS_XML_ERR_MEMORY;
    return 0;
  }
  pWriter->p    = pWriter->Buffer.pData + NumUsed;
  pWriter->pEnd = pWriter->Buffer.pData + pWriter->Buffer.AllocSize;
  return 1;
}

// Returns 1 when NumBytes bytes, and the blocks that may go beyond them, can be written.
static inline int HasRoom(WRITER* pWriter, uint64_t NumBytes) {
  NumBytes += TWO_BLOCKS;
  return (uint64_t)(pWriter->pEnd - pWriter->p) >= NumBytes || MakeRoom(pWriter, NumBytes);
}

// ---- Pieces -------------------------------------------------------------------------------------

// Writes as much of a text as the buffer can hold, for the end of a text that is nearly too long:
// blocks would go beyond the limit. What does not fit is an error.
static void WriteChecked(WRITER* pWriter, const char* pText, uint32_t NumBytes) {
  const uint32_t Part = UTIL_MinU32(NumBytes, SYS_XML_MAX_TEXT - GetNumUsed(pWriter));
  if (Part > 0 && MakeRoom(pWriter, Part)) {
    memcpy(pWriter->p, pText, Part);
    pWriter->p += Part;
  }
  if (pWriter->Error == SYS_XML_OK && Part < NumBytes) {
    pWriter->Error = SYS_XML_ERR_TOO_LONG;
  }
}

// Writes a text of the document. There is room: see HasRoom.
static inline void PutText(WRITER* pWriter, const char* pText, uint32_t NumBytes) {
  if (NumBytes > TWO_BLOCKS) {
    memcpy(pWriter->p, pText, NumBytes);
  } else {
    memcpy(pWriter->p, pText, BLOCK_SIZE);
    if (NumBytes > BLOCK_SIZE) {
      memcpy(pWriter->p + BLOCK_SIZE, pText + BLOCK_SIZE, BLOCK_SIZE);
    }
  }
  pWriter->p += NumBytes;
}

static inline void PutChar(WRITER* pWriter, char c) {
  *pWriter->p++ = (uint8_t)c;
}

// Writes any text: fast while blocks fit, else byte by byte.
static inline void WriteText(WRITER* pWriter, const char* pText, uint32_t NumBytes) {
  if (HasRoom(pWriter, NumBytes)) {
    PutText(pWriter, pText, NumBytes);
  } else {
    WriteChecked(pWriter, pText, NumBytes);
  }
}

// The same for a constant, whose length the compiler knows. SIZE counts its terminator.
template <uint32_t SIZE>
static inline void WriteLiteral(WRITER* pWriter, const char (&acText)[SIZE]) {
  if (HasRoom(pWriter, SIZE - 1)) {
    memcpy(pWriter->p, acText, SIZE - 1);
    pWriter->p += SIZE - 1;
  } else {
    WriteChecked(pWriter, acText, SIZE - 1);
  }
}

// ---- Parts of the text --------------------------------------------------------------------------

static void WriteIndentation(WRITER* pWriter, uint32_t Depth) {
  static const char acSpaces[TWO_BLOCKS + 1] = "                                ";  // of 16 levels
  for (uint32_t NumLeft = 2 * Depth; NumLeft > 0 && pWriter->Error == SYS_XML_OK;) {
    const uint32_t NumBytes = UTIL_MinU32(NumLeft, TWO_BLOCKS);
    WriteText(pWriter, acSpaces, NumBytes);
    NumLeft -= NumBytes;
  }
}

// Most of a text is attributes: one check of the room for each.
static void WriteAttr(WRITER* pWriter, const XmlAttribute* pAttr) {
  if (HasRoom(pWriter, strlen(" =\"\"") + (uint64_t)pAttr->NameLen + pAttr->ValueLen)) {
    PutChar(pWriter, ' ');
    PutText(pWriter, pAttr->sName, pAttr->NameLen);
    PutChar(pWriter, '=');
    PutChar(pWriter, '"');
    PutText(pWriter, pAttr->sValue, pAttr->ValueLen);
    PutChar(pWriter, '"');
    return;
  }
  WriteLiteral(pWriter, " ");
  WriteText(pWriter, pAttr->sName, pAttr->NameLen);
  WriteLiteral(pWriter, "=\"");
  WriteText(pWriter, pAttr->sValue, pAttr->ValueLen);
  WriteLiteral(pWriter, "\"");
}

// One call for each level. Recursion is bounded: it ends with the first error, and indentation
// alone fills the text before 1024 levels.
static void WriteElements(WRITER* pWriter, const XmlElement* pElement, uint32_t Depth) {
  for (; pElement != NULL && pWriter->Error == SYS_XML_OK; pElement = pElement->pNext) {
    WriteIndentation(pWriter, Depth);
    WriteLiteral(pWriter, "<");
    WriteText(pWriter, pElement->sName, (uint32_t)pElement->NameLen);
    for (const XmlAttribute* pAttr = pElement->pFirstAttr; pAttr != NULL; pAttr = pAttr->pNext) {
      WriteAttr(pWriter, pAttr);
    }
    if (pElement->pFirstChild == NULL) {
      WriteLiteral(pWriter, "/>\r\n");
      continue;
    }
    WriteLiteral(pWriter, ">\r\n");
    WriteElements(pWriter, pElement->pFirstChild, Depth + 1);
    WriteIndentation(pWriter, Depth);
    WriteLiteral(pWriter, "</");
    WriteText(pWriter, pElement->sName, (uint32_t)pElement->NameLen);
    WriteLiteral(pWriter, ">\r\n");
  }
}

int32_t SYS_XML_StoreDoc(const XmlDocument* pDoc, char* pBuffer, uint32_t BufferSize) {
  WRITER Writer;
  if (pDoc == NULL || pBuffer == NULL) {
    return SYS_XML_ERR_ARGUMENT;
  }
  if (DynBufferCreate(&Writer.Buffer, NULL, SYS_XML_MAX_TEXT, INITIAL_SIZE, 0) != 0) {
    return SYS_XML_ERR_MEMORY;
  }
  Writer.p     = Writer.Buffer.pData;
  Writer.pEnd  = Writer.p + Writer.Buffer.AllocSize;
  Writer.Error = SYS_XML_OK;
  WriteElements(&Writer, pDoc->pRoot, 0);
  // Of a text that is too long the beginning is copied; without memory there is nothing to copy.
  int32_t Result = Writer.Error;
  if (Result != SYS_XML_ERR_MEMORY) {
    const uint32_t NumBytes = GetNumUsed(&Writer);
    memcpy(pBuffer, Writer.Buffer.pData, UTIL_MinU32(NumBytes, BufferSize));
    if (Result == SYS_XML_OK) {
      Result = NumBytes <= BufferSize ? (int32_t)NumBytes : SYS_XML_ERR_TOO_LONG;
    }
  }
  DynBufferFree(&Writer.Buffer);
  return Result;
}
