// sys/xml_node.h
//
// How nodes of an XML document come to be; for the modules of the document and for the registry
// store, which appends lists of attributes. Other users see sys/xml.h. No pointer may be NULL where
// nothing is said about NULL.

#ifndef SYS_XML_NODE_H
#define SYS_XML_NODE_H

#include "sys/xml.h"

// A document without a root; NULL when there is no memory.
XmlDocument* SYS_XML_CreateEmptyDoc(void);

// An element with a copy of the NameLen characters at pName, behind pPrev among the children of
// pParent: as the first one when pPrev is NULL. pParent may be NULL; then it is linked to pPrev
// only. NULL when there is no memory: nothing is linked then.
XmlElement* SYS_XML_AddElement(XmlDocument* pDoc, XmlElement* pParent, XmlElement* pPrev,
                               const char* pName, uint32_t NameLen);

// An attribute with copies of both texts, behind pPrev (NULL: as the first one) of pElement. NULL
// when there is no memory: nothing is linked then.
XmlAttribute* SYS_XML_AddAttr(XmlDocument* pDoc, XmlElement* pElement, XmlAttribute* pPrev,
                              const char* pName, uint32_t NameLen, const char* pValue,
                              uint32_t ValueLen);

// 1 for the characters of a name, else 0.
int32_t SYS_XML_IsNameChar(char c);

// 1 when markup behind its "<" begins a comment, or a document type, else 0.
int32_t SYS_XML_IsComment(const char* s);
int32_t SYS_XML_IsDocType(const char* s);

#endif
