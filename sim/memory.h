// sim/memory.h
// SPDX-License-Identifier: MIT
//
// A memory of the device: flash, EEPROM, or RAM that a protection change wipes.

#ifndef SIM_MEMORY_H
#define SIM_MEMORY_H

#include <stdint.h>

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "silicon/device.h"
#include "sim/keyfile.h"

namespace sim {

using enum silicon::MEMORY_KIND;

// A word whose erase was cut short: every other bit has gone.
constexpr uint32_t HalfErased(uint32_t Word, uint32_t Erased) {
  return (Word & 0x55555555) | (Erased & 0xAAAAAAAA);
}

class Memory {
 public:
  explicit Memory(const silicon::MEMORY& Row) : row_(&Row), words_(Row.Bytes / 4, Row.Erased) {}

  const silicon::MEMORY& Row() const { return *row_; }
  bool Contains(uint32_t Address) const { return Address - row_->Base < row_->Bytes; }

  // The word that the address lies in.
  uint32_t& WordAt(uint32_t Address) {
    saved_.reset();
    return words_[(Address - row_->Base) / 4];
  }
  uint32_t WordAt(uint32_t Address) const { return words_[(Address - row_->Base) / 4]; }

  bool IsErasedAt(uint32_t Address) const { return WordAt(Address) == row_->Erased; }

  void Erase() { EraseRange(row_->Base, row_->Bytes); }
  void EraseRange(uint32_t Address, uint32_t Bytes);
  // An erase of the range that is cut short after DonePerMille thousandths: the part before that is
  // erased, the row of cells at that place half erased, the rest as it was.
  void EraseUntil(uint32_t Address, uint32_t Bytes, uint32_t DonePerMille);
  void Fill(uint32_t Value);

  bool     IsErased() const { return BytesInUse() == 0; }
  uint32_t BytesInUse() const;  // in words that are not erased

  // As lines "memory.NAME.ADDRESS = COUNT x WORD" or "... = WORD WORD ...", erased parts left out.
  void SaveTo(KeyFile* pFile) const;
  // One such line's part after "memory.NAME."; false when it is malformed.
  bool LoadLine(const std::string& sAddress, const std::string& sWords);

 private:
  void AddLines(KeyFile* pFile) const;

  const silicon::MEMORY* row_;
  std::vector<uint32_t>  words_;
  // The lines of SaveTo, until a word may have changed.
  mutable std::optional<KeyFile> saved_;
};

// The memories of a device.
class MemorySet {
 public:
  explicit MemorySet(std::span<const silicon::MEMORY> Rows);

  auto begin() { return memories_.begin(); }
  auto end() { return memories_.end(); }
  auto begin() const { return memories_.begin(); }
  auto end() const { return memories_.end(); }

  // The one at the address, the first of a kind; nullptr when there is none.
  Memory* At(uint32_t Address);
  Memory* Find(silicon::MEMORY_KIND Kind);
  void    Erase(silicon::MEMORY_KIND Kind);

 private:
  std::vector<Memory> memories_;
};

}  // namespace sim

#endif
