// SPDX-License-Identifier: MIT

// Reports a failing row of the vector tables to GoogleTest.
#pragma once

#include <gtest/gtest.h>

static inline void ReportRow(const char* sTable, int Row, const char* sText) {
  ADD_FAILURE() << sTable << " row " << Row << ": " << sText;
}
