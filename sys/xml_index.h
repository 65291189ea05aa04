// sys/xml_index.h
// SPDX-License-Identifier: MIT
//
// Finding children and attributes by name in time that does not grow with their number; for the
// modules of the document and the registry store.
//
// An element gets an index when a function that is given its document meets more than a few
// children or attributes in it. The index is a table of names beside the list: the list keeps the
// order. It is in the document's arena and is kept up to date by the functions that link and
// unlink.
//
// Where a function says that pDoc may be NULL, it then uses an index but does not make one. Without
// memory for an index the lists are searched.

#ifndef SYS_XML_INDEX_H
#define SYS_XML_INDEX_H

#include "sys/xml.h"

struct XmlIndexEntry {
  void*    pNode;    // NULL: the entry is free
  uint32_t Hash;     // of the node's name
  uint32_t IsTwice;  // a later node has, or had, the same name
};

// A table of nodes by name. Of several nodes with the same name it has the first one.
struct XmlTable {
  XmlIndexEntry* paEntry;
  uint32_t       Capacity;  // a power of 2; 0 until the table is first built
  uint32_t       NumEntries;
  uint32_t       IsBuilt;
  uint32_t       HasTwice;  // some entry is twice
  void*          pFound;    // what the last search found; NULL: nothing yet
};

struct XmlIndex {
  XmlTable      Attrs;
  XmlTable      Children;
  XmlAttribute* pLastAttr;
  XmlElement*   pLastChild;
  uint32_t      IsTidy;  // for the registry store; cleared when an attribute is linked or unlinked
};

// Return the first node of that name, or NULL. pDoc may be NULL. The name need not be terminated.
XmlAttribute* SYS_XML_LookUpAttr(XmlDocument* pDoc, const XmlElement* pElement, const char* pName,
                                 uint32_t NameLen);
XmlElement*   SYS_XML_LookUpChild(XmlDocument* pDoc, const XmlElement* pElement, const char* pName,
                                  uint32_t NameLen);

// Return the last attribute, or the last child, or NULL.
XmlAttribute* SYS_XML_GetLastAttr(XmlDocument* pDoc, const XmlElement* pElement);
XmlElement*   SYS_XML_GetLastChild(XmlDocument* pDoc, const XmlElement* pElement);

// To be called after a node was linked as the last one, and after an attribute was unlinked.
void SYS_XML_IndexNewAttr(XmlDocument* pDoc, XmlElement* pElement, XmlAttribute* pAttr);
void SYS_XML_IndexNewChild(XmlDocument* pDoc, XmlElement* pElement, XmlElement* pChild);
void SYS_XML_IndexUnlinkedAttr(XmlElement* pElement, const XmlAttribute* pAttr);

#endif
