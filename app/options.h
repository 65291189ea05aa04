// app/options.h
//
// The command line: a table of options with one value each.

#ifndef APP_OPTIONS_H
#define APP_OPTIONS_H

#include <stdint.h>

#include "app/settings.h"

// Reads one value into the settings. 0: accepted. -1: refused, the message has been printed.
typedef int32_t OPTION_HANDLER(UNLOCK_SETTINGS* pSettings, const char* sValue);

struct OPTION_ROW {
  const char*     Option;  // as the user types it, upper and lower case alike
  OPTION_HANDLER* Handler;
};

// Ended by a row of two NULLs.
extern const OPTION_ROW OptionTable[];

// Zeroes the record and sets the defaults: USB, any probe, 1000 kHz, ask for the family, wait for a
// key at the end.
void SetDefaultSettings(UNLOCK_SETTINGS* pSettings);

// Walks the arguments from index 1. Each option takes the argument behind it as its value, whatever
// that looks like; of an option given twice the last value holds. What is no option is skipped
// without a word.
//
// 0: done. -1: a value is missing or was refused; the message has been printed, later arguments
// were not looked at, and what earlier options set stays set.
int32_t ParseCommandLine(UNLOCK_SETTINGS* pSettings, int NumArgs, const char* const* pasArgs);

#endif
