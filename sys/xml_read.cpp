// The loader: one recursive call for each level of elements.

#include <stdio.h>
#include <string.h>

#include "sys/files.h"
#include "sys/memory.h"
#include "sys/xml.h"
#include "sys/xml_node.h"

namespace {

struct READER {
  const char*  s;  // what comes next
  XmlDocument* pDoc;
};

}  // namespace

// Sixteen times what the writer gives out. A document takes a multiple of its text in memory.
static const int64_t MAX_FILE_SIZE = 16 * 1024 * 1024;

static int32_t ReadLevel(READER* pReader, XmlElement* pParent, uint32_t Level);

// Moves on by NumChars characters.
static void Skip(READER* pReader, size_t NumChars) {
  for (const char* pEnd = pReader->s + NumChars; pReader->s < pEnd; pReader->s++) {
    if (*pReader->s == '\n') {
      pReader->pDoc->NumLines++;
    }
  }
}

static void SkipWhite(READER* pReader) {
  Skip(pReader, strspn(pReader->s, " \t\r\n"));
}

// Moves behind the next sEnd, or to the end of the text.
static void SkipBehind(READER* pReader, const char* sEnd) {
  const char* pEnd = strstr(pReader->s, sEnd);
  Skip(pReader, pEnd == NULL ? strlen(pReader->s) : (size_t)(pEnd - pReader->s) + strlen(sEnd));
}

static int Eat(READER* pReader, char c) {
  if (*pReader->s != c) {
    return 0;
  }
  pReader->s++;
  return 1;
}

// Moves behind the name that comes next and returns its length, 0 when there is none.
static uint32_t ReadName(READER* pReader) {
  const char* pName = pReader->s;
  while (SYS_XML_IsNameChar(*pReader->s)) {
    pReader->s++;
  }
  return (uint32_t)(pReader->s - pName);
}

static int32_t ReadAttr(READER* pReader, XmlElement* pElement, XmlAttribute** ppLast) {
  const char*    pName   = pReader->s;
  const uint32_t NameLen = ReadName(pReader);
  SkipWhite(pReader);
  if (NameLen == 0 || !Eat(pReader, '=')) {
    return SYS_XML_ERR_ATTR;
  }
  SkipWhite(pReader);
  if (!Eat(pReader, '"')) {
    return SYS_XML_ERR_ATTR;
  }
  const char* pValue = pReader->s;
  const char* pEnd   = strchr(pValue, '"');
  if (pEnd == NULL) {
    return SYS_XML_ERR_ATTR;
  }
  // The last attribute is kept here: looking for it would make a long list take its length squared.
  *ppLast = SYS_XML_AddAttr(pReader->pDoc, pElement, *ppLast, pName, NameLen, pValue,
                            (uint32_t)(pEnd - pValue));
  if (*ppLast == NULL) {
    return SYS_XML_ERR_MEMORY;
  }
  Skip(pReader, (size_t)(pEnd - pValue) + 1);
  return 0;
}

// From the name of the element pElement on to the end of the element.
static int32_t ReadElement(READER* pReader, XmlElement* pElement, uint32_t Level) {
  XmlAttribute* pLast = NULL;
  for (;;) {
    SkipWhite(pReader);
    if (Eat(pReader, '/')) {
      return Eat(pReader, '>') ? 0 : SYS_XML_ERR_TAG;
    }
    if (Eat(pReader, '>')) {
      return ReadLevel(pReader, pElement, Level + 1);
    }
    const int32_t Result = ReadAttr(pReader, pElement, &pLast);
    if (Result < 0) {
      return Result;
    }
  }
}

static int32_t ReadEndTag(READER* pReader, const XmlElement* pParent) {
  const char*    pName   = pReader->s;
  const uint32_t NameLen = ReadName(pReader);
  SkipWhite(pReader);
  if (pParent == NULL || NameLen != (uint32_t)pParent->NameLen ||
      memcmp(pName, pParent->sName, NameLen) != 0 || !Eat(pReader, '>')) {
    return SYS_XML_ERR_END_TAG;
  }
  return 0;
}

// Non-zero for the end of the text and for the control characters that count as such.
static int IsEnd(char c) {
  return c == 0 || (c >= 0x0B && c <= 0x1F);
}

// The elements inside pParent, or at the top when that is NULL.
static int32_t ReadLevel(READER* pReader, XmlElement* pParent, uint32_t Level) {
  if (Level > SYS_XML_MAX_DEPTH) {
    return SYS_XML_ERR_DEPTH;
  }
  XmlElement* pLast = NULL;
  for (;;) {
    SkipWhite(pReader);
    if (IsEnd(*pReader->s)) {
      return 0;
    }
    if (!Eat(pReader, '<')) {
      return SYS_XML_ERR_TEXT;
    }
    if (SYS_XML_IsComment(pReader->s)) {
      Skip(pReader, 3);
      SkipBehind(pReader, "-->");
      continue;
    }
    if (SYS_XML_IsDocType(pReader->s)) {
      SkipBehind(pReader, ">");
      continue;
    }
    if (Eat(pReader, '/')) {
      return ReadEndTag(pReader, pParent);
    }
    const char*    pName   = pReader->s;
    const uint32_t NameLen = ReadName(pReader);
    if (NameLen == 0) {
      return SYS_XML_ERR_TAG;
    }
    XmlElement* pElement = SYS_XML_AddElement(pReader->pDoc, pParent, pLast, pName, NameLen);
    if (pElement == NULL) {
      return SYS_XML_ERR_MEMORY;
    }
    if (pParent == NULL) {
      pReader->pDoc->pRoot = pElement;
    } else {
      pLast = pElement;
    }
    const int32_t Result = ReadElement(pReader, pElement, Level);
    if (Result < 0) {
      return Result;
    }
  }
}

static void StoreError(int32_t* pError, int32_t Error) {
  if (pError != NULL) {
    *pError = Error;
  }
}

XmlDocument* SYS_XML_ParseDoc(const char* sText, int32_t* pError) {
  READER Reader = {sText, SYS_XML_CreateEmptyDoc()};
  if (Reader.pDoc == NULL) {
    StoreError(pError, SYS_XML_ERR_MEMORY);
    return NULL;
  }
  int32_t Result = ReadLevel(&Reader, NULL, 0);
  if (Result == 0 && Reader.pDoc->pRoot == NULL) {
    Result = SYS_XML_ERR_NO_ROOT;
  }
  StoreError(pError, Result);
  if (Result < 0) {
    SYS_XML_FreeDoc(Reader.pDoc);
    return NULL;
  }
  return Reader.pDoc;
}

// Fills NumBytes bytes at pBuffer from byte 0 of the file on. 0, or -1 when fewer can be read.
static int32_t ReadWhole(int32_t hFile, char* pBuffer, uint32_t NumBytes) {
  if (SYS_FILE_Seek(hFile, 0, SEEK_SET) != 0) {
    return -1;
  }
  while (NumBytes > 0) {
    const int32_t NumRead = SYS_FILE_Read(hFile, pBuffer, NumBytes);
    if (NumRead <= 0) {
      return -1;
    }
    pBuffer += NumRead;
    NumBytes -= (uint32_t)NumRead;
  }
  return 0;
}

static XmlDocument* LoadOpenFile(int32_t hFile, int32_t* pError) {
  const int64_t Size = SYS_FILE_Seek(hFile, 0, SEEK_END);
  if (Size < 0 || Size > MAX_FILE_SIZE) {
    StoreError(pError, SYS_XML_ERR_FILE);
    return NULL;
  }
  char* pText = (char*)SYS_MEM_Alloc((uint32_t)Size + 1);
  if (pText == NULL) {
    StoreError(pError, SYS_XML_ERR_MEMORY);
    return NULL;
  }
  XmlDocument* pDoc = NULL;
  if (ReadWhole(hFile, pText, (uint32_t)Size) == 0) {
    pText[Size] = 0;
    pDoc        = SYS_XML_ParseDoc(pText, pError);
  } else {
    StoreError(pError, SYS_XML_ERR_FILE);
  }
  SYS_MEM_Free(pText);
  return pDoc;
}

XmlDocument* SYS_XML_LoadDoc(const char* sPath, int32_t* pError) {
  const int32_t hFile = SYS_FILE_OpenRegular(sPath, SYS_FILE_READ, 0, 0);
  if (hFile < 0) {
    StoreError(pError, SYS_XML_ERR_FILE);
    return NULL;
  }
  XmlDocument* pDoc = LoadOpenFile(hFile, pError);
  SYS_FILE_Close(hFile);
  return pDoc;
}
