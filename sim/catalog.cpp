// SPDX-License-Identifier: MIT

#include "sim/catalog.h"

#include <algorithm>
#include <vector>

#include "sim/text.h"

namespace sim {

std::span<const DEVICE_ROW* const> AllDevices() {
  static const std::vector<const DEVICE_ROW*> Devices = [] {
    std::vector<const DEVICE_ROW*> Rows;
    for (const std::span<const DEVICE_ROW>& Table :
         {DevicesF1, DevicesF4, DevicesH7, DevicesL0, DevicesL4}) {
      for (const DEVICE_ROW& Row : Table) {
        Rows.push_back(&Row);
      }
    }
    std::stable_sort(Rows.begin(), Rows.end(), [](const DEVICE_ROW* pA, const DEVICE_ROW* pB) {
      return pA->pFacts->pFamily->MenuRow < pB->pFacts->pFamily->MenuRow;
    });
    return Rows;
  }();
  return Devices;
}

const silicon::LAYOUT& LayoutOf(const silicon::DEVICE& Facts) {
  return *std::find_if(std::begin(silicon::aLayouts), std::end(silicon::aLayouts),
                       [&Facts](const silicon::LAYOUT& Row) { return Row.pDevice == &Facts; });
}

const DEVICE_ROW* FindDevice(const std::string& sName) {
  for (const DEVICE_ROW* pRow : AllDevices()) {
    if (EqualNoCase(sName, pRow->pFacts->sName) ||
        EqualNoCase("STM32" + sName, pRow->pFacts->sName)) {
      return pRow;
    }
  }
  return nullptr;
}

}  // namespace sim
