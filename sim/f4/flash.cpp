// SPDX-License-Identifier: MIT

#include <algorithm>

#include "sim/f4/f4.h"

namespace sim::f4 {

// By PSIZE: x8, x16, x32, x64.
static const TIME aSmallErase[] = {
    {400000, 800000}, {300000, 600000}, {250000, 500000}, {250000, 500000}};
static const TIME aMiddleErase[] = {
    {1200000, 2400000}, {700000, 1400000}, {550000, 1100000}, {550000, 1100000}};
static const TIME aLargeErase[] = {
    {2000000, 4000000}, {1300000, 2600000}, {1000000, 2000000}, {1000000, 2000000}};
// Of 1 MB. Less flash takes less, two banks are erased together. No manual says that a larger bank
// takes more.
static const TIME aMassErase[] = {
    {16000000, 32000000}, {11000000, 22000000}, {8000000, 16000000}, {8000000, 16000000}};
static const uint32_t MASS_ERASE_BYTES = 1024 * silicon::KB;

static const TIME PROGRAM = {.TypicalUs = 16, .LongestUs = 100};

static uint32_t Psize(uint32_t Control) {
  return Control >> 8 & 3;
}

// -- Sectors -------------------------------------------------------------------------------------

bool ControllerF4::IsSplit() const {
  return layout_.SplitMask != 0 && (Loaded(WORD_OPTCR) & layout_.SplitMask) == layout_.SplitValue;
}

const SECTOR& ControllerF4::SectorAt(uint32_t Address) const {
  for (const SECTOR& Each : Sectors()) {
    if (Address - Each.Address < Each.Bytes) {
      return Each;
    }
  }
  return Sectors().back();
}

// The last two sectors of F413 share a bit, and so does each pair of F76x with two banks.
bool ControllerF4::IsIn(uint32_t Bits, const SECTOR& Sector) const {
  const uint32_t Bit = Sector.Number() / (IsSplit() ? layout_.Split : layout_.Map).SectorsPerBit;
  return (Bits >> std::min(Bit, NumWrpBits() - 1) & 1) != 0;
}

// -- Reading and programming ---------------------------------------------------------------------

bool ControllerF4::ReadFlash(const Memory& /*Source*/, uint32_t Address, uint32_t* pValue) {
  if (Level() == 0 && IsIn(ExecuteOnlyBits(), SectorAt(Address))) {
    SetError(SR_RDERR);
    *pValue = 0;
  }
  return Level() == 0;
}

bool ControllerF4::WriteMemory(Memory& /*Target*/, uint32_t Address, uint32_t Size,
                               uint32_t Value) {
  if (Level() != 0 || !IsOpen(FLASH_LOCK)) {
    return Level() == 0;
  }
  if ((registers_[CR] & CR_PG) == 0) {
    SetError(SR_PGSERR | SR_PGPERR);
  } else if (Size != 1u << Psize(registers_[CR])) {
    SetError(SR_PGPERR);
  } else if (IsIn(ProtectedBits(), SectorAt(Address))) {
    SetError(SR_WRPERR);
  } else {
    Start({{WORD_PROGRAM, Us(PROGRAM), Address & ~3u, Merge(0xFFFFFFFF, Address, Size, Value)}});
  }
  return true;
}

// -- Erasing -------------------------------------------------------------------------------------

// False when nothing was started.
bool ControllerF4::StartErase() {
  const uint32_t Control  = registers_[CR];
  const bool     IsSector = (Control & CR_SER) != 0;
  uint32_t       Banks    = (Control & CR_MER) != 0 ? ERASE_BANK1 : 0;
  Banks |= (Control & CR_MER1) != 0 && NumBanks() == 2 ? ERASE_BANK2 : 0;
  if (Banks == 0 && !IsSector) {
    return false;
  }
  const SECTOR* pSector      = nullptr;
  bool          HasProtected = false;
  for (const SECTOR& Each : Sectors()) {
    if (IsSector ? Each.Code() == (Control >> 3 & 31) : (Banks >> Each.Bank & 1) != 0) {
      pSector      = &Each;
      HasProtected = HasProtected || IsIn(ProtectedBits(), Each);
    }
  }
  if (Level() != 0 || (Banks != 0 && IsSector) || pSector == nullptr || HasProtected) {
    SetError(SR_WRPERR);
    return false;
  }
  const TIME* pTimes = pSector->InBank < 4    ? aSmallErase
                       : pSector->InBank == 4 ? aMiddleErase
                                              : aLargeErase;
  Start({IsSector ? PHASE{PAGE_ERASE, Us(pTimes[Psize(Control)]), pSector->Address}
                  : PHASE{MASS_ERASE, MassEraseUs(), Banks}});
  return true;
}

uint64_t ControllerF4::MassEraseUs() const {
  const uint32_t Bytes = std::min(MainFlash().Row().Bytes / NumBanks(), MASS_ERASE_BYTES);
  return Us(aMassErase[Psize(registers_[CR])]) * Bytes / MASS_ERASE_BYTES;
}

// Erases DonePerMille thousandths of each bank. Write protection does not stop unprotecting; PCROP
// sectors of F72x survive it unless PCROP_RDP.
void ControllerF4::EraseSectors(uint32_t What, uint32_t DonePerMille) {
  const silicon::MEMORY& Flash     = MainFlash().Row();
  const uint32_t         BankBytes = Flash.Bytes / NumBanks();
  const uint32_t         Done  = static_cast<uint32_t>(uint64_t{BankBytes} * DonePerMille / 1000);
  const bool             Keeps = What == UNPROTECT && family_.Pcrop == BY_OPTCR2 &&
                     (Stored(WORD_OPTCR2) & OPTCR2_PCROP_RDP) == 0;
  for (const SECTOR& Each : Sectors()) {
    const uint32_t Before = (Each.Address - Flash.Base) % BankBytes;
    const bool     Taken  = What == UNPROTECT || (What >> Each.Bank & 1) != 0;
    if (Taken && Before <= Done && !(Keeps && IsIn(ExecuteOnlyBits(), Each))) {
      const uint32_t OfIt = std::min(Done - Before, Each.Bytes);
      MainFlash().EraseUntil(Each.Address, Each.Bytes, OfIt * 1000 / Each.Bytes);
    }
  }
}

}  // namespace sim::f4
