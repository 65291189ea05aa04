// openocd/trace.h
// SPDX-License-Identifier: MIT
//
// The trace: one line per probe operation, "time number operation", in the form and the words of the
// simulated bench. Appended to the file; each line is flushed, since a trace is wanted most where a
// run did not come to its end.

#ifndef OPENOCD_TRACE_H
#define OPENOCD_TRACE_H

#include <stdint.h>
#include <stdio.h>

struct TRACE {
  FILE*    pFile;    // NULL: nothing is written
  int64_t  StartUs;  // of the first operation
  uint32_t Number;   // of the last operation
};

// False when the file cannot be written, with errno.
bool TRACE_Open(TRACE* pTrace, const char* sPath);
void TRACE_Close(TRACE* pTrace);

// The next operation; it is counted also when nothing is written.
void TRACE_Operation(TRACE* pTrace, const char* sFormat, ...) __attribute__((format(printf, 2, 3)));

// What happens beside the operations.
void TRACE_Event(TRACE* pTrace, const char* sFormat, ...) __attribute__((format(printf, 2, 3)));

#endif
