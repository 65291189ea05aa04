// SPDX-License-Identifier: MIT

#include "sim/registers.h"

#include <stdlib.h>

#include "sim/text.h"

namespace sim {

std::string DecodeFields(const silicon::FIELDS& Fields, uint32_t Value) {
  std::string sText;
  for (const silicon::FIELD& Field : Fields) {
    const uint32_t Bits = Field.Get(Value);
    if (Field.Width() == 1 && Bits == 0) {
      continue;
    }
    sText += sText.empty() ? "" : " ";
    sText += Field.sName;
    if (Field.Width() > 1) {
      sText += Format("=%0*X", static_cast<int>((Field.Width() + 3) / 4), Bits);
    }
  }
  return sText;
}

uint32_t Merge(uint32_t Word, uint32_t Address, uint32_t Size, uint32_t Value) {
  const uint32_t Shift = 8 * (Address % 4);
  const uint32_t Mask  = (Size == 4 ? ~0u : (1u << (8 * Size)) - 1) << Shift;
  return (Word & ~Mask) | ((Value << Shift) & Mask);
}

RegisterFile::RegisterFile(uint32_t Base, std::span<const REGISTER> Table)
    : base_(Base), table_(Table), values_(Table.size()) {
  ResetAll();
}

void RegisterFile::ResetAll() {
  for (size_t i = 0; i < table_.size(); i++) {
    values_[i] = table_[i].Reset;
  }
}

const REGISTER* RegisterFile::RowAt(uint32_t Address) const {
  for (const REGISTER& Row : table_) {
    if (Row.Address == Address) {
      return &Row;
    }
  }
  return nullptr;
}

size_t RegisterFile::IndexOf(uint32_t Offset) const {
  const REGISTER* pRow = RowAt(base_ + Offset);
  if (pRow == nullptr) {
    abort();  // a rule names a register that this device does not have
  }
  return static_cast<size_t>(pRow - table_.data());
}

void RegisterFile::Write(uint32_t Offset, uint32_t Value) {
  const size_t    i   = IndexOf(Offset);
  const REGISTER& Row = table_[i];
  values_[i]          = (values_[i] & ~Row.Writable) | (Value & Row.Writable);
  values_[i] &= ~(Value & Row.ClearByOne);
  values_[i] |= Value & Row.SetOnly;
}

void RegisterFile::SaveTo(KeyFile* pFile) const {
  for (size_t i = 0; i < table_.size(); i++) {
    pFile->Add(std::string("register.") + table_[i].sName, Format("0x%08X", values_[i]));
  }
}

bool RegisterFile::LoadLine(const std::string& sName, uint32_t Value) {
  for (size_t i = 0; i < table_.size(); i++) {
    if (sName == table_[i].sName) {
      values_[i] = Value;
      return true;
    }
  }
  return false;
}

}  // namespace sim
