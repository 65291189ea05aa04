// sim/memory.h
//
// A memory of the device: flash, EEPROM, or RAM that a protection change wipes.

#ifndef SIM_MEMORY_H
#define SIM_MEMORY_H

#include <stdint.h>

#include <string>
#include <vector>

#include "sim/keyfile.h"

namespace sim {

enum MEMORY_KIND {
  MAIN_FLASH,
  EEPROM,
  BACKUP,  // RAM or registers on the backup supply, and SRAM2: kept over a reset, wiped by unprotecting
  SRAM  // lost with power, of no concern to protection
};

struct MEMORY_ROW {
  const char* sName;
  uint32_t    Base;
  uint32_t    Bytes;  // 0: no such memory
  MEMORY_KIND Kind;
  uint32_t    Erased;  // a word of it after an erase
};

// A word after a write of 1, 2 or 4 bytes at the address, which lies in it.
uint32_t Merge(uint32_t Word, uint32_t Address, uint32_t Size, uint32_t Value);

class Memory {
 public:
  explicit Memory(const MEMORY_ROW& Row) : row_(&Row), words_(Row.Bytes / 4, Row.Erased) {}

  const MEMORY_ROW& Row() const { return *row_; }
  bool              Contains(uint32_t Address) const { return Address - row_->Base < row_->Bytes; }

  // The word that the address lies in.
  uint32_t& WordAt(uint32_t Address) { return words_[(Address - row_->Base) / 4]; }

  bool IsErasedAt(uint32_t Address) { return WordAt(Address) == row_->Erased; }

  void Erase() { EraseRange(row_->Base, row_->Bytes); }
  void EraseRange(uint32_t Address, uint32_t Bytes);
  void Fill(uint32_t Value) { words_.assign(words_.size(), Value); }

  bool     IsErased() const;
  uint32_t BytesInUse() const;  // in words that are not erased

  // As lines "memory.NAME.ADDRESS = COUNT x WORD" or "... = WORD WORD ...", erased parts left out.
  void SaveTo(KeyFile* pFile) const;
  // One such line's part behind "memory.NAME."; false when it is not well formed.
  bool LoadLine(const std::string& sAddress, const std::string& sWords);

 private:
  const MEMORY_ROW*     row_;
  std::vector<uint32_t> words_;
};

}  // namespace sim

#endif
