// sys/xml.h
//
// A small XML document in memory: elements and attributes, a loader and a writer. Made for
// configuration files, not for XML at large: no text content, no entities, no namespaces. Values
// are read and written as they stand, so a value that holds a double quote cannot be read back.
//
// A document owns everything in it: elements, attributes, names and values live in its arena until
// SYS_XML_FreeDoc. Removing or replacing only unlinks. Pointers into a document stay valid until
// then, but the text of a value may be overwritten when its attribute is set again.
//
// Names are compared whole, byte by byte. The functions take any name that is not empty; what the
// loader can read back is told by SYS_XML_IsAttrName and SYS_XML_IsElementName.
//
// One thread at a time for each document; no lock. Nothing is printed. Records are read freely and
// changed through the functions only. No pointer may be NULL where nothing is said about NULL.

#ifndef SYS_XML_H
#define SYS_XML_H

#include <stdint.h>

#include "sys/xml_arena.h"

struct XmlAttribute {
  char*         sName;
  char*         sValue;
  uint32_t      NameLen;  // without the terminator
  uint32_t      ValueLen;
  uint32_t      ValueRoom;  // bytes at sValue, the terminator counted: what fits is stored there
  XmlAttribute* pPrev;      // NULL for the first one
  XmlAttribute* pNext;      // NULL for the last one
};

struct XmlElement {
  char*         sName;
  int32_t       NameLen;  // without the terminator
  XmlAttribute* pFirstAttr;
  XmlElement*   pParent;  // NULL for the root
  XmlElement*   pPrev;    // sibling; NULL for the first child
  XmlElement*   pNext;    // sibling; NULL for the last child
  XmlElement*   pFirstChild;
};

struct XmlDocument {
  XmlElement* pRoot;
  uint32_t    NumLines;  // line feeds seen by the loader
  XmlArena*   pArena;
};

// Results. Each function says which of them it gives; the texts of what cannot be loaded give those
// of the second group.
enum {
  SYS_XML_OK           = 0,
  SYS_XML_NOT_FOUND    = 1,   // nothing of that name
  SYS_XML_ERR_ARGUMENT = -1,  // a NULL pointer, a NULL or empty name
  SYS_XML_ERR_TOO_LONG = -2,  // the text does not fit
  SYS_XML_ERR_MEMORY   = -5,  // no memory

  SYS_XML_ERR_TEXT    = -1,  // text between elements
  SYS_XML_ERR_TAG     = -2,  // a tag without a name, or with something odd in it
  SYS_XML_ERR_ATTR    = -3,  // an attribute without name, "=", opening or closing quote
  SYS_XML_ERR_END_TAG = -7,  // an end tag that does not end the open element
  SYS_XML_ERR_DEPTH   = -8,  // elements nested too deep
  SYS_XML_ERR_NO_ROOT = -9,  // nothing wrong, but no element either; an empty file gives this
  SYS_XML_ERR_FILE    = -10  // the file cannot be opened or read, is not regular, or over 16 MiB
};

// An element below this many others is the deepest the loader reads, and only when it is written
// as empty ("<x/>"): one content deeper fails with SYS_XML_ERR_DEPTH.
static const uint32_t SYS_XML_MAX_DEPTH = 100;

// What the writer makes at the most, in bytes.
static const uint32_t SYS_XML_MAX_TEXT = 0x100000;

// ---- Documents ----------------------------------------------------------------------------------

// A document that holds one element. NULL when there is no memory, or for a NULL or empty name.
XmlDocument* SYS_XML_CreateDoc(const char* sRootName);

// Reads a document from zero-terminated text. sText must not be NULL.
//
// Between tags SPACE, TAB, CR and LF are skipped, so are comments and "<!DOC...>"; one without its
// end takes the rest of the text. The end of the text ends all open elements. So does any control
// character from 0x0B to 0x1F but CR: what follows it is not looked at. Of several elements at the
// top the last one is the root. Names are letters, digits, "_", "!" and "-". An attribute that
// stands twice is kept twice, and the first one is found.
//
// Takes at most some 16 bytes of arena for each byte of text.
// Returns NULL after a failure, the reason in *pError unless that is NULL; it is 0 after success.
XmlDocument* SYS_XML_ParseDoc(const char* sText, int32_t* pError);

// The same from a file, which is read whole; a zero byte in it ends the text. Symbolic links are
// followed; what is no regular file is refused without being waited for. A NULL sPath is a file
// that cannot be opened.
XmlDocument* SYS_XML_LoadDoc(const char* sPath, int32_t* pError);

// Writes the document as text: an element per line, indented by two spaces per level, attributes in
// their order, CR LF behind each line, "<x/>" for an element without children. No terminator.
//
// Elements may be nested deeper here than the loader reads them back.
//
// Returns the number of bytes stored, at most BufferSize, or
//   SYS_XML_ERR_ARGUMENT  pBuffer or pDoc is NULL
//   SYS_XML_ERR_TOO_LONG  the text is longer than BufferSize or than SYS_XML_MAX_TEXT; pBuffer holds
//                         the beginning, as many bytes as the lower of the two says
//   SYS_XML_ERR_MEMORY    no memory; pBuffer is as before
int32_t SYS_XML_StoreDoc(const XmlDocument* pDoc, char* pBuffer, uint32_t BufferSize);

// Frees the document with all that is in it; does nothing for NULL.
void SYS_XML_FreeDoc(XmlDocument* pDoc);

// ---- Walking ------------------------------------------------------------------------------------
// Each gives NULL for NULL, and where there is nothing more.

XmlElement*   SYS_XML_GetRoot(const XmlDocument* pDoc);
XmlElement*   SYS_XML_GetFirstChild(const XmlElement* pElement);
XmlElement*   SYS_XML_GetNextSibling(const XmlElement* pElement);
XmlAttribute* SYS_XML_GetNextAttr(const XmlAttribute* pAttr);

// The first attribute. Its name is also copied to pName, at most NameSize - 1 characters and a
// terminator; not for a pName of NULL, a NameSize of 0, or when there is no attribute.
XmlAttribute* SYS_XML_GetFirstAttr(const XmlElement* pElement, char* pName, uint32_t NameSize);

// How many elements an element lies below: 0 for the root. pElement must not be NULL.
uint32_t SYS_XML_GetDepth(const XmlElement* pElement);

// ---- Elements -----------------------------------------------------------------------------------
// pDoc is always the document that pElement belongs to. Neither may be NULL, but where it says so.

// The first child of that name; NULL without one and for a NULL or empty name. pElement must not be
// NULL.
XmlElement* SYS_XML_FindChild(const XmlElement* pElement, const char* sName);

// The same, but a missing child is added as the last one. NULL when there is no memory, or for a
// NULL or empty name.
XmlElement* SYS_XML_FindOrAddChild(XmlDocument* pDoc, XmlElement* pElement, const char* sName);

// Adds an element behind the last sibling of pElement. NULL as for SYS_XML_FindOrAddChild. Beside
// the root it is written but, a document having one root, not read back.
XmlElement* SYS_XML_AppendSibling(XmlDocument* pDoc, XmlElement* pElement, const char* sName);

// Copies at most BufferSize - 1 characters of the name and a terminator; nothing for a pBuffer of
// NULL or a BufferSize of 0. Returns the length of the whole name, SYS_XML_ERR_ARGUMENT for a NULL
// element.
int32_t SYS_XML_CopyElementName(const XmlElement* pElement, char* pBuffer, uint32_t BufferSize);

// ---- Attributes ---------------------------------------------------------------------------------

// The first attribute of that name; NULL without one, and for a NULL element, NULL or empty name.
XmlAttribute* SYS_XML_FindAttr(const XmlElement* pElement, const char* sName);

// Gives the first attribute of that name the value, or adds one as the last. A NULL value is the
// empty string; sValue may be the attribute's own text. A value takes memory only when it is longer
// than any that the attribute had before; its former place is then lost until SYS_XML_FreeDoc.
// Returns SYS_XML_OK; SYS_XML_ERR_ARGUMENT for a NULL document or element, NULL or empty name;
// SYS_XML_ERR_MEMORY: the element is then as before.
int32_t SYS_XML_SetAttr(XmlDocument* pDoc, XmlElement* pElement, const char* sName,
                        const char* sValue);

// Unlinks the first attribute of that name.
// Returns SYS_XML_OK; SYS_XML_NOT_FOUND when there is none, or for a NULL name; SYS_XML_ERR_ARGUMENT
// for a NULL element.
int32_t SYS_XML_RemoveAttr(XmlElement* pElement, const char* sName);

// Unlinks this attribute, which must be one of pElement's. Its own pPrev and pNext stay as they
// are: a walk over the attributes can go on from it. Neither may be NULL.
void SYS_XML_UnlinkAttr(XmlElement* pElement, XmlAttribute* pAttr);

// Copies at most BufferSize - 1 characters of the value and a terminator; nothing for a pBuffer of
// NULL or a BufferSize of 0. Returns the length of the whole value, SYS_XML_ERR_ARGUMENT for a NULL
// attribute.
int32_t SYS_XML_CopyAttrValue(const XmlAttribute* pAttr, char* pBuffer, uint32_t BufferSize);

// ---- Names --------------------------------------------------------------------------------------

// Makes sName one that the loader reads: a "-" in front becomes "_", and so does every character
// but ASCII letters and digits, "!", "-" and "_". Does not lift the exceptions that
// SYS_XML_IsElementName makes. sName must not be NULL; an empty one stays empty.
void SYS_XML_SanitizeName(char* sName);

// 1 when the loader reads sName as the name of an attribute, else 0: letters, digits, "_", "!" and
// "-", at least one of them. An element may not begin as a comment or a document type does either
// ("!--", "!DOC"). sName must not be NULL.
int32_t SYS_XML_IsAttrName(const char* sName);
int32_t SYS_XML_IsElementName(const char* sName);

#endif
