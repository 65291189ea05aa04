// SPDX-License-Identifier: MIT

#include "sim/l0/l0.h"

namespace sim::l0 {

// -- In force ------------------------------------------------------------------------------------

// The default where a complement is wrong: level 1 with PCROP, user options as delivered, no sector
// bits, which as PCROP means all of the flash.
uint32_t ControllerL0::Effective(int Index) const {
  if (Matches(Index)) {
    return Stored(Index);
  }
  return Index == WORD_RDP    ? 0xBB | (HasMode() ? MODE : 0)
         : Index == WORD_USER ? Word(WORD_USER).Factory & 0xFFFF
                              : 0;
}

std::string ControllerL0::Remarks() const {
  return StoredLevel() != Level() ? "the stored protection level is not loaded yet" : "";
}

// A bit protects from writing when it is 1. As PCROP the polarity is the other way round.
bool ControllerL0::IsProtected(uint32_t Address) const {
  const uint32_t Sector = (Address - MainFlash().Row().Base) / SECTOR_BYTES;
  const uint32_t Bits   = Loaded(WordOfSector(Sector));
  return (Bits >> Sector % SECTORS_PER_WORD & 1) != (IsPcropLoaded() ? 1 : 0);
}

// -- Programming ---------------------------------------------------------------------------------

bool ControllerL0::ReadOptionArea(uint32_t Address, uint32_t* pWord) {
  const int Index = IndexOfWord(Address);
  *pWord          = IsSpare(Index) && !Is(L0_SPARE_WORDS_WRITABLE) ? 0xFFFFFFFF : Stored(Index);
  return true;
}

bool ControllerL0::WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) {
  const int Index = IndexOfWord(Address);
  if ((registers_[PECR] & PECR_ERASE) != 0) {
    Value = 0;
  }
  if (!IsOpen(OPTION_LOCK) || (IsSpare(Index) && !Is(L0_SPARE_WORDS_WRITABLE))) {
    SetFlags(SR_WRPERR);
  } else if (Size != 4) {
    SetFlags(SR_SIZERR);
  } else if (Index == WORD_RDP) {
    WriteProtectionWord(Value);
  } else if (ShrinksPcrop(Index, Value)) {
    SetFlags(SR_WRPERR);
    around_.Event("write refused: PCROP sectors can be added and not taken away");
  } else {
    Start({ProgramPhase(Address, Value)});
  }
  return true;
}

bool ControllerL0::ShrinksPcrop(int Index, uint32_t Value) const {
  return Index >= WORD_WRP && !IsSpare(Index) && IsPcropLoaded() &&
         (Value & ~Loaded(Index) & Word(Index).Fields.aField[0].Mask()) != 0;
}

// The two bytes alone say which level is meant.
void ControllerL0::WriteProtectionWord(uint32_t Value) {
  const bool MakesLevel0 = (Value & 0x00FF00FF) == 0x005500AA;
  const bool LiftsPcrop  = Level() == 0 && IsPcropLoaded() && (Value & MODE) == 0;
  if (LiftsPcrop && (MakesLevel0 || Is(L0_L1_REFUSE_PCROP_CLEAR))) {
    SetFlags(SR_WRPERR);
    around_.Event("write refused: PCROP can be lifted from level 1 to level 0 only");
    return;
  }
  const bool         Erratum = family_.pErratum != nullptr && Is(*family_.pErratum);
  std::vector<PHASE> Phases;
  if (MakesLevel0 && (Level() == 1 || Erratum)) {
    Phases.push_back({MASS_ERASE, Us(MASS)});
    // This erase takes PCROP with it, whatever is written.
    Value = HasMode() ? (Value & ~MODE) | MODE << 16 : Value;
  }
  Phases.push_back(ProgramPhase(Word(WORD_RDP).Stored, Value));
  Start(Phases);
}

// -- A new device --------------------------------------------------------------------------------

CAPABILITIES ControllerL0::Can() const {
  return {.NumWrp     = NumSectors(),
          .NumPcrop   = HasMode() ? NumSectors() : 0,
          .OneOrOther = true,
          .UserWord   = WORD_USER,
          .UserMask   = 0x0000FFFF};
}

bool ControllerL0::Protect(const CREATE_REQUEST& Request, std::string* /*psError*/) {
  const bool     Pcrop   = !Request.Pcrop.IsEmpty();
  const SECTORS& Sectors = Pcrop ? Request.Pcrop : Request.Wrp;
  if (Pcrop) {
    Store(WORD_RDP, WithComplement(WORD_RDP, Stored(WORD_RDP) | MODE));
  }
  for (uint32_t Sector = 0; Sector < NumSectors(); Sector++) {
    const int      Index = WordOfSector(Sector);
    const uint32_t Bit   = 1u << Sector % SECTORS_PER_WORD;
    const bool     Set   = Sectors.Has(Sector) != Pcrop;
    Store(Index, WithComplement(Index, Set ? Stored(Index) | Bit : Stored(Index) & ~Bit));
  }
  return true;
}

}  // namespace sim::l0
