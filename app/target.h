// app/target.h
//
// The steps that the reset routines share. Everything that differs between families (registers,
// keys, values, order) stands in the routine itself.

#ifndef APP_TARGET_H
#define APP_TARGET_H

#include <stdint.h>

// Reads one word. 0 or more: *pValue is the word. Negative: the read failed, and *pValue is 0, so
// that no decision hangs on what happened to be in memory.
int32_t ReadWord(uint32_t Address, uint32_t* pValue);

// The same where the routine does not look at the result: the word, or 0 when the read failed.
uint32_t ReadWordOrZero(uint32_t Address);

// Reads NumWords words; all are 0 when the read failed.
void ReadWordsOrZero(uint32_t Address, uint32_t* pWords, uint32_t NumWords);

// Reads the word until none of the bits in Mask is set. No time-out, on purpose: a device that
// stays busy keeps the tool polling. A read that fails counts as not busy.
void WaitWhileSet(uint32_t Address, uint32_t Mask);

// Prints "Reset target...", resets the target with a reset delay of 0, prints "O.K.".
// ResetTarget first selects the probe's normal reset type; ResetTargetKeepingType leaves the type
// as it is.
void ResetTarget(void);
void ResetTargetKeepingType(void);

#endif
