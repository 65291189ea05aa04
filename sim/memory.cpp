// SPDX-License-Identifier: MIT

#include "sim/memory.h"

#include <stddef.h>
#include <string.h>

#include <algorithm>

#include "sim/text.h"

namespace sim {

static const size_t WORDS_PER_LINE = 8;
static const size_t MIN_RUN        = 8;     // shorter repetitions are written out
static const size_t BLOCK          = 1024;  // words

static const uint32_t ROW_BYTES = 128;

void Memory::EraseRange(uint32_t Address, uint32_t Bytes) {
  const size_t First = (Address - row_->Base) / 4;
  const size_t Last  = std::min(words_.size(), First + Bytes / 4);
  saved_.reset();
  for (size_t i = First; i < Last; i++) {
    words_[i] = row_->Erased;
  }
}

void Memory::Fill(uint32_t Value) {
  saved_.reset();
  words_.assign(words_.size(), Value);
}

void Memory::EraseUntil(uint32_t Address, uint32_t Bytes, uint32_t DonePerMille) {
  const uint32_t Done = static_cast<uint32_t>(uint64_t{Bytes} * DonePerMille / 1000) & ~3u;
  EraseRange(Address, Done);
  for (uint32_t i = Done; i < Bytes && i < Done + ROW_BYTES && Contains(Address + i); i += 4) {
    WordAt(Address + i) = HalfErased(WordAt(Address + i), row_->Erased);
  }
}

uint32_t Memory::BytesInUse() const {
  uint32_t NumWords = 0;
  for (const uint32_t Word : words_) {
    NumWords += Word != row_->Erased;
  }
  return NumWords * 4;
}

// Nearly all of a memory repeats, so it is compared in blocks: with itself, one word further on.
static size_t RunLength(const std::vector<uint32_t>& Words, size_t First) {
  size_t End = First + 1;
  while (End + BLOCK <= Words.size() && memcmp(&Words[End - 1], &Words[End], 4 * BLOCK) == 0) {
    End += BLOCK;
  }
  while (End < Words.size() && Words[End] == Words[First]) {
    End++;
  }
  return End - First;
}

void Memory::SaveTo(KeyFile* pFile) const {
  if (!saved_) {
    saved_.emplace();
    AddLines(&*saved_);
  }
  pFile->Add(*saved_);
}

void Memory::AddLines(KeyFile* pFile) const {
  size_t i = 0;
  while (i < words_.size()) {
    const std::string sKey =
        Format("memory.%s.0x%08X", row_->sName, row_->Base + static_cast<uint32_t>(i) * 4);
    const size_t Run = RunLength(words_, i);
    if (words_[i] == row_->Erased) {
      i += Run;
      continue;
    }
    if (Run >= MIN_RUN) {
      pFile->Add(sKey, Format("%zu x %08X", Run, words_[i]));
      i += Run;
      continue;
    }
    std::string sWords;
    size_t      NumWords = 0;
    while (NumWords < WORDS_PER_LINE && i < words_.size() && words_[i] != row_->Erased &&
           RunLength(words_, i) < MIN_RUN) {
      sWords += Format(NumWords == 0 ? "%08X" : " %08X", words_[i]);
      NumWords++;
      i++;
    }
    pFile->Add(sKey, sWords);
  }
}

bool Memory::LoadLine(const std::string& sAddress, const std::string& sWords) {
  uint32_t Address = 0;
  if (!ParseU32(sAddress, &Address) || !Contains(Address) || Address % 4 != 0) {
    return false;
  }
  saved_.reset();
  size_t                         i     = (Address - row_->Base) / 4;
  const std::vector<std::string> Words = SplitWords(sWords);
  if (Words.size() == 3 && Words[1] == "x") {
    uint32_t NumWords = 0;
    uint32_t Value    = 0;
    if (!ParseU32(Words[0], &NumWords) || !ParseU32("0x" + Words[2], &Value) ||
        NumWords > words_.size() - i) {
      return false;
    }
    std::fill_n(words_.begin() + static_cast<ptrdiff_t>(i), NumWords, Value);
    return true;
  }
  for (const std::string& sWord : Words) {
    if (i >= words_.size() || !ParseU32("0x" + sWord, &words_[i])) {
      return false;
    }
    i++;
  }
  return !Words.empty();
}

// -- All of a device's -----------------------------------------------------------------------------

MemorySet::MemorySet(std::span<const silicon::MEMORY> Rows) {
  for (const silicon::MEMORY& Row : Rows) {
    if (Row.Bytes != 0) {
      memories_.emplace_back(Row);
    }
  }
}

Memory* MemorySet::At(uint32_t Address) {
  for (Memory& Each : memories_) {
    if (Each.Contains(Address)) {
      return &Each;
    }
  }
  return nullptr;
}

Memory* MemorySet::Find(silicon::MEMORY_KIND Kind) {
  for (Memory& Each : memories_) {
    if (Each.Row().Kind == Kind) {
      return &Each;
    }
  }
  return nullptr;
}

void MemorySet::Erase(silicon::MEMORY_KIND Kind) {
  for (Memory& Each : memories_) {
    if (Each.Row().Kind == Kind) {
      Each.Erase();
    }
  }
}

}  // namespace sim
