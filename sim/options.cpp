// SPDX-License-Identifier: MIT

// Option words of all kinds of controllers: what is stored, what the loader makes of it, what is in
// force, and which level a byte stands for.

#include <string.h>

#include "sim/controller.h"

namespace sim {

const silicon::OPTION_WORD& Controller::Word(int Index) const {
  return facts_.Options[static_cast<size_t>(Index)];
}

uint32_t Controller::Stored(int Index) const {
  return stored_[static_cast<size_t>(Index)].Value;
}

uint32_t Controller::StoredComplement(int Index) const {
  return stored_[static_cast<size_t>(Index)].Complement;
}

void Controller::Store(int Index, uint32_t Value) {
  Store(Index, Value, ~Value);
}

void Controller::Store(int Index, uint32_t Value, uint32_t Complement) {
  STORED& Each    = stored_[static_cast<size_t>(Index)];
  Each.Value      = (Value & ~Each.StuckMask) | Each.StuckValue;
  Each.Complement = Complement;
}

void Controller::SetStuckBits(int Index, uint32_t Mask, uint32_t Value) {
  STORED& Each    = stored_[static_cast<size_t>(Index)];
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
  const STORED& Each = stored_[static_cast<size_t>(Index)];
  switch (Word(Index).Complement) {
    case silicon::IN_BYTES:
      return PairMatches(Each.Value) && PairMatches(Each.Value >> 16);
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
  uint32_t Value = Effective(Index);
  for (const silicon::LOADED& Piece : Word(Index).Loaded) {
    if (Piece.Register != 0) {
      const uint32_t Bits = registers_[Piece.Register - registers_.Base()] >> Piece.To << Piece.Low;
      Value               = (Value & ~MaskOf(Piece)) | (Bits & MaskOf(Piece));
    }
  }
  return Value;
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

// -- Levels --------------------------------------------------------------------------------------

int Controller::LevelOfByte(uint32_t Rdp) const {
  const silicon::FAMILY& Family = *facts_.pFamily;
  return Rdp == Family.Level0 ? 0 : Family.Level2 != 0 && Rdp == Family.Level2 ? 2 : 1;
}

int Controller::StoredLevel() const {
  for (int i = 0; i < NumWords(); i++) {
    for (const silicon::FIELD& Field : Word(i).Fields) {
      if (Field.Kind == silicon::LEVEL) {
        const bool Good =
            Word(i).Complement == silicon::IN_BYTES ? PairMatches(Stored(i)) : Matches(i);
        return Good ? LevelOfByte(Field.Get(Stored(i))) : 1;
      }
    }
  }
  return 0;
}

}  // namespace sim
