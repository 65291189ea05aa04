// sys/xml_node.h
//
// Making the nodes of an XML document; for the modules of the document and the registry store.
//
// Other users include sys/xml.h. No pointer may be NULL unless the comment allows it.

#ifndef SYS_XML_NODE_H
#define SYS_XML_NODE_H

#include "sys/xml.h"

// Makes a document without a root.
// Returns NULL when there is no memory.
XmlDocument* SYS_XML_CreateEmptyDoc(void);

// Makes an element with a copy of the NameLen characters at pName.
// It is linked after pPrev, the last child of pParent; if pPrev is NULL, as the first child.
// pParent may be NULL; the element is then linked to pPrev only. Returns NULL when there is no
// memory; nothing is linked then.
XmlElement* SYS_XML_AddElement(XmlDocument* pDoc, XmlElement* pParent, XmlElement* pPrev,
                               const char* pName, uint32_t NameLen);

// Makes an attribute of pElement with copies of both texts.
// It is linked after pPrev, the last attribute; if pPrev is NULL, as the first one. Returns NULL
// when there is no memory; nothing is linked then.
XmlAttribute* SYS_XML_AddAttr(XmlDocument* pDoc, XmlElement* pElement, XmlAttribute* pPrev,
                              const char* pName, uint32_t NameLen, const char* pValue,
                              uint32_t ValueLen);

// Returns 1 for a character of a name, else 0.
int32_t SYS_XML_IsNameChar(char c);

// Return 1 when the markup after "<" begins a comment, or a document type, else 0.
int32_t SYS_XML_IsComment(const char* s);
int32_t SYS_XML_IsDocType(const char* s);

#endif
