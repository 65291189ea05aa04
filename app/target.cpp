// SPDX-License-Identifier: MIT

#include "app/target.h"

#include <string.h>

#include "app/print.h"
#include "probeapi/quobearm.h"

int32_t ReadWord(uint32_t Address, uint32_t* pValue) {
  *pValue = 0;
  return QUOBEARM_ReadMemU32(Address, 1, pValue, NULL);
}

uint32_t ReadWordOr(uint32_t Address, uint32_t Undelivered) {
  uint32_t Value = Undelivered;
  QUOBEARM_ReadMemU32(Address, 1, &Value, NULL);
  return Value;
}

uint32_t ReadWordOrZero(uint32_t Address) {
  return ReadWordOr(Address, 0);
}

void ReadWordsOrZero(uint32_t Address, uint32_t* pWords, uint32_t NumWords) {
  // Zero is no family's factory word, so a word that is not delivered cannot pass for one.
  memset(pWords, 0, NumWords * sizeof(*pWords));
  QUOBEARM_ReadMemU32(Address, NumWords, pWords, NULL);
}

// The value is zero before each read, so a read that delivers nothing ends the wait.
void WaitWhileSet(uint32_t Address, uint32_t Mask) {
  while (ReadWordOrZero(Address) & Mask) {
  }
}

// The text comes before the reset and "O.K." after it, so a probe that hangs in between shows
// where. "O.K." says only that the call has returned: its result is not used (quobearm.h).

void ResetTarget(void) {
  PrintText("Reset target...");
  QUOBEARM_SetResetType(QUOBEARM_RESET_NORMAL);
  QUOBEARM_SetResetDelay(0);
  QUOBEARM_Reset();
  PrintLine("O.K.");
}

// Required for L4: the probe's reset type stays as it was.
void ResetTargetKeepingType(void) {
  PrintText("Reset target...");
  QUOBEARM_SetResetDelay(0);
  QUOBEARM_Reset();
  PrintLine("O.K.");
}
