// sim/registers.h
// SPDX-License-Identifier: MIT
//
// Registers as rows of data: address, value after reset, what a write may do to each bit, names.

#ifndef SIM_REGISTERS_H
#define SIM_REGISTERS_H

#include <stdint.h>

#include <span>
#include <string>
#include <vector>

#include "silicon/device.h"
#include "sim/keyfile.h"

namespace sim {

struct REGISTER {
  const char*     sName      = "";
  uint32_t        Address    = 0;
  uint32_t        Reset      = 0;
  uint32_t        Writable   = 0;  // bits that take what is written
  uint32_t        ClearByOne = 0;  // bits that writing 1 clears
  uint32_t        SetOnly    = 0;  // bits that software can set and not clear
  silicon::FIELDS Fields     = {};
};

// The fields of a word as a person reads them: single bits by name when set, others "NAME=hex".
std::string DecodeFields(const silicon::FIELDS& Fields, uint32_t Value);

// A word after a write of 1, 2 or 4 bytes at the address, which lies in it.
uint32_t Merge(uint32_t Word, uint32_t Address, uint32_t Size, uint32_t Value);

// The values of the registers in a table. Registers are named by their offset from the block's base, as in a
// manual; a block with base 0 names them by address.
class RegisterFile {
 public:
  RegisterFile(uint32_t Base, std::span<const REGISTER> Table);

  void ResetAll();

  // The row of the register at the address; nullptr when there is none.
  const REGISTER* RowAt(uint32_t Address) const;
  bool            Has(uint32_t Offset) const { return RowAt(base_ + Offset) != nullptr; }

  // The register has to exist.
  uint32_t& operator[](uint32_t Offset) { return values_[IndexOf(Offset)]; }
  uint32_t  operator[](uint32_t Offset) const { return values_[IndexOf(Offset)]; }

  // A write as the row's masks let it through.
  void Write(uint32_t Offset, uint32_t Value);

  uint32_t                  Base() const { return base_; }
  std::span<const REGISTER> Rows() const { return table_; }

  // Lines "register.NAME = 0x........".
  void SaveTo(KeyFile* pFile) const;
  bool LoadLine(const std::string& sName, uint32_t Value);

 private:
  size_t IndexOf(uint32_t Offset) const;

  uint32_t                  base_;
  std::span<const REGISTER> table_;
  std::vector<uint32_t>     values_;
};

}  // namespace sim

#endif
