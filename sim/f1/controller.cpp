// SPDX-License-Identifier: MIT

#include "sim/f1/f1.h"

namespace sim::f1 {

ControllerF1::ControllerF1(Surroundings& Around, const silicon::DEVICE& Facts,
                           const F1_FAMILY& Family)
    : Controller(Around, Facts, Family.Common), family_(Family) {
  State("unreadable_until_power_on", &unreadable_);
}

// -- Bus -----------------------------------------------------------------------------------------

// The bank whose registers have to do with the address. Option bytes are in the first one.
uint32_t ControllerF1::BankOf(uint32_t Address) const {
  const Memory& Flash = MainFlash();
  return family_.BankBytes != 0 && Flash.Contains(Address) &&
                 Address - Flash.Row().Base >= family_.BankBytes
             ? BANK2
             : BANK1;
}

// The bank that the phase keeps busy. One that unprotects shows in the first bank's SR only.
uint32_t ControllerF1::BankOf(const PHASE& Phase) const {
  switch (Phase.Kind) {
    case MASS_ERASE:
      return Phase.Argument == ERASE_BANK2 ? BANK2 : BANK1;
    case PAGE_ERASE:
    case WORD_PROGRAM:
      return BankOf(Phase.Argument);
    default:
      return BANK1;
  }
}

// One bank stays readable while the other is busy, but not during the erase that lifts protection.
bool ControllerF1::MustWait(const ACCESS& Access) const {
  switch (Access.Area) {
    case OPTION_AREA:
      return Access.IsWrite || RunsIn(BANK1);
    case MEMORY_AREA:
      return Access.pMemory->Row().Kind == MAIN_FLASH &&
             (Access.IsWrite ||
              (Level() == 0 && (Running()->Unprotects() || RunsIn(BankOf(Access.Address)))));
    default:
      return false;
  }
}

bool ControllerF1::ReadRegister(uint32_t Offset, uint32_t Size, uint32_t* pValue) {
  if (family_.WordAccessOnly && Size != 4) {
    return false;
  }
  const bool IsBusy = (Offset == SR && RunsIn(BANK1)) || (Offset == BANK2 + SR && RunsIn(BANK2));
  *pValue           = registers_[Offset] | (IsBusy ? SR_BSY : 0);
  return true;
}

// No register takes a write while an operation runs; that one bank could be written while the other
// is busy is not modelled.
bool ControllerF1::WriteRegister(uint32_t Offset, uint32_t Size, uint32_t Value) {
  if (family_.WordAccessOnly && Size != 4) {
    return false;
  }
  if (Busy()) {
    return true;
  }
  if (const int Lock = LockAt(Offset); Lock >= 0) {
    return WriteKey(Lock, Value);
  }
  if (Offset == CR || Offset == BANK2 + CR) {
    return WriteControl(Offset - CR, Value);
  }
  registers_.Write(Offset, Value);
  return true;
}

bool ControllerF1::WriteControl(uint32_t Bank, uint32_t Value) {
  if ((registers_[Bank + CR] & CR_LOCK) != 0) {
    return true;
  }
  registers_.Write(Bank + CR, Value);
  if (Bank == BANK1 && (Value & CR_OPTWRE) == 0) {
    CloseLock(OPTION_LOCK);
  }
  if ((Value & CR_LOCK) != 0) {
    CloseLock(Bank == BANK1 ? FLASH_LOCK : BANK2_LOCK);
    return true;  // nothing starts with the write that locks
  }
  if ((Value & CR_OBL_LAUNCH) != 0 && family_.Loading != LOAD_ON_RESET) {
    return LaunchOptions();
  }
  if ((Value & CR_STRT) != 0) {
    StartErase(Bank);
  }
  return true;
}

// -- Operations ----------------------------------------------------------------------------------

// HSI times every operation: while it is off, none begins.
void ControllerF1::Begin(const std::vector<PHASE>& Phases) {
  if (around_.HsiRuns()) {
    Start(Phases);
  } else {
    around_.Event("nothing is erased or programmed: HSI is off");
  }
}

// A half-word gets its lower byte first: an option byte that was cut short is left without its
// complement.
void ControllerF1::Perform(const PHASE& Phase, uint32_t DonePerMille) {
  const bool IsHalfDone = DonePerMille >= 500;
  const bool IsDone     = DonePerMille == 1000;
  switch (Phase.Kind) {
    case MASS_ERASE:
      EraseBanks(Phase.Argument, DonePerMille);
      break;
    case PAGE_ERASE:
      MainFlash().EraseUntil(Phase.Argument, family_.PageBytes, DonePerMille);
      break;
    case OPTION_ERASE:
      EraseOptions(IsHalfDone);
      break;
    case WORD_PROGRAM:
      if (IsHalfDone && InOptionArea(Phase.Argument)) {
        const uint32_t Whole = WithComplement(0, Phase.Value & 0xFF);
        ProgramOption(Phase.Argument, IsDone ? Whole & 0xFFFF : 0xFF00 | Phase.Value);
      } else if (IsHalfDone) {
        uint32_t& Word = MainFlash().WordAt(Phase.Argument);
        Word           = Merge(Word, Phase.Argument, IsDone ? 2 : 1, Phase.Value);
      }
      break;
    default:
      break;
  }
}

void ControllerF1::FinishPhase(const PHASE& Phase) {
  for (const uint32_t Bank : {BANK1, BANK2}) {
    if (registers_.Has(Bank + CR)) {
      registers_[Bank + CR] &= ~CR_STRT;
    }
  }
  registers_[BankOf(Phase) + SR] |= SR_EOP;
  if (Phase.Unprotects()) {
    unreadable_ = facts_.pFamily->Level2 == 0 && Is(F1_UNPROTECT_NEEDS_POWER_ON);
  }
}

}  // namespace sim::f1
