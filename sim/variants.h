// sim/variants.h
// SPDX-License-Identifier: MIT
//
// Questions that the manuals leave open, or answer in two ways. Each is a switch with the default
// that speaks for itself; its row lies beside the family or block whose rule it decides, and is
// itself the name by which that rule asks for it.

#ifndef SIM_VARIANTS_H
#define SIM_VARIANTS_H

#include <stdint.h>

#include <span>
#include <string>
#include <vector>

#include "sim/keyfile.h"

namespace sim {

struct VARIANT_ROW {
  const char* sName   = "";
  bool        Default = false;
  const char* sText   = "";  // what the value that is not the default means
};

using VARIANT_ROWS = std::span<const VARIANT_ROW* const>;

// The switches of one device.
class Variants {
 public:
  // Those that a device has; several lists add up.
  void Add(VARIANT_ROWS Rows);

  // False for a switch that this device does not have, and for anything but 0 and 1.
  bool Set(const std::string& sName, uint32_t Value);

  // The switch has to be one of the device's.
  bool operator[](const VARIANT_ROW& Row) const;

  struct ITEM {
    const VARIANT_ROW* pRow;
    bool               Value;
  };
  const std::vector<ITEM>& Items() const { return items_; }

  // Lines "variant.NAME = N" of those that are not at their default.
  void SaveTo(KeyFile* pFile) const;

 private:
  std::vector<ITEM> items_;
};

}  // namespace sim

#endif
