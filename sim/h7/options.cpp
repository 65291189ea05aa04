// SPDX-License-Identifier: MIT

#include "sim/h7/h7.h"

namespace sim::h7 {

static const TIME CHANGE_TIME = {.TypicalUs = 300000, .LongestUs = 600000};

// -- In force ------------------------------------------------------------------------------------

std::string ControllerH7::Remarks() const {
  return changeError_ != 0 ? "OPTCHANGEERR is set: a change was refused" : "";
}

// -- Changes -------------------------------------------------------------------------------------

uint32_t ControllerH7::PrgRegister(int Index) const {
  return Word(Index).Loaded[0].Register + 4 - BASE;
}

void ControllerH7::WritePrg(uint32_t Register, uint32_t Value) {
  static const uint32_t SPARE_BITS = 7u << 23;
  registers_.Write(Register, Value);
  if (Register == OPTSR_PRG && IsChosen(family_.pSpareBitsWritable)) {
    registers_[Register] = (registers_[Register] & ~SPARE_BITS) | (Value & SPARE_BITS);
  }
}

void ControllerH7::WriteOptionControl(uint32_t Value) {
  if (!IsOpen(OPTION_LOCK)) {
    return;
  }
  registers_.Write(OPTCR, Value);
  if ((Value & OPTCR_OPTLOCK) != 0) {
    CloseLock(OPTION_LOCK);
  }
  if (Busy()) {
    return;
  }
  if ((Value & OPTCR_OPTSTART) != 0) {
    StartChange();
  } else if ((Value & OPTCR_MER) != 0 && family_.NumBanks == 2 && IsOpen(BANK1_LOCK) &&
             IsOpen(BANK2_LOCK)) {
    StartBankErase(ERASE_BANK1 | ERASE_BANK2);
  }
}

void ControllerH7::StartChange() {
  bool Differs = false;
  for (int i = 0; i < NumWords(); i++) {
    Differs = Differs || Prg(i) != Stored(i);
  }
  if (!Differs) {
    return;
  }
  for (uint32_t Bank = 0; Bank < family_.NumBanks; Bank++) {
    if (const char* sBroken = BrokenRule(Bank); sBroken != nullptr) {
      changeError_ = 1;
      around_.Event(std::string("change refused: ") + sBroken);
      return;
    }
  }
  std::vector<PHASE> Phases;
  if (Unprotects()) {
    Phases.push_back({MASS_ERASE, MassEraseUs(0), UNPROTECT});
  }
  Phases.push_back({OPTION_PROGRAM, Us(CHANGE_TIME)});
  activeBanks_ = 0;
  Start(Phases);
}

// nullptr when the bank's part of the change is allowed.
const char* ControllerH7::BrokenRule(uint32_t Bank) const {
  const uint32_t OldPcrop  = Stored(OfBank(WORD_PRAR, Bank)),
                 NewPcrop  = Prg(OfBank(WORD_PRAR, Bank));
  const uint32_t OldSecure = Stored(OfBank(WORD_SCAR, Bank)),
                 NewSecure = Prg(OfBank(WORD_SCAR, Bank));
  const AREA OldArea(OldSecure), NewArea(NewSecure);
  const bool WipesPcrop  = Unprotects() && ((OldPcrop | NewPcrop) & AREA_WIPE) != 0;
  const bool WipesSecure = Unprotects() && ((OldSecure | NewSecure) & AREA_WIPE) != 0;
  if (!AREA(NewPcrop).Covers(AREA(OldPcrop)) && !WipesPcrop) {
    return "a PCROP area shrinks without being wiped";
  }
  if ((OldPcrop & ~NewPcrop & AREA_WIPE) != 0 && !Unprotects()) {
    return "DMEP cannot be cleared alone";
  }
  if (OldArea != NewArea && !(OldArea.IsNone() && NewArea.IsNone()) &&
      (!WipesSecure || !NewArea.IsNone())) {
    return "a secure area is changed by other than secure code";
  }
  if ((OldSecure & ~NewSecure & AREA_WIPE) != 0 && !Unprotects()) {
    return "DMES cannot be cleared alone";
  }
  if ((Stored(WORD_OPTSR) & ~Prg(WORD_OPTSR) & OPTSR_SECURITY) != 0 &&
      ((!AREA(OldPcrop).IsNone() && !WipesPcrop) || (!OldArea.IsNone() && !WipesSecure))) {
    return "SECURITY cannot be cleared while a protected area is kept";
  }
  return nullptr;
}

// -- A new device --------------------------------------------------------------------------------

uint32_t ControllerH7::Delivered(int Index) const {
  const bool Otherwise = IsChosen(family_.pOtherDelivery);
  const bool IsScar    = Index == WORD_SCAR || Index == OfBank(WORD_SCAR, family_.NumBanks - 1);
  return Otherwise && Index == WORD_OPTSR ? family_.OtherOptsr
         : Otherwise && IsScar            ? family_.OtherScar
                                          : Word(Index).Factory;
}

CAPABILITIES ControllerH7::Can() const {
  const silicon::FIELDS& Optsr = Word(WORD_OPTSR).Fields;
  return {.NumWrp      = family_.NumBanks * SECTORS_PER_BANK,
          .NumPcrop    = family_.NumBanks * SECTORS_PER_BANK,
          .HasPcropRdp = true,
          .HasSecure   = true,
          .UserWord    = WORD_OPTSR,
          .UserMask    = Optsr.Mask() & ~Optsr.Mask(silicon::LEVEL)};
}

static uint32_t AreaWord(const SECTOR_AREA& Sectors) {
  const uint32_t Units = SECTOR_BYTES / AREA_UNIT;
  return Sectors.First * Units | ((Sectors.Last + 1) * Units - 1) << 16;
}

// A bit that is 0 protects its sector. The secure area is the first sector.
bool ControllerH7::Protect(const CREATE_REQUEST& Request, std::string* psError) {
  for (uint32_t Bank = 0; Bank < family_.NumBanks; Bank++) {
    const uint32_t First = Bank * SECTORS_PER_BANK;
    const uint32_t Wrp   = Request.Wrp.Mask(Can().NumWrp) >> First;
    const int      Prar  = OfBank(WORD_PRAR, Bank);
    const auto     Pcrop = Request.Pcrop.AreasInBank(First, SECTORS_PER_BANK);
    if (Pcrop.size() > 1) {
      *psError = "the sectors of a bank must be one area";
      return false;
    }
    Store(Prar, (Pcrop.empty() ? Stored(Prar) : AreaWord(Pcrop[0])) |
                    (Request.PcropRdp.value_or(0) != 0 ? AREA_WIPE : 0));
    Store(OfBank(WORD_WPSN, Bank), ~Wrp & 0xFF);
  }
  if (Request.Secure) {
    Store(WORD_SCAR, AreaWord({.First = 0, .Last = 0}) | AREA_WIPE);
    Store(WORD_OPTSR, Stored(WORD_OPTSR) | OPTSR_SECURITY);
  }
  return true;
}

}  // namespace sim::h7
