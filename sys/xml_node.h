// sys/xml_node.h
// SPDX-License-Identifier: MIT
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

// Fills in a record and links it after pPrev, the last child of pParent; if pPrev is NULL, as the
// first child. pParent may be NULL; the element is then linked to pPrev only. sName stays where it
// is: it must live as long as the document.
inline void SYS_XML_LinkElement(XmlElement* pElement, XmlElement* pParent, XmlElement* pPrev,
                                char* sName, uint32_t NameLen) {
  *pElement = {sName, (int32_t)NameLen, NULL, pParent, pPrev, NULL, NULL, NULL};
  if (pPrev != NULL) {
    pPrev->pNext = pElement;
  } else if (pParent != NULL) {
    pParent->pFirstChild = pElement;
  }
}

// Links an attribute, whose other fields are filled in, after pPrev, the last attribute; if pPrev
// is NULL, as the first one.
inline void SYS_XML_LinkAttr(XmlAttribute* pAttr, XmlElement* pElement, XmlAttribute* pPrev) {
  pAttr->pPrev = pPrev;
  pAttr->pNext = NULL;
  if (pPrev != NULL) {
    pPrev->pNext = pAttr;
  } else {
    pElement->pFirstAttr = pAttr;
  }
}

// Makes an element with a copy of the NameLen characters at pName, as the last child of pParent
// after pPrev (SYS_XML_LinkElement). Returns NULL when there is no memory; nothing is linked then.
XmlElement* SYS_XML_AddElement(XmlDocument* pDoc, XmlElement* pParent, XmlElement* pPrev,
                               const char* pName, uint32_t NameLen);

// Makes an attribute of pElement with copies of both texts, as the last one. Returns NULL when
// there is no memory; nothing is linked then.
XmlAttribute* SYS_XML_AddAttr(XmlDocument* pDoc, XmlElement* pElement, const char* pName,
                              uint32_t NameLen, const char* pValue, uint32_t ValueLen);

// Unlinks an attribute whose memory may be used again for another one. Nothing may refer to it
// afterwards.
void SYS_XML_DropAttr(XmlDocument* pDoc, XmlElement* pElement, XmlAttribute* pAttr);

// Returns 1 for a character of a name, else 0.
extern const uint8_t SYS_XML_aIsNameChar[256];
inline int32_t       SYS_XML_IsNameChar(char c) {
        return SYS_XML_aIsNameChar[(uint8_t)c];
}

// Return 1 when the markup after "<" begins a comment, or a document type, else 0.
int32_t SYS_XML_IsComment(const char* s);
int32_t SYS_XML_IsDocType(const char* s);

#endif
