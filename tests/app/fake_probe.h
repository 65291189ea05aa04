// The probe operations and the waits of the reset routines, for tests in one process: registers
// answer from functions, time passes only when the routine waits or reads.

#ifndef TESTS_APP_FAKE_PROBE_H
#define TESTS_APP_FAKE_PROBE_H

#include <stdint.h>

#include <functional>
#include <string>

struct FAKE_PROBE {
  // What a one-word read at an address returns; NumReads counts reads of that address so far.
  std::function<uint32_t(uint32_t Address, int NumReads)> Read;
  uint64_t                                                TimeUs;         // the clock
  uint32_t                                                TickNumer;      // a tick of the system
  uint32_t                                                TickDenom;      // in nanoseconds
  uint64_t                                                TimePerReadUs;  // how long a read takes
  int                                                     NumReads;       // all reads
  int                                                     NumResets;  // all calls of QUOBEARM_Reset
  uint64_t                                                SleptUs;    // all sleeps
  std::function<void()>                                   OnReset;    // may be empty
  // True where a read fails and delivers nothing; may be empty.
  std::function<bool(uint32_t Address, int NumReads)> Fails;
  std::string Last;  // the last call, as in the scripted probe's log
};

extern FAKE_PROBE FakeProbe;

// Forgets everything; the clock starts at StartMs and ticks in nanoseconds. The tool's clock counts
// from its next use.
void FAKE_PROBE_Begin(uint64_t StartMs);

#endif
