// SPDX-License-Identifier: MIT

#include <algorithm>

#include "sim/l4/l4.h"

namespace sim::l4 {

// -- Pages and what protects them ----------------------------------------------------------------

bool ControllerL4::IsWriteProtected(uint32_t Page) const {
  const int First = WORD_WRP_A + BankOf(Page) * BANK_WORDS;
  for (const int Index : {First, First + 1}) {
    const silicon::FIELDS& Fields = Word(Index).Fields;
    const SECTOR_AREA      Area   = {Fields.aField[0].Get(Loaded(Index)),
                                     Fields.aField[1].Get(Loaded(Index))};
    if (Area.Has(Page % PagesPerBank())) {
      return true;
    }
  }
  return false;
}

bool ControllerL4::IsPcrop(uint32_t Address) const {
  const uint32_t Page = PageAt(Address);
  return LoadedPcrop(BankOf(Page))
      .Has(Page % PagesPerBank() * UNITS_PER_PAGE + Address % PAGE_BYTES / PCROP_UNIT);
}

// Whether any part of the page is execute-only.
bool ControllerL4::HoldsPcrop(uint32_t Page) const {
  const SECTOR_AREA Area  = LoadedPcrop(BankOf(Page));
  const uint32_t    First = Page % PagesPerBank() * UNITS_PER_PAGE;
  return !Area.IsEmpty() && Area.First < First + UNITS_PER_PAGE && Area.Last >= First;
}

// -- Reading and programming ---------------------------------------------------------------------

bool ControllerL4::ReadFlash(const Memory& /*Source*/, uint32_t Address, uint32_t* pValue) {
  if (Level() == 0 && IsPcrop(Address)) {
    registers_[SR] |= SR_RDERR;
    *pValue = 0;
  }
  return Level() == 0;
}

// Flash takes double words: a first write to the lower half waits for the one to the upper half.
bool ControllerL4::WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) {
  if (Level() != 0) {
    return false;
  }
  const uint32_t Error = ProgramError(Target, Address, Size, Value);
  if (Error != 0) {
    Fail(Error);
  } else if (firstHalf_ == 0) {
    firstHalf_      = Address;
    firstHalfValue_ = Value;
    return true;
  } else {
    Start({{WORD_PROGRAM, Us(PROGRAM), firstHalf_, Value}});
  }
  firstHalf_ = 0;
  return true;
}

uint32_t ControllerL4::ProgramError(const Memory& Target, uint32_t Address, uint32_t Size,
                                    uint32_t Value) const {
  // A lower half is one at a multiple of 8; an edited file may name another place.
  const uint32_t Wanted = firstHalf_ == 0 ? Address & ~7u : firstHalf_ | 4;
  if ((registers_[CR] & (CR_PG | CR_LOCK)) != CR_PG || (registers_[SR] & SR_ERRORS) != 0) {
    return SR_PGSERR;
  }
  if (Size != 4) {
    return SR_SIZERR;
  }
  if (Address != Wanted) {
    return SR_PGAERR;
  }
  if (IsPcrop(Address) || IsWriteProtected(PageAt(Address))) {
    return SR_WRPERR;
  }
  const bool IsErased =
      firstHalf_ == 0 || (Target.IsErasedAt(firstHalf_) && Target.IsErasedAt(Address));
  return IsErased || (firstHalfValue_ | Value) == 0 ? 0 : SR_PROGERR;
}

// One that is cut short has come to its lower half.
void ControllerL4::ProgramDoubleWord(uint32_t Address, uint32_t High, bool ToTheEnd) {
  Memory& Flash = MainFlash();
  if (Flash.Contains(Address + 4)) {
    Flash.WordAt(Address)     = firstHalfValue_;
    Flash.WordAt(Address + 4) = ToTheEnd ? High : Flash.WordAt(Address + 4);
  }
}

// -- Erasing -------------------------------------------------------------------------------------

// From the first page to the last. A file may name a page that does not exist.
SECTOR_AREA ControllerL4::PagesOf(const PHASE& Phase) const {
  if (Phase.Kind == PAGE_ERASE) {
    return {Phase.Argument, std::min(Phase.Argument, NumPages() - 1)};
  }
  return {Phase.Argument == ERASE_BANK2 ? PagesPerBank() : 0,
          (Phase.Argument == ERASE_BANK1 ? PagesPerBank() : NumPages()) - 1};
}

void ControllerL4::StartErase() {
  const uint32_t Control = registers_[CR];
  const uint32_t Banks =
      ((Control & CR_MER1) != 0 ? ERASE_BANK1 : 0) | ((Control & CR_MER2) != 0 ? ERASE_BANK2 : 0);
  PHASE Phase = {MASS_ERASE, Us(ERASE), Banks};
  if (HasPendingError()) {
    return;
  }
  if (Banks == 0) {
    if ((Control & CR_PER) == 0) {
      return;
    }
    Phase.Kind     = PAGE_ERASE;
    Phase.Argument = (Control >> 3 & 0xFF) + ((Control & CR_BKER) != 0 ? PagesPerBank() : 0);
  }
  const SECTOR_AREA Pages = PagesOf(Phase);
  for (uint32_t Page = Pages.First; Page <= Pages.Last; Page++) {
    if (Level() != 0 || IsWriteProtected(Page) || HoldsPcrop(Page)) {
      Fail(SR_WRPERR);
      return;
    }
  }
  registers_[CR] |= CR_STRT;
  Start({Phase});
}

// Page after page, up to DonePerMille thousandths of the phase.
void ControllerL4::Erase(const PHASE& Phase, uint32_t DonePerMille) {
  const SECTOR_AREA Pages = PagesOf(Phase);
  const uint32_t    End   = (Pages.Last + 1 - Pages.First) * DonePerMille;  // in 1/1000 pages
  for (uint32_t Page = Pages.First; Page <= Pages.Last; Page++) {
    const uint32_t Before = (Page - Pages.First) * 1000;
    if (Before < End && !(Phase.Unprotects() && SparesPcrop() && HoldsPcrop(Page))) {
      MainFlash().EraseUntil(MainFlash().Row().Base + Page * PAGE_BYTES, PAGE_BYTES,
                             std::min(End - Before, 1000u));
    }
  }
}

}  // namespace sim::l4
