// SPDX-License-Identifier: MIT

#include "sim/clock.h"

#include <time.h>

namespace sim {

Clock::Clock(SPEED Speed, uint64_t (*pfWall)())
    : speed_(Speed), pfWall_(pfWall), wallUs_(pfWall != nullptr ? pfWall() : 0) {}

void Clock::Begin() {
  if (pfWall_ != nullptr) {
    const uint64_t Wall = pfWall_();
    nowUs_ += Wall - wallUs_;
    wallUs_ = Wall;
  }
}

void Clock::End() {
  if (pfWall_ == nullptr) {
    return;
  }
  if (speed_ == REAL) {
    Begin();  // time passed as it did
  } else {
    wallUs_ = pfWall_();  // what the simulator itself took does not count
  }
}

void Clock::Spend(uint64_t Us) {
  if (speed_ == REAL && pfWall_ != nullptr) {
    SleepUs(Us);
    Begin();
  } else {
    nowUs_ += Us;
  }
}

uint64_t WallUs() {
  struct timespec Now;
  clock_gettime(CLOCK_MONOTONIC, &Now);
  return static_cast<uint64_t>(Now.tv_sec) * 1000000 + static_cast<uint64_t>(Now.tv_nsec) / 1000;
}

void SleepUs(uint64_t Us) {
  struct timespec Time;
  Time.tv_sec  = static_cast<time_t>(Us / 1000000);
  Time.tv_nsec = static_cast<long>(Us % 1000000 * 1000);
  nanosleep(&Time, nullptr);
}

}  // namespace sim
