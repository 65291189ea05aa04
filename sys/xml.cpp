#include "sys/xml.h"

#include <string.h>

#include "sys/xml_node.h"
#include "util/string.h"

// ---- Making nodes -------------------------------------------------------------------------------

// The arena does not align. Everything taken from it here is a multiple of this, so everything lies
// on one.
static const uint32_t ALIGNMENT = alignof(XmlElement);
static_assert(sizeof(XmlElement) % ALIGNMENT == 0 && sizeof(XmlAttribute) % ALIGNMENT == 0 &&
                  sizeof(XmlDocument) % ALIGNMENT == 0 && sizeof(XmlArena) % ALIGNMENT == 0,
              "records must not push what follows them off its alignment");

static void* AllocCleared(XmlArena* pArena, uint32_t NumBytes) {
  void* pMem = SYS_XML_AllocFromArena(pArena, NumBytes);
  if (pMem != NULL) {
    memset(pMem, 0, NumBytes);
  }
  return pMem;
}

// What a text of Length characters and its terminator take.
static uint32_t GetTextRoom(uint32_t Length) {
  return (Length + 1 + ALIGNMENT - 1) & ~(ALIGNMENT - 1);
}

// NULL without memory and for a text whose length, rounded up, would not fit the document's signed
// 32-bit lengths.
static char* CopyText(XmlArena* pArena, const char* pText, uint32_t Length) {
  if (Length > INT32_MAX - ALIGNMENT) {
    return NULL;
  }
  char* sCopy = (char*)SYS_XML_AllocFromArena(pArena, GetTextRoom(Length));
  if (sCopy != NULL) {
    memcpy(sCopy, pText, Length);
    sCopy[Length] = 0;
  }
  return sCopy;
}

XmlDocument* SYS_XML_CreateEmptyDoc(void) {
  XmlArena* pArena = SYS_XML_CreateArena();
  if (pArena == NULL) {
    return NULL;
  }
  // The first piece of a new chunk: there is room.
  XmlDocument* pDoc = (XmlDocument*)AllocCleared(pArena, sizeof(XmlDocument));
  pDoc->pArena      = pArena;
  return pDoc;
}

XmlElement* SYS_XML_AddElement(XmlDocument* pDoc, XmlElement* pParent, XmlElement* pPrev,
                               const char* pName, uint32_t NameLen) {
  XmlElement* pElement = (XmlElement*)AllocCleared(pDoc->pArena, sizeof(XmlElement));
  char*       sName    = CopyText(pDoc->pArena, pName, NameLen);
  if (pElement == NULL || sName == NULL) {
    return NULL;
  }
  pElement->sName   = sName;
  pElement->NameLen = (int32_t)NameLen;
  pElement->pParent = pParent;
  pElement->pPrev   = pPrev;
  if (pPrev != NULL) {
    pPrev->pNext = pElement;
  } else if (pParent != NULL) {
    pParent->pFirstChild = pElement;
  }
  return pElement;
}

XmlAttribute* SYS_XML_AddAttr(XmlDocument* pDoc, XmlElement* pElement, XmlAttribute* pPrev,
                              const char* pName, uint32_t NameLen, const char* pValue,
                              uint32_t ValueLen) {
  XmlAttribute* pAttr  = (XmlAttribute*)AllocCleared(pDoc->pArena, sizeof(XmlAttribute));
  char*         sName  = CopyText(pDoc->pArena, pName, NameLen);
  char*         sValue = CopyText(pDoc->pArena, pValue, ValueLen);
  if (pAttr == NULL || sName == NULL || sValue == NULL) {
    return NULL;
  }
  pAttr->sName     = sName;
  pAttr->sValue    = sValue;
  pAttr->NameLen   = NameLen;
  pAttr->ValueLen  = ValueLen;
  pAttr->ValueRoom = GetTextRoom(ValueLen);
  pAttr->pPrev     = pPrev;
  if (pPrev != NULL) {
    pPrev->pNext = pAttr;
  } else {
    pElement->pFirstAttr = pAttr;
  }
  return pAttr;
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
    SYS_XML_FreeArena(pDoc->pArena);  // the document's own record goes with it
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

static int IsSameName(const char* pA, uint32_t LenA, const char* pB, uint32_t LenB) {
  return LenA == LenB && memcmp(pA, pB, LenA) == 0;
}

static XmlElement* FindLastSibling(XmlElement* pElement) {
  while (pElement != NULL && pElement->pNext != NULL) {
    pElement = pElement->pNext;
  }
  return pElement;
}

XmlElement* SYS_XML_FindChild(const XmlElement* pElement, const char* sName) {
  // No element has an empty name, so an empty one finds nothing by itself.
  const uint32_t NameLen = TextLength(sName);
  XmlElement*    pChild  = pElement->pFirstChild;
  while (pChild != NULL && !IsSameName(pChild->sName, (uint32_t)pChild->NameLen, sName, NameLen)) {
    pChild = pChild->pNext;
  }
  return pChild;
}

XmlElement* SYS_XML_FindOrAddChild(XmlDocument* pDoc, XmlElement* pElement, const char* sName) {
  const uint32_t NameLen = TextLength(sName);
  if (NameLen == 0) {
    return NULL;
  }
  XmlElement* pChild = SYS_XML_FindChild(pElement, sName);
  if (pChild == NULL) {
    pChild =
        SYS_XML_AddElement(pDoc, pElement, FindLastSibling(pElement->pFirstChild), sName, NameLen);
  }
  return pChild;
}

XmlElement* SYS_XML_AppendSibling(XmlDocument* pDoc, XmlElement* pElement, const char* sName) {
  const uint32_t NameLen = TextLength(sName);
  if (NameLen == 0) {
    return NULL;
  }
  return SYS_XML_AddElement(pDoc, pElement->pParent, FindLastSibling(pElement), sName, NameLen);
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
  XmlAttribute* pAttr = pElement->pFirstAttr;
  while (pAttr != NULL && !IsSameName(pAttr->sName, pAttr->NameLen, sName, NameLen)) {
    pAttr = pAttr->pNext;
  }
  return pAttr;
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
  XmlAttribute* pAttr = SYS_XML_FindAttr(pElement, sName);
  if (pAttr == NULL) {
    XmlAttribute* pLast = pElement->pFirstAttr;
    while (pLast != NULL && pLast->pNext != NULL) {
      pLast = pLast->pNext;
    }
    pAttr = SYS_XML_AddAttr(pDoc, pElement, pLast, sName, NameLen, sValue, ValueLen);
    return pAttr == NULL ? SYS_XML_ERR_MEMORY : SYS_XML_OK;
  }
  if (ValueLen < pAttr->ValueRoom) {
    memmove(pAttr->sValue, sValue, ValueLen);  // may be part of itself
    pAttr->sValue[ValueLen] = 0;
  } else {
    char* sCopy = CopyText(pDoc->pArena, sValue, ValueLen);
    if (sCopy == NULL) {
      return SYS_XML_ERR_MEMORY;
    }
    pAttr->sValue    = sCopy;
    pAttr->ValueRoom = GetTextRoom(ValueLen);
  }
  pAttr->ValueLen = ValueLen;
  return SYS_XML_OK;
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
}

int32_t SYS_XML_RemoveAttr(XmlElement* pElement, const char* sName) {
  if (pElement == NULL) {
    return SYS_XML_ERR_ARGUMENT;
  }
  XmlAttribute* pAttr = SYS_XML_FindAttr(pElement, sName);
  if (pAttr == NULL) {
    return SYS_XML_NOT_FOUND;
  }
  SYS_XML_UnlinkAttr(pElement, pAttr);
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

int32_t SYS_XML_IsNameChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '!' || c == '-';
}

int32_t SYS_XML_IsComment(const char* s) {
  return strncmp(s, "!--", 3) == 0;
}

int32_t SYS_XML_IsDocType(const char* s) {
  return strncmp(s, "!DOC", 4) == 0;
}

void SYS_XML_SanitizeName(char* sName) {
  if (sName[0] == '-') {
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

int32_t SYS_XML_IsElementName(const char* sName) {
  return SYS_XML_IsAttrName(sName) && !SYS_XML_IsComment(sName) && !SYS_XML_IsDocType(sName);
}
