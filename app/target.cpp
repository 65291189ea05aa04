#include "app/target.h"

#include <string.h>

#include "app/print.h"
#include "probeapi/quobearm.h"

static int32_t ReadWords(uint32_t Address, uint32_t* pWords, uint32_t NumWords) {
  memset(pWords, 0, NumWords * sizeof(*pWords));
  const int32_t Result = QUOBEARM_ReadMemU32(Address, NumWords, pWords, NULL);
  if (Result < 0) {
    memset(pWords, 0, NumWords * sizeof(*pWords));  // the library may have written a part
  }
  return Result;
}

int32_t ReadWord(uint32_t Address, uint32_t* pValue) {
  return ReadWords(Address, pValue, 1);
}

uint32_t ReadWordOrZero(uint32_t Address) {
  uint32_t Value;
  ReadWords(Address, &Value, 1);
  return Value;
}

void ReadWordsOrZero(uint32_t Address, uint32_t* pWords, uint32_t NumWords) {
  ReadWords(Address, pWords, NumWords);
}

void WaitWhileSet(uint32_t Address, uint32_t Mask) {
  while (ReadWordOrZero(Address) & Mask) {
  }
}

void ResetTarget(void) {
  PrintText("Reset target...");
  QUOBEARM_SetResetType(QUOBEARM_RESET_NORMAL);
  QUOBEARM_SetResetDelay(0);
  QUOBEARM_Reset();
  PrintLine("O.K.");
}

void ResetTargetKeepingType(void) {
  PrintText("Reset target...");
  QUOBEARM_SetResetDelay(0);
  QUOBEARM_Reset();
  PrintLine("O.K.");
}
