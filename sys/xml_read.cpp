// SPDX-License-Identifier: MIT

// The loader: one recursive call for each level of elements.
//
// It works in a copy of the text that belongs to the document. Names and values are not copied
// again: the character after each, which has been read by then, is replaced by a terminator.

#include <stdio.h>
#include <string.h>

#include "sys/files.h"
#include "sys/xml.h"
#include "sys/xml_node.h"
#include "sys/xml_scan.h"

namespace {

struct READER {
  XmlDocument* pDoc;
  char*        pEnd;   // of the text: its terminator
  int32_t      Error;  // SYS_XML_OK until something is wrong
  XmlQuotes    Quotes;
  int32_t      HasQuotes;  // Quotes goes on at the next quote

  // Records of attributes are taken from the arena in batches.
  XmlAttribute* pNextAttr;
  XmlAttribute* pEndOfAttrs;
};

}  // namespace

static const uint32_t ATTRS_IN_BATCH = 64;

// Sixteen times what the writer makes. A document takes a multiple of its text in memory.
static const int64_t MAX_FILE_SIZE = 16 * 1024 * 1024;

// The functions below that read take the place of the next character and return the place after
// what they have read, or NULL after an error.

static char* ReadLevel(READER* pReader, char* s, XmlElement* pParent, uint32_t Level);

// Stores the reason; every caller hands the NULL on.
static char* Fail(READER* pReader, int32_t Error) {
  pReader->Error = Error;
  return NULL;
}

// ---- Tags ---------------------------------------------------------------------------------------

static char* SkipWhite(char* s) {
  while (*s == ' ' || *s == '\n' || *s == '\r' || *s == '\t') {
    s++;
  }
  return s;
}

// Moves after the name.
static char* SkipName(char* s) {
  while (SYS_XML_IsNameChar(*s)) {
    s++;
  }
  return s;
}

// Moves after the next sEnd, or to the end of the text.
static char* SkipPast(READER* pReader, char* s, const char* sEnd) {
  char* pFound       = strstr(s, sEnd);
  pReader->HasQuotes = 0;  // those that are skipped do not count
  return pFound != NULL ? pFound + strlen(sEnd) : pReader->pEnd;
}

// Takes memory for the next attributes. Returns 0, or -1 when there is no memory.
static int32_t TakeBatch(READER* pReader) {
  const uint32_t NumBytes = ATTRS_IN_BATCH * sizeof(XmlAttribute);
  XmlAttribute*  paAttr   = (XmlAttribute*)SYS_XML_AllocFromArena(pReader->pDoc->pArena, NumBytes);
  if (paAttr == NULL) {
    return -1;
  }
  pReader->pNextAttr   = paAttr;
  pReader->pEndOfAttrs = paAttr + ATTRS_IN_BATCH;
  return 0;
}

// Fills in a record and links it after pLast. The texts are ended: the characters after them have
// been read.
static inline void FillAttr(XmlAttribute* pAttr, XmlElement* pElement, XmlAttribute* pLast,
                            char* sName, char* pNameEnd, char* sValue, char* pValueEnd) {
  *pNameEnd         = 0;
  *pValueEnd        = 0;
  pAttr->sName      = sName;
  pAttr->sValue     = sValue;
  pAttr->NameLen    = (uint32_t)(pNameEnd - sName);
  pAttr->ValueLen   = (uint32_t)(pValueEnd - sValue);
  pAttr->ValueRoom  = pAttr->ValueLen + 1;
  pAttr->PieceClass = 0;
  pAttr->ValueClass = 0;
  SYS_XML_LinkAttr(pAttr, pElement, pLast);
}

// Reads attributes as long as each is one space, name="value": most of any file that the writer
// made. The quotes have been found beforehand, for 64 characters together, so that no attribute
// waits for the search for the end of the one before it. Stops before anything else, and when the
// batch of records is used up.
static char* ReadUsualAttrs(READER* pReader, char* s, XmlElement* pElement, XmlAttribute** ppLast) {
  if (*s != ' ') {
    return s;
  }
  if (!pReader->HasQuotes) {
    SYS_XML_StartQuotes(&pReader->Quotes, s);
  }
  // Copies, because the compiler must take each terminator for a change of the reader.
  XmlQuotes           Quotes = pReader->Quotes;
  XmlAttribute*       pAttr  = pReader->pNextAttr;
  XmlAttribute* const pEnd   = pReader->pEndOfAttrs;
  XmlAttribute*       pLast  = *ppLast;
  pReader->HasQuotes         = 1;
  // Where no name begins, the next quote is not looked for: it may be far away. Where one does,
  // this attribute takes that quote, here or in ReadAttr, which starts the search again, or the
  // text is wrong.
  while (*s == ' ' && SYS_XML_IsNameChar(s[1]) && pAttr != pEnd) {
    char* const sName    = s + 1;
    char* const pOpening = SYS_XML_NextQuote(&Quotes);
    char* const pNameEnd = pOpening - 1;
    if (*pNameEnd != '=' || !SYS_XML_IsName(sName, (uint64_t)(pNameEnd - sName))) {
      break;
    }
    char* const pClosing = SYS_XML_NextQuote(&Quotes);
    if (pClosing >= pReader->pEnd) {
      break;
    }
    FillAttr(pAttr, pElement, pLast, sName, pNameEnd, pOpening + 1, pClosing);
    pLast = pAttr++;
    s     = pClosing + 1;
  }
  pReader->Quotes    = Quotes;
  pReader->pNextAttr = pAttr;
  *ppLast            = pLast;
  return s;
}

// Reads any attribute: also one with white space around its "=", or without a record left for it.
static char* ReadAttr(READER* pReader, char* sName, XmlElement* pElement, XmlAttribute** ppLast) {
  char* const pNameEnd = SkipName(sName);
  char*       s        = SkipWhite(pNameEnd);
  if (pNameEnd == sName || *s != '=') {
    return Fail(pReader, SYS_XML_ERR_ATTR);
  }
  s = SkipWhite(s + 1);
  if (*s != '"') {
    return Fail(pReader, SYS_XML_ERR_ATTR);
  }
  char* const sValue    = s + 1;
  char* const pValueEnd = strchr(sValue, '"');
  if (pValueEnd == NULL) {
    return Fail(pReader, SYS_XML_ERR_ATTR);
  }
  if (pReader->pNextAttr == pReader->pEndOfAttrs && TakeBatch(pReader) != 0) {
    return Fail(pReader, SYS_XML_ERR_MEMORY);
  }
  XmlAttribute* pAttr = pReader->pNextAttr++;
  FillAttr(pAttr, pElement, *ppLast, sName, pNameEnd, sValue, pValueEnd);
  *ppLast            = pAttr;
  pReader->HasQuotes = 0;
  return pValueEnd + 1;
}

// Reads from after the element's name to the end of the element.
static char* ReadElement(READER* pReader, char* s, XmlElement* pElement, uint32_t Level) {
  char* const   pNameEnd = s;
  XmlAttribute* pLast    = NULL;
  for (;;) {
    s = SkipWhite(ReadUsualAttrs(pReader, s, pElement, &pLast));
    if (*s == '>' || *s == '/') {
      break;
    }
    s = ReadAttr(pReader, s, pElement, &pLast);
    if (s == NULL) {
      return NULL;
    }
  }
  // The name is ended only now. The character after it may be the one at s, as in "<x/>".
  const int IsEmpty = *s == '/';
  *pNameEnd         = 0;
  if (!IsEmpty) {
    return ReadLevel(pReader, s + 1, pElement, Level + 1);
  }
  return s[1] == '>' ? s + 2 : Fail(pReader, SYS_XML_ERR_TAG);
}

// Reads "name>" after "</". The name must be that of the open element.
static char* ReadEndTag(READER* pReader, char* sName, const XmlElement* pParent) {
  char* const    pNameEnd = SkipName(sName);
  char* const    s        = SkipWhite(pNameEnd);
  const uint32_t NameLen  = (uint32_t)(pNameEnd - sName);
  if (pParent == NULL || NameLen != (uint32_t)pParent->NameLen ||
      memcmp(sName, pParent->sName, NameLen) != 0 || *s != '>') {
    return Fail(pReader, SYS_XML_ERR_END_TAG);
  }
  return s + 1;
}

// Reads an element, as the last child of pParent; as the root when that is NULL.
static char* ReadChild(READER* pReader, char* sName, XmlElement* pParent, XmlElement** ppLast,
                       uint32_t Level) {
  XmlDocument* pDoc     = pReader->pDoc;
  char* const  pNameEnd = SkipName(sName);
  if (pNameEnd == sName) {
    return Fail(pReader, SYS_XML_ERR_TAG);
  }
  XmlElement* pElement = (XmlElement*)SYS_XML_AllocFromArena(pDoc->pArena, sizeof(XmlElement));
  if (pElement == NULL) {
    return Fail(pReader, SYS_XML_ERR_MEMORY);
  }
  SYS_XML_LinkElement(pElement, pParent, *ppLast, sName, (uint32_t)(pNameEnd - sName));
  if (pParent == NULL) {
    pDoc->pRoot = pElement;  // of several, the last one
  } else {
    *ppLast = pElement;
  }
  return ReadElement(pReader, pNameEnd, pElement, Level);
}

// Non-zero for the end of the text, and for the control characters that count as the end.
static int IsEnd(char c) {
  return c == 0 || (c >= 0x0B && c <= 0x1F);
}

// Reads the elements inside pParent, or those at the top when that is NULL. At the end of the text
// returns its place, at each level.
static char* ReadLevel(READER* pReader, char* s, XmlElement* pParent, uint32_t Level) {
  if (Level > SYS_XML_MAX_DEPTH) {
    return Fail(pReader, SYS_XML_ERR_DEPTH);
  }
  // A control character counts as the end also in the middle of the text: every level sees it at
  // the same place and returns.
  XmlElement* pLast = NULL;
  while (s != NULL) {
    s = SkipWhite(s);
    if (IsEnd(*s)) {
      return s;
    }
    if (*s != '<') {
      return Fail(pReader, SYS_XML_ERR_TEXT);
    }
    s++;
    if (*s == '/') {
      return ReadEndTag(pReader, s + 1, pParent);
    }
    if (*s == '!' && SYS_XML_IsComment(s)) {
      s = SkipPast(pReader, s + strlen("!--"), "-->");  // "<!-->" does not end the comment
    } else if (*s == '!' && SYS_XML_IsDocType(s)) {
      s = SkipPast(pReader, s, ">");
    } else {
      s = ReadChild(pReader, s, pParent, &pLast, Level);
    }
  }
  return NULL;
}

// ---- Texts and files ----------------------------------------------------------------------------

static void StoreError(int32_t* pError, int32_t Error) {
  if (pError != NULL) {
    *pError = Error;
  }
}

// Takes memory for a text of NumBytes bytes and what sys/xml_scan.h needs after it from the arena.
// pDoc may be NULL, and then there is none.
static char* AllocText(XmlDocument* pDoc, size_t NumBytes) {
  if (pDoc == NULL) {
    return NULL;
  }
  if (NumBytes > INT32_MAX) {  // coverage: no test has 2 GiB
    return NULL;               // coverage: no test has 2 GiB
  }
  // A multiple of 8, so that the records after it are aligned.
  const uint32_t Size  = ((uint32_t)NumBytes + SYS_XML_TEXT_PADDING + 7) & ~7u;
  char*          pText = (char*)SYS_XML_AllocFromArena(pDoc->pArena, Size);
  if (pText != NULL) {
    memset(pText + NumBytes, 0, Size - NumBytes);
    pText[NumBytes + 1] = '"';
  }
  return pText;
}

// Line feeds from s up to pEnd.
static uint32_t CountLineFeeds(const char* s, const char* pEnd) {
  uint32_t Count = 0;
  for (; s < pEnd; s++) {
    Count += *s == '\n';
  }
  return Count;
}

// Returns the end of the text in NumBytes bytes, which is the first zero, and counts its line
// feeds.
static char* FindEnd(char* sText, uint32_t NumBytes, uint32_t* pNumLines) {
  const uint32_t BLOCK_SIZE = 128;  // counted in bytes, which compilers do for many at a time
  char*          s          = sText;
  *pNumLines                = 0;
  for (; NumBytes >= BLOCK_SIZE; NumBytes -= BLOCK_SIZE) {
    uint8_t NumLines = 0;  // at most 128: they fit
    uint8_t NumZeros = 0;
    for (uint32_t i = 0; i < BLOCK_SIZE; i++) {
      NumLines = (uint8_t)(NumLines + (s[i] == '\n'));
      NumZeros = (uint8_t)(NumZeros + (s[i] == 0));
    }
    if (NumZeros != 0) {
      break;  // the end is in this block, which is counted below
    }
    *pNumLines += NumLines;
    s += BLOCK_SIZE;
  }
  char* pEnd = s + strlen(s);
  *pNumLines += CountLineFeeds(s, pEnd);
  return pEnd;
}

// Reads the document from sText, which is in its arena and has NumBytes bytes.
static int32_t ReadText(XmlDocument* pDoc, char* sText, uint32_t NumBytes) {
  // All line feeds are counted first, because reading replaces some of them. Those that are not
  // read are taken off again.
  char* const pEnd   = FindEnd(sText, NumBytes, &pDoc->NumLines);
  READER      Reader = {pDoc, pEnd, SYS_XML_OK, {NULL, 0}, 0, NULL, NULL};
  const char* s      = ReadLevel(&Reader, sText, NULL, 0);
  if (s == NULL) {
    return Reader.Error;
  }
  pDoc->NumLines -= CountLineFeeds(s, pEnd);
  return pDoc->pRoot != NULL ? SYS_XML_OK : SYS_XML_ERR_NO_ROOT;
}

// Returns the document if there is no error, else frees it.
static XmlDocument* Finish(XmlDocument* pDoc, int32_t Error, int32_t* pError) {
  StoreError(pError, Error);
  if (Error != SYS_XML_OK) {
    SYS_XML_FreeDoc(pDoc);
    return NULL;
  }
  return pDoc;
}

XmlDocument* SYS_XML_ParseDoc(const char* sText, int32_t* pError) {
  const size_t NumBytes = strlen(sText);
  // A copy in the arena: reading puts terminators into it, and the nodes point there.
  XmlDocument* pDoc  = SYS_XML_CreateEmptyDoc();
  char*        pText = AllocText(pDoc, NumBytes);
  if (pText == NULL) {
    return Finish(pDoc, SYS_XML_ERR_MEMORY, pError);
  }
  memcpy(pText, sText, NumBytes + 1);  // with the terminator
  return Finish(pDoc, ReadText(pDoc, pText, (uint32_t)NumBytes), pError);
}

// Fills NumBytes bytes at pBuffer from byte 0 of the file on. Returns 0, or -1 when fewer can be
// read.
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

// Loads the file from its beginning; it stays open. Returns NULL with *pError set after a failure.
static XmlDocument* LoadOpenFile(int32_t hFile, int32_t* pError) {
  const int64_t Size = SYS_FILE_Seek(hFile, 0, SEEK_END);
  if (Size < 0 || Size > MAX_FILE_SIZE) {
    return Finish(NULL, SYS_XML_ERR_FILE, pError);
  }
  XmlDocument* pDoc  = SYS_XML_CreateEmptyDoc();
  char*        pText = AllocText(pDoc, (size_t)Size);
  if (pText == NULL) {
    return Finish(pDoc, SYS_XML_ERR_MEMORY, pError);
  }
  // A file that another process shortens in between fails here.
  if (ReadWhole(hFile, pText, (uint32_t)Size) != 0) {
    return Finish(pDoc, SYS_XML_ERR_FILE, pError);
  }
  return Finish(pDoc, ReadText(pDoc, pText, (uint32_t)Size), pError);
}

XmlDocument* SYS_XML_LoadDoc(const char* sPath, int32_t* pError) {
  const int32_t hFile = SYS_FILE_OpenRegular(sPath, SYS_FILE_READ, 0, 0);
  if (hFile < 0) {
    return Finish(NULL, SYS_XML_ERR_FILE, pError);
  }
  XmlDocument* pDoc = LoadOpenFile(hFile, pError);
  SYS_FILE_Close(hFile);
  return pDoc;
}
