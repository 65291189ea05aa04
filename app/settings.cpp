// SPDX-License-Identifier: MIT

#include "app/settings.h"

#include <string.h>

#include "app/family.h"
#include "app/text.h"
#include "util/string.h"

void SetDefaultSettings(UNLOCK_SETTINGS* pSettings) {
  memset(pSettings, 0, sizeof(*pSettings));
  pSettings->Speed  = SPEED_DEFAULT;
  pSettings->HostIF = HOST_IF_USB;
}

// An address and a serial number each choose their interface too, so the later of two such options
// decides which probe is used. The value of the earlier one is kept and has no effect.

int32_t TakeIP(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  UTIL_CopyString(pSettings->IPAddr, sValue, IP_ADDR_SIZE);
  pSettings->HostIF = HOST_IF_ETHERNET;
  return 0;
}

int32_t TakeSerialNo(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  if (ParseDec(sValue, &pSettings->SerialNo) < 0) {
    return -1;
  }
  pSettings->HostIF = HOST_IF_USB;  // also for 0, which stands for any probe
  return 0;
}

// No range check: the probe has its own limits and takes the nearest speed that it has.
int32_t TakeSpeed(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  if (CompareNoCase(sValue, "adaptive")) {
    pSettings->Speed = SPEED_ADAPTIVE;
    return 0;
  }
  if (CompareNoCase(sValue, "auto")) {
    pSettings->Speed = SPEED_AUTO;
    return 0;
  }
  return ParseDec(sValue, &pSettings->Speed);
}

int32_t TakePowerTarget(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  return ParseDec(sValue, &pSettings->PowerTarget);
}

int32_t TakeFamily(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  const FAMILY_ROW* pRow = FindFamily(sValue);
  if (pRow == NULL) {
    return -1;
  }
  pSettings->FamilyIndex = (uint32_t)(pRow - FamilyTable);
  return 0;
}
