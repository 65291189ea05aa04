// SPDX-License-Identifier: MIT

#include <algorithm>

#include "sim/f1/f1.h"

namespace sim::f1 {

// -- Write protection ----------------------------------------------------------------------------

uint32_t ControllerF1::NumWrpBits() const {
  uint32_t NumBits = 0;
  for (const silicon::OPTION_WORD& Each : facts_.Options) {
    for (const silicon::FIELD& Field : Each.Fields) {
      NumBits += Field.Kind == silicon::WRP ? Field.Width() : 0;
    }
  }
  return NumBits;
}

uint32_t ControllerF1::WrpBytes() const {
  return family_.WrpStepUnknown && Is(F1_WRP_OF_FOUR_PAGES) ? 8192 : 4096;
}

// The last bit also protects everything after its place.
bool ControllerF1::IsProtected(uint32_t Address) const {
  const uint32_t Bit = (Address - MainFlash().Row().Base) / WrpBytes();
  return (registers_[WRPR] >> std::min(Bit, NumWrpBits() - 1) & 1) == 0;
}

// Of a second bank only the last bit speaks.
bool ControllerF1::IsBankProtected(uint32_t Bank) const {
  return Bank == BANK1 ? registers_[WRPR] != 0xFFFFFFFF
                       : IsProtected(MainFlash().Row().Base + family_.BankBytes);
}

// -- Reading and programming ---------------------------------------------------------------------

bool ControllerF1::ReadFlash(const Memory& /*Source*/, uint32_t /*Address*/, uint32_t* /*pValue*/) {
  return Level() == 0 && unreadable_ == 0;
}

bool ControllerF1::WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) {
  const uint32_t Bank = BankOf(Address);
  if (Size != 2) {
    return false;
  }
  if ((registers_[Bank + CR] & (CR_PG | CR_LOCK)) != CR_PG) {
    return true;
  }
  const uint32_t Old = Target.WordAt(Address) >> 8 * (Address % 4) & 0xFFFF;
  if (Level() != 0 || (Old != 0xFFFF && (Value & 0xFFFF) != 0)) {
    registers_[Bank + SR] |= SR_PGERR;
  } else if (IsProtected(Address)) {
    registers_[Bank + SR] |= SR_WRPRTERR;
  } else {
    Begin({{WORD_PROGRAM, Us(PROGRAM), Address, Value}});
  }
  return true;
}

// -- Erasing -------------------------------------------------------------------------------------

void ControllerF1::StartErase(uint32_t Bank) {
  const uint32_t Control = registers_[Bank + CR];
  const uint32_t Address = registers_[Bank + AR];
  const uint32_t Page    = Address & ~(family_.PageBytes - 1);
  const bool     Mass    = (Control & CR_MER) != 0;
  PHASE          Phase   = {PAGE_ERASE, Us(ERASE), Page};
  uint32_t       Error   = 0;
  if ((Control & CR_OPTER) != 0) {
    if ((Control & CR_OPTWRE) == 0) {
      return;
    }
    Phase.Kind = OPTION_ERASE;
  } else if ((Control & (CR_MER | CR_PER)) == 0) {
    return;
  } else if (Level() != 0) {
    Error = SR_PGERR;
  } else if (Mass ? IsBankProtected(Bank) : IsProtected(Address)) {
    Error = SR_WRPRTERR;
  } else if (Mass) {
    Phase = {MASS_ERASE, Us(ERASE), Bank == BANK1 ? ERASE_BANK1 : ERASE_BANK2};
  }
  registers_[Bank + SR] |= Error;
  if (Error == 0) {
    Begin({Phase});
    registers_[Bank + CR] |= Busy() ? CR_STRT : 0;
  }
}

// Erases DonePerMille thousandths of what is asked for.
void ControllerF1::EraseBanks(uint32_t What, uint32_t DonePerMille) {
  Memory&        Flash = MainFlash();
  const uint32_t First = family_.BankBytes != 0 ? family_.BankBytes : Flash.Row().Bytes;
  if (What != ERASE_BANK2) {
    Flash.EraseUntil(Flash.Row().Base, First, DonePerMille);
  }
  if (What != ERASE_BANK1) {
    Flash.EraseUntil(Flash.Row().Base + First, Flash.Row().Bytes - First, DonePerMille);
  }
}

}  // namespace sim::f1
