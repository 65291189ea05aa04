// sim/clock.h
// SPDX-License-Identifier: MIT
//
// The bench's clock, in microseconds since the connection was made. It follows the waits that the
// caller makes between two probe operations, in either speed:
//
//   Real   what the host's clock says; an operation takes the time that the wire needs, by sleeping
//   Fast   the caller's waits as they are, but the bench's own times are counted and not waited

#ifndef SIM_CLOCK_H
#define SIM_CLOCK_H

#include <stdint.h>

namespace sim {

class Clock {
 public:
  enum SPEED { REAL, FAST };

  // pfWall: the host's clock in microseconds; NULL for a caller that never waits.
  explicit Clock(SPEED Speed, uint64_t (*pfWall)() = nullptr);

  uint64_t NowUs() const { return nowUs_; }
  bool     IsFast() const { return speed_ == FAST; }

  // Around each probe operation.
  void Begin();
  void End();

  // The operation takes so long.
  void Spend(uint64_t Us);

 private:
  SPEED speed_;
  uint64_t (*pfWall_)();
  uint64_t wallUs_;
  uint64_t nowUs_ = 0;
};

// The host's monotonic clock in microseconds.
uint64_t WallUs();
void     SleepUs(uint64_t Us);

}  // namespace sim

#endif
