// SPDX-License-Identifier: MIT

// The probe operations and the waits of the tool, for tests in one process: registers answer from
// functions, and time passes only when the tool waits or reads.

#ifndef TESTS_APP_FAKE_PROBE_H
#define TESTS_APP_FAKE_PROBE_H

#include <stdint.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

struct FAKE_PROBE {
  // What a one-word read at an address returns; NumReads counts reads of that address so far.
  std::function<uint32_t(uint32_t Address, int NumReads)> Read;
  // True where a read fails and delivers nothing; may be empty.
  std::function<bool(uint32_t Address, int NumReads)> Fails;
  int32_t                                             FailureResult;  // of such a read
  std::function<void()>                               OnReset;        // may be empty

  uint64_t TimeUs;         // the clock
  uint64_t TimePerReadUs;  // how long a read takes
  uint32_t TickNumer;      // a tick of the system in nanoseconds: TickNumer / TickDenom
  uint32_t TickDenom;

  int         NumReads;   // all reads
  int         NumResets;  // all calls of QUOBEARM_Reset
  uint64_t    SleptUs;    // all sleeps
  std::string Last;       // the last call, without its arguments

  const char* sOpenError;  // what QUOBEARM_Open returns
  bool        IsOpen;
  uint16_t    Voltage;  // in mV

  // Each call of the probe and each sleep, with the number of bytes that standard output had then.
  std::vector<std::pair<size_t, std::string>> Log;
};

extern FAKE_PROBE FakeProbe;

// Forgets everything; the clock starts at StartMs and ticks in nanoseconds. The tool's clock counts
// from its next use.
void FAKE_PROBE_Begin(uint64_t StartMs);

// Adds a call to the log.
void FAKE_PROBE_Log(const char* sFormat, ...) __attribute__((format(printf, 1, 2)));

// The output with each call and sleep as <call> where it was made. Output is what GoogleTest
// captured from before the first of them on.
std::string FAKE_PROBE_Transcript(const std::string& Output);

#endif
