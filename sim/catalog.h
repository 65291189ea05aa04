// sim/catalog.h
// SPDX-License-Identifier: MIT
//
// The devices that can be on a bench. Each folder of a controller kind has a table of rows, made of a
// device of silicon/, the controller and a row of that controller about the device's family, whose
// first part is .Common:
//
//   constexpr DEVICE_ROW aDevices[] = {DeviceRow<ControllerL4, silicon::STM32L476, L47>, ...};

#ifndef SIM_CATALOG_H
#define SIM_CATALOG_H

#include <memory>
#include <span>
#include <string>

#include "silicon/layout.h"
#include "sim/device.h"

namespace sim {

template <typename CONTROLLER, const silicon::DEVICE& Facts, const auto& Family>
constexpr DEVICE_ROW DeviceRow = {
    .pFacts           = &Facts,
    .pFamily          = &Family.Common,
    .pfMakeController = [](Surroundings& Around) -> std::unique_ptr<Controller> {
      return std::make_unique<CONTROLLER>(Around, Facts, Family);
    }};

extern const std::span<const DEVICE_ROW> DevicesF1;  // F0, F1, F3
extern const std::span<const DEVICE_ROW> DevicesF4;  // F2, F4, F7
extern const std::span<const DEVICE_ROW> DevicesH7;
extern const std::span<const DEVICE_ROW> DevicesL0;  // L0, L1
extern const std::span<const DEVICE_ROW> DevicesL4;

// Each device of silicon/ has one.
const silicon::LAYOUT& LayoutOf(const silicon::DEVICE& Facts);

// All of them in the order of the menu; the search ignores case and the leading "STM32". nullptr when
// there is no such device.
std::span<const DEVICE_ROW* const> AllDevices();
const DEVICE_ROW*                  FindDevice(const std::string& sName);

}  // namespace sim

#endif
