// app/connect.h
// SPDX-License-Identifier: MIT
//
// The steps from a probe that is chosen to a target that can be accessed, and back. Nothing is
// printed. A program makes them in this order, with what it has to say between them.

#ifndef APP_CONNECT_H
#define APP_CONNECT_H

#include <stdint.h>

#include "app/settings.h"

static constexpr uint32_t MIN_TARGET_VOLTAGE_MV = 500;  // below it the target counts as unpowered

// Chooses the probe by its address, or by its serial number if one was given.
// 0: chosen. -1: the address was refused. A serial number that does not exist makes the open fail.
int32_t SelectProbe(const UNLOCK_SETTINGS* pSettings);

// Opens the chosen probe. From here on the process survives the loss of its terminal (process.h).
// NULL on success, else the reason, which may be an empty text. The library owns it.
const char* OpenProbe(void);

// Tells the probe which core the target has.
void SendDevice(const char* sCore);

// Supplies the target from the probe and waits until the supply has settled.
void SupplyTarget(void);

// Selects SWD and the speed (UNLOCK_SETTINGS.Speed). Returns the speed in use, in kHz.
uint32_t SelectSwd(uint32_t Speed);

// In millivolts; 0 if the probe does not report it.
uint32_t TargetVoltage(void);

// Closes the connection if one is open; before that, ends the supply if the settings asked for it.
void CloseProbe(const UNLOCK_SETTINGS* pSettings);

#endif
