// SPDX-License-Identifier: MIT

#include "app/options.h"

#include <stddef.h>

#include "app/print.h"
#include "app/text.h"

// Required: two of the messages name their option in lower case, "-speed" and "-exit".

// Prints nothing: no text is refused as an address. One that does not exist fails when the probe is
// chosen or opened.
static int32_t HandleIP(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  return TakeIP(pSettings, sValue);
}

// Hands on the result of a value that was read, and prints the message if it was refused.
static int32_t OrPrint(int32_t Result, const char* sError) {
  if (Result < 0) {
    PrintLine(sError);
  }
  return Result;
}

static int32_t HandleSelectEmuBySN(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  return OrPrint(TakeSerialNo(pSettings, sValue), "ERROR while parsing value for -SelectEmuBySN.");
}

static int32_t HandleSpeed(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  return OrPrint(TakeSpeed(pSettings, sValue), "ERROR while parsing value for -speed.");
}

static int32_t HandleSetPowerTarget(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  return OrPrint(TakePowerTarget(pSettings, sValue),
                 "ERROR while parsing value for -SetPowerTarget.");
}

static int32_t HandleSetDeviceFamily(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  return OrPrint(TakeFamily(pSettings, sValue), "ERROR while parsing value for -SetDeviceFamily.");
}

static int32_t HandleExit(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  return OrPrint(ParseDec(sValue, &pSettings->NoExitWait), "ERROR while parsing value for -exit.");
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

// NULL for an argument that is not the name of an option.
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
      // The name as the table spells it, not as it was typed.
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
