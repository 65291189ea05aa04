// app/family.h
//
// The device families: the name that the user sees, the core name that is sent to the probe, and
// the id that chooses the reset routine. And the menu to choose one.

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

// Prints what the tool does to a device. No line end: the menu that follows begins with one.
void PrintFamilyDescription(void);

// Prints the menu and reads one entry with the line editor. There is one attempt: after a wrong
// entry the menu is not shown again. At the end of input it keeps reading; only an entry ends it.
// The entry is read as UTF-8; bytes that are not UTF-8 are dropped by the line editor.
//
// 1: *ppRow is the chosen row. 0: "Exit" was chosen. -1: the entry is not a number, or no row has
// that number; the message has been printed.
int32_t SelectFamily(const FAMILY_ROW** ppRow);

#endif
