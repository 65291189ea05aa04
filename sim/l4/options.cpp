#include <algorithm>

#include "sim/l4/l4.h"

namespace sim::l4 {

static const uint32_t IWDG_SW = 1u << 16, WWDG_SW = 1u << 19;  // in OPTR

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
  if (AllMatch() || (Is(L4_MISMATCH_BY_WORD) && Matches(Index))) {
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

void ControllerL4::Load() {
  for (int i = 0; i < NumWords(); i++) {
    loaded_[i] = Effective(i);
  }
  badLoad_ = !AllMatch();
}

void ControllerL4::ShowOptions() {
  for (int i = 0; i < NumWords(); i++) {
    ShowLoaded(i, loaded_[i]);
  }
  registers_[SR] |= badLoad_ != 0 ? SR_OPTVERR : 0;
}

// Not what the register shows: that takes what is to be programmed.
uint32_t ControllerL4::Loaded(int Index) const {
  return loaded_[Index];
}

int ControllerL4::Level() const {
  return LevelOfByte(loaded_[WORD_OPTR] & 0xFF);
}

bool ControllerL4::StartsWatchdog(WATCHDOG Which) const {
  return (loaded_[WORD_OPTR] & (Which == WINDOW ? WWDG_SW : IWDG_SW)) == 0;
}

uint32_t ControllerL4::BrownOutMv() const {
  static const uint32_t aMillivolts[] = {1700, 2000, 2200, 2500, 2800};
  return aMillivolts[std::min(loaded_[WORD_OPTR] >> 8 & 7, 4u)];
}

std::string ControllerL4::LoadError() const {
  return badLoad_ != 0 ? "OPTVERR" : "";
}

std::string ControllerL4::Remarks() const {
  if (!AllMatch()) {
    return "a complement does not match; the defaults are loaded (OPTVERR)";
  }
  for (int i = 0; i < NumWords(); i++) {
    if (Stored(i) != loaded_[i]) {
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

bool ControllerL4::Unprotects() const {
  return Level() == 1 && LevelOfByte(registers_[OPTR] & 0xFF) == 0;
}

void ControllerL4::StartOptions() {
  if (HasPendingError()) {
    return;
  }
  std::vector<PHASE> Phases;
  if (Unprotects()) {
    Phases.push_back({MASS_ERASE, family_.NumBanks * Us(ERASE), UNPROTECT});
  }
  Phases.push_back({OPTION_PROGRAM, Us(OPTIONS)});
  registers_[CR] |= CR_OPTSTRT;
  Start(Phases);
}

ControllerL4::AREA ControllerL4::LoadedPcrop(uint32_t Bank) const {
  const int Start = WORD_PCROP_START + static_cast<int>(Bank) * BANK_WORDS;
  return {Word(Start).Fields.aField[0].Get(loaded_[Start]),
          Word(Start).Fields.aField[0].Get(loaded_[Start + 1])};
}

// An area can grow. One that would shrink stays as it is, and that is no error.
bool ControllerL4::KeepsPcrop(uint32_t Bank) const {
  const AREA            Old   = LoadedPcrop(Bank);
  const int             Start = WORD_PCROP_START + static_cast<int>(Bank) * BANK_WORDS;
  const silicon::FIELD& Field = Word(Start).Fields.aField[0];
  const AREA            New   = {Field.Get(Wanted(Start)), Field.Get(Wanted(Start + 1))};
  return !Old.IsEmpty() && (New.First > Old.First || New.Last < Old.Last);
}

uint32_t ControllerL4::Wanted(int Index) const {
  return registers_[Word(Index).Loaded[0].Register - BASE];
}

// What OPTSTRT programs. On the way from level 1 to level 0 PCROP_RDP, as it is loaded, decides
// whether areas go; with no area it goes itself.
uint32_t ControllerL4::ToProgram(int Index) const {
  const uint32_t Value = Wanted(Index);
  const int      Kind  = (Index - 1) % BANK_WORDS + 1;
  if (Index == WORD_OPTR || (Kind != WORD_PCROP_START && Kind != WORD_PCROP_END)) {
    return Value;
  }
  bool HasArea = false;
  for (uint32_t Bank = 0; Bank < family_.NumBanks; Bank++) {
    HasArea = HasArea || !LoadedPcrop(Bank).IsEmpty();
  }
  if (Unprotects() && HasArea && !SparesPcrop()) {
    return Word(Index).Factory;
  }
  if (Unprotects() && !HasArea) {
    return Index == WORD_PCROP_END ? Value & ~PCROP_RDP : Value;
  }
  const bool Keeps = KeepsPcrop(static_cast<uint32_t>(Index - 1) / BANK_WORDS);
  return Keeps ? loaded_[Index] | (Value & PCROP_RDP) : Value;
}

void ControllerL4::ProgramOptions() {
  for (int i = 0; i < NumWords(); i++) {
    Store(i, ToProgram(i));
  }
}

// All words are erased in the first half of the time and programmed one by one in the second, value
// before complement.
void ControllerL4::CutOptions(uint32_t DonePerMille) {
  static const uint32_t ERASED = 0xFFFFFFFF;
  for (int i = 0; i < NumWords(); i++) {
    if (DonePerMille < 500) {
      Store(i, HalfErased(Stored(i), ERASED), HalfErased(StoredComplement(i), ERASED));
      continue;
    }
    const int Done = static_cast<int>(DonePerMille - 500) * NumWords() / 500;
    if (i < Done) {
      Store(i, ToProgram(i));
    } else {
      Store(i, i == Done ? ToProgram(i) : ERASED, ERASED);
    }
  }
}

// -- A new device --------------------------------------------------------------------------------

CAPABILITIES ControllerL4::Can() const {
  const uint32_t NumPages = family_.NumBanks * PagesPerBank();
  uint32_t       UserMask = 0;
  for (const silicon::FIELD& Field : Word(WORD_OPTR).Fields) {
    UserMask |= Field.Kind == silicon::USER ? Field.Mask() : 0;
  }
  return {.NumWrp      = NumPages,
          .NumPcrop    = NumPages,
          .HasPcropRdp = true,
          .UserWord    = WORD_OPTR,
          .UserMask    = UserMask,
          .Level1      = 0xBB};
}

bool ControllerL4::Protect(const CREATE_REQUEST& Request, std::string* psError) {
  for (uint32_t Bank = 0; Bank < family_.NumBanks; Bank++) {
    if (!ProtectBank(Bank, Request, psError)) {
      return false;
    }
  }
  if (Request.PcropRdp.value_or(0) != 0) {
    Store(WORD_PCROP_END, Stored(WORD_PCROP_END) | PCROP_RDP);
  }
  return true;
}

// The pages of a list that are in the bank, as areas.
std::vector<ControllerL4::AREA> ControllerL4::AreasOf(const SECTORS& Pages, uint32_t Bank) const {
  std::vector<AREA> Areas;
  for (uint32_t Page = 0; Page < PagesPerBank(); Page++) {
    if (!Pages.Has(Bank * PagesPerBank() + Page)) {
      continue;
    }
    if (Areas.empty() || Areas.back().Last + 1 != Page) {
      Areas.push_back({Page, Page});
    }
    Areas.back().Last = Page;
  }
  return Areas;
}

bool ControllerL4::ProtectBank(uint32_t Bank, const CREATE_REQUEST& Request, std::string* psError) {
  const int               First = static_cast<int>(Bank) * BANK_WORDS;
  const std::vector<AREA> Wrp   = AreasOf(Request.Wrp, Bank);
  const std::vector<AREA> Pcrop = AreasOf(Request.Pcrop, Bank);
  if (Wrp.size() > 2 || Pcrop.size() > 1) {
    *psError = Wrp.size() > 2 ? "the write-protected pages of a bank must be one or two areas"
                              : "the PCROP pages of a bank must be one area";
    return false;
  }
  for (size_t i = 0; i < Wrp.size(); i++) {
    const int              Index  = First + WORD_WRP_A + static_cast<int>(i);
    const silicon::FIELDS& Fields = Word(Index).Fields;
    Store(Index,
          Fields.aField[1].Put(Fields.aField[0].Put(Stored(Index), Wrp[i].First), Wrp[i].Last));
  }
  if (!Pcrop.empty()) {
    const uint32_t PerPage = PAGE_BYTES / PCROP_UNIT;
    const int      Start   = First + WORD_PCROP_START;
    const auto&    Field   = Word(Start).Fields.aField[0];
    Store(Start, Field.Put(Stored(Start), Pcrop[0].First * PerPage));
    Store(Start + 1, Field.Put(Stored(Start + 1), Pcrop[0].Last * PerPage + PerPage - 1));
  }
  return true;
}

}  // namespace sim::l4
