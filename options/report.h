// options/report.h
// SPDX-License-Identifier: MIT
//
// What is printed about a device: a table for people, or one JSON object (docs/options.md).

#ifndef OPTIONS_REPORT_H
#define OPTIONS_REPORT_H

#include <stdint.h>

#include "app/settings.h"
#include "options/expect.h"
#include "options/reading.h"

enum EXIT_STATUS {
  EXIT_SHOWN       = 0,  // and as expected
  EXIT_DIFFERS     = 1,
  EXIT_USAGE       = 2,
  EXIT_NO_TARGET   = 3,
  EXIT_PORT_CLOSED = 4
};

struct REPORT {
  const UNLOCK_SETTINGS* pSettings;
  EXIT_STATUS            Status;
  const char*            sError;  // NULL: none
  bool                   HasConnection;
  uint32_t               SpeedKhz;
  uint32_t               VoltageMv;
  const READING*         pReading;   // NULL: the device was not read
  const char*            sExpected;  // "factory", the name of a file, or NULL
  const DIFFERENCES*     pDifferences;
};

// Standard output, flushed. 0: printed. -1: it could not be written.
int32_t REPORT_PrintText(const REPORT* pReport);
int32_t REPORT_PrintJson(const REPORT* pReport);

// What a protection level means; for LEVEL_UNKNOWN as well.
const char* REPORT_Meaning(int32_t Level);

// Why the device is not known, or what is uncertain about it; NULL: nothing.
const char* REPORT_WhyUnknown(const READING* pReading);

#endif
