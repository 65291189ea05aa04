#include "app/options.h"

#include <string.h>

#include "app/family.h"
#include "app/print.h"
#include "app/text.h"
#include "util/string.h"

// Required: two of the messages name their option in lower case, "-speed" and "-exit".

// For options that take any decimal number. 0: *pValue is set. -1: not a number; sError is printed.
static int32_t ParseDecOrPrint(const char* sValue, uint32_t* pValue, const char* sError) {
  if (ParseDec(sValue, pValue) < 0) {
    PrintLine(sError);
    return -1;
  }
  return 0;
}

static int32_t HandleIP(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  UTIL_CopyString(pSettings->IPAddr, sValue, IP_ADDR_SIZE);
  pSettings->HostIF = HOST_IF_ETHERNET;
  return 0;
}

static int32_t HandleSelectEmuBySN(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  if (ParseDecOrPrint(sValue, &pSettings->SerialNo,
                      "ERROR while parsing value for -SelectEmuBySN.") < 0) {
    return -1;
  }
  pSettings->HostIF = HOST_IF_USB;
  return 0;
}

// No range check: the probe has its own limits and takes the nearest speed that it has.
static int32_t HandleSpeed(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  if (CompareNoCase(sValue, "adaptive")) {
    pSettings->Speed = SPEED_ADAPTIVE;
    return 0;
  }
  if (CompareNoCase(sValue, "auto")) {
    pSettings->Speed = SPEED_AUTO;
    return 0;
  }
  return ParseDecOrPrint(sValue, &pSettings->Speed, "ERROR while parsing value for -speed.");
}

static int32_t HandleSetPowerTarget(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  return ParseDecOrPrint(sValue, &pSettings->PowerTarget,
                         "ERROR while parsing value for -SetPowerTarget.");
}

// A family by name or by menu number. Row 0, "Exit", is not a family: its name and its number are
// refused.
static int32_t HandleSetDeviceFamily(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  for (uint32_t i = FAMILY_ROW_EXIT + 1; i < FAMILY_ROWS; i++) {
    if (CompareNoCase(sValue, FamilyTable[i].Name)) {
      pSettings->FamilyIndex = i;
      return 0;
    }
  }
  uint32_t Value;
  if (ParseDec(sValue, &Value) < 0 || Value == FAMILY_ROW_EXIT || Value >= FAMILY_ROWS) {
    PrintLine("ERROR while parsing value for -SetDeviceFamily.");
    return -1;
  }
  pSettings->FamilyIndex = Value;
  return 0;
}

static int32_t HandleExit(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  return ParseDecOrPrint(sValue, &pSettings->NoExitWait, "ERROR while parsing value for -exit.");
}

const OPTION_ROW OptionTable[] = {
    {"-IP", HandleIP},                            // probe on Ethernet: address or host name
    {"-SelectEmuBySN", HandleSelectEmuBySN},      // probe on USB, by serial number
    {"-Speed", HandleSpeed},                      // kHz, "auto" or "adaptive"
    {"-SetPowerTarget", HandleSetPowerTarget},    // non-zero: supply the target
    {"-SetDeviceFamily", HandleSetDeviceFamily},  // name or menu number
    {"-Exit", HandleExit},                        // non-zero: do not wait for a key
    {NULL, NULL},
};

void SetDefaultSettings(UNLOCK_SETTINGS* pSettings) {
  memset(pSettings, 0, sizeof(*pSettings));
  pSettings->Speed  = SPEED_DEFAULT;
  pSettings->HostIF = HOST_IF_USB;
}

static const OPTION_ROW* FindOption(const char* sArg) {
  for (const OPTION_ROW* pRow = OptionTable; pRow->Option != NULL; pRow++) {
    if (CompareNoCase(sArg, pRow->Option)) {
      return pRow;
    }
  }
  return NULL;
}

int32_t ParseCommandLine(UNLOCK_SETTINGS* pSettings, int NumArgs, const char* const* pasArgs) {
  int i = 1;
  while (i < NumArgs) {
    const OPTION_ROW* pRow = FindOption(pasArgs[i]);
    if (pRow == NULL) {
      i++;  // required: skipped without a message
      continue;
    }
    if (i + 1 >= NumArgs) {
      PrintFormat("Missing command line parameter after command %s.\n", pRow->Option);
      return -1;
    }
    if (pRow->Handler(pSettings, pasArgs[i + 1]) < 0) {
      return -1;
    }
    i += 2;
  }
  return 0;
}
