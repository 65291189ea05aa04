#include "tests/sys/machine_checks_services.h"

#include <gtest/gtest.h>

// Unlocking what another thread holds is tried on purpose: it must fail, and harm nothing.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
  return "mutex:UnlockMutex";
}

TEST(SysMachineChecks, ServicesHold) {
  EXPECT_EQ(0, CheckServices());
}
