// SPDX-License-Identifier: MIT

#include <algorithm>
#include <bit>

#include "sim/f4/f4.h"

namespace sim::f4 {

static const TIME OPTION_ERASE_TIME   = {.TypicalUs = 250000, .LongestUs = 500000};
static const TIME OPTION_PROGRAM_TIME = {.TypicalUs = 150000, .LongestUs = 300000};

// -- In force ------------------------------------------------------------------------------------

WORDS ControllerF4::Words(uint32_t (Controller::*pfOf)(int) const) const {
  WORDS Words = {};
  for (int i = 0; i < NumWords(); i++) {
    Words[static_cast<size_t>(i)] = (this->*pfOf)(i);
  }
  return Words;
}

void ControllerF4::StoreWords(const WORDS& Words) {
  for (int i = 0; i < NumWords(); i++) {
    Store(i, Words[static_cast<size_t>(i)]);
  }
}

// Once a change has ended its values are in the registers, and level, write protection and PCROP in
// force; all else waits for reset.
void ControllerF4::LoadProtection() {
  for (int i = 0; i < NumWords(); i++) {
    const silicon::FIELDS& Fields = Word(i).Fields;
    const uint32_t         Mask =
        Fields.Mask(silicon::LEVEL) | Fields.Mask(silicon::WRP) | Fields.Mask(silicon::PCROP);
    ShowLoaded(i, Stored(i));
    if (Is(F4_LEVEL_AT_ONCE)) {
      SetLoaded(i, (Loaded(i) & ~Mask) | (Stored(i) & Mask));
    }
  }
}

std::string ControllerF4::Remarks() const {
  return StoredLevel() == Level() ? ""
                                  : "the stored protection level is in force after the next reset";
}

// -- Protection bits: those of OPTCR, and after them those of a second bank in OPTCR1 ------------

uint32_t ControllerF4::WrpMask(size_t Index) const {
  return Index < facts_.Options.size() ? facts_.Options[Index].Fields.Mask(silicon::WRP) : 0;
}

uint32_t ControllerF4::NumWrpBits() const {
  return static_cast<uint32_t>(std::popcount(WrpMask(0)) + std::popcount(WrpMask(1)));
}

uint32_t ControllerF4::WrpBits(const WORDS& Words) const {
  return (Words[0] & WrpMask(0)) >> 16 | (Words[1] & WrpMask(1)) >> 4;
}

bool ControllerF4::IsSprmod(const WORDS& Words) const {
  return family_.Pcrop == BY_SPRMOD && (Words[WORD_OPTCR] & OPTCR_SPRMOD) != 0;
}

uint32_t ControllerF4::ExecuteOnlyBits() const {
  return family_.Pcrop == BY_OPTCR2 ? Loaded(WORD_OPTCR2) & OPTCR2_PCROP
         : IsSprmod(LoadedWords())  ? WrpBits(LoadedWords())
                                    : 0;
}

uint32_t ControllerF4::ProtectedBits() const {
  return ExecuteOnlyBits() | (IsSprmod(LoadedWords()) ? 0 : ~WrpBits(LoadedWords()));
}

// -- Option bytes in memory, for reading only ----------------------------------------------------

bool ControllerF4::InOptionArea(uint32_t Address) const {
  return std::any_of(facts_.Options.begin(), facts_.Options.end(), [Address](const auto& Each) {
    return (Address & ~7u) == Each.Stored || (Address & ~7u) == Each.StoredUpper;
  });
}

// Each half-word, or word that is in one piece, takes a double word. Bits that hold
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
  if (Level() == 0 && IsOpen(FLASH_LOCK)) {
    SetError(SR_WRPERR);
  }
  return Level() == 0;
}

// -- Changes -------------------------------------------------------------------------------------

void ControllerF4::WriteOption(uint32_t Offset, uint32_t Value) {
  if (!IsOpen(OPTION_LOCK)) {
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
  for (uint32_t i = 0; i < facts_.Options.size(); i++) {
    toProgram_[i] = registers_[OPTCR + 4 * i];
  }
  toProgram_[WORD_OPTCR] &= ~(OPTCR_OPTLOCK | OPTCR_OPTSTRT);
  const bool Unprotects = Level() == 1 && LevelOfWord(toProgram_[WORD_OPTCR]) == 0;
  if (const char* sBroken = BrokenRule(Unprotects); sBroken != nullptr) {
    registers_[OPTCR] &= ~OPTCR_OPTSTRT;
    SetError(SR_WRPERR);
    around_.Event(std::string("change refused: ") + sBroken);
    return;
  }
  if (family_.Pcrop == BY_OPTCR2) {
    // These bits can be set and not cleared, except by unprotecting with PCROP_RDP.
    const uint32_t Old      = Stored(WORD_OPTCR2);
    const bool     Wipes    = Unprotects && (Old & OPTCR2_PCROP_RDP) != 0;
    toProgram_[WORD_OPTCR2] = Wipes ? Word(WORD_OPTCR2).Factory : toProgram_[WORD_OPTCR2] | Old;
  }
  std::vector<PHASE> Phases;
  if (Unprotects) {
    Phases.push_back({MASS_ERASE, MassEraseUs(), UNPROTECT});
  }
  Phases.push_back({OPTION_ERASE, Us(OPTION_ERASE_TIME)});
  Phases.push_back({OPTION_PROGRAM, Us(OPTION_PROGRAM_TIME)});
  Start(Phases);
}

// nullptr when the change is allowed; otherwise none of it is done.
const char* ControllerF4::BrokenRule(bool Unprotects) const {
  const WORDS    Old     = StoredWords();
  const uint32_t Changed = Old[WORD_OPTCR] ^ toProgram_[WORD_OPTCR];
  if (!IsSprmod(Old) || Unprotects) {
    return nullptr;
  }
  if (!IsSprmod(toProgram_) || (WrpBits(Old) & ~WrpBits(toProgram_)) != 0) {
    return "PCROP can be lifted from level 1 to level 0 only";
  }
  if ((Changed & layout_.SplitMask) != 0 && !Is(F4_DB1M_FREE_WITH_SPRMOD)) {
    return "DB1M stays while SPRMOD does";
  }
  return nullptr;
}

void ControllerF4::EraseOptions() {
  for (int i = 0; i < NumWords(); i++) {
    Store(i, Word(i).Factory | Word(i).Fields.Mask());
  }
}

// -- A new device --------------------------------------------------------------------------------

CAPABILITIES ControllerF4::Can() const {
  return {.NumWrp      = NumWrpBits(),
          .NumPcrop    = family_.Pcrop == NO_PCROP ? 0 : NumWrpBits(),
          .OneOrOther  = family_.Pcrop == BY_SPRMOD,
          .HasPcropRdp = family_.Pcrop == BY_OPTCR2,
          .UserWord    = WORD_OPTCR,
          .UserMask    = Word(WORD_OPTCR).Fields.Mask(silicon::USER)};
}

// A bit that is 0 protects its sector; one that is 1 makes it execute-only where SPRMOD is 1.
bool ControllerF4::Protect(const CREATE_REQUEST& Request, std::string* /*psError*/) {
  const uint32_t Exec     = Request.Pcrop.Mask(NumWrpBits());
  const bool     BySprmod = family_.Pcrop == BY_SPRMOD && !Request.Pcrop.IsEmpty();
  const uint32_t Bits     = BySprmod ? Exec : ~Request.Wrp.Mask(NumWrpBits());
  WORDS          Words    = StoredWords();
  Words[0]                = (Words[0] & ~WrpMask(0)) | (Bits << 16 & WrpMask(0));
  Words[1]                = (Words[1] & ~WrpMask(1)) | (Bits << 4 & WrpMask(1));
  Words[WORD_OPTCR] |= BySprmod ? OPTCR_SPRMOD : 0;
  if (family_.Pcrop == BY_OPTCR2) {
    Words[WORD_OPTCR2] = Exec | (Request.PcropRdp.value_or(1) != 0 ? OPTCR2_PCROP_RDP : 0);
  }
  StoreWords(Words);
  return true;
}

}  // namespace sim::f4
