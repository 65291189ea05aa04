#include "openocd/trace.h"

#include <stdarg.h>

#include "openocd/text.h"

bool TRACE_Open(TRACE* pTrace, const char* sPath) {
  TRACE_Close(pTrace);
  pTrace->pFile = fopen(sPath, "a");
  return pTrace->pFile != NULL;
}

void TRACE_Close(TRACE* pTrace) {
  if (pTrace->pFile != NULL) {
    fclose(pTrace->pFile);
    pTrace->pFile = NULL;
  }
}

static void WriteTime(TRACE* pTrace) {
  const int64_t NowUs = TEXT_NowUs();
  if (pTrace->StartUs == 0) {
    pTrace->StartUs = NowUs;
  }
  const long long Us = NowUs - pTrace->StartUs;
  if (pTrace->pFile != NULL) {
    fprintf(pTrace->pFile, "%5lld.%06lld ", Us / 1000000, Us % 1000000);
  }
}

void TRACE_Operation(TRACE* pTrace, const char* sFormat, ...) {
  WriteTime(pTrace);
  pTrace->Number++;
  if (pTrace->pFile != NULL) {
    va_list Args;
    va_start(Args, sFormat);
    fprintf(pTrace->pFile, "%5u  ", pTrace->Number);
    vfprintf(pTrace->pFile, sFormat, Args);
    fputc('\n', pTrace->pFile);
    fflush(pTrace->pFile);
    va_end(Args);
  }
}

void TRACE_Event(TRACE* pTrace, const char* sFormat, ...) {
  WriteTime(pTrace);
  if (pTrace->pFile != NULL) {
    va_list Args;
    va_start(Args, sFormat);
    fputs("    -    -- ", pTrace->pFile);
    vfprintf(pTrace->pFile, sFormat, Args);
    fputc('\n', pTrace->pFile);
    fflush(pTrace->pFile);
    va_end(Args);
  }
}
