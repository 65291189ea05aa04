// sim/families.h
//
// The device tables of the families, one per kind of flash controller.

#ifndef SIM_FAMILIES_H
#define SIM_FAMILIES_H

#include <string.h>

#include "sim/device.h"

namespace sim {

enum {
  NUM_DEVICES_F1 = 3,
  NUM_DEVICES_F4 = 8,
  NUM_DEVICES_L0 = 4,
  NUM_DEVICES_L4 = 1,
  NUM_DEVICES_H7 = 1
};

extern const DEVICE_ROW aDevicesF1[NUM_DEVICES_F1];  // F0, F1, F3
extern const DEVICE_ROW aDevicesF4[NUM_DEVICES_F4];  // F2, F4, F7
extern const DEVICE_ROW aDevicesL0[NUM_DEVICES_L0];  // L0, L1
extern const DEVICE_ROW aDevicesL4[NUM_DEVICES_L4];
extern const DEVICE_ROW aDevicesH7[NUM_DEVICES_H7];

// The row of a family's own table that belongs to the device; every device has one.
template <typename ROW, size_t NumRows>
const ROW& RowNamed(const ROW (&aRows)[NumRows], const char* sName) {
  for (const ROW& Row : aRows) {
    if (strcmp(Row.sDevice, sName) == 0) {
      return Row;
    }
  }
  return aRows[0];
}

}  // namespace sim

#endif
