// SPDX-License-Identifier: MIT

#include "openocd/trace.h"

#include <stdarg.h>

#include "openocd/file.h"
#include "openocd/text.h"

bool TRACE_Open(TRACE* pTrace, const char* sPath) {
  TRACE_Close(pTrace);
  pTrace->pFile = FILE_OpenToAppend(sPath);
  return pTrace->pFile != NULL;
}

void TRACE_Close(TRACE* pTrace) {
  if (pTrace->pFile != NULL) {
    fclose(pTrace->pFile);
    pTrace->pFile = NULL;
  }
}

static const size_t MAX_LINE = 4096;

// A line is one line whatever is in the caller's texts.
__attribute__((format(printf, 3, 0))) static void WriteLine(TRACE* pTrace, const char* sMark,
                                                            const char* sFormat, va_list Args) {
  char          acText[MAX_LINE];
  const int64_t NowUs = TEXT_NowUs();
  if (pTrace->StartUs == 0) {
    pTrace->StartUs = NowUs;
  }
  if (pTrace->pFile == NULL) {
    return;
  }
  const long long Us = NowUs - pTrace->StartUs;
  vsnprintf(acText, sizeof(acText), sFormat, Args);
  TEXT_MakeOneLine(acText);
  fprintf(pTrace->pFile, "%5lld.%06lld %s%s\n", Us / 1000000, Us % 1000000, sMark, acText);
  fflush(pTrace->pFile);
}

void TRACE_Operation(TRACE* pTrace, const char* sFormat, ...) {
  char    acMark[16];
  va_list Args;
  pTrace->Number++;
  TEXT_Format(acMark, sizeof(acMark), "%5u  ", pTrace->Number);
  va_start(Args, sFormat);
  WriteLine(pTrace, acMark, sFormat, Args);
  va_end(Args);
}

void TRACE_Event(TRACE* pTrace, const char* sFormat, ...) {
  va_list Args;
  va_start(Args, sFormat);
  WriteLine(pTrace, "    -    -- ", sFormat, Args);
  va_end(Args);
}
