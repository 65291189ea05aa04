// app/family.h
// SPDX-License-Identifier: MIT
//
// The device families: the name that the user sees, the core name that is sent to the probe, and
// the id that chooses the reset routine. The menu to choose one is in menu.h.

#ifndef APP_FAMILY_H
#define APP_FAMILY_H

#include <stdint.h>

// FAMILY_ROW.Id. It chooses the reset routine; it is not the menu number. Rows that are reset in
// the same way share an id.
enum {
  FAMILY_NONE    = -1,
  FAMILY_F0      = 0,
  FAMILY_F1      = 1,
  FAMILY_F2      = 2,
  FAMILY_F3      = 3,
  FAMILY_F4      = 4,
  FAMILY_L1      = 5,
  FAMILY_F72_F75 = 6,
  FAMILY_F76_F77 = 7,
  FAMILY_L4      = 8,
  FAMILY_L0      = 9,
  FAMILY_H7      = 10
};

static constexpr uint32_t FAMILY_ROWS     = 13;
static constexpr uint32_t FAMILY_ROW_EXIT = 0;

struct FAMILY_ROW {
  int32_t     Id;
  const char* Name;  // in the menu and as a value of -SetDeviceFamily
  const char* Core;  // the probe's name for the device
};

// The row index is the number in the menu and the number that -SetDeviceFamily takes.
extern const FAMILY_ROW FamilyTable[FAMILY_ROWS];

// The id of the last row in a table that is searched with FindFamilyRow().
static constexpr int32_t FAMILY_OTHERS = -2;

// How a module says what differs between families: a table with one row per family that needs its
// own, and a last row, FAMILY_OTHERS, for all others. The rows have a member FamilyId.
//
// Returns the family's row, or the last row if it has none. Never NULL.
template <class ROW, uint32_t NumRows>
const ROW* FindFamilyRow(const ROW (&aRows)[NumRows], int32_t FamilyId) {
  uint32_t i = 0;
  while (i < NumRows - 1 && aRows[i].FamilyId != FamilyId) {
    i++;
  }
  return &aRows[i];
}

// The family that a user names, by its name or by its number; NULL if there is none such. Row 0,
// "Exit", is not a family: neither its name nor its number is taken.
const FAMILY_ROW* FindFamily(const char* sText);

#endif
