// SPDX-License-Identifier: MIT

#include "sim/l4/l4.h"

namespace sim::l4 {

ControllerL4::ControllerL4(Surroundings& Around, const silicon::DEVICE& Facts,
                           const L4_FAMILY& Family)
    : Controller(Around, Facts, Family.Common), family_(Family) {
  State("first_half", &firstHalf_);
  State("first_half_value", &firstHalfValue_);
  State("loaded_empty", &loadedEmpty_);
}

// OPTVERR comes back at each reset until words without a fault are loaded.
void ControllerL4::OnReset(bool IsNew, bool /*IsPowerOn*/) {
  firstHalf_ = 0;
  registers_[SR] |= BadWords() != 0 ? SR_OPTVERR : 0;
  if (IsNew) {
    loadedEmpty_ = family_.NumBanks == 1 && MainFlash().IsErasedAt(MainFlash().Row().Base);
  }
}

// -- Registers -----------------------------------------------------------------------------------

bool ControllerL4::MustWait(const ACCESS& Access) const {
  return (Access.Area == OPTION_AREA && !Access.IsWrite) || Controller::MustWait(Access);
}

bool ControllerL4::ReadRegister(uint32_t Offset, uint32_t /*Size*/, uint32_t* pValue) {
  *pValue = registers_[Offset];
  if (Offset == SR) {
    *pValue |= (Busy() ? SR_BSY : 0) | (loadedEmpty_ != 0 ? SR_PEMPTY : 0);
  }
  return true;
}

bool ControllerL4::WriteRegister(uint32_t Offset, uint32_t /*Size*/, uint32_t Value) {
  if (const int Lock = LockAt(Offset); Lock >= 0) {
    return WriteKey(Lock, Value);
  }
  if (Offset == CR) {
    return WriteControl(Value);
  }
  if (Offset < OPTR) {
    registers_.Write(Offset, Value);
  } else if (IsOpen(OPTION_LOCK) && !Busy()) {
    WriteOption(Offset, Value);
  }
  return true;
}

void ControllerL4::WriteOption(uint32_t Offset, uint32_t Value) {
  static const uint32_t SPARE_BIT = 1u << 20;
  registers_.Write(Offset, Value);
  if (Offset == OPTR && family_.pSpareBit != nullptr && Is(*family_.pSpareBit)) {
    registers_[OPTR] = (registers_[OPTR] & ~SPARE_BIT) | (Value & SPARE_BIT);
  }
}

// OPERR is set on request only.
void ControllerL4::Fail(uint32_t Error) {
  registers_[SR] |= Error | ((registers_[CR] & CR_ERRIE) != 0 ? SR_OPERR : 0);
}

// Nothing starts while an error flag is set.
bool ControllerL4::HasPendingError() {
  if ((registers_[SR] & SR_ERRORS) == 0) {
    return false;
  }
  Fail(SR_PGSERR);
  around_.Event("not started: an error flag is set");
  return true;
}

bool ControllerL4::WriteControl(uint32_t Value) {
  if (!IsOpen(FLASH_LOCK)) {
    return true;
  }
  if (Busy()) {
    if ((Value & (CR_STRT | CR_OPTSTRT)) != 0) {
      Fail(SR_PGSERR);
    }
    return true;
  }
  const bool OptionsOpen = IsOpen(OPTION_LOCK);
  registers_.Write(CR, Value);
  if ((Value & CR_LOCK) != 0) {
    CloseLock(FLASH_LOCK);
  }
  if ((Value & CR_OPTLOCK) != 0) {
    CloseLock(OPTION_LOCK);
  }
  if ((Value & CR_PG) == 0) {
    firstHalf_ = 0;
  }
  if ((Value & CR_OBL_LAUNCH) != 0 && OptionsOpen) {
    return LaunchOptions();
  }
  if ((Value & CR_OPTSTRT) != 0 && OptionsOpen) {
    StartOptions();
  } else if ((Value & CR_STRT) != 0) {
    StartErase();
  }
  return true;
}

// -- Operations ----------------------------------------------------------------------------------

void ControllerL4::Perform(const PHASE& Phase, uint32_t DonePerMille) {
  switch (Phase.Kind) {
    case MASS_ERASE:
    case PAGE_ERASE:
      Erase(Phase, DonePerMille);
      break;
    case OPTION_PROGRAM:
      ProgramOptions(DonePerMille);
      break;
    case WORD_PROGRAM:
      ProgramDoubleWord(Phase.Argument, Phase.Value, DonePerMille == 1000);
      break;
    default:
      break;
  }
}

void ControllerL4::FinishPhase(const PHASE& Phase) {
  registers_[CR] &= ~(Phase.Kind == OPTION_PROGRAM ? CR_OPTSTRT : CR_STRT);
  registers_[SR] |= (registers_[CR] & CR_EOPIE) != 0 ? SR_EOP : 0;  // on request only
}

}  // namespace sim::l4
