#include <algorithm>
#include <bit>

#include "sim/f4/f4.h"

namespace sim::f4 {

static const TIME OPTION_ERASE_TIME   = {.TypicalUs = 250000, .LongestUs = 500000};
static const TIME OPTION_PROGRAM_TIME = {.TypicalUs = 150000, .LongestUs = 300000};

static uint32_t OptionRegister(int Index) {
  return OPTCR + 4 * static_cast<uint32_t>(Index);
}

// -- In force ------------------------------------------------------------------------------------

WORDS ControllerF4::StoredWords() const {
  WORDS Words = {};
  for (int i = 0; i < NumWords(); i++) {
    Words[static_cast<size_t>(i)] = Stored(i);
  }
  return Words;
}

// Level, write protection and PCROP are in force once a change has ended; all else waits for reset.
void ControllerF4::LoadProtection() {
  for (int i = 0; i < NumWords() && Is(F4_LEVEL_AT_ONCE); i++) {
    const silicon::FIELDS& Fields = Word(i).Fields;
    const uint32_t         Mask =
        Fields.Mask(silicon::LEVEL) | Fields.Mask(silicon::WRP) | Fields.Mask(silicon::PCROP);
    uint32_t& Each = loaded_[static_cast<size_t>(i)];
    Each           = (Each & ~Mask) | (Stored(i) & Mask);
  }
}

uint32_t ControllerF4::Loaded(int Index) const {
  return loaded_[static_cast<size_t>(Index)];
}

int ControllerF4::Level() const {
  return LevelOfByte(facts_.pFamily->LevelField.Get(loaded_[WORD_OPTCR]));
}

// Where the second bit is another option there is no window watchdog to start either.
bool ControllerF4::StartsWatchdog(WATCHDOG Which) const {
  return (loaded_[WORD_OPTCR] & (Which == INDEPENDENT ? OPTCR_WDG_SW : OPTCR_WWDG_SW)) == 0;
}

uint32_t ControllerF4::BrownOutMv() const {
  static const uint32_t aMillivolts[] = {2700, 2400, 2100, POWER_ON_MV};
  return aMillivolts[OPTCR_BOR_LEV.Get(loaded_[WORD_OPTCR])];
}

std::string ControllerF4::Remarks() const {
  return StoredLevel() != Level() ? "the stored protection level is in force after the next reset"
                                  : "";
}

// The registers follow the stored options; lock and start bit are none of these.
void ControllerF4::ShowStored() {
  for (int i = 0; i < NumWords(); i++) {
    ShowLoaded(i, Stored(i));
  }
}

// -- Protection bits: those of OPTCR, and above them those of a second bank in OPTCR1 --------------

uint32_t ControllerF4::NumWrpBits() const {
  return static_cast<uint32_t>(std::popcount(WrpBits({~0u, ~0u, ~0u})));
}

uint32_t ControllerF4::WrpBits(const WORDS& Words) const {
  uint32_t Bits  = 0;
  uint32_t Shift = 0;
  for (int i = 0; i < NumWords(); i++) {
    for (const silicon::FIELD& Field : Word(i).Fields) {
      if (Field.Kind == silicon::WRP) {
        Bits |= Field.Get(Words[static_cast<size_t>(i)]) << Shift;
        Shift += Field.Width();
      }
    }
  }
  return Bits;
}

void ControllerF4::PutWrpBits(WORDS* pWords, uint32_t Bits) const {
  for (int i = 0; i < NumWords(); i++) {
    for (const silicon::FIELD& Field : Word(i).Fields) {
      if (Field.Kind == silicon::WRP) {
        uint32_t& Each = (*pWords)[static_cast<size_t>(i)];
        Each           = Field.Put(Each, Bits);
        Bits >>= Field.Width();
      }
    }
  }
}

bool ControllerF4::IsSprmod(const WORDS& Words) const {
  return family_.Pcrop == BY_SPRMOD && (Words[WORD_OPTCR] & OPTCR_SPRMOD) != 0;
}

uint32_t ControllerF4::ExecuteOnlyBits() const {
  return family_.Pcrop == BY_OPTCR2 ? loaded_[WORD_OPTCR2] & OPTCR2_PCROP
         : IsSprmod(loaded_)        ? WrpBits(loaded_)
                                    : 0;
}

uint32_t ControllerF4::ProtectedBits() const {
  return ExecuteOnlyBits() | (IsSprmod(loaded_) ? 0 : ~WrpBits(loaded_));
}

// -- Option bytes in memory, for reading only ------------------------------------------------------

bool ControllerF4::InOptionArea(uint32_t Address) const {
  return std::any_of(facts_.Options.begin(), facts_.Options.end(), [Address](const auto& Each) {
    return (Address & ~7u) == Each.Stored ||
           (Each.StoredUpper != 0 && (Address & ~7u) == Each.StoredUpper);
  });
}

// A half-word has a double word of its own; a word that is in one piece has it, too. Bits that hold
// no option read as ones, as they do in an erased word.
bool ControllerF4::ReadOptionArea(uint32_t Address, uint32_t* pWord) {
  *pWord = 0xFFFFFFFF;
  for (int i = 0; i < NumWords(); i++) {
    const uint32_t Value = Stored(i) | ~Word(i).Fields.Mask();
    if (Address == Word(i).Stored) {
      *pWord = Word(i).StoredUpper == 0 ? Value : Value | 0xFFFF0000;
    } else if (Address == Word(i).StoredUpper) {
      *pWord = Value >> 16 | 0xFFFF0000;
    }
  }
  return Level() == 0;
}

bool ControllerF4::WriteOptionArea(uint32_t /*Address*/, uint32_t /*Size*/, uint32_t /*Value*/) {
  if (Level() == 0 && (registers_[CR] & CR_LOCK) == 0) {
    SetError(SR_WRPERR);
  }
  return Level() == 0;
}

// -- Changes ---------------------------------------------------------------------------------------

void ControllerF4::WriteOption(uint32_t Offset, uint32_t Value) {
  if ((registers_[OPTCR] & OPTCR_OPTLOCK) != 0) {
    return;
  }
  registers_.Write(Offset, Value);
  if (Offset == OPTCR && (Value & OPTCR_OPTLOCK) != 0) {
    CloseLock(OPTION_LOCK);
  }
  if (Offset == OPTCR && (Value & OPTCR_OPTSTRT) != 0) {
    StartOptions();
  }
}

void ControllerF4::StartOptions() {
  for (int i = 0; i < NumWords(); i++) {
    toProgram_[static_cast<size_t>(i)] = registers_[OptionRegister(i)];
  }
  toProgram_[WORD_OPTCR] &= ~(OPTCR_OPTLOCK | OPTCR_OPTSTRT);
  const uint32_t Rdp        = facts_.pFamily->LevelField.Get(toProgram_[WORD_OPTCR]);
  const bool     Unprotects = Level() == 1 && LevelOfByte(Rdp) == 0;
  if (const char* sBroken = BrokenRule(Unprotects); sBroken != nullptr) {
    registers_[OPTCR] &= ~OPTCR_OPTSTRT;
    SetError(SR_WRPERR);
    around_.Event(std::string("change refused: ") + sBroken);
    return;
  }
  if (family_.Pcrop == BY_OPTCR2) {
    // These bits can be set and not cleared, except by unprotecting with PCROP_RDP.
    const bool Wipes = Unprotects && (Stored(WORD_OPTCR2) & OPTCR2_PCROP_RDP) != 0;
    toProgram_[WORD_OPTCR2] =
        Wipes ? Word(WORD_OPTCR2).Factory : toProgram_[WORD_OPTCR2] | Stored(WORD_OPTCR2);
  }
  std::vector<PHASE> Phases;
  if (Unprotects) {
    Phases.push_back({MASS_ERASE, MassEraseUs(), UNPROTECT});
  }
  Phases.push_back({OPTION_ERASE, Us(OPTION_ERASE_TIME)});
  Phases.push_back({OPTION_PROGRAM, Us(OPTION_PROGRAM_TIME)});
  Start(Phases);
}

// nullptr when the change is allowed. SPRMOD going to 0, or a sector leaving PCROP while SPRMOD
// stays, cancels the whole change.
const char* ControllerF4::BrokenRule(bool Unprotects) const {
  const WORDS Old = StoredWords();
  if (!IsSprmod(Old) || Unprotects) {
    return nullptr;
  }
  if (!IsSprmod(toProgram_) || (WrpBits(Old) & ~WrpBits(toProgram_)) != 0) {
    return "PCROP can be lifted from level 1 to level 0 only";
  }
  const uint32_t Changed = Old[WORD_OPTCR] ^ toProgram_[WORD_OPTCR];
  if (family_.SplitMask == OPTCR_DB1M && (Changed & OPTCR_DB1M) != 0 &&
      !Is(F4_DB1M_FREE_WITH_SPRMOD)) {
    return "DB1M stays while SPRMOD does";
  }
  return nullptr;
}

void ControllerF4::EraseOptions() {
  for (int i = 0; i < NumWords(); i++) {
    Store(i, Word(i).Factory | Word(i).Fields.Mask());
  }
}

// -- A new device ----------------------------------------------------------------------------------

CAPABILITIES ControllerF4::Can() const {
  const PCROP_KIND Pcrop = family_.Pcrop;
  return {.NumWrp      = NumWrpBits(),
          .NumPcrop    = Pcrop == NO_PCROP ? 0 : NumWrpBits(),
          .OneOrOther  = Pcrop == BY_SPRMOD,
          .HasPcropRdp = Pcrop == BY_OPTCR2,
          .UserWord    = WORD_OPTCR,
          .UserMask    = Word(WORD_OPTCR).Fields.Mask(silicon::USER)};
}

// A bit that is 0 protects its sector; one that is 1 makes it execute-only where SPRMOD is 1.
bool ControllerF4::Protect(const CREATE_REQUEST& Request, std::string* /*psError*/) {
  const uint32_t Exec  = Request.Pcrop.Mask(NumWrpBits());
  const bool     BySpr = family_.Pcrop == BY_SPRMOD && !Request.Pcrop.IsEmpty();
  WORDS          Words = StoredWords();
  PutWrpBits(&Words, BySpr ? Exec : ~Request.Wrp.Mask(NumWrpBits()));
  Words[WORD_OPTCR] |= BySpr ? OPTCR_SPRMOD : 0;
  if (family_.Pcrop == BY_OPTCR2) {
    Words[WORD_OPTCR2] = Exec | (Request.PcropRdp.value_or(1) != 0 ? OPTCR2_PCROP_RDP : 0);
  }
  for (int i = 0; i < NumWords(); i++) {
    Store(i, Words[static_cast<size_t>(i)]);
  }
  return true;
}

}  // namespace sim::f4
