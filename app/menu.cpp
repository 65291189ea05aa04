// SPDX-License-Identifier: MIT

#include "app/menu.h"

#include <fcntl.h>
#include <stdio.h>
// clang-format off
#include <editline/readline.h>  // after stdio.h: it uses FILE and does not include it
// clang-format on
#include <stdlib.h>
#include <unistd.h>

#include "app/family.h"
#include "app/print.h"
#include "app/process.h"
#include "app/text.h"
#include "util/string.h"

static const uint32_t ENTRY_SIZE = 128;  // terminator counted

void PrintFamilyDescription(void) {
  PrintText(
      "This program is designed to reset the option bytes of a STM32 device to their factory "
      "settings. If read protection of the device is enabled, reset the option bytes will cause a "
      "mass erase.");
}

// Reads a line; NULL at the end of input.
//
// For a terminal type that it does not know the line editor writes a complaint to standard error
// and then works. The user can do nothing about it, and scripts treat any text on standard error as
// a failure. So standard error is /dev/null while the editor runs.
static char* ReadEntry(void) {
  // Above the standard descriptors: with standard input closed the copy would otherwise become it,
  // and the editor would read the answer from standard error.
  const int SavedError = fcntl(STDERR_FILENO, F_DUPFD, STDERR_FILENO + 1);
  // Without a free descriptor standard error stays as it is: the prompt matters more.
  const int Null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (SavedError >= 0 && Null >= 0) {
    dup2(Null, STDERR_FILENO);
  }
  char* sLine = readline("Please select the correct device family: ");
  if (SavedError >= 0 && Null >= 0) {
    dup2(SavedError, STDERR_FILENO);
  }
  if (SavedError >= 0) {
    close(SavedError);
  }
  if (Null >= 0) {
    close(Null);
  }
  return sLine;
}

int32_t SelectFamily(const FAMILY_ROW** ppRow) {
  PrintLine("\n");  // ends the description and leaves an empty line
  PrintLine("Options:");
  for (uint32_t i = 0; i < FAMILY_ROWS; i++) {
    PrintFormat("  [%d] %s\n", (int)i, FamilyTable[i].Name);
  }

  // Without UTF-8 the line editor drops every byte from 0x80 on, and a mistyped "é7" would choose
  // family 7. With it the bytes arrive and the entry is refused. Bytes that are not UTF-8 are still
  // dropped.
  UseUtf8();

  // Required: the end of input is no answer, so a script without one waits here.
  char* sLine;
  do {
    sLine = ReadEntry();
  } while (sLine == NULL);

  char acEntry[ENTRY_SIZE];
  UTIL_CopyString(acEntry, sLine, ENTRY_SIZE);  // a longer entry is cut, not refused
  if (acEntry[0] != 0) {
    add_history(sLine);  // not freed: the history may keep this pointer
  } else {
    free(sLine);
  }

  uint32_t Value;
  if (ParseDec(acEntry, &Value) < 0) {
    PrintFormat("ERROR: %s\n", "Expected a dec value");
    return -1;
  }
  if (Value >= FAMILY_ROWS) {
    PrintLine("ERROR: Invalid device family selected.");
    return -1;
  }
  if (Value == FAMILY_ROW_EXIT) {
    return 0;
  }
  *ppRow = &FamilyTable[Value];
  return 1;
}
