// SPDX-License-Identifier: MIT

#include "wire/core.h"

namespace wire {

static const uint32_t PPB_FIRST    = 0xE0000000;
static const uint32_t PPB_LAST     = 0xE00FFFFF;
static const uint32_t DBGMCU_FIRST = 0xE0042000;
static const uint32_t DBGMCU_LAST  = 0xE00420FF;

static const uint32_t DWT_CTRL = 0xE0001000;
static const uint32_t FP_CTRL  = 0xE0002000;
static const uint32_t CPUID    = 0xE000ED00;
static const uint32_t AIRCR    = 0xE000ED0C;
static const uint32_t DFSR     = 0xE000ED30;
static const uint32_t DHCSR    = 0xE000EDF0;
static const uint32_t DCRSR    = 0xE000EDF4;
static const uint32_t DCRDR    = 0xE000EDF8;
static const uint32_t DEMCR    = 0xE000EDFC;

static const uint32_t DHCSR_DBGKEY   = 0xA05F0000;
static const uint32_t DHCSR_CONTROL  = 0xF;
static const uint32_t C_DEBUGEN      = 1u << 0;
static const uint32_t C_HALT         = 1u << 1;
static const uint32_t S_REGRDY       = 1u << 16;
static const uint32_t S_HALT         = 1u << 17;
static const uint32_t S_RETIRE_ST    = 1u << 24;
static const uint32_t S_RESET_ST     = 1u << 25;
static const uint32_t VC_CORERESET   = 1u << 0;
static const uint32_t DFSR_HALTED    = 1u << 0;
static const uint32_t DFSR_VCATCH    = 1u << 3;
static const uint32_t DCRSR_WRITE    = 1u << 16;
static const uint32_t DCRSR_REGISTER = 0x7F;
static const uint32_t AIRCR_KEY      = 0x05FA0000;
static const uint32_t AIRCR_VECTSTAT = 0xFA050000;
static const uint32_t SYSRESETREQ    = 1u << 2;
static const uint32_t VECTRESET      = 1u << 0;
static const uint32_t HIGH_HALF      = 0xFFFF0000;

static const uint32_t FP_CTRL_V6  = 0x40;   // 4 comparators
static const uint32_t FP_CTRL_V7  = 0x260;  // 6 + 2 comparators
static const uint32_t DWT_CTRL_V6 = 2u << 28;
static const uint32_t DWT_CTRL_V7 = 4u << 28;

bool Core::Owns(uint32_t Address) {
  return Address >= PPB_FIRST && Address <= PPB_LAST &&
         !(Address >= DBGMCU_FIRST && Address <= DBGMCU_LAST);
}

// -- Reset and power -----------------------------------------------------------------------------

bool Core::HaltsAtReset() const {
  return (control_ & C_DEBUGEN) != 0 && (demcr_ & VC_CORERESET) != 0;
}

void Core::AfterReset() {
  wasReset_ = true;
  control_ &= ~C_HALT;
  if (HaltsAtReset()) {
    dfsr_ |= DFSR_VCATCH;
    chip_.SetHalted(true);
  }
}

void Core::Follow() {
  if (powerLosses_ != chip_.PowerLosses()) {
    powerLosses_ = chip_.PowerLosses();
    resets_      = chip_.Resets();
    control_ = demcr_ = dfsr_ = dcrdr_ = 0;
    wasReset_                          = true;
    other_.clear();
  }
  if (resets_ != chip_.Resets()) {
    resets_ = chip_.Resets();
    AfterReset();
  }
}

void Core::HoldInReset(bool IsHeld) {
  if (IsHeld == held_) {
    return;
  }
  held_ = IsHeld;
  if (IsHeld) {
    chip_.HoldReset();
    wasReset_ = true;
  } else {
    chip_.ReleaseReset(HaltsAtReset());
  }
  Follow();
}

// -- Debug registers -----------------------------------------------------------------------------

uint32_t Core::ReadDhcsr() {
  const bool Halted = chip_.IsHalted() && !held_;
  uint32_t   Value  = control_ | S_REGRDY;
  if (Halted) {
    Value |= S_HALT;
  } else if (!held_) {
    Value |= S_RETIRE_ST;
  }
  if (wasReset_ || held_) {
    Value |= S_RESET_ST;
  }
  wasReset_ = false;
  return Value;
}

void Core::WriteDhcsr(uint32_t Value) {
  if ((Value & HIGH_HALF) != DHCSR_DBGKEY) {
    return;
  }
  control_ = Value & DHCSR_CONTROL;
  if ((control_ & C_DEBUGEN) == 0) {
    control_ &= ~C_HALT;
  }
  if ((control_ & C_HALT) != 0 && !chip_.IsHalted()) {
    dfsr_ |= DFSR_HALTED;
  }
  if (!held_) {
    chip_.SetHalted((control_ & C_HALT) != 0);
  }
}

void Core::SelectRegister(uint32_t Value) {
  uint32_t& Register = registers_[Value & DCRSR_REGISTER];
  if ((Value & DCRSR_WRITE) != 0) {
    Register = dcrdr_;
  } else {
    dcrdr_ = Register;
  }
}

uint32_t Core::Read(uint32_t Address) {
  switch (Address) {
    case CPUID:
      return chip_.Identity().Cpuid;
    case AIRCR:
      return AIRCR_VECTSTAT;
    case DFSR:
      return dfsr_;
    case DHCSR:
      return ReadDhcsr();
    case DCRDR:
      return dcrdr_;
    case DEMCR:
      return demcr_;
    case FP_CTRL:
      return (chip_.Identity().IsArmv6 ? FP_CTRL_V6 : FP_CTRL_V7) | (other_[Address] & 1);
    case DWT_CTRL:
      return chip_.Identity().IsArmv6 ? DWT_CTRL_V6 : DWT_CTRL_V7;
    default:
      break;
  }
  const auto Written = other_.find(Address);
  return Written != other_.end() ? Written->second : RomTable(Address);
}

void Core::Write(uint32_t Address, uint32_t Value) {
  switch (Address) {
    case AIRCR:
      if ((Value & HIGH_HALF) == AIRCR_KEY && (Value & (SYSRESETREQ | VECTRESET)) != 0 && !held_) {
        chip_.SystemReset(HaltsAtReset());
        Follow();
      }
      break;
    case DFSR:
      dfsr_ &= ~Value;
      break;
    case DHCSR:
      WriteDhcsr(Value);
      break;
    case DCRSR:
      SelectRegister(Value);
      break;
    case DCRDR:
      dcrdr_ = Value;
      break;
    case DEMCR:
      demcr_ = Value;
      break;
    default:
      other_[Address] = Value;
      break;
  }
}

// -- ROM tables ----------------------------------------------------------------------------------

struct COMPONENT {
  uint32_t Address;
  uint32_t PartV6;
  uint32_t PartV7;
};

static const COMPONENT aComponents[] = {
    {0xE000E000, 0x008, 0x00C},  // SCS
    {0xE0001000, 0x00A, 0x002},  // DWT
    {0xE0002000, 0x00B, 0x003},  // FPB
};

static const uint32_t ENTRY_PRESENT  = 3;
static const uint32_t COMPONENT_MASK = 0xFFFFF000, OFFSET_MASK = 0xFFF;
static const uint32_t PIDR4 = 0xFD0, PIDR0 = 0xFE0, PIDR3 = 0xFEC, CIDR0 = 0xFF0, MEMTYPE = 0xFCC;
static const uint32_t JEP_ARM_HIGH = 0xB0, JEP_ARM_LOW = 0x0B, JEP_ARM_BANK = 4;
static const uint32_t JEP_CHIP_LOW = 0x0A;  // the chip maker's is 0x20 in bank 0

// Words of the ROM table that names the chip, and the identification of what it lists.
uint32_t Core::RomTable(uint32_t Address) const {
  const CHIP_IDENTITY& Chip   = chip_.Identity();
  const uint32_t       Base   = Address & COMPONENT_MASK;
  const uint32_t       Offset = Address & OFFSET_MASK;
  const bool           IsRom  = Base == Chip.RomTable;
  const COMPONENT*     pFound = nullptr;
  for (const COMPONENT& Each : aComponents) {
    if (Each.Address == Base) {
      pFound = &Each;
    }
  }
  if (!IsRom && pFound == nullptr) {
    return 0;
  }
  if (IsRom && Offset / 4 < sizeof(aComponents) / sizeof(aComponents[0])) {
    return (aComponents[Offset / 4].Address - Base) | ENTRY_PRESENT;
  }
  if (IsRom && Offset == MEMTYPE) {
    return 1;
  }
  if (Offset >= CIDR0) {
    static const uint32_t aCidr[] = {0x0D, 0x00, 0x05, 0xB1};
    const uint32_t        Class   = IsRom ? 0x10 : 0xE0;
    return aCidr[(Offset - CIDR0) / 4] | (Offset == CIDR0 + 4 ? Class : 0);
  }
  const uint32_t Part = IsRom ? Chip.DevId : Chip.IsArmv6 ? pFound->PartV6 : pFound->PartV7;
  if (Offset == PIDR4) {
    return IsRom ? 0 : JEP_ARM_BANK;
  }
  if (Offset >= PIDR0 && Offset <= PIDR3) {
    const uint32_t aPidr[] = {Part & 0xFF, (IsRom ? 0 : JEP_ARM_HIGH) | Part >> 8,
                              IsRom ? JEP_CHIP_LOW : JEP_ARM_LOW, 0};
    return aPidr[(Offset - PIDR0) / 4];
  }
  return 0;
}

}  // namespace wire
