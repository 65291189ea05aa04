// app/target.h
// SPDX-License-Identifier: MIT
//
// The steps that the reset routines share. Everything that differs between families (registers,
// keys, values, order) is in the routine itself.

#ifndef APP_TARGET_H
#define APP_TARGET_H

#include <stdint.h>

// Reads. Each takes what the library delivered, whatever its result: a read that is reported as
// failed may still have delivered words. A word that was not delivered counts as stated.

// The result of the read; negative: it failed. *pValue is the word; 0 if it was not delivered.
int32_t ReadWord(uint32_t Address, uint32_t* pValue);

// The word; Undelivered if it was not delivered.
uint32_t ReadWordOr(uint32_t Address, uint32_t Undelivered);

// The word; 0 if it was not delivered.
uint32_t ReadWordOrZero(uint32_t Address);

// NumWords words; 0 for each that was not delivered.
void ReadWordsOrZero(uint32_t Address, uint32_t* pWords, uint32_t NumWords);

// Reads the word until none of the bits in Mask is set. A word that was not delivered ends the
// wait. There is no time-out: required, a device that stays busy keeps the tool polling.
void WaitWhileSet(uint32_t Address, uint32_t Mask);

// Prints "Reset target...", resets the target with a reset delay of 0, prints "O.K.".
// ResetTarget first selects the probe's normal reset type; ResetTargetKeepingType leaves the type
// as it is.
void ResetTarget(void);
void ResetTargetKeepingType(void);

#endif
