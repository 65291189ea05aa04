// sys/xml.h
// SPDX-License-Identifier: MIT
//
// XML documents in memory: elements and attributes, a loader and a writer.
//
// Made for configuration files, not for XML in general: no text content, no entities, no
// namespaces. Values are read and written unchanged, so a value that contains a double quote cannot
// be read back.
//
// A document owns its elements, attributes, names and values. They are in its arena until
// SYS_XML_FreeDoc; removing only unlinks. So pointers into a document stay valid until then, but
// the text of a value may be overwritten when its attribute is set again. The registry store uses
// the memory of the values that it deletes again; pointers to others stay valid there too.
//
// A search takes the same time in short and in long lists once the element has a table of its
// names. Functions that are given the document make one for more than a few attributes or children.
//
// Names are compared whole, byte by byte. The functions accept any name that is not empty.
// SYS_XML_IsAttrName and SYS_XML_IsElementName say which names the loader can read back.
//
// One thread at a time for each document; no lock. Nothing is printed. Read the records freely, but
// change them through the functions only. No pointer may be NULL unless the comment allows it.

#ifndef SYS_XML_H
#define SYS_XML_H

#include <stdint.h>

#include "sys/xml_arena.h"

struct XmlAttribute {
  char*         sName;
  char*         sValue;
  uint32_t      NameLen;    // without the terminator
  uint32_t      ValueLen;   // without the terminator
  uint32_t      ValueRoom;  // bytes at sValue: a value that fits is stored there, with a terminator
  uint16_t      PieceClass;  // size class of the record's memory; 0: it is never used again
  uint16_t      ValueClass;  // size class of the value's memory; 0: the value is beside the record
  XmlAttribute* pPrev;       // NULL for the first one
  XmlAttribute* pNext;       // NULL for the last one
};

enum { SYS_XML_NUM_PIECE_CLASSES = 53 };  // of memory for attributes and values, 1 to 52

struct XmlIndex;  // see sys/xml_index.h

struct XmlElement {
  char*         sName;
  int32_t       NameLen;  // without the terminator
  XmlAttribute* pFirstAttr;
  XmlElement*   pParent;  // NULL for the root
  XmlElement*   pPrev;    // sibling; NULL for the first child
  XmlElement*   pNext;    // sibling; NULL for the last child
  XmlElement*   pFirstChild;
  XmlIndex*     pIndex;  // finds names in long lists; NULL while there is none
};

struct XmlDocument {
  XmlElement* pRoot;
  uint32_t    NumLines;  // line feeds that the loader has read
  XmlArena*   pArena;
  void*       apFree[SYS_XML_NUM_PIECE_CLASSES];  // memory to be used again, a chain for each class
};

// Results. Each function says which of them it returns. Those of the second group are the reasons
// why a text or a file could not be loaded.
enum {
  SYS_XML_OK           = 0,
  SYS_XML_NOT_FOUND    = 1,   // no attribute has that name
  SYS_XML_ERR_ARGUMENT = -1,  // a NULL pointer, a NULL or empty name
  SYS_XML_ERR_TOO_LONG = -2,  // the text does not fit
  SYS_XML_ERR_MEMORY   = -5,  // no memory

  SYS_XML_ERR_TEXT    = -1,  // text between elements
  SYS_XML_ERR_TAG     = -2,  // a tag without a name or with an unexpected character
  SYS_XML_ERR_ATTR    = -3,  // an attribute without a name, "=", opening or closing quote
  SYS_XML_ERR_END_TAG = -7,  // an end tag that does not match the open element
  SYS_XML_ERR_DEPTH   = -8,  // elements nested too deep
  SYS_XML_ERR_NO_ROOT = -9,  // no element; also for an empty file
  SYS_XML_ERR_FILE    = -10  // the file cannot be opened or read, is not regular, or exceeds 16 MiB
};

// Maximum nesting that the loader reads, in levels below the root. At this depth an element must be
// empty and written as "<x/>"; any other content gives SYS_XML_ERR_DEPTH.
static const uint32_t SYS_XML_MAX_DEPTH = 100;

// Maximum length of a text that the writer makes, in bytes.
static const uint32_t SYS_XML_MAX_TEXT = 0x100000;

// ---- Documents ----------------------------------------------------------------------------------

// Makes a document of one element.
// Returns NULL when there is no memory, and for a NULL or empty name.
XmlDocument* SYS_XML_CreateDoc(const char* sRootName);

// Reads a document from zero-terminated text.
//
// Between tags SPACE, TAB, CR and LF are skipped, and so are comments and "<!DOC...>". A comment or
// document type without an end takes the rest of the text. The end of the text closes all open
// elements. So does a control character from 0x0B to 0x1F other than CR: the text after it is
// ignored. If there are several elements at the top, the last one is the root. Names consist of
// letters, digits, "_", "!" and "-". An attribute that is given twice is kept twice, and the first
// one is found.
//
// A document takes at most some 17 bytes of arena for each byte of text.
// Returns NULL after a failure. *pError, unless pError is NULL, is the reason, or 0 after success.
XmlDocument* SYS_XML_ParseDoc(const char* sText, int32_t* pError);

// Reads a document from a file.
// The text is read as by SYS_XML_ParseDoc; a zero byte ends it. Symbolic links are followed.
// Anything that is not a regular file is refused without waiting for it. sPath may be NULL, which
// is a file that cannot be opened.
XmlDocument* SYS_XML_LoadDoc(const char* sPath, int32_t* pError);

// Writes a document as text into a buffer.
// Each element is a line, indented by two spaces per level and ended by CR LF. Attributes are in
// their order. An element without children is "<x/>". There is no terminator. Elements may be
// nested deeper than the loader can read back.
//
// Returns the number of bytes stored, at most BufferSize, or
//   SYS_XML_ERR_ARGUMENT  pBuffer or pDoc is NULL
//   SYS_XML_ERR_TOO_LONG  the text exceeds BufferSize or SYS_XML_MAX_TEXT; pBuffer holds the
//                         beginning of it, as many bytes as the smaller of the two
//   SYS_XML_ERR_MEMORY    no memory; pBuffer is unchanged
int32_t SYS_XML_StoreDoc(const XmlDocument* pDoc, char* pBuffer, uint32_t BufferSize);

// Frees a document and everything in it.
// Does nothing for NULL.
void SYS_XML_FreeDoc(XmlDocument* pDoc);

// ---- Walking ------------------------------------------------------------------------------------

// Return the root, the first child, the next sibling, and the next attribute.
// Each returns NULL for NULL, and at the end.
XmlElement*   SYS_XML_GetRoot(const XmlDocument* pDoc);
XmlElement*   SYS_XML_GetFirstChild(const XmlElement* pElement);
XmlElement*   SYS_XML_GetNextSibling(const XmlElement* pElement);
XmlAttribute* SYS_XML_GetNextAttr(const XmlAttribute* pAttr);

// Returns the first attribute, and copies its name to pName.
// At most NameSize - 1 characters and a terminator are copied; nothing if pName is NULL, NameSize
// is 0, or there is no attribute. Returns NULL for NULL and when there is no attribute.
XmlAttribute* SYS_XML_GetFirstAttr(const XmlElement* pElement, char* pName, uint32_t NameSize);

// Returns how many levels an element is below the root: 0 for the root.
uint32_t SYS_XML_GetDepth(const XmlElement* pElement);

// ---- Elements -----------------------------------------------------------------------------------
// pDoc is always the document that pElement belongs to.

// Returns the first child of that name.
// Returns NULL when there is none, and for a NULL or empty name.
XmlElement* SYS_XML_FindChild(const XmlElement* pElement, const char* sName);

// Returns the first child of that name; a missing child is added as the last one.
// Returns NULL when there is no memory, and for a NULL or empty name.
XmlElement* SYS_XML_FindOrAddChild(XmlDocument* pDoc, XmlElement* pElement, const char* sName);

// Adds an element after the last sibling of pElement.
// Returns NULL when there is no memory, and for a NULL or empty name. A sibling of the root is
// written, but not read back: a document has one root.
XmlElement* SYS_XML_AppendSibling(XmlDocument* pDoc, XmlElement* pElement, const char* sName);

// Copies the name of an element.
// At most BufferSize - 1 characters and a terminator are copied; nothing if pBuffer is NULL or
// BufferSize is 0. Returns the length of the whole name, SYS_XML_ERR_ARGUMENT for a NULL element.
int32_t SYS_XML_CopyElementName(const XmlElement* pElement, char* pBuffer, uint32_t BufferSize);

// ---- Attributes ---------------------------------------------------------------------------------

// Returns the first attribute of that name.
// Returns NULL when there is none, for a NULL element, and for a NULL or empty name.
XmlAttribute* SYS_XML_FindAttr(const XmlElement* pElement, const char* sName);

// Sets the value of the first attribute of that name, or adds an attribute as the last one.
// A NULL value is the empty string. sValue may be the attribute's own text. A value takes new
// memory only when it is longer than any former value of that attribute.
// Returns SYS_XML_OK; SYS_XML_ERR_ARGUMENT for a NULL document or element, NULL or empty name;
// SYS_XML_ERR_MEMORY: the element is then unchanged.
int32_t SYS_XML_SetAttr(XmlDocument* pDoc, XmlElement* pElement, const char* sName,
                        const char* sValue);

// Unlinks the first attribute of that name.
// Returns SYS_XML_OK; SYS_XML_NOT_FOUND when there is none, and for a NULL name;
// SYS_XML_ERR_ARGUMENT for a NULL element.
int32_t SYS_XML_RemoveAttr(XmlElement* pElement, const char* sName);

// Unlinks an attribute of pElement.
// Its own pPrev and pNext are unchanged, so that a walk over the attributes can continue from it.
void SYS_XML_UnlinkAttr(XmlElement* pElement, XmlAttribute* pAttr);

// Copies the value of an attribute.
// At most BufferSize - 1 characters and a terminator are copied; nothing if pBuffer is NULL or
// BufferSize is 0. Returns the length of the whole value, SYS_XML_ERR_ARGUMENT for a NULL
// attribute.
int32_t SYS_XML_CopyAttrValue(const XmlAttribute* pAttr, char* pBuffer, uint32_t BufferSize);

// ---- Names --------------------------------------------------------------------------------------

// Turns a text into a name that the loader can read, in place.
// A leading "-" becomes "_", and so does every character other than ASCII letters and digits, "!",
// "-" and "_". An empty text stays empty. The result may still be one that SYS_XML_IsElementName
// refuses.
void SYS_XML_SanitizeName(char* sName);

// Return 1 when the loader can read sName as the name of an attribute, or of an element, else 0.
// Such a name consists of letters, digits, "_", "!" and "-", at least one of them. The name of an
// element must not begin like a comment or a document type ("!--", "!DOC").
int32_t SYS_XML_IsAttrName(const char* sName);
int32_t SYS_XML_IsElementName(const char* sName);

#endif
