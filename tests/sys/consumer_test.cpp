// SPDX-License-Identifier: MIT

// A program that puts the root of the project on its search path for all headers (-I) still gets
// the system's own <sys/...> headers, because no header of SYS has the name of one.

#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/file.h>

#include "sys/clock.h"
#include "sys/console.h"
#include "sys/dynbuffer.h"
#include "sys/files.h"
#include "sys/memory.h"
#include "sys/misc.h"
#include "sys/path.h"
#include "sys/registry.h"
#include "sys/serial.h"
#include "sys/sockets.h"
#include "sys/thread.h"
#include "sys/xml.h"

// Programs are compiled with the values: they stay as they are.
static_assert(DYNBUFFER_ERR_MEMORY == -2);
static_assert(DYNBUFFER_ERR_RANGE == -3);
static_assert(SYS_TCP_ERR_TIMEOUT == -2);
static_assert(SYS_TCP_ERR_ABORTED == -3);
static_assert(SYS_SOCKET_ERR_OTHER == -1);
static_assert(SYS_SOCKET_ERR_WOULD_BLOCK == -2);
static_assert(SYS_SOCKET_ERR_TIMED_OUT == -3);
static_assert(SYS_SOCKET_ERR_NET_RESET == -4);
static_assert(SYS_SOCKET_ERR_INTERRUPTED == -5);
static_assert(SYS_XML_OK == 0);
static_assert(SYS_XML_NOT_FOUND == 1);
static_assert(SYS_XML_ERR_ARGUMENT == -1);
static_assert(SYS_XML_ERR_TOO_LONG == -2);
static_assert(SYS_XML_ERR_TEXT == -1);
static_assert(SYS_XML_ERR_TAG == -2);
static_assert(SYS_XML_ERR_ATTR == -3);
static_assert(SYS_XML_ERR_MEMORY == -5);
static_assert(SYS_XML_ERR_END_TAG == -7);
static_assert(SYS_XML_ERR_DEPTH == -8);
static_assert(SYS_XML_ERR_NO_ROOT == -9);
static_assert(SYS_XML_ERR_FILE == -10);
static_assert(SYS_TIMEOUT == 258);
static_assert(SYS_WAIT_FOREVER == 0xFFFFFFFF);
static_assert(SYS_REG_OK == 0);
static_assert(SYS_REG_FAILED == 1);
static_assert(SYS_REG_NOT_FOUND == 2);
static_assert(SYS_REG_MORE_DATA == 234);

TEST(SysConsumer, UsesTheSystemsFileHeaderBesideOurs) {
  FILE* pFile = tmpfile();
  ASSERT_NE(nullptr, pFile);
  EXPECT_EQ(0, flock(fileno(pFile), LOCK_EX | LOCK_NB));
  EXPECT_EQ(0u, SYS_FILE_GetSize(fileno(pFile)));
  fclose(pFile);
}
