// SPDX-License-Identifier: MIT

#include "app/print.h"

#include <stdarg.h>
#include <stdio.h>

// Each function flushes: the stream is buffered when standard output is a pipe or a file.

void PrintText(const char* sText) {
  fputs(sText, stdout);
  fflush(stdout);
}

void PrintLine(const char* sText) {
  puts(sText);
  fflush(stdout);
}

void PrintFormat(const char* sFormat, ...) {
  va_list Args;
  va_start(Args, sFormat);
  vprintf(sFormat, Args);
  va_end(Args);
  fflush(stdout);
}
