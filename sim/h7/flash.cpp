// SPDX-License-Identifier: MIT

#include <algorithm>

#include "sim/h7/h7.h"

namespace sim::h7 {

// By PSIZE: x8, x16, x32, x64.
static const TIME aMassErase[4] = {
    {13000000, 26000000}, {8000000, 16000000}, {6000000, 12000000}, {5000000, 10000000}};
static const TIME aSectorErase[4] = {
    {2000000, 4000000}, {1800000, 3600000}, {1100000, 2200000}, {1000000, 2000000}};
static const TIME aProgram[4] = {{290, 580}, {180, 360}, {130, 260}, {100, 200}};

// Addresses are those of the banks when they are not swapped.
uint32_t ControllerH7::Place(const Memory& Source, uint32_t Address) const {
  return Source.Row().Kind == MAIN_FLASH && IsSwapped() ? Address ^ BANK_BYTES : Address;
}

const TIME& ControllerH7::ByPsize(const TIME (&aTimes)[4], uint32_t Bank) const {
  return aTimes[registers_[OfBank(CR, Bank)] >> 4 & 3];
}

// -- Protection ----------------------------------------------------------------------------------

bool ControllerH7::InArea(int Word, uint32_t Address) const {
  const uint32_t Unit = (Address - FLASH_BASE) % BANK_BYTES / AREA_UNIT;
  return AREA(Stored(OfBank(Word, BankAt(Address)))).Holds(Unit);
}

bool ControllerH7::IsProtected(uint32_t Address) const {
  const uint32_t Sector = (Address - FLASH_BASE) % BANK_BYTES / SECTOR_BYTES;
  return InArea(WORD_PRAR, Address) || InArea(WORD_SCAR, Address) ||
         (Stored(OfBank(WORD_WPSN, BankAt(Address))) >> Sector & 1) == 0;
}

// An area is spared unless its wipe bit is set, before or by this change.
bool ControllerH7::IsSpared(uint32_t Address) const {
  for (const int Kind : {WORD_PRAR, WORD_SCAR}) {
    const int Word = OfBank(Kind, BankAt(Address));
    if (((Stored(Word) | Prg(Word)) & AREA_WIPE) == 0 && InArea(Kind, Address)) {
      return true;
    }
  }
  return false;
}

bool ControllerH7::ReadFlash(const Memory& Source, uint32_t Address, uint32_t* /*pValue*/) {
  const uint32_t Error = Level() != 0 || InArea(WORD_PRAR, Address) ? SR_RDPERR
                         : InArea(WORD_SCAR, Address)               ? SR_RDSERR
                                                                    : 0;
  registers_[OfBank(SR, BankAt(Address))] |= Error;
  return Error == 0 && !IsBeyond(Source);
}

// A device may have more flash than it answers for.
bool ControllerH7::IsBeyond(const Memory& Source) const {
  return &Source != &MainFlash() && IsChosen(family_.pFlashEndsAsStated);
}

// -- Programming ---------------------------------------------------------------------------------

// PGSERR and INCERR have to be cleared before anything can start.
bool ControllerH7::IsBlocked(uint32_t Bank) const {
  return (registers_[OfBank(SR, Bank)] & (SR_PGSERR | SR_INCERR)) != 0;
}

// Bytes are collected until a flash word is full or FW is set.
bool ControllerH7::WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) {
  const uint32_t Bank     = BankAt(Address);
  const uint32_t Bytes    = ((1u << Size) - 1) << (Address % FLASH_WORD);
  const uint32_t InBuffer = Address & ~(FLASH_WORD - 1);
  uint32_t       Error    = 0;
  if (IsBeyond(Target)) {
    return false;
  }
  if (Level() != 0 || IsProtected(Address)) {
    Error = SR_WRPERR;
  } else if ((registers_[OfBank(CR, Bank)] & CR_PG) == 0) {
    Error = SR_PGSERR;
  } else if (bufferBytes_ != 0 && bufferAddress_ != InBuffer) {
    Error = SR_INCERR;
  } else if ((bufferBytes_ & Bytes) != 0) {
    Error = SR_STRBERR;
  }
  registers_[OfBank(SR, Bank)] |= Error;
  if (Error != 0 || IsBlocked(Bank)) {
    return true;
  }
  if (bufferBytes_ == 0) {
    EmptyBuffer();
  }
  uint32_t& Word = aBuffer_[Address % FLASH_WORD / 4];
  Word           = Merge(Word, Address, Size, Value);
  bufferAddress_ = InBuffer;
  bufferBytes_ |= Bytes;
  if (bufferBytes_ == ~0u) {
    StartProgramming(Bank);
  }
  return true;
}

void ControllerH7::StartProgramming(uint32_t Bank) {
  activeBanks_ = 1u << Bank;
  Start({{WORD_PROGRAM, Us(ByPsize(aProgram, Bank)), bufferAddress_}});
}

bool ControllerH7::IsBuffered(uint32_t Bank) const {
  return bufferBytes_ != 0 && BankAt(bufferAddress_) == Bank;
}

void ControllerH7::EmptyBuffer() {
  bufferBytes_ = 0;
  std::fill(std::begin(aBuffer_), std::end(aBuffer_), ~0u);
}

// Programs the first NumBytes bytes of the buffer.
void ControllerH7::ProgramBuffer(uint32_t Address, uint32_t NumBytes) {
  const uint32_t First = Address & ~(FLASH_WORD - 1);
  for (uint32_t i = 0; i < NumBytes; i += 4) {
    if (Memory* pFlash = AllMemories().At(First + i); pFlash != nullptr) {
      pFlash->WordAt(First + i) &= aBuffer_[i / 4];
    }
  }
  EmptyBuffer();
}

// -- Erasing -------------------------------------------------------------------------------------

void ControllerH7::StartErase(uint32_t Bank) {
  const uint32_t Control = registers_[OfBank(CR, Bank)];
  const uint32_t Sector  = FLASH_BASE + Bank * BANK_BYTES + (Control >> 8 & 7) * SECTOR_BYTES;
  if ((Control & CR_BER) != 0) {
    StartBankErase(1u << Bank);
  } else if ((Control & CR_SER) != 0) {
    StartUnlessProtected(1u << Bank, Sector, SECTOR_BYTES,
                         {PAGE_ERASE, Us(ByPsize(aSectorErase, Bank)), Sector});
  }
}

uint64_t ControllerH7::MassEraseUs(uint32_t Bank) const {
  return Us(ByPsize(aMassErase, Bank));
}

void ControllerH7::StartBankErase(uint32_t Banks) {
  const uint32_t First = Banks == ERASE_BANK2 ? 1 : 0;
  const uint32_t Bytes = Banks == (ERASE_BANK1 | ERASE_BANK2) ? 2 * BANK_BYTES : BANK_BYTES;
  StartUnlessProtected(Banks, FLASH_BASE + First * BANK_BYTES, Bytes,
                       {MASS_ERASE, MassEraseUs(First), Banks});
}

// Nothing at all is erased when a part of it is protected.
void ControllerH7::StartUnlessProtected(uint32_t Banks, uint32_t Address, uint32_t Bytes,
                                        const PHASE& Phase) {
  if (((Banks & ERASE_BANK1) != 0 && IsBlocked(0)) ||
      ((Banks & ERASE_BANK2) != 0 && IsBlocked(1))) {
    return;
  }
  bool Refused = Level() != 0;
  for (uint32_t i = 0; i < Bytes && !Refused; i += AREA_UNIT) {
    Refused = IsProtected(Address + i);
  }
  for (uint32_t Bank = 0; Bank < family_.NumBanks; Bank++) {
    if ((Banks >> Bank & 1) != 0) {
      registers_[OfBank(Refused ? SR : CR, Bank)] |= Refused ? SR_WRPERR : CR_START;
    }
  }
  if (!Refused) {
    activeBanks_ = Banks;
    Start({Phase});
  }
}

// Erases DonePerMille thousandths of the range, in the memory that holds the address.
void ControllerH7::EraseRange(uint32_t Address, uint32_t Bytes, uint32_t DonePerMille) {
  if (Memory* pFlash = AllMemories().At(Address); pFlash != nullptr) {
    pFlash->EraseUntil(Address, Bytes, DonePerMille);
  }
}

// Erases DonePerMille thousandths of each bank. Neither write protection nor areas to be wiped
// stop unprotecting.
void ControllerH7::EraseBanks(uint32_t What, uint32_t DonePerMille) {
  const uint32_t Done = BANK_BYTES / 8 * DonePerMille / 125;
  for (uint32_t Bank = 0; Bank < family_.NumBanks; Bank++) {
    for (uint32_t Offset = 0; Offset < Done; Offset += AREA_UNIT) {
      const uint32_t Address = FLASH_BASE + Bank * BANK_BYTES + Offset;
      if (What == UNPROTECT ? !IsSpared(Address) : (What >> Bank & 1) != 0) {
        EraseRange(Address, AREA_UNIT, std::min(1000u, (Done - Offset) * 1000 / AREA_UNIT));
      }
    }
  }
}

}  // namespace sim::h7
