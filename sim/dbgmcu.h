// sim/dbgmcu.h
// SPDX-License-Identifier: MIT
//
// Rows of DBGMCU and RCC that several families have in common.

#ifndef SIM_DBGMCU_H
#define SIM_DBGMCU_H

#include "sim/registers.h"

namespace sim {

constexpr REGISTER IdCodeAt(uint32_t Address) {
  return {.sName   = "DBGMCU_IDCODE",
          .Address = Address,
          .Fields  = {silicon::Bits("DEV_ID", 11, 0), silicon::Bits("REV_ID", 31, 16)}};
}

// The register that stops both watchdogs while the core is halted, in bits 11 and 12.
constexpr REGISTER FreezeAt(const char* sName, uint32_t Address, uint32_t Writable) {
  return {.sName    = sName,
          .Address  = Address,
          .Writable = Writable,
          .Fields   = {silicon::Bit("DBG_WWDG_STOP", 11), silicon::Bit("DBG_IWDG_STOP", 12)}};
}

}  // namespace sim

#endif
