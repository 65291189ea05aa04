#include "sim/registers.h"

#include "sim/text.h"

namespace sim {

std::vector<FIELD> ParseFields(const char* sFields) {
  std::vector<FIELD> Fields;
  for (const std::string& sField : Split(sFields, ',')) {
    const std::vector<std::string> Words = SplitWords(sField);
    if (Words.size() != 2) {
      continue;  // the empty list
    }
    const std::vector<std::string> Bits = Split(Words[1], ':');
    uint32_t                       High = 0;
    uint32_t                       Low  = 0;
    ParseU32(Bits.front(), &High);
    ParseU32(Bits.back(), &Low);
    Fields.push_back({Words[0], Low, High - Low + 1});
  }
  return Fields;
}

std::string DecodeFields(const char* sFields, uint32_t Value) {
  std::string sText;
  for (const FIELD& Field : ParseFields(sFields)) {
    const uint32_t Bits = Field.Get(Value);
    if (Field.Width == 1 && Bits == 0) {
      continue;
    }
    if (!sText.empty()) {
      sText += ' ';
    }
    sText += Field.sName;
    if (Field.Width > 1) {
      sText += Format("=%0*X", static_cast<int>((Field.Width + 3) / 4), Bits);
    }
  }
  return sText;
}

void RegisterFile::ResetAll() {
  for (size_t i = 0; i < table_.size(); i++) {
    values_[i] = table_[i].Reset;
  }
}

int RegisterFile::Find(uint32_t Address) const {
  for (size_t i = 0; i < table_.size(); i++) {
    if (table_[i].Address == Address) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

void RegisterFile::Write(int Index, uint32_t Value) {
  const REGISTER& Register = Row(Index);
  uint32_t&       Bits     = (*this)[Index];
  Bits                     = (Bits & ~Register.Writable) | (Value & Register.Writable);
  Bits &= ~(Value & Register.ClearByOne);
  Bits |= Value & Register.SetOnly;
}

bool KeyLock::WriteKey(uint32_t Key) {
  if (State == CLOSED && Key == key1_) {
    State = FIRST_KEY_SEEN;
    return true;
  }
  if (State == FIRST_KEY_SEEN && Key == key2_) {
    State = OPEN;
    return true;
  }
  if (State == OPEN && !ThirdKeyKills) {
    return true;
  }
  if (State == DEAD) {
    return false;
  }
  State = DEAD;
  return false;
}

void KeyLock::Interrupt() {
  if (State == FIRST_KEY_SEEN) {
    State = DEAD;
  }
}

void KeyLock::Close() {
  if (State != DEAD) {
    State = CLOSED;
  }
}

}  // namespace sim
