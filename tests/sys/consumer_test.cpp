// A program that puts the root of the project on its search path for all headers (-I) still gets the
// system's own <sys/...> headers, because no header of SYS has the name of one.

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

TEST(SysConsumer, UsesTheSystemsFileHeaderBesideOurs) {
  FILE* pFile = tmpfile();
  ASSERT_NE(nullptr, pFile);
  EXPECT_EQ(0, flock(fileno(pFile), LOCK_EX | LOCK_NB));
  EXPECT_EQ(0u, SYS_FILE_GetSize(fileno(pFile)));
  fclose(pFile);
}
