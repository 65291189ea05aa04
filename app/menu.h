// app/menu.h
// SPDX-License-Identifier: MIT
//
// The menu of device families.

#ifndef APP_MENU_H
#define APP_MENU_H

#include <stdint.h>

#include "app/family.h"

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
