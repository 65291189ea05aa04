// SPDX-License-Identifier: MIT

#include "sys/memory.h"

#include <gtest/gtest.h>
#include <string.h>

TEST(SysMemory, ABlockHoldsTheBytesAskedFor) {
  void* pMem = SYS_MEM_Alloc(1000);
  ASSERT_NE(nullptr, pMem);
  memset(pMem, 0x5A, 1000);
  SYS_MEM_Free(pMem);
}

TEST(SysMemory, ADescriptionChangesNothing) {
  for (const char* sDescription : {"what for", static_cast<const char*>(nullptr)}) {
    void* pMem = SYS_MEM_AllocNamed(16, sDescription);
    ASSERT_NE(nullptr, pMem);
    memset(pMem, 0, 16);
    SYS_MEM_Free(pMem);
  }
}

TEST(SysMemory, ReallocateKeepsTheBytesAndTakesNull) {
  char* pMem = static_cast<char*>(SYS_MEM_Realloc(nullptr, 4));
  ASSERT_NE(nullptr, pMem);
  memcpy(pMem, "abc", 4);
  pMem = static_cast<char*>(SYS_MEM_Realloc(pMem, 100000));
  ASSERT_NE(nullptr, pMem);
  EXPECT_STREQ("abc", pMem);
  SYS_MEM_Free(pMem);
}

TEST(SysMemory, ZeroBytesAreABlockTooAlsoAfterShrinkingToThem) {
  void* pMem = SYS_MEM_Alloc(0);
  ASSERT_NE(nullptr, pMem);
  pMem = SYS_MEM_Realloc(pMem, 8);
  ASSERT_NE(nullptr, pMem);
  pMem = SYS_MEM_Realloc(pMem, 0);
  ASSERT_NE(nullptr, pMem);
  SYS_MEM_Free(pMem);
}

TEST(SysMemory, FreeTakesNull) {
  SYS_MEM_Free(nullptr);
}

TEST(SysMemory, FreeAndClearLeavesANullPointer) {
  void* pMem = SYS_MEM_Alloc(8);
  SYS_MEM_FreeAndClear(&pMem);
  EXPECT_EQ(nullptr, pMem);
  SYS_MEM_FreeAndClear(&pMem);
  EXPECT_EQ(nullptr, pMem);
}
