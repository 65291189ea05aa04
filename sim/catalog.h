// sim/catalog.h
// SPDX-License-Identifier: MIT
//
// The devices that can be on a bench. Each folder of a controller kind has a table of its rows,
// each of which names a device of silicon/ and points at its family:
//
//   struct F1_DEVICE { const silicon::DEVICE* pFacts; const F1_FAMILY* pFamily; ... };
//   constexpr F1_DEVICE aDevices[] = {{.pFacts = &silicon::STM32F051, .pFamily = &F05}, ...};
//
// and a family row says at least .pSystem and .Variants. DeviceRows makes of that table what the
// rest of the simulator needs.

#ifndef SIM_CATALOG_H
#define SIM_CATALOG_H

#include <array>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "sim/device.h"

namespace sim {

template <const auto& aOwnRows, typename CONTROLLER, size_t I>
std::unique_ptr<Controller> MakeController(Surroundings& Around) {
  return std::make_unique<CONTROLLER>(Around, aOwnRows[I]);
}

template <const auto& aOwnRows, typename CONTROLLER, size_t... I>
constexpr auto DeviceRows(std::index_sequence<I...>) {
  return std::array<DEVICE_ROW, sizeof...(I)>{
      DEVICE_ROW{.pFacts           = aOwnRows[I].pFacts,
                 .pSystem          = aOwnRows[I].pFamily->pSystem,
                 .Variants         = aOwnRows[I].pFamily->Variants,
                 .pfMakeController = MakeController<aOwnRows, CONTROLLER, I>}...};
}

template <const auto& aOwnRows, typename CONTROLLER>
constexpr auto DeviceRows() {
  return DeviceRows<aOwnRows, CONTROLLER>(std::make_index_sequence<std::size(aOwnRows)>());
}

// Rows of the folders.
std::span<const DEVICE_ROW> DevicesF1();  // F0, F1, F3
std::span<const DEVICE_ROW> DevicesF4();  // F2, F4, F7
std::span<const DEVICE_ROW> DevicesH7();
std::span<const DEVICE_ROW> DevicesL0();  // L0, L1
std::span<const DEVICE_ROW> DevicesL4();

// All of them in the order of the menu; the search ignores case and the leading "STM32". nullptr when
// there is no such device.
std::span<const DEVICE_ROW* const> AllDevices();
const DEVICE_ROW*                  FindDevice(const std::string& sName);

}  // namespace sim

#endif
