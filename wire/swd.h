// wire/swd.h
// SPDX-License-Identifier: MIT
//
// The debug port as the SWD wires show it: an SW-DP (ADIv5) with one AHB-AP, AP 0. AP reads are
// posted: each answers the value of the one before, RDBUFF the last.

#ifndef WIRE_SWD_H
#define WIRE_SWD_H

#include <stdint.h>

#include <functional>

#include "wire/core.h"
#include "wire/target.h"

namespace wire {

enum ACK : uint8_t { ACK_OK = 1, ACK_WAIT = 2, ACK_FAULT = 4, ACK_NONE = 7 };

class DebugPort {
 public:
  // NowUs is the clock by which a bus that waits is over.
  DebugPort(Target& Chip, std::function<uint64_t()> NowUs);

  // One SWD transfer. Register is the address (0, 4, 8, 12). *pData is read or written.
  ACK Transfer(bool IsAp, bool IsRead, uint32_t Register, uint32_t* pData);

  void LineReset();
  void SetResetPin(bool IsLow) { core_.HoldInReset(IsLow); }
  // Whether a debugger has its hands on the core: C_DEBUGEN, or a trap for the next reset.
  bool IsCoreHeld() const { return core_.IsHeld(); }
  // When the access that is under way is over; 0 when none is.
  uint64_t BusyUntilUs() const { return busyUntil_; }

 private:
  void     Follow();
  bool     IsBusy();
  ACK      DpRead(uint32_t Register, uint32_t* pData);
  ACK      DpWrite(uint32_t Register, uint32_t Data);
  uint32_t ControlStatus() const;
  uint32_t ApRead(uint32_t Register);
  void     ApWrite(uint32_t Register, uint32_t Data);
  uint32_t BusRead(uint32_t Address, uint32_t Size);
  void     BusWrite(uint32_t Address, uint32_t Size, uint32_t Lanes);
  bool     BusTakes(uint32_t Address, uint32_t Size);
  void     Increment(uint32_t Size);

  Target&                   chip_;
  Core                      core_;
  std::function<uint64_t()> nowUs_;
  uint32_t                  powerLosses_ = 0;
  uint64_t                  busyUntil_   = 0;
  uint32_t                  control_     = 0;  // CTRL/STAT as written
  uint32_t                  select_      = 0;
  uint32_t                  posted_      = 0;  // the last AP read's value
  bool                      stickyError_ = false;
  uint32_t                  csw_         = 0;
  uint32_t                  tar_         = 0;
};

}  // namespace wire

#endif
