// options/arguments.h
// SPDX-License-Identifier: MIT
//
// The command line: the unlock tool's option names for what both need, and two of its own.

#ifndef OPTIONS_ARGUMENTS_H
#define OPTIONS_ARGUMENTS_H

#include <stdint.h>

#include "app/settings.h"
#include "options/expect.h"

struct ARGUMENTS {
  UNLOCK_SETTINGS Settings;
  bool            IsJson;
  bool            WantsHelp;
  bool            WantsVersion;
  const char*     sExpect;  // "factory", the name of a file, or NULL
};

// Unlike the unlock tool it takes nothing that it does not know, and a number only if all of it is one.
// 0: done. -1: acError says in one line what is wrong.
int32_t ARGUMENTS_Parse(ARGUMENTS* pArguments, int NumArgs, const char* const* pasArgs,
                        char (&acError)[ERROR_SIZE]);

// The text of --help.
extern const char ARGUMENTS_Help[];

#endif
