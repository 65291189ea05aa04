// SPDX-License-Identifier: MIT

// Sleeping and clocks.
//
// With MACHORUN_CLOCK_STEP_US set, time is simulated: a sleep returns at once and advances the
// clock by its length; each reading advances it by that many microseconds. Time-outs of the program
// then pass without waiting, and a loop that only reads the clock still ends. Sleeps and
// mach_absolute_time() use simulated time, the calendar does not. At the end of the process the
// simulated milliseconds are written to the file that MACHORUN_CLOCK_FILE names.
//
// MACHORUN_TIMEBASE is the length of a tick of mach_absolute_time() in ns, 1 without it. On a Mac
// with an arm64 processor it is 125/3.
//
// A library of this system that the program opens reads the same time: clock_gettime() is defined
// here and exported, so that its calls come here too.

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "machorun/darwin_abi.h"
#include "machorun/shim.h"

namespace {

constexpr uint64_t START_NS = 1000000000;

std::atomic<uint64_t> SimulatedNs{START_NS};

void WriteClockFile() {
  const char* sPath = getenv("MACHORUN_CLOCK_FILE");
  FILE*       pFile = sPath == nullptr ? nullptr : fopen(sPath, "we");
  if (pFile != nullptr) {
    fprintf(pFile, "%llu\n", static_cast<unsigned long long>((SimulatedNs - START_NS) / 1000000));
    fclose(pFile);
  }
}

// 0 when time is real.
uint64_t StepNs() {
  static const uint64_t Step = [] {
    const char*    sStep = getenv("MACHORUN_CLOCK_STEP_US");
    const uint64_t Ns    = sStep == nullptr ? 0 : strtoull(sStep, nullptr, 10) * 1000;
    if (Ns != 0 && atexit(&WriteClockFile) != 0) {
      Unknown("atexit failed");
    }
    return Ns;
  }();
  return Step;
}

int SleepMicroseconds(unsigned Microseconds) {
  Trace("usleep(%u)", Microseconds);
  if (StepNs() != 0) {
    SimulatedNs += Microseconds * 1000ull;
    return 0;
  }
  return usleep(Microseconds);
}

int SleepNanoseconds(const struct timespec* pTime, struct timespec* pLeft) {
  if (StepNs() != 0) {
    SimulatedNs +=
        static_cast<uint64_t>(pTime->tv_sec) * 1000000000u + static_cast<uint64_t>(pTime->tv_nsec);
    return 0;
  }
  return nanosleep(pTime, pLeft);
}

struct TimebaseInfo {
  uint32_t Numerator;
  uint32_t Denominator;
};

TimebaseInfo GetTimebase() {
  TimebaseInfo Info  = {1, 1};
  const char*  sTick = getenv("MACHORUN_TIMEBASE");
  if (sTick != nullptr && (sscanf(sTick, "%u/%u", &Info.Numerator, &Info.Denominator) != 2 ||
                           Info.Numerator == 0 || Info.Denominator == 0)) {
    Unknown("MACHORUN_TIMEBASE=%s", sTick);
  }
  return Info;
}

uint64_t Nanoseconds() {
  if (StepNs() != 0) {
    return SimulatedNs += StepNs();
  }
  struct timespec Now;
  clock_gettime(CLOCK_MONOTONIC, &Now);
  return static_cast<uint64_t>(Now.tv_sec) * 1000000000u + static_cast<uint64_t>(Now.tv_nsec);
}

int GetClock(int Clock, struct timespec* pTime) {
  if (Clock != darwin::CLOCK_ID_MONOTONIC) {
    Unknown("clock %d", Clock);
  }
  const uint64_t Now = Nanoseconds();
  pTime->tv_sec      = static_cast<time_t>(Now / 1000000000u);
  pTime->tv_nsec     = static_cast<long>(Now % 1000000000u);
  return 0;
}

uint64_t AbsoluteTime() {
  static const TimebaseInfo Tick = GetTimebase();
  return static_cast<uint64_t>(static_cast<unsigned __int128>(Nanoseconds()) * Tick.Denominator /
                               Tick.Numerator);
}

int Timebase(TimebaseInfo* pInfo) {
  *pInfo = GetTimebase();
  return 0;
}

const Shim Table[] = {
    Bound("_usleep", &SleepMicroseconds),    Bound("_nanosleep", &SleepNanoseconds),
    Bound("_clock_gettime", &GetClock),      Bound("_mach_absolute_time", &AbsoluteTime),
    Bound("_mach_timebase_info", &Timebase),
};

}  // namespace

extern "C" int clock_gettime(clockid_t Clock, struct timespec* pTime) noexcept {
  if (Clock == CLOCK_MONOTONIC && StepNs() != 0) {
    const uint64_t Now = SimulatedNs;
    pTime->tv_sec      = static_cast<time_t>(Now / 1000000000u);
    pTime->tv_nsec     = static_cast<long>(Now % 1000000000u);
    return 0;
  }
  return static_cast<int>(syscall(SYS_clock_gettime, Clock, pTime));
}

std::span<const Shim> TimeShims() {
  return Table;
}
