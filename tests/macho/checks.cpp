// SPDX-License-Identifier: MIT

// Checks of UTIL and SYS that need only the C library, so that they can be built for macOS on Linux
// and run by machorun: no GoogleTest for macOS exists there. The tests of UTIL and SYS include the
// same checks.
//
// Prints what fails and a line at the end. Exit status 0 when nothing failed.

#include <stdio.h>

#include "tests/sys/machine_checks_services.h"
#include "tests/sys/machine_checks_storage.h"
#include "tests/util/vectors_bits.h"
#include "tests/util/vectors_format.h"
#include "tests/util/vectors_identity.h"
#include "tests/util/vectors_scan.h"
#include "tests/util/vectors_string.h"
#include "tests/util/vectors_value_text.h"

static int NumFailed;

static void ReportRow(const char* sTable, int Row, const char* sText) {
  NumFailed++;
  printf("%s row %d: %s\n", sTable, Row, sText);
}

int main(void) {
  const int NumRows = VECTORS_RunFormat(ReportRow) + VECTORS_RunScan(ReportRow) +
                      VECTORS_RunString(ReportRow) + VECTORS_RunValueText(ReportRow) +
                      VECTORS_RunBits(ReportRow) + VECTORS_RunIdentity(ReportRow);
  NumFailed += CheckStorage();
  NumFailed += CheckServices();
  printf("machine_checks: %d rows, storage and services checked, %d failed\n", NumRows, NumFailed);
  return NumFailed == 0 && NumRows > 0 ? 0 : 1;
}
