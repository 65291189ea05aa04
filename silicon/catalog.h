// silicon/catalog.h
// SPDX-License-Identifier: MIT
//
// All devices that are described, in the order of the unlock tool's menu.

#ifndef SILICON_CATALOG_H
#define SILICON_CATALOG_H

#include "silicon/f0_f1_f3.h"
#include "silicon/f2_f4_f7.h"
#include "silicon/h7.h"
#include "silicon/l0_l1.h"
#include "silicon/l4.h"

namespace silicon {

inline constexpr const DEVICE* apDevices[] = {
    &STM32F030,   &STM32F042,    &STM32F051,   &STM32F072,   &STM32F091,   &STM32F100,
    &STM32F100xE, &STM32F103x6,  &STM32F103,   &STM32F103xE, &STM32F103xG, &STM32F105,
    &STM32F207,   &STM32F301,    &STM32F303,   &STM32F303xE, &STM32F334,   &STM32F373,
    &STM32F401xC, &STM32F401,    &STM32F407,   &STM32F410,   &STM32F411,   &STM32F412,
    &STM32F413,   &STM32F427,    &STM32F429,   &STM32F446,   &STM32F469,   &STM32F723,
    &STM32F746,   &STM32F767,    &STM32H723,   &STM32H743,   &STM32H745,   &STM32H750,
    &STM32L011,   &STM32L031,    &STM32L053,   &STM32L073,   &STM32L100,   &STM32L100xBA,
    &STM32L151,   &STM32L151xCA, &STM32L151xD, &STM32L152,   &STM32L152xC, &STM32L152xE,
    &STM32L433,   &STM32L452,    &STM32L476,   &STM32L496,
};

// For static_assert beside a table with MenuRow: each family has a row.
template <typename ROW, size_t N>
constexpr bool HasRowOfEachFamily(const ROW (&aRows)[N]) {
  for (const DEVICE* pDevice : apDevices) {
    bool HasRow = false;
    for (const ROW& Row : aRows) {
      HasRow = HasRow || Row.MenuRow == pDevice->pFamily->MenuRow;
    }
    if (!HasRow) {
      return false;
    }
  }
  return true;
}

}  // namespace silicon

#endif
