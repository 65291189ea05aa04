// wire/core.h
// SPDX-License-Identifier: MIT
//
// The private peripheral bus of a Cortex-M as a debugger meets it: CPUID, the debug registers from
// DHCSR to DEMCR, AIRCR, the core registers behind DCRSR, the enables of FPB and DWT, ROM tables.

#ifndef WIRE_CORE_H
#define WIRE_CORE_H

#include <stdint.h>

#include <map>

#include "wire/target.h"

namespace wire {

class Core {
 public:
  explicit Core(Target& Chip) : chip_(Chip) {}

  // Whether an address belongs to the core. DBGMCU lies in its range and is the chip's.
  static bool Owns(uint32_t Address);

  // Word accesses, as DRW and the banked registers make them.
  uint32_t Read(uint32_t Address);
  void     Write(uint32_t Address, uint32_t Value);

  // Looks at what happened to the chip since the last call: a loss of power, a reset by itself.
  void Follow();
  void HoldInReset(bool IsHeld);

  bool IsHeld() const { return control_ != 0 || demcr_ != 0; }

 private:
  bool     HaltsAtReset() const;
  void     AfterReset();
  uint32_t ReadDhcsr();
  void     WriteDhcsr(uint32_t Value);
  void     SelectRegister(uint32_t Value);
  uint32_t RomTable(uint32_t Address) const;

  Target&                      chip_;
  uint32_t                     powerLosses_ = 0;
  uint32_t                     resets_      = 0;
  uint32_t                     control_     = 0;      // DHCSR bits 3..0
  bool                         wasReset_    = false;  // S_RESET_ST
  bool                         held_        = false;
  uint32_t                     demcr_       = 0;
  uint32_t                     dfsr_        = 0;
  uint32_t                     dcrdr_       = 0;
  uint32_t                     registers_[128]{};
  std::map<uint32_t, uint32_t> other_;  // FPB, DWT: what was written
};

}  // namespace wire

#endif
