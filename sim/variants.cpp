// SPDX-License-Identifier: MIT

#include "sim/variants.h"

#include <stdlib.h>

namespace sim {

void Variants::Add(VARIANT_ROWS Rows) {
  for (const VARIANT_ROW* pRow : Rows) {
    items_.push_back({pRow, pRow->Default});
  }
}

bool Variants::Set(const std::string& sName, uint32_t Value) {
  for (ITEM& Item : items_) {
    if (sName == Item.pRow->sName && Value <= 1) {
      Item.Value = Value != 0;
      return true;
    }
  }
  return false;
}

bool Variants::operator[](const VARIANT_ROW& Row) const {
  for (const ITEM& Item : items_) {
    if (Item.pRow == &Row) {
      return Item.Value;
    }
  }
  abort();  // a rule asks for a switch that its family does not list
}

void Variants::SaveTo(KeyFile* pFile) const {
  for (const ITEM& Item : items_) {
    if (Item.Value != Item.pRow->Default) {
      pFile->Add(std::string("variant.") + Item.pRow->sName, Item.Value ? "1" : "0");
    }
  }
}

}  // namespace sim
