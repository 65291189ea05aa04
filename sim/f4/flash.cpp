#include <algorithm>

#include "sim/f4/f4.h"

namespace sim::f4 {

// By PSIZE: x8, x16, x32, x64.
static const TIME aSectorErase[3][4] = {
    {{400000, 800000}, {300000, 600000}, {250000, 500000}, {250000, 500000}},
    {{1200000, 2400000}, {700000, 1400000}, {550000, 1100000}, {550000, 1100000}},
    {{2000000, 4000000}, {1300000, 2600000}, {1000000, 2000000}, {1000000, 2000000}},
};
// Of 1 MB. Less flash takes less, two banks are erased together. No manual says that a larger bank
// takes more.
static const TIME aMassErase[4] = {
    {16000000, 32000000}, {11000000, 22000000}, {8000000, 16000000}, {8000000, 16000000}};
static const uint32_t MASS_ERASE_BYTES = 1024 * silicon::KB;

static const TIME PROGRAM = {.TypicalUs = 16, .LongestUs = 100};

// -- Sectors ---------------------------------------------------------------------------------------

bool ControllerF4::IsSplit() const {
  return family_.SplitMask != 0 && (loaded_[WORD_OPTCR] & family_.SplitMask) == family_.SplitValue;
}

const std::vector<SECTOR>& ControllerF4::Sectors() const {
  return IsSplit() ? splitSectors_ : sectors_;
}

const SECTOR& ControllerF4::SectorAt(uint32_t Address) const {
  const std::vector<SECTOR>& All = Sectors();
  const auto Found = std::find_if(All.begin(), All.end(), [Address](const SECTOR& Each) {
    return Address - Each.Address < Each.Bytes;
  });
  return Found != All.end() ? *Found : All.back();
}

// The last two sectors of F413 share a bit, and so does each pair of F76x with two banks.
bool ControllerF4::IsIn(uint32_t Bits, const SECTOR& Sector) const {
  const uint32_t Bit = Sector.Number / (IsSplit() ? family_.Split : family_.Banks).SectorsPerBit;
  return (Bits >> std::min(Bit, NumWrpBits() - 1) & 1) != 0;
}

// -- Reading and programming -----------------------------------------------------------------------

bool ControllerF4::FilterRead(const Memory& Source, uint32_t Address, uint32_t* pValue) {
  if (Source.Row().Kind == SRAM) {
    return true;
  }
  if (Level() != 0) {
    return false;
  }
  if (Source.Row().Kind == MAIN_FLASH && IsIn(ExecuteOnlyBits(), SectorAt(Address))) {
    SetError(SR_RDERR);
    *pValue = 0;
  }
  return true;
}

bool ControllerF4::WriteMemory(Memory& /*Target*/, uint32_t Address, uint32_t Size,
                               uint32_t Value) {
  if (Level() != 0) {
    return false;
  }
  if ((registers_[CR] & CR_LOCK) != 0) {
    return true;
  }
  if ((registers_[CR] & CR_PG) == 0) {
    SetError(SR_PGSERR | SR_PGPERR);
  } else if (Size != 1u << CR_PSIZE.Get(registers_[CR])) {
    SetError(SR_PGPERR);
  } else if (IsIn(ProtectedBits(), SectorAt(Address))) {
    SetError(SR_WRPERR);
  } else {
    Start({{WORD_PROGRAM, Us(PROGRAM), Address & ~3u, Merge(0xFFFFFFFF, Address, Size, Value)}});
  }
  return true;
}

// -- Erasing ---------------------------------------------------------------------------------------

// False when nothing was started.
bool ControllerF4::StartErase() {
  const uint32_t Control  = registers_[CR];
  const bool     IsSector = (Control & CR_SER) != 0;
  const bool     HasBank2 = Sectors().back().Bank != 0;
  uint32_t       Banks    = (Control & CR_MER) != 0 ? BANK1 : 0;
  Banks |= (Control & CR_MER1) != 0 && HasBank2 ? BANK2 : 0;
  if (Banks == 0 && !IsSector) {
    return false;
  }
  std::vector<SECTOR> Taken;
  for (const SECTOR& Each : Sectors()) {
    if (IsSector ? Each.Code == CR_SNB.Get(Control) : (Banks >> Each.Bank & 1) != 0) {
      Taken.push_back(Each);
    }
  }
  const bool HasProtected = std::any_of(Taken.begin(), Taken.end(), [this](const SECTOR& Each) {
    return IsIn(ProtectedBits(), Each);
  });
  if (Level() != 0 || (Banks != 0 && IsSector) || Taken.empty() || HasProtected) {
    SetError(SR_WRPERR);
    return false;
  }
  if (IsSector) {
    const TIME& Time = aSectorErase[Taken[0].Size][CR_PSIZE.Get(Control)];
    Start({{PAGE_ERASE, Us(Time), Taken[0].Address}});
  } else {
    Start({{MASS_ERASE, MassEraseUs(), Banks}});
  }
  return true;
}

uint64_t ControllerF4::MassEraseUs() const {
  const uint32_t NumBanks = Sectors().back().Bank + 1;
  const uint32_t Bytes    = std::min(MainFlash().Row().Bytes / NumBanks, MASS_ERASE_BYTES);
  return Us(aMassErase[CR_PSIZE.Get(registers_[CR])]) * Bytes / MASS_ERASE_BYTES;
}

// Each bank as far as so many thousandths. Write protection does not stop unprotecting; PCROP
// sectors of F72x survive it unless PCROP_RDP.
void ControllerF4::EraseSectors(uint32_t What, uint32_t DonePerMille) {
  Memory&        Flash     = MainFlash();
  const uint32_t BankBytes = Flash.Row().Bytes / (Sectors().back().Bank + 1);
  const uint32_t Done      = static_cast<uint32_t>(uint64_t{BankBytes} * DonePerMille / 1000);
  const bool Keeps = family_.Pcrop == BY_OPTCR2 && (Stored(WORD_OPTCR2) & OPTCR2_PCROP_RDP) == 0;
  for (const SECTOR& Each : Sectors()) {
    const uint32_t Before = (Each.Address - Flash.Row().Base) % BankBytes;
    const bool     Taken =
        What == UNPROTECT ? !Keeps || !IsIn(ExecuteOnlyBits(), Each) : (What >> Each.Bank & 1) != 0;
    if (Taken && Before <= Done) {
      const uint32_t OfIt = std::min(Done - Before, Each.Bytes);
      Flash.EraseUntil(Each.Address, Each.Bytes, OfIt * 1000 / Each.Bytes);
    }
  }
}

}  // namespace sim::f4
