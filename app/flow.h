// app/flow.h
// SPDX-License-Identifier: MIT
//
// The program from banner to exit status: settings, family, probe, voltage, reset, close.

#ifndef APP_FLOW_H
#define APP_FLOW_H

#include <stdint.h>

// Runs once and returns the exit status: 0, -1, or the negative result of a probe read (see
// ResetOptionBytesF2F4F7). The shell gets its low 8 bits: -1 becomes 255, and -256 becomes 0. Does
// not return if the probe library or one of its functions is missing: the process then ends with
// exit status 1. Once per process.
int32_t RunUnlock(int NumArgs, const char* const* pasArgs);

#endif
