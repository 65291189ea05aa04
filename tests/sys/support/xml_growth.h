// tests/sys/support/xml_growth.h
// SPDX-License-Identifier: MIT
//
// What a document costs, without a clock: the bytes taken from its arena, and whether a list is
// walked.

#ifndef TESTS_SYS_SUPPORT_XML_GROWTH_H
#define TESTS_SYS_SUPPORT_XML_GROWTH_H

#include <gtest/gtest.h>

#include "sys/xml.h"

inline uint64_t CountBytes(const XmlDocument* pDoc) {
  uint64_t NumBytes = 0;
  for (const XmlArena* pChunk = pDoc->pArena; pChunk != nullptr; pChunk = pChunk->pNext) {
    NumBytes += pChunk->Used;
  }
  return NumBytes;
}

// Ends a list after its 20th node while it exists: a walk from the beginning does not get further.
template <typename NODE>
class CUT_LIST {
 public:
  explicit CUT_LIST(NODE* pFirst) : m_pNode(pFirst) {
    for (int i = 1; i < 20; i++) {
      m_pNode = m_pNode->pNext;
    }
    m_pRest        = m_pNode->pNext;
    m_pNode->pNext = nullptr;
  }
  ~CUT_LIST() {
    EXPECT_EQ(nullptr, m_pNode->pNext) << "something was linked in the middle of the list";
    m_pNode->pNext = m_pRest;
  }
  CUT_LIST(const CUT_LIST&)            = delete;
  CUT_LIST& operator=(const CUT_LIST&) = delete;

 private:
  NODE* m_pNode;
  NODE* m_pRest;
};

#endif
