// SPDX-License-Identifier: MIT

#include "sim/l0/l0.h"

namespace sim::l0 {

ControllerL0::ControllerL0(Surroundings& Around, const silicon::DEVICE& Facts,
                           const L0_FAMILY& Family)
    : Controller(Around, Facts, Family.Common), family_(Family) {}

// The flags come back at each reset until words without a fault are loaded.
void ControllerL0::OnReset(bool /*IsNew*/, bool /*IsPowerOn*/) {
  SetFlags((BadWords() != 0 ? SR_OPTVERR : 0) |
           ((BadWords() >> WORD_USER & 1) != 0 ? SR_OPTVERRUSR : 0));
}

// -- Registers -----------------------------------------------------------------------------------

// Flash, EEPROM and option words share what is busy.
bool ControllerL0::MustWait(const ACCESS& Access) const {
  return Access.Area == OPTION_AREA ||
         (Access.Area == MEMORY_AREA && Access.pMemory->Row().Kind != SRAM && Level() == 0);
}

bool ControllerL0::ReadRegister(uint32_t Offset, uint32_t /*Size*/, uint32_t* pValue) {
  *pValue = registers_[Offset];
  if (Offset == SR && Busy()) {
    *pValue = (*pValue | SR_BSY) & ~(SR_ENDHV | SR_READY);
  }
  return true;
}

// Each category has some of the flags: those that can be cleared.
void ControllerL0::SetFlags(uint32_t Flags) {
  registers_[SR] |= Flags & registers_.RowAt(registers_.Base() + SR)->ClearByOne;
}

bool ControllerL0::WriteRegister(uint32_t Offset, uint32_t /*Size*/, uint32_t Value) {
  if (const int Lock = LockAt(Offset); Lock >= 0) {
    const bool Good = WriteKey(Lock, Value);
    FollowPelock();
    return Good;
  }
  if (Offset == PECR) {
    return WriteControl(Value);
  }
  registers_.Write(Offset, Value);
  return true;
}

bool ControllerL0::WriteControl(uint32_t Value) {
  if (!IsOpen(FLASH_LOCK) || (Busy() && !family_.PecrWhileBusy)) {
    return true;
  }
  const bool Launches = (Value & PECR_OBL_LAUNCH) != 0 && IsOpen(OPTION_LOCK);
  registers_.Write(PECR, Value);
  for (const int Lock : {FLASH_LOCK, PROGRAM_LOCK, OPTION_LOCK}) {
    if ((Value & this->Lock(Lock).Row().ClosedBit) != 0) {
      CloseLock(Lock);
    }
  }
  FollowPelock();
  if (Launches) {
    return LaunchOptions();
  }
  return true;
}

// PELOCK, however it came to be set, clears what was asked for.
void ControllerL0::FollowPelock() {
  if (!IsOpen(FLASH_LOCK)) {
    registers_[PECR] &= ~(PECR_PROG | PECR_DATA | PECR_FTDW | PECR_ERASE);
  }
}

// -- Memories ------------------------------------------------------------------------------------

bool ControllerL0::ReadFlash(const Memory& /*Source*/, uint32_t Address, uint32_t* pValue) {
  if (Level() != 0 || !IsPcropLoaded() || !IsProtected(Address)) {
    return Level() == 0;
  }
  SetFlags(SR_RDERR);
  *pValue = 0;
  return !family_.PcropReadsFault;
}

bool ControllerL0::WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) {
  if (Level() != 0) {
    return false;
  }
  if (Target.Row().Kind == MAIN_FLASH) {
    WriteFlash(Address, Size, Value);
  } else {
    WriteEeprom(Address, Size, Value);
  }
  return true;
}

void ControllerL0::WriteFlash(uint32_t Address, uint32_t Size, uint32_t Value) {
  if (!IsOpen(PROGRAM_LOCK) || IsProtected(Address)) {
    SetFlags(SR_WRPERR);
  } else if (Size != 4) {
    SetFlags(SR_SIZERR);
  } else if ((~registers_[PECR] & (PECR_ERASE | PECR_PROG)) == 0) {  // whatever is written
    Start({{PAGE_ERASE, Us(WORD_PHASE), Address & ~(family_.PageBytes - 1)}});
  } else if (WordAt(Address) != 0) {
    SetFlags(family_.NotZeroError);
  } else {
    Start({{WORD_PROGRAM, Us(WORD_PHASE), Address, Value}});
  }
}

void ControllerL0::WriteEeprom(uint32_t Address, uint32_t Size, uint32_t Value) {
  if (!IsOpen(FLASH_LOCK)) {
    SetFlags(SR_WRPERR);
  } else if ((~registers_[PECR] & (PECR_ERASE | PECR_DATA)) == 0) {
    Start({{WORD_PROGRAM, Us(WORD_PHASE), Address & ~3u, 0}});
  } else {
    Start({ProgramPhase(Address, Merge(WordAt(Address), Address, Size, Value))});
  }
}

// -- Operations ----------------------------------------------------------------------------------

uint32_t ControllerL0::WordAt(uint32_t Address) const {
  const int Index = IndexOfWord(Address);
  return Index >= 0 ? Stored(Index) : AllMemories().At(Address)->WordAt(Address);
}

void ControllerL0::SetWord(uint32_t Address, uint32_t Value) {
  const int Index = IndexOfWord(Address);
  if (Index >= 0) {
    Store(Index, Value);
  } else {
    AllMemories().At(Address)->WordAt(Address) = Value;
  }
}

// Erase and program, in option words and EEPROM. The erase is left out where there is nothing to
// erase, unless FTDW asks for it. ERASE in option words is an erase alone.
PHASE ControllerL0::ProgramPhase(uint32_t Address, uint32_t Value) const {
  const bool IsOption = IndexOfWord(Address) >= 0;
  const bool IsErase  = IsOption && (registers_[PECR] & PECR_ERASE) != 0;
  const bool IsBoth   = WordAt(Address) != 0 || (registers_[PECR] & PECR_FTDW) != 0 ||
                      (IsOption && Is(L0_L1_ALWAYS_ERASE_OPTIONS));
  return {WORD_PROGRAM, (IsBoth && !IsErase ? 2 : 1) * Us(WORD_PHASE), Address, Value};
}

// A word that is cut short in its erase loses every other bit. The erase takes the first half of the
// time, or all of it where nothing is programmed. Programming begins with the lower half: an option
// word that was cut short there is left without its complement.
void ControllerL0::Perform(const PHASE& Phase, uint32_t DonePerMille) {
  const bool IsErasing =
      Phase.DurationUs > WORD_PHASE.LongestUs ? DonePerMille < 500 : Phase.Value == 0;
  switch (Phase.Kind) {
    case MASS_ERASE:
      for (Memory& Each : AllMemories()) {
        Each.EraseUntil(Each.Row().Base, Each.Row().Kind == SRAM ? 0 : Each.Row().Bytes,
                        DonePerMille);
      }
      break;
    case PAGE_ERASE:
      MainFlash().EraseUntil(Phase.Argument, family_.PageBytes, DonePerMille);
      break;
    case WORD_PROGRAM:
      SetWord(Phase.Argument, DonePerMille == 1000 ? Phase.Value
                              : IsErasing          ? HalfErased(WordAt(Phase.Argument), 0)
                                                   : Phase.Value & 0xFFFF);
      break;
    default:
      break;
  }
}

void ControllerL0::FinishPhase(const PHASE& Phase) {
  if (Phase.Kind == MASS_ERASE && family_.EraseTakesOptions) {
    for (int i = WORD_USER; i < NumWords(); i++) {
      Store(i, 0);
    }
  }
  SetFlags(SR_EOP);
}

}  // namespace sim::l0
