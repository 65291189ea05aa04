// The writer: the text is built in a DYNBUFFER and copied out.

#include <string.h>

#include "sys/dynbuffer.h"
#include "sys/xml.h"

namespace {

struct WRITER {
  DYNBUFFER Buffer;
  int32_t   Error;  // the first one; nothing is written behind it
};

}  // namespace

static const uint32_t INITIAL_SIZE = 4096;

static uint32_t NumBytesInUse(const DYNBUFFER* pBuffer) {
  return pBuffer->Written != 0 ? pBuffer->HighestIndex + 1 : 0;
}

static void Write(WRITER* pWriter, const char* pText, uint32_t NumBytes) {
  if (pWriter->Error != 0) {
    return;
  }
  const uint32_t Room = SYS_XML_MAX_TEXT - NumBytesInUse(&pWriter->Buffer);
  if (NumBytes > Room) {
    pWriter->Error = SYS_XML_ERR_TOO_LONG;
    NumBytes       = Room;
  }
  if (DynBufferAppend(&pWriter->Buffer, pText, NumBytes) == DYNBUFFER_ERR_MEMORY) {
    pWriter->Error = SYS_XML_ERR_MEMORY;
  }
}

static void WriteString(WRITER* pWriter, const char* s) {
  Write(pWriter, s, (uint32_t)strlen(s));
}

static void WriteIndentation(WRITER* pWriter, uint32_t Depth) {
  while (Depth > 0) {
    WriteString(pWriter, "  ");
    Depth--;
  }
}

// One call for each level. It ends with the first error: indented as they are, a thousand levels do
// not fit the text, so nobody's nesting can use up the stack.
static void WriteElements(WRITER* pWriter, const XmlElement* pElement, uint32_t Depth) {
  for (; pElement != NULL && pWriter->Error == 0; pElement = pElement->pNext) {
    WriteIndentation(pWriter, Depth);
    WriteString(pWriter, "<");
    Write(pWriter, pElement->sName, (uint32_t)pElement->NameLen);
    for (const XmlAttribute* pAttr = pElement->pFirstAttr; pAttr != NULL; pAttr = pAttr->pNext) {
      WriteString(pWriter, " ");
      Write(pWriter, pAttr->sName, pAttr->NameLen);
      WriteString(pWriter, "=\"");
      Write(pWriter, pAttr->sValue, pAttr->ValueLen);
      WriteString(pWriter, "\"");
    }
    if (pElement->pFirstChild == NULL) {
      WriteString(pWriter, "/>\r\n");
      continue;
    }
    WriteString(pWriter, ">\r\n");
    WriteElements(pWriter, pElement->pFirstChild, Depth + 1);
    WriteIndentation(pWriter, Depth);
    WriteString(pWriter, "</");
    Write(pWriter, pElement->sName, (uint32_t)pElement->NameLen);
    WriteString(pWriter, ">\r\n");
  }
}

int32_t SYS_XML_StoreDoc(const XmlDocument* pDoc, char* pBuffer, uint32_t BufferSize) {
  WRITER Writer;
  if (pDoc == NULL || pBuffer == NULL) {
    return SYS_XML_ERR_ARGUMENT;
  }
  Writer.Error = 0;
  if (DynBufferCreate(&Writer.Buffer, NULL, SYS_XML_MAX_TEXT, INITIAL_SIZE, 0) != 0) {
    return SYS_XML_ERR_MEMORY;
  }
  WriteElements(&Writer, pDoc->pRoot, 0);
  int32_t Result = Writer.Error;
  if (Result != SYS_XML_ERR_MEMORY) {
    const uint32_t NumBytes = NumBytesInUse(&Writer.Buffer);
    memcpy(pBuffer, Writer.Buffer.pData, NumBytes < BufferSize ? NumBytes : BufferSize);
    if (Result == 0) {
      Result = NumBytes <= BufferSize ? (int32_t)NumBytes : SYS_XML_ERR_TOO_LONG;
    }
  }
  DynBufferFree(&Writer.Buffer);
  return Result;
}
