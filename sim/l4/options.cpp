// SPDX-License-Identifier: MIT

#include <algorithm>

#include "sim/l4/l4.h"

namespace sim::l4 {

// -- In force ------------------------------------------------------------------------------------

bool ControllerL4::AllMatch() const {
  for (int i = 0; i < NumWords(); i++) {
    if (!Matches(i)) {
      return false;
    }
  }
  return true;
}

// Forced where a complement is wrong: user options all ones but the brown-out level, level 1, all of
// the flash PCROP, no write protection.
uint32_t ControllerL4::Effective(int Index) const {
  if (Is(L4_MISMATCH_BY_WORD) ? Matches(Index) : AllMatch()) {
    return Stored(Index);
  }
  const silicon::OPTION_WORD& Own = Word(Index);
  if (Index == WORD_OPTR) {
    return 0xFFFFF8FF;
  }
  switch ((Index - 1) % BANK_WORDS + 1) {
    case WORD_PCROP_START:
      return Own.Fields.aField[0].Put(Own.Factory, 0);
    case WORD_PCROP_END:
      return Own.Fields.aField[0].Put(Own.Factory, ~0u);
    default:
      return Own.Factory;
  }
}

std::string ControllerL4::Remarks() const {
  for (int i = 0; i < NumWords(); i++) {
    if (Stored(i) != Loaded(i) && BadWords() == 0) {
      return "the stored option bytes are not loaded yet";
    }
  }
  return "";
}

// -- Memory copy ---------------------------------------------------------------------------------

// Each word is followed by its complement.
bool ControllerL4::InOptionArea(uint32_t Address) const {
  return IndexOfWord(Address & ~4u) >= 0;
}

bool ControllerL4::ReadOptionArea(uint32_t Address, uint32_t* pWord) {
  const int Index = IndexOfWord(Address & ~4u);
  *pWord          = (Address & 4) != 0 ? StoredComplement(Index) : Stored(Index);
  return true;
}

bool ControllerL4::WriteOptionArea(uint32_t /*Address*/, uint32_t /*Size*/, uint32_t /*Value*/) {
  Fail(SR_WRPERR);
  return true;
}

// -- Programming ---------------------------------------------------------------------------------

void ControllerL4::StartOptions() {
  if (HasPendingError()) {
    return;
  }
  std::vector<PHASE> Phases;
  if (Unprotects()) {
    Phases.push_back({MASS_ERASE, static_cast<uint64_t>(family_.NumBanks) * Us(ERASE), UNPROTECT});
  }
  Phases.push_back({OPTION_PROGRAM, Us(OPTIONS)});
  registers_[CR] |= CR_OPTSTRT;
  Start(Phases);
}

SECTOR_AREA ControllerL4::LoadedPcrop(int Bank) const {
  const int             Start = WORD_PCROP_START + Bank * BANK_WORDS;
  const silicon::FIELD& Field = Word(Start).Fields.aField[0];
  return {Field.Get(Loaded(Start)), Field.Get(Loaded(Start + 1))};
}

// An area can grow. One that would shrink stays as it is, and that is no error.
bool ControllerL4::KeepsPcrop(int Bank) const {
  const SECTOR_AREA     Old   = LoadedPcrop(Bank);
  const int             Start = WORD_PCROP_START + Bank * BANK_WORDS;
  const silicon::FIELD& Field = Word(Start).Fields.aField[0];
  return !Old.IsEmpty() &&
         (Field.Get(Wanted(Start)) > Old.First || Field.Get(Wanted(Start + 1)) < Old.Last);
}

// What OPTSTRT programs. On the way from level 1 to level 0 PCROP_RDP, as it is loaded, decides
// whether areas and the bit itself go.
uint32_t ControllerL4::ToProgram(int Index) const {
  const uint32_t Value   = Wanted(Index);
  const int      InBank  = (Index - 1) % BANK_WORDS + 1;
  const bool     IsPcrop = InBank == WORD_PCROP_START || InBank == WORD_PCROP_END;
  if (IsPcrop && Unprotects() && !SparesPcrop()) {
    return Word(Index).Factory;
  }
  return IsPcrop && KeepsPcrop((Index - 1) / BANK_WORDS) ? Loaded(Index) | (Value & PCROP_RDP)
                                                         : Value;
}

// All words are erased in the first half of the time and programmed one by one in the second, value
// before complement. A change that is cut short ends after DonePerMille thousandths.
void ControllerL4::ProgramOptions(uint32_t DonePerMille) {
  static const uint32_t ERASED = 0xFFFFFFFF;
  const int             Done   = (static_cast<int>(DonePerMille) - 500) * NumWords() / 500;
  for (int i = 0; i < NumWords(); i++) {
    if (DonePerMille < 500) {
      Store(i, HalfErased(Stored(i), ERASED), HalfErased(StoredComplement(i), ERASED));
    } else if (i < Done) {
      Store(i, ToProgram(i));
    } else {
      Store(i, i == Done ? ToProgram(i) : ERASED, ERASED);
    }
  }
}

// -- A new device --------------------------------------------------------------------------------

CAPABILITIES ControllerL4::Can() const {
  return {.NumWrp      = NumPages(),
          .NumPcrop    = NumPages(),
          .HasPcropRdp = true,
          .UserWord    = WORD_OPTR,
          .UserMask    = registers_.RowAt(BASE + OPTR)->Writable & ~0xFFu};
}

bool ControllerL4::Protect(const CREATE_REQUEST& Request, std::string* psError) {
  for (int Bank = 0; Bank < family_.NumBanks; Bank++) {
    const uint32_t First = static_cast<uint32_t>(Bank) * PagesPerBank();
    const auto     Wrp   = Request.Wrp.AreasInBank(First, PagesPerBank());
    const auto     Pcrop = Request.Pcrop.AreasInBank(First, PagesPerBank());
    if (Wrp.size() > 2 || Pcrop.size() > 1) {
      *psError = Wrp.size() > 2 ? "the write-protected pages of a bank must be one or two areas"
                                : "the PCROP pages of a bank must be one area";
      return false;
    }
    int Index = WORD_WRP_A + Bank * BANK_WORDS;
    for (const SECTOR_AREA& Area : Wrp) {
      const silicon::FIELDS& Fields = Word(Index).Fields;
      Store(Index,
            Fields.aField[1].Put(Fields.aField[0].Put(Stored(Index), Area.First), Area.Last));
      Index++;
    }
    for (const SECTOR_AREA& Area : Pcrop) {
      const int             Start = WORD_PCROP_START + Bank * BANK_WORDS;
      const silicon::FIELD& Field = Word(Start).Fields.aField[0];
      Store(Start, Field.Put(Stored(Start), Area.First * UNITS_PER_PAGE));
      Store(Start + 1, Field.Put(Stored(Start + 1), (Area.Last + 1) * UNITS_PER_PAGE - 1));
    }
  }
  if (Request.PcropRdp.value_or(0) != 0) {
    Store(WORD_PCROP_END, Stored(WORD_PCROP_END) | PCROP_RDP);
  }
  return true;
}

}  // namespace sim::l4
