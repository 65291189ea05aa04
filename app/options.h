// app/options.h
// SPDX-License-Identifier: MIT
//
// The command line: a table of options with one value each.

#ifndef APP_OPTIONS_H
#define APP_OPTIONS_H

#include <stdint.h>

#include "app/settings.h"

// Reads one value into the settings. 0: accepted. -1: refused, the message has been printed.
typedef int32_t OPTION_HANDLER(UNLOCK_SETTINGS* pSettings, const char* sValue);

struct OPTION_ROW {
  const char*     Option;  // case does not matter
  OPTION_HANDLER* Handler;
};

// The last row holds two NULLs.
extern const OPTION_ROW OptionTable[];

// Walks the arguments from index 1. Each option takes the next argument as its value, whatever that
// looks like. If an option is given twice, the last value counts. An argument that is not an option
// is skipped without a message.
//
// 0: done. -1: a value is missing or was refused. The message has been printed, later arguments
// were not read, and the settings of earlier options stay.
int32_t ParseCommandLine(UNLOCK_SETTINGS* pSettings, int NumArgs, const char* const* pasArgs);

#endif
