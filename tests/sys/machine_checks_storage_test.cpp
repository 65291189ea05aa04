// SPDX-License-Identifier: MIT

#include "tests/sys/machine_checks_storage.h"

#include <gtest/gtest.h>

TEST(SysMachineChecks, StorageHolds) {
  EXPECT_EQ(0, CheckStorage());
}
