// SPDX-License-Identifier: MIT

// Option words of all kinds of controllers: what is stored, what the loader makes of it, what is in
// force, and which level a byte stands for.

#include <string.h>

#include <algorithm>

#include "sim/controller.h"

namespace sim {

void Controller::Store(int Index, uint32_t Value, uint32_t Complement) {
  STORED& Each    = stored_[AsSize(Index)];
  Each.Value      = (Value & ~Each.StuckMask) | Each.StuckValue;
  Each.Complement = Complement;
}

void Controller::SetStuckBits(int Index, uint32_t Mask, uint32_t Value) {
  STORED& Each    = stored_[AsSize(Index)];
  Each.StuckValue = (Each.StuckValue & ~Mask) | (Value & Mask);
  Each.StuckMask |= Mask;
}

int Controller::FindWord(const std::string& sName) const {
  for (int i = 0; i < NumWords(); i++) {
    if (sName == Word(i).sName) {
      return i;
    }
  }
  return -1;
}

int Controller::IndexOfWord(uint32_t Address) const {
  for (int i = 0; i < NumWords(); i++) {
    if (Word(i).Stored != 0 && Word(i).Stored == (Address & ~3u)) {
      return i;
    }
  }
  return -1;
}

// -- Complements ---------------------------------------------------------------------------------

static bool PairMatches(uint32_t Half) {
  return ((Half ^ Half >> 8) & 0xFF) == 0xFF || (Half & 0xFFFF) == 0xFFFF;
}

bool Controller::Matches(int Index) const {
  const STORED& Each = stored_[AsSize(Index)];
  switch (Word(Index).Complement) {
    case silicon::IN_BYTES:  // a byte without a field is not an option
      return std::all_of(
          Word(Index).Fields.begin(), Word(Index).Fields.end(),
          [&](const silicon::FIELD& Field) { return PairMatches(Each.Value >> (Field.Low & 16)); });
    case silicon::IN_UPPER_HALF:
      return ((Each.Value ^ Each.Value >> 16) & 0xFFFF) == 0xFFFF;
    case silicon::IN_NEXT_WORD:
      return Each.Complement == ~Each.Value;
    default:
      return true;
  }
}

uint32_t Controller::WithComplement(int Index, uint32_t Value) const {
  switch (Word(Index).Complement) {
    case silicon::IN_BYTES:
      return (Value & 0x00FF00FF) | (~Value & 0x00FF00FF) << 8;
    case silicon::IN_UPPER_HALF:
      return (Value & 0xFFFF) | ~Value << 16;
    default:
      return Value;
  }
}

// -- In force ------------------------------------------------------------------------------------

// The bits that a piece of the word has in its register.
static uint32_t MaskOf(const silicon::LOADED& Piece) {
  return silicon::Bits("", Piece.High, Piece.Low).Mask();
}

uint32_t Controller::Loaded(int Index) const {
  const std::optional<uint32_t>& Value = stored_[AsSize(Index)].Loaded;
  return Value ? *Value : Effective(Index);
}

void Controller::ShowLoaded(int Index, uint32_t Value) {
  for (const silicon::LOADED& Piece : Word(Index).Loaded) {
    if (Piece.Register != 0) {
      uint32_t&      Register = registers_[Piece.Register - registers_.Base()];
      const uint32_t Mask     = MaskOf(Piece) >> Piece.Low << Piece.To;
      Register                = (Register & ~Mask) | (Value >> Piece.Low << Piece.To & Mask);
    }
  }
}

// A field in force; nothing on a device that does not have it.
std::optional<uint32_t> Controller::InForce(const char* sField) const {
  for (int i = 0; i < NumWords(); i++) {
    for (const silicon::FIELD& Field : Word(i).Fields) {
      if (strcmp(Field.sName, sField) == 0) {
        return Field.Get(Loaded(i));
      }
    }
  }
  return std::nullopt;
}

bool Controller::StartsWatchdog(WATCHDOG Which) const {
  if (Which == WINDOW) {
    return InForce("WWDG_SW") == 0u;
  }
  return InForce("WDG_SW") == 0u || InForce("IWDG_SW") == 0u || InForce("IWDG1_SW") == 0u;
}

uint32_t Controller::BrownOutMv() const {
  const std::optional<uint32_t> BorLev = InForce("BOR_LEV");
  return BorLev ? brownOutMv_[std::min<size_t>(*BorLev, brownOutMv_.size() - 1)] : POWER_ON_MV;
}

// -- Levels --------------------------------------------------------------------------------------

int Controller::StoredLevel() const {
  const bool Good = Word(0).Complement == silicon::IN_BYTES ? PairMatches(Stored(0)) : Matches(0);
  return Good ? LevelOfWord(Stored(0)) : 1;
}

int Controller::LevelOfWord(uint32_t Value) const {
  for (const silicon::FIELD& Field : Word(0).Fields) {
    if (Field.Kind == silicon::LEVEL) {
      return LevelOfByte(Field.Get(Value));
    }
  }
  return 0;
}

int Controller::LevelOfByte(uint32_t Rdp) const {
  const silicon::FAMILY& Family = *facts_.pFamily;
  return Rdp == Family.Level0 ? 0 : Family.Level2 != 0 && Rdp == Family.Level2 ? 2 : 1;
}

}  // namespace sim
