// wire/bench_target.h
// SPDX-License-Identifier: MIT
//
// A device of the simulated bench as the chip behind a debug port. It is taken from the bench for as
// long as this object lives, and saved whenever something changed.
//
// Each access to its bus is a line of the trace that QUOBE_BENCH_TRACE names, in the words of the
// simulated probe; accesses to the core's own registers are none.

#ifndef WIRE_BENCH_TARGET_H
#define WIRE_BENCH_TARGET_H

#include <memory>
#include <string>

#include "sim/bench.h"
#include "sim/clock.h"
#include "sim/trace.h"
#include "wire/target.h"

namespace wire {

// What a debug port does at protection level 2 is not known for every family: it may not answer at
// all, or answer while every access to the bus fails.
enum LEVEL2 { LEVEL2_PORT_CLOSED, LEVEL2_ACCESSES_FAIL };

class BenchTarget : public Target {
 public:
  explicit BenchTarget(LEVEL2 Level2) : level2_(Level2) {}
  ~BenchTarget() override;

  // Takes the probe with this number from the bench, or the default one for 0.
  bool                       Open(uint32_t SerialNo, std::string* psError);
  const sim::PROBE_SETTINGS& Settings() const { return probe_; }

  // Whether the bench's own times are counted and not waited.
  bool IsFast() const { return clock_.IsFast(); }

  // The probe's supply; the board may have its own.
  void SwitchSupply(bool On);

  const CHIP_IDENTITY& Identity() const override { return identity_; }
  void                 Advance() override;
  bool                 PortAnswers() const override;
  bool                 BusAnswers() const override;
  uint32_t             PowerLosses() const override { return powerLosses_; }
  uint32_t             Resets() const override { return resets_; }
  bool                 Read(uint32_t Address, uint32_t Size, uint32_t* pValue) override;
  bool                 Write(uint32_t Address, uint32_t Size, uint32_t Value) override;
  uint64_t             StallUs() override;
  void                 SystemReset(bool HaltCore) override;
  void                 HoldReset() override;
  void                 ReleaseReset(bool HaltCore) override;
  void                 SetHalted(bool IsHalted) override;
  bool                 IsHalted() const override;

 private:
  void BeginAccess(uint32_t PolledAddress);
  void EndAccess();
  void FollowSupply();

  LEVEL2                       level2_;
  sim::Bench                   bench_;
  sim::PROBE_SETTINGS          probe_;
  std::unique_ptr<sim::Device> device_;
  sim::LINK                    link_;
  sim::Clock                   clock_{sim::Clock::REAL, sim::WallUs};
  sim::Trace                   trace_;
  CHIP_IDENTITY                identity_    = {};
  int                          lock_        = -1;
  uint32_t                     numAccesses_ = 0;
  uint32_t                     powerLosses_ = 0;
  uint32_t                     resets_      = 0;
  uint32_t                     polled_  = 0;  // the address of the last access, if it was a read
  uint64_t                     stallUs_ = 0;
};

}  // namespace wire

#endif
