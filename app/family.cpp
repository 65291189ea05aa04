// SPDX-License-Identifier: MIT

#include "app/family.h"

#include <stddef.h>

#include "app/text.h"

const FAMILY_ROW FamilyTable[FAMILY_ROWS] = {
    {FAMILY_NONE, "Exit", "Cortex-M0"},       // this core is never sent
    {FAMILY_F0, "STM32F0xxxx", "Cortex-M3"},  // required: M3, although the part is an M0
    {FAMILY_F1, "STM32F1xxxx", "Cortex-M3"},
    {FAMILY_F2, "STM32F2xxxx", "Cortex-M3"},
    {FAMILY_F3, "STM32F3xxxx", "Cortex-M4"},
    {FAMILY_F4, "STM32F4xxxx", "Cortex-M4"},
    {FAMILY_F72_F75, "STM32F72xxx, STM32F73xxx", "Cortex-M7"},
    {FAMILY_F72_F75, "STM32F74xxx, STM32F75xxx", "Cortex-M7"},  // same option layout as above
    {FAMILY_F76_F77, "STM32F76xxx, STM32F77xxx", "Cortex-M7"},
    {FAMILY_H7, "STM32H7xxxx", "Cortex-M7"},
    {FAMILY_L0, "STM32L0xxxx", "Cortex-M0"},
    {FAMILY_L1, "STM32L1xxxx", "Cortex-M3"},
    {FAMILY_L4, "STM32L4x6xx", "Cortex-M4"},
};

const FAMILY_ROW* FindFamily(const char* sText) {
  for (uint32_t i = FAMILY_ROW_EXIT + 1; i < FAMILY_ROWS; i++) {
    if (CompareNoCase(sText, FamilyTable[i].Name)) {
      return &FamilyTable[i];
    }
  }
  // Not a name, so it must be the number of a row. One beyond 32 bits wraps (text.h).
  uint32_t Number;
  if (ParseDec(sText, &Number) < 0 || Number == FAMILY_ROW_EXIT || Number >= FAMILY_ROWS) {
    return NULL;
  }
  return &FamilyTable[Number];
}
