// SPDX-License-Identifier: MIT

// Nodes and their texts are pieces of the document's arena: freeing a document frees a few chunks.
// Elements are never freed one by one; attributes are, as a store changes its values all the time.

#include "sys/xml.h"

#include <string.h>

#include "sys/xml_index.h"
#include "sys/xml_node.h"
#include "util/string.h"

// ---- Making nodes -------------------------------------------------------------------------------

// The arena does not align. Every piece taken from it has a size that is a multiple of this, so
// every piece is aligned for any record.
static const uint32_t ALIGNMENT = alignof(XmlElement);
static_assert(sizeof(XmlElement) % ALIGNMENT == 0 && sizeof(XmlAttribute) % ALIGNMENT == 0 &&
                  sizeof(XmlDocument) % ALIGNMENT == 0 && sizeof(XmlArena) % ALIGNMENT == 0,
              "records must not push what follows them off its alignment");

// The documents' lengths are signed 32 bit, and rounding up must not exceed them.
static const uint32_t MAX_TEXT_LENGTH = INT32_MAX - ALIGNMENT;

static uint32_t RoundUp(uint32_t NumBytes) {
  return (NumBytes + ALIGNMENT - 1) & ~(ALIGNMENT - 1);
}

// Copies Length characters and terminates.
static void CopyText(char* sCopy, const char* pText, uint32_t Length) {
  memcpy(sCopy, pText, Length);
  sCopy[Length] = 0;
}

XmlDocument* SYS_XML_CreateEmptyDoc(void) {
  XmlArena* pArena = SYS_XML_CreateArena();
  if (pArena == NULL) {
    return NULL;
  }
  // The first piece of a new chunk: there is room.
  XmlDocument* pDoc = (XmlDocument*)SYS_XML_AllocFromArena(pArena, sizeof(XmlDocument));
  memset(pDoc, 0, sizeof(*pDoc));
  pDoc->pArena = pArena;
  return pDoc;
}

XmlElement* SYS_XML_AddElement(XmlDocument* pDoc, XmlElement* pParent, XmlElement* pPrev,
                               const char* pName, uint32_t NameLen) {
  if (NameLen > MAX_TEXT_LENGTH) {
    return NULL;
  }
  // One piece for the record and the name, which is at most 2 GiB.
  const uint32_t NumBytes = RoundUp((uint32_t)sizeof(XmlElement) + NameLen + 1);
  XmlElement*    pElement = (XmlElement*)SYS_XML_AllocFromArena(pDoc->pArena, NumBytes);
  if (pElement == NULL) {
    return NULL;
  }
  char* sName = (char*)(pElement + 1);
  CopyText(sName, pName, NameLen);
  SYS_XML_LinkElement(pElement, pParent, pPrev, sName, NameLen);
  if (pParent != NULL) {
    SYS_XML_IndexNewChild(pDoc, pParent, pElement);
  }
  return pElement;
}

// ---- Making attributes --------------------------------------------------------------------------

// Attributes and long values are in pieces of 64, 96, 128, 192, 256, ... bytes. A piece that is no
// longer used begins a chain of its class, and the next attribute or value of that class takes it
// from there: a store that is changed again and again takes no more memory than it once needed.

static const uint32_t LARGEST_PIECE = 48u << 26;  // 3 GiB, class 52: the next one has 33 bits

// Classes 1, 2, 3, 4, ... are 64, 96, 128, 192, ... bytes; class 0 stands for no piece.
static uint32_t GetPieceSize(uint32_t Class) {
  return (Class % 2 != 0 ? 64u : 48u) << (Class / 2);
}

// Returns the smallest class that has room for NumBytes bytes, at most LARGEST_PIECE.
static uint32_t GetPieceClass(uint32_t NumBytes) {
  if (NumBytes <= GetPieceSize(1)) {
    return 1;
  }
  // Two classes for each power of 2; the bit below the highest one chooses. NumBytes - 1, so that a
  // piece of exactly a class's size belongs to that class.
  const uint32_t Power = 31 - (uint32_t)__builtin_clz(NumBytes - 1);  // 6 or more
  return 2 * (Power - 5) + ((NumBytes - 1) >> (Power - 1) & 1);
}

// Takes a piece of at least NumBytes bytes. Stores its class at *pClass.
static void* AllocPiece(XmlDocument* pDoc, uint64_t NumBytes, uint16_t* pClass) {
  if (NumBytes > LARGEST_PIECE) {
    return NULL;
  }
  // A piece that was freed before, if the class has one.
  const uint32_t Class = GetPieceClass((uint32_t)NumBytes);
  void*          pMem  = pDoc->apFree[Class];
  *pClass              = (uint16_t)Class;
  if (pMem == NULL) {
    return SYS_XML_AllocFromArena(pDoc->pArena, GetPieceSize(Class));
  }
  memcpy(&pDoc->apFree[Class], pMem, sizeof(pMem));  // the next one of the chain
  return pMem;
}

// Puts a piece at the beginning of its class's chain: its first bytes hold the address of the next
// one. By memcpy(), because the memory held something of another type.
static void FreePiece(XmlDocument* pDoc, void* pMem, uint32_t Class) {
  if (Class != 0) {
    memcpy(pMem, &pDoc->apFree[Class], sizeof(pMem));
    pDoc->apFree[Class] = pMem;
  }
}

XmlAttribute* SYS_XML_AddAttr(XmlDocument* pDoc, XmlElement* pElement, const char* pName,
                              uint32_t NameLen, const char* pValue, uint32_t ValueLen) {
  uint16_t Class;
  if (NameLen > MAX_TEXT_LENGTH || ValueLen > MAX_TEXT_LENGTH) {
    return NULL;
  }
  // One piece for the record and both texts. The value gets all the room that is left.
  const uint64_t NumBytes = sizeof(XmlAttribute) + (uint64_t)NameLen + 1 + ValueLen + 1;
  XmlAttribute*  pAttr    = (XmlAttribute*)AllocPiece(pDoc, NumBytes, &Class);
  if (pAttr == NULL) {
    return NULL;
  }
  pAttr->sName      = (char*)(pAttr + 1);
  pAttr->sValue     = pAttr->sName + NameLen + 1;
  pAttr->NameLen    = NameLen;
  pAttr->ValueLen   = ValueLen;
  pAttr->ValueRoom  = GetPieceSize(Class) - (uint32_t)sizeof(XmlAttribute) - NameLen - 1;
  pAttr->PieceClass = Class;
  pAttr->ValueClass = 0;
  CopyText(pAttr->sName, pName, NameLen);
  CopyText(pAttr->sValue, pValue, ValueLen);
  // Linked first, as sys/xml_index.h asks for.
  SYS_XML_LinkAttr(pAttr, pElement, SYS_XML_GetLastAttr(pDoc, pElement));
  SYS_XML_IndexNewAttr(pDoc, pElement, pAttr);
  return pAttr;
}

void SYS_XML_DropAttr(XmlDocument* pDoc, XmlElement* pElement, XmlAttribute* pAttr) {
  // The index still needs the name, so the memory goes last. Classes of 0 (a value inside its
  // record, a record that the loader made) free nothing.
  SYS_XML_UnlinkAttr(pElement, pAttr);
  FreePiece(pDoc, pAttr->sValue, pAttr->ValueClass);
  FreePiece(pDoc, pAttr, pAttr->PieceClass);
}

// Gives an attribute another value.
static int32_t ReplaceValue(XmlDocument* pDoc, XmlAttribute* pAttr, const char* pValue,
                            uint32_t ValueLen) {
  if (ValueLen < pAttr->ValueRoom) {
    memmove(pAttr->sValue, pValue, ValueLen);  // the new value may be part of the old one
    pAttr->sValue[ValueLen] = 0;
    pAttr->ValueLen         = ValueLen;
    return SYS_XML_OK;
  }
  uint16_t Class;
  if (ValueLen > MAX_TEXT_LENGTH) {  // coverage: no test has 2 GiB
    return SYS_XML_ERR_MEMORY;       // coverage: no test has 2 GiB
  }
  char* sCopy = (char*)AllocPiece(pDoc, (uint64_t)ValueLen + 1, &Class);
  if (sCopy == NULL) {
    return SYS_XML_ERR_MEMORY;
  }
  CopyText(sCopy, pValue, ValueLen);  // before the old value goes: the new one may be part of it
  FreePiece(pDoc, pAttr->sValue, pAttr->ValueClass);
  pAttr->sValue     = sCopy;
  pAttr->ValueLen   = ValueLen;
  pAttr->ValueRoom  = GetPieceSize(Class);
  pAttr->ValueClass = Class;
  return SYS_XML_OK;
}

// ---- Documents and walking ----------------------------------------------------------------------

// Saturates, so that a text of 4 GiB is refused and not cut.
static uint32_t TextLength(const char* s) {
  const size_t Length = s == NULL ? 0 : strlen(s);
  return Length > UINT32_MAX ? UINT32_MAX : (uint32_t)Length;  // coverage: no test has 4 GiB
}

XmlDocument* SYS_XML_CreateDoc(const char* sRootName) {
  const uint32_t NameLen = TextLength(sRootName);
  XmlDocument*   pDoc    = NameLen == 0 ? NULL : SYS_XML_CreateEmptyDoc();
  if (pDoc == NULL) {
    return NULL;
  }
  pDoc->pRoot = SYS_XML_AddElement(pDoc, NULL, NULL, sRootName, NameLen);
  if (pDoc->pRoot == NULL) {
    SYS_XML_FreeDoc(pDoc);
    return NULL;
  }
  return pDoc;
}

void SYS_XML_FreeDoc(XmlDocument* pDoc) {
  if (pDoc != NULL) {
    SYS_XML_FreeArena(pDoc->pArena);  // the document's own record is in it
  }
}

XmlElement* SYS_XML_GetRoot(const XmlDocument* pDoc) {
  return pDoc == NULL ? NULL : pDoc->pRoot;
}

XmlElement* SYS_XML_GetFirstChild(const XmlElement* pElement) {
  return pElement == NULL ? NULL : pElement->pFirstChild;
}

XmlElement* SYS_XML_GetNextSibling(const XmlElement* pElement) {
  return pElement == NULL ? NULL : pElement->pNext;
}

XmlAttribute* SYS_XML_GetFirstAttr(const XmlElement* pElement, char* pName, uint32_t NameSize) {
  XmlAttribute* pAttr = pElement == NULL ? NULL : pElement->pFirstAttr;
  if (pAttr != NULL) {
    UTIL_CopyString(pName, pAttr->sName, NameSize);
  }
  return pAttr;
}

XmlAttribute* SYS_XML_GetNextAttr(const XmlAttribute* pAttr) {
  return pAttr == NULL ? NULL : pAttr->pNext;
}

uint32_t SYS_XML_GetDepth(const XmlElement* pElement) {
  uint32_t Depth = 0;
  while (pElement->pParent != NULL) {
    pElement = pElement->pParent;
    Depth++;
  }
  return Depth;
}

// ---- Elements -----------------------------------------------------------------------------------

XmlElement* SYS_XML_FindChild(const XmlElement* pElement, const char* sName) {
  // No element has an empty name, so an empty one is not found.
  return SYS_XML_LookUpChild(NULL, pElement, sName, TextLength(sName));
}

XmlElement* SYS_XML_FindOrAddChild(XmlDocument* pDoc, XmlElement* pElement, const char* sName) {
  const uint32_t NameLen = TextLength(sName);
  if (NameLen == 0) {
    return NULL;
  }
  XmlElement* pChild = SYS_XML_LookUpChild(pDoc, pElement, sName, NameLen);
  if (pChild == NULL) {
    pChild =
        SYS_XML_AddElement(pDoc, pElement, SYS_XML_GetLastChild(pDoc, pElement), sName, NameLen);
  }
  return pChild;
}

XmlElement* SYS_XML_AppendSibling(XmlDocument* pDoc, XmlElement* pElement, const char* sName) {
  const uint32_t NameLen = TextLength(sName);
  if (NameLen == 0) {
    return NULL;
  }
  // The root has no parent that could know its last child; its siblings are walked.
  XmlElement* pLast = pElement;
  if (pElement->pParent != NULL) {
    pLast = SYS_XML_GetLastChild(pDoc, pElement->pParent);
  }
  while (pLast->pNext != NULL) {
    pLast = pLast->pNext;
  }
  return SYS_XML_AddElement(pDoc, pElement->pParent, pLast, sName, NameLen);
}

int32_t SYS_XML_CopyElementName(const XmlElement* pElement, char* pBuffer, uint32_t BufferSize) {
  if (pElement == NULL) {
    return SYS_XML_ERR_ARGUMENT;
  }
  UTIL_CopyString(pBuffer, pElement->sName, BufferSize);
  return pElement->NameLen;
}

// ---- Attributes ---------------------------------------------------------------------------------

XmlAttribute* SYS_XML_FindAttr(const XmlElement* pElement, const char* sName) {
  const uint32_t NameLen = TextLength(sName);
  if (pElement == NULL || NameLen == 0) {
    return NULL;
  }
  return SYS_XML_LookUpAttr(NULL, pElement, sName, NameLen);
}

int32_t SYS_XML_SetAttr(XmlDocument* pDoc, XmlElement* pElement, const char* sName,
                        const char* sValue) {
  const uint32_t NameLen  = TextLength(sName);
  const uint32_t ValueLen = TextLength(sValue);
  if (pDoc == NULL || pElement == NULL || NameLen == 0) {
    return SYS_XML_ERR_ARGUMENT;
  }
  if (sValue == NULL) {
    sValue = "";
  }
  XmlAttribute* pAttr = SYS_XML_LookUpAttr(pDoc, pElement, sName, NameLen);
  if (pAttr != NULL) {  // it keeps its place among the attributes
    return ReplaceValue(pDoc, pAttr, sValue, ValueLen);
  }
  pAttr = SYS_XML_AddAttr(pDoc, pElement, sName, NameLen, sValue, ValueLen);
  return pAttr == NULL ? SYS_XML_ERR_MEMORY : SYS_XML_OK;
}

void SYS_XML_UnlinkAttr(XmlElement* pElement, XmlAttribute* pAttr) {
  if (pAttr->pPrev != NULL) {
    pAttr->pPrev->pNext = pAttr->pNext;
  } else {
    pElement->pFirstAttr = pAttr->pNext;
  }
  if (pAttr->pNext != NULL) {
    pAttr->pNext->pPrev = pAttr->pPrev;
  }
  // The attribute keeps its own links, which the index still follows.
  SYS_XML_IndexUnlinkedAttr(pElement, pAttr);
}

int32_t SYS_XML_RemoveAttr(XmlElement* pElement, const char* sName) {
  if (pElement == NULL) {
    return SYS_XML_ERR_ARGUMENT;
  }
  XmlAttribute* pAttr = SYS_XML_FindAttr(pElement, sName);
  if (pAttr == NULL) {
    return SYS_XML_NOT_FOUND;
  }
  SYS_XML_UnlinkAttr(pElement, pAttr);  // without the document its memory cannot be used again
  return SYS_XML_OK;
}

int32_t SYS_XML_CopyAttrValue(const XmlAttribute* pAttr, char* pBuffer, uint32_t BufferSize) {
  if (pAttr == NULL) {
    return SYS_XML_ERR_ARGUMENT;
  }
  UTIL_CopyString(pBuffer, pAttr->sValue, BufferSize);
  return (int32_t)pAttr->ValueLen;
}

// ---- Names --------------------------------------------------------------------------------------

// 32 characters in a row. The second row has '!', '-' and the digits, the third one upper case and
// '_', the fourth one lower case.
const uint8_t SYS_XML_aIsNameChar[256] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0,
    0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 1,
    0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
};

int32_t SYS_XML_IsComment(const char* s) {
  return strncmp(s, "!--", 3) == 0;
}

int32_t SYS_XML_IsDocType(const char* s) {
  return strncmp(s, "!DOC", 4) == 0;
}

void SYS_XML_SanitizeName(char* sName) {
  if (sName[0] == '-') {  // allowed elsewhere in a name
    sName[0] = '_';
  }
  for (char* s = sName; *s != 0; s++) {
    if (!SYS_XML_IsNameChar(*s)) {
      *s = '_';
    }
  }
}

int32_t SYS_XML_IsAttrName(const char* sName) {
  const char* s = sName;
  while (SYS_XML_IsNameChar(*s)) {
    s++;
  }
  return *s == 0 && s != sName;
}

// After "<" two beginnings mean something else to the loader.
int32_t SYS_XML_IsElementName(const char* sName) {
  return SYS_XML_IsAttrName(sName) && !SYS_XML_IsComment(sName) && !SYS_XML_IsDocType(sName);
}
