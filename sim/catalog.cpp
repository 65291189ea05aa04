#include <vector>

#include "sim/device.h"
#include "sim/families.h"
#include "sim/text.h"

namespace sim {

std::span<const DEVICE_ROW* const> AllDevices() {
  static const std::vector<const DEVICE_ROW*> Devices = [] {
    std::vector<const DEVICE_ROW*>    Rows;
    const std::span<const DEVICE_ROW> aTables[] = {aDevicesF1, aDevicesF4, aDevicesH7, aDevicesL0,
                                                   aDevicesL4};
    for (const std::span<const DEVICE_ROW>& Table : aTables) {
      for (const DEVICE_ROW& Row : Table) {
        Rows.push_back(&Row);
      }
    }
    return Rows;
  }();
  return Devices;
}

const DEVICE_ROW* FindDevice(const std::string& sName) {
  for (const DEVICE_ROW* pRow : AllDevices()) {
    if (EqualNoCase(sName, pRow->sName) || EqualNoCase("STM32" + sName, pRow->sName)) {
      return pRow;
    }
  }
  return nullptr;
}

}  // namespace sim
