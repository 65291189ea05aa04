// SPDX-License-Identifier: MIT

#include "tests/sys/machine_checks_services.h"

#include <gtest/gtest.h>

// The checks unlock a mutex that another thread holds: that must fail and change nothing.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
  return "mutex:SYS_MUTEX_Unlock\nmutex:SYS_LOCK_Unlock";
}

TEST(SysMachineChecks, ServicesHold) {
  EXPECT_EQ(0, CheckServices());
}
