// options/identify.h
// SPDX-License-Identifier: MIT
//
// Which device it is: by DBGMCU_IDCODE, the flash size and, where a name has several devices, what
// tells them apart. F0 and L0 show DBGMCU_IDCODE only while a clock is on, which only a write could
// switch on: there the family is known and the device is one of several.

#ifndef OPTIONS_IDENTIFY_H
#define OPTIONS_IDENTIFY_H

#include "options/reading.h"

// Reads one word. 0: *pValue is set. -1: the read was not answered.
int32_t IDENTIFY_ReadWord(uint32_t Address, uint32_t* pValue);

// Fills the members up to FlashKb. MenuRow as for READING_Take().
void IDENTIFY_Device(uint32_t MenuRow, READING* pReading);

#endif
