// SPDX-License-Identifier: MIT

// A hash table with open addressing: an entry that is taken sends the search on to the next one.
// The tables are in the document's arena, so one that was outgrown stays there until the document
// is freed.

#include "sys/xml_index.h"

#include <string.h>

// A list of up to so many nodes is searched faster than a table.
static const uint32_t SMALL_LIST   = 16;
static const uint32_t MIN_CAPACITY = 64;  // a power of 2, as all capacities

// ---- Tables -------------------------------------------------------------------------------------

// Mixes eight bytes at a time. The multiplier is odd and has no pattern; the high half of a product
// depends on all bits below.
static uint32_t HashName(const char* pName, uint32_t NameLen) {
  const uint64_t MULTIPLIER = 0x9E3779B97F4A7C15;
  uint64_t       Hash       = NameLen * MULTIPLIER;
  uint64_t       Word       = 0;
  for (; NameLen >= sizeof(Word); NameLen -= (uint32_t)sizeof(Word)) {
    memcpy(&Word, pName, sizeof(Word));
    Hash = (Hash ^ Word ^ (Hash >> 32)) * MULTIPLIER;
    pName += sizeof(Word);
  }
  for (Word = 0; NameLen > 0; NameLen--) {
    Word = Word << 8 | (uint8_t)*pName++;
  }
  Hash = (Hash ^ Word ^ (Hash >> 32)) * MULTIPLIER;
  return (uint32_t)(Hash >> 32);
}

// Compares lengths first: most names that are looked at differ there. An attribute's length is
// unsigned, an element's signed.
template <typename NODE>
static int HasName(const NODE* pNode, const char* pName, uint32_t NameLen) {
  return (uint32_t)pNode->NameLen == NameLen && memcmp(pNode->sName, pName, NameLen) == 0;
}

// Returns the entry with that name, or the free one where it belongs.
template <typename NODE>
static XmlIndexEntry* FindEntry(const XmlTable* pTable, const char* pName, uint32_t NameLen,
                                uint32_t Hash) {
  // Ends at a free entry at the latest: a table is never more than three quarters full.
  const uint32_t Mask = pTable->Capacity - 1;
  for (uint32_t i = Hash & Mask;; i = (i + 1) & Mask) {
    XmlIndexEntry* pEntry = &pTable->paEntry[i];
    if (pEntry->pNode == NULL ||
        (pEntry->Hash == Hash && HasName((const NODE*)pEntry->pNode, pName, NameLen))) {
      return pEntry;
    }
  }
}

// The same for a node, whose hash the caller has.
template <typename NODE>
static XmlIndexEntry* FindEntryOf(const XmlTable* pTable, const NODE* pNode, uint32_t Hash) {
  return FindEntry<NODE>(pTable, pNode->sName, (uint32_t)pNode->NameLen, Hash);
}

// Adds a node for which there is room, unless its name is there already.
template <typename NODE>
static void Add(XmlTable* pTable, NODE* pNode) {
  const uint32_t Hash   = HashName(pNode->sName, (uint32_t)pNode->NameLen);
  XmlIndexEntry* pEntry = FindEntryOf(pTable, pNode, Hash);
  if (pEntry->pNode != NULL) {  // the first one of the name stays: that one is to be found
    pEntry->IsTwice  = 1;
    pTable->HasTwice = 1;
    return;
  }
  *pEntry = {pNode, Hash, 0};
  pTable->NumEntries++;
}

// Three quarters: beyond that a search would look at too many entries.
static int IsFull(uint32_t NumEntries, uint64_t Capacity) {
  return NumEntries >= Capacity / 4 * 3;
}

// Gives the table an empty array for more than NumEntries entries. Returns 0, or -1 without memory;
// the table is then unchanged.
static int32_t AllocEntries(XmlDocument* pDoc, XmlTable* pTable, uint32_t NumEntries) {
  uint64_t Capacity = MIN_CAPACITY;
  while (IsFull(NumEntries, Capacity)) {
    Capacity *= 2;
  }
  if (Capacity > pTable->Capacity) {  // else the array that it has is large enough
    const uint64_t NumBytes = Capacity * sizeof(XmlIndexEntry);
    if (NumBytes > UINT32_MAX) {  // coverage: no test has so many nodes
      return -1;                  // coverage: no test has so many nodes
    }
    void* pMem = SYS_XML_AllocFromArena(pDoc->pArena, (uint32_t)NumBytes);
    if (pMem == NULL) {
      return -1;
    }
    pTable->paEntry  = (XmlIndexEntry*)pMem;
    pTable->Capacity = (uint32_t)Capacity;
  }
  memset(pTable->paEntry, 0, pTable->Capacity * sizeof(XmlIndexEntry));
  return 0;
}

// Adds a node that was linked as the last one. A full table is doubled, or given up without memory.
template <typename NODE>
static void AddGrowing(XmlDocument* pDoc, XmlTable* pTable, NODE* pNode) {
  if (!pTable->IsBuilt) {
    return;
  }
  if (IsFull(pTable->NumEntries, pTable->Capacity)) {
    const XmlTable Old = *pTable;
    if (AllocEntries(pDoc, pTable, Old.NumEntries) != 0) {
      pTable->IsBuilt = 0;
      return;
    }
    // Old entries differ in their names, so each finds a free one. They keep IsTwice.
    for (uint32_t i = 0; i < Old.Capacity; i++) {
      const XmlIndexEntry* pOld = &Old.paEntry[i];
      if (pOld->pNode != NULL) {
        *FindEntryOf(pTable, (const NODE*)pOld->pNode, pOld->Hash) = *pOld;
      }
    }
  }
  Add(pTable, pNode);
}

// Frees an entry, and moves the entries after it that a search would no longer reach.
static void FreeEntry(XmlTable* pTable, XmlIndexEntry* pEntry) {
  // A search stops at a free entry. So each entry up to the next free one is moved into the gap,
  // unless the gap is before the place where its own search begins.
  const uint32_t Mask = pTable->Capacity - 1;
  uint32_t       Free = (uint32_t)(pEntry - pTable->paEntry);
  for (uint32_t i = (Free + 1) & Mask; pTable->paEntry[i].pNode != NULL; i = (i + 1) & Mask) {
    const uint32_t Distance = (i - pTable->paEntry[i].Hash) & Mask;  // from where it belongs
    if (Distance >= ((i - Free) & Mask)) {
      pTable->paEntry[Free] = pTable->paEntry[i];
      Free                  = i;
    }
  }
  pTable->paEntry[Free].pNode = NULL;
  pTable->NumEntries--;
}

// ---- Attributes and children --------------------------------------------------------------------

// The same code serves both kinds of nodes. The second argument only chooses the table.
static XmlTable* GetTable(XmlIndex* pIndex, const XmlAttribute*) {
  return &pIndex->Attrs;
}

static XmlTable* GetTable(XmlIndex* pIndex, const XmlElement*) {
  return &pIndex->Children;
}

// The last node of the list that goes on at pNode, which may be NULL.
template <typename NODE>
static NODE* GetLast(NODE* pNode) {
  while (pNode != NULL && pNode->pNext != NULL) {
    pNode = pNode->pNext;
  }
  return pNode;
}

// Returns the element's index, made if it is missing; NULL without memory or without a document.
// The element is not changed for its users.
static XmlIndex* NeedIndex(XmlDocument* pDoc, const XmlElement* pElement) {
  if (pElement->pIndex != NULL || pDoc == NULL) {
    return pElement->pIndex;
  }
  XmlIndex* pIndex = (XmlIndex*)SYS_XML_AllocFromArena(pDoc->pArena, sizeof(XmlIndex));
  if (pIndex != NULL) {
    memset(pIndex, 0, sizeof(*pIndex));
    pIndex->pLastAttr               = GetLast(pElement->pFirstAttr);
    pIndex->pLastChild              = GetLast(pElement->pFirstChild);
    ((XmlElement*)pElement)->pIndex = pIndex;  // searching takes a const element
  }
  return pIndex;
}

// Puts all nodes of a list into the table. Returns 0, or -1 without memory.
template <typename NODE>
static int32_t Build(XmlDocument* pDoc, XmlTable* pTable, NODE* pFirst) {
  uint32_t NumNodes = 0;
  for (const NODE* pNode = pFirst; pNode != NULL; pNode = pNode->pNext) {
    NumNodes++;
  }
  if (AllocEntries(pDoc, pTable, NumNodes) != 0) {
    return -1;
  }
  pTable->NumEntries = 0;
  pTable->HasTwice   = 0;
  pTable->IsBuilt    = 1;
  pTable->pFound     = NULL;
  for (NODE* pNode = pFirst; pNode != NULL; pNode = pNode->pNext) {
    Add(pTable, pNode);
  }
  return 0;
}

// Searches *ppNode and the nodes after it, at most MaxNodes of them. Moves *ppNode to the one that
// it found, or after the last one that it looked at. Returns 1 when it found the name, else 0.
template <typename NODE>
static int SearchList(NODE** ppNode, const char* pName, uint32_t NameLen, uint32_t MaxNodes) {
  NODE* pNode = *ppNode;
  while (pNode != NULL && MaxNodes > 0 && !HasName(pNode, pName, NameLen)) {
    pNode = pNode->pNext;
    MaxNodes--;
  }
  *ppNode = pNode;
  return pNode != NULL && MaxNodes > 0;
}

// Searches a table that is built. Names are often asked for in the order of the list, so the node
// after the one that was found last is looked at first. If some name is there twice, that node may
// not be the first one of its name.
template <typename NODE>
static NODE* SearchTable(XmlTable* pTable, const char* pName, uint32_t NameLen) {
  NODE* pNode = pTable->pFound == NULL ? NULL : ((NODE*)pTable->pFound)->pNext;
  if (pNode == NULL || pTable->HasTwice || !HasName(pNode, pName, NameLen)) {
    pNode = (NODE*)FindEntry<NODE>(pTable, pName, NameLen, HashName(pName, NameLen))->pNode;
  }
  if (pNode != NULL) {
    pTable->pFound = pNode;
  }
  return pNode;
}

// Searches a list of an element's nodes, pFirst and those after it: a table if there is one; else
// the list, and if that is long and memory allows, a table is made for this search and later ones.
template <typename NODE>
static NODE* LookUp(XmlDocument* pDoc, const XmlElement* pElement, NODE* pFirst, const char* pName,
                    uint32_t NameLen) {
  XmlIndex* pIndex = pElement->pIndex;
  if (pIndex == NULL || !GetTable(pIndex, pFirst)->IsBuilt) {
    NODE* pNode = pFirst;
    if (SearchList(&pNode, pName, NameLen, SMALL_LIST) || pNode == NULL) {
      return pNode;
    }
    pIndex = NeedIndex(pDoc, pElement);
    if (pDoc == NULL || pIndex == NULL || Build(pDoc, GetTable(pIndex, pFirst), pFirst) != 0) {
      SearchList(&pNode, pName, NameLen, UINT32_MAX);  // goes on where the short search ended
      return pNode;
    }
  }
  return SearchTable<NODE>(GetTable(pIndex, pFirst), pName, NameLen);
}

// Walks a short list. A longer one is worth an index, which knows the last node.
template <typename NODE>
static NODE* FindLast(XmlDocument* pDoc, const XmlElement* pElement, NODE* pFirst,
                      NODE* XmlIndex::*pLast) {
  if (pElement->pIndex == NULL) {
    NODE* pNode = pFirst;
    for (uint32_t i = 0; i < SMALL_LIST && pNode != NULL && pNode->pNext != NULL; i++) {
      pNode = pNode->pNext;
    }
    if (pNode == NULL || pNode->pNext == NULL || NeedIndex(pDoc, pElement) == NULL) {
      return GetLast(pNode);
    }
  }
  return pElement->pIndex->*pLast;
}

XmlAttribute* SYS_XML_LookUpAttr(XmlDocument* pDoc, const XmlElement* pElement, const char* pName,
                                 uint32_t NameLen) {
  return LookUp(pDoc, pElement, pElement->pFirstAttr, pName, NameLen);
}

XmlElement* SYS_XML_LookUpChild(XmlDocument* pDoc, const XmlElement* pElement, const char* pName,
                                uint32_t NameLen) {
  return LookUp(pDoc, pElement, pElement->pFirstChild, pName, NameLen);
}

XmlAttribute* SYS_XML_GetLastAttr(XmlDocument* pDoc, const XmlElement* pElement) {
  return FindLast(pDoc, pElement, pElement->pFirstAttr, &XmlIndex::pLastAttr);
}

XmlElement* SYS_XML_GetLastChild(XmlDocument* pDoc, const XmlElement* pElement) {
  return FindLast(pDoc, pElement, pElement->pFirstChild, &XmlIndex::pLastChild);
}

void SYS_XML_IndexNewAttr(XmlDocument* pDoc, XmlElement* pElement, XmlAttribute* pAttr) {
  XmlIndex* pIndex = pElement->pIndex;
  if (pIndex != NULL) {
    pIndex->pLastAttr = pAttr;
    pIndex->IsTidy    = 0;
    AddGrowing(pDoc, &pIndex->Attrs, pAttr);
  }
}

void SYS_XML_IndexNewChild(XmlDocument* pDoc, XmlElement* pElement, XmlElement* pChild) {
  XmlIndex* pIndex = pElement->pIndex;
  if (pIndex != NULL) {
    pIndex->pLastChild = pChild;
    AddGrowing(pDoc, &pIndex->Children, pChild);
  }
}

void SYS_XML_IndexUnlinkedAttr(XmlElement* pElement, const XmlAttribute* pAttr) {
  XmlIndex* pIndex = pElement->pIndex;
  if (pIndex == NULL) {
    return;
  }
  pIndex->IsTidy = 0;
  if (pIndex->pLastAttr == pAttr) {
    pIndex->pLastAttr = pAttr->pPrev;
  }
  if (!pIndex->Attrs.IsBuilt) {
    return;
  }
  // The next search begins after pFound, so this keeps its place in the list.
  if (pIndex->Attrs.pFound == pAttr) {
    pIndex->Attrs.pFound = pAttr->pPrev;
  }
  XmlIndexEntry* pEntry =
      FindEntryOf(&pIndex->Attrs, pAttr, HashName(pAttr->sName, pAttr->NameLen));
  if (pEntry->pNode != pAttr) {
    return;  // a later attribute of that name
  }
  // The next attribute of that name takes the entry; without one the entry is freed.
  XmlAttribute* pNext = pEntry->IsTwice ? pAttr->pNext : NULL;
  SearchList(&pNext, pAttr->sName, pAttr->NameLen, UINT32_MAX);
  if (pNext != NULL) {
    pEntry->pNode = pNext;
  } else {
    FreeEntry(&pIndex->Attrs, pEntry);
  }
}
