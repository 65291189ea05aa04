// SPDX-License-Identifier: MIT

#include <algorithm>

#include "sim/h7/h7.h"

namespace sim::h7 {

ControllerH7::ControllerH7(Surroundings& Around, const silicon::DEVICE& Facts,
                           const H7_FAMILY& Family)
    : Controller(Around, Facts, Family.Common), family_(Family) {
  static const char* const aNames[] = {"buffer_0", "buffer_1", "buffer_2", "buffer_3",
                                       "buffer_4", "buffer_5", "buffer_6", "buffer_7"};
  State("change_error", &changeError_);
  State("active_banks", &activeBanks_);
  State("buffer_address", &bufferAddress_);
  State("buffer_bytes", &bufferBytes_);
  for (size_t i = 0; i < std::size(aNames); i++) {
    State(aNames[i], &aBuffer_[i]);
  }
}

// Every reset brings the values in force back into _PRG.
void ControllerH7::OnReset(bool /*IsNew*/, bool IsPowerOn) {
  for (int i = 0; i < NumWords(); i++) {
    registers_[PrgRegister(i)] = Stored(i);
  }
  EmptyBuffer();
  changeError_ = IsPowerOn || Is(H7_ERROR_CLEARED_ON_RESET) ? 0 : changeError_;
}

// -- Bus -----------------------------------------------------------------------------------------

// Where the value of a register is kept. KEYR, CR, SR, CCR and PRAR to WPSN are each bank's own and
// change places with the banks; of the others the second view is another address.
uint32_t ControllerH7::Home(uint32_t Offset) const {
  const uint32_t Kind = Offset % VIEW2;
  const bool     IsOwn =
      Kind == KEYR || (Kind >= CR && Kind <= CCR) || (Kind >= PRAR_CUR && Kind <= WPSN_PRG);
  return IsOwn ? OfBank(Kind, (Offset >= VIEW2) != IsSwapped()) : Kind;
}

bool ControllerH7::IsAbsent(uint32_t Home) const {
  return Home >= VIEW2 + PRAR_CUR && IsChosen(family_.pBank2HasNoOptions);
}

bool ControllerH7::RunsIn(uint32_t Bank) const {
  return Busy() && (activeBanks_ == 0 || (activeBanks_ >> Bank & 1) != 0);
}

// The bank that is not busy can be read, but not while options change.
bool ControllerH7::MustWait(const ACCESS& Access) const {
  if (Access.Area == MEMORY_AREA) {
    return Access.pMemory->Row().Kind == MAIN_FLASH &&
           (Access.IsWrite || (Level() == 0 && RunsIn(BankAt(Access.Address))));
  }
  const uint32_t Register = Access.Area == REGISTERS ? Home(Access.Address - BASE) : 0;
  return Access.IsWrite && Register % VIEW2 == CR && (registers_[Register] & CR_LOCK) == 0;
}

bool ControllerH7::ReadRegister(uint32_t Offset, uint32_t /*Size*/, uint32_t* pValue) {
  const uint32_t Register = Home(Offset);
  const uint32_t Bank     = Register / VIEW2;
  *pValue                 = IsAbsent(Register) ? 0 : registers_[Register];
  switch (Register % VIEW2) {
    case OPTSR_CUR:
      *pValue |= ChangesOptions() ? OPTSR_OPT_BUSY : 0;
      *pValue |= changeError_ != 0 ? OPTSR_OPTCHANGEERR : 0;
      break;
    case OPTCR:
      *pValue |= ChangesOptions() ? OPTCR_OPTSTART : 0;
      *pValue |= IsSwapped() ? OPTCR_SWAP_BANK : 0;
      break;
    case SR:
      *pValue |= Busy() && (activeBanks_ >> Bank & 1) != 0 ? SR_BSY | SR_QW : 0;
      *pValue |= IsBuffered(Bank) ? SR_WBNE : 0;
      break;
    default:
      break;
  }
  return true;
}

bool ControllerH7::WriteRegister(uint32_t Offset, uint32_t Size, uint32_t Value) {
  const uint32_t Register = Home(Offset);
  const uint32_t Bank     = Register / VIEW2;
  const int      Own      = LockAt(Register);
  // A write to another register between the two keys keeps the lock closed until reset.
  for (int i = 0; i < static_cast<int>(family_.Common.Locks.size()); i++) {
    if (i != Own) {
      Lock(i).Interrupt();
    }
  }
  switch (Register % VIEW2) {
    case KEYR:
    case OPTKEYR:
      // So does a key that is not a whole word.
      if (Size != 4) {
        Lock(Own).Kill();
      }
      return WriteKey(Own, Value);
    case CR:
      WriteControl(Bank, Value);
      break;
    case CCR:
      registers_[OfBank(SR, Bank)] &= ~Value;
      break;
    case OPTCR:
      WriteOptionControl(Value);
      break;
    case OPTCCR:
      changeError_ = (Value & OPTCCR_CLR_OPTCHANGEERR) != 0 ? 0 : changeError_;
      break;
    default:
      // Of the rest only the _PRG registers have bits to write.
      if (IsOpen(OPTION_LOCK) && !ChangesOptions() && !IsAbsent(Register)) {
        WritePrg(Register, Value);
      }
      break;
  }
  return true;
}

void ControllerH7::WriteControl(uint32_t Bank, uint32_t Value) {
  const uint32_t Register = OfBank(CR, Bank);
  if ((registers_[Register] & CR_LOCK) != 0) {
    return;
  }
  registers_.Write(Register, Value);
  if ((Value & CR_LOCK) != 0) {
    CloseLock(Bank == 0 ? BANK1_LOCK : BANK2_LOCK);
  }
  if ((Value & CR_START) != 0) {
    registers_[Register] &= ~CR_START;
    StartErase(Bank);
  } else if ((Value & CR_FW) != 0 && IsBuffered(Bank) && !IsBlocked(Bank)) {
    StartProgramming(Bank);
  }
  if (!Busy()) {
    registers_[Register] &= ~CR_FW;
  }
}

// -- The place of the second view on devices that have none --------------------------------------

bool ControllerH7::InOptionArea(uint32_t Address) const {
  return family_.NumBanks == 1 && Address - (BASE + VIEW2) < VIEW2;
}

bool ControllerH7::ReadOptionArea(uint32_t /*Address*/, uint32_t* pWord) {
  *pWord = 0;
  return !IsChosen(family_.pSecondViewFaults);
}

bool ControllerH7::WriteOptionArea(uint32_t /*Address*/, uint32_t /*Size*/, uint32_t /*Value*/) {
  return !IsChosen(family_.pSecondViewFaults);
}

// -- Operations ----------------------------------------------------------------------------------

// A change of options that is cut short keeps the old values.
void ControllerH7::Perform(const PHASE& Phase, uint32_t DonePerMille) {
  switch (Phase.Kind) {
    case MASS_ERASE:
      EraseBanks(Phase.Argument, DonePerMille);
      break;
    case PAGE_ERASE:
      EraseRange(Phase.Argument, SECTOR_BYTES, DonePerMille);
      break;
    case WORD_PROGRAM:
      ProgramBuffer(Phase.Argument, FLASH_WORD * DonePerMille / 1000);
      break;
    default:
      break;
  }
}

// Options are in force once they are programmed, but for the banks, which change places at reset.
void ControllerH7::FinishPhase(const PHASE& Phase) {
  for (int i = 0; i < NumWords() && Phase.Kind == OPTION_PROGRAM; i++) {
    const uint32_t Kept = i == WORD_OPTSR ? OPTSR_SWAP_BANK_OPT : 0;
    Store(i, Prg(i));
    ShowLoaded(i, Stored(i));
    SetLoaded(i, (Stored(i) & ~Kept) | (Loaded(i) & Kept));
  }
  for (uint32_t Bank = 0; Bank < family_.NumBanks; Bank++) {
    uint32_t& Control = registers_[OfBank(CR, Bank)];
    if ((activeBanks_ >> Bank & 1) != 0) {
      registers_[OfBank(SR, Bank)] |= (Control & CR_EOPIE) != 0 ? SR_EOP : 0;
      Control &= ~(CR_START | CR_FW);
    }
  }
}

}  // namespace sim::h7
