// SPDX-License-Identifier: MIT

#include "options/arguments.h"

#include <string.h>

#include "app/family.h"
#include "app/text.h"
#include "util/format.h"

const char ARGUMENTS_Help[] =
    "usage: quobe-options [OPTION...]\n"
    "\n"
    "Reads the option bytes of the device on a probe and says what they mean. Nothing is written.\n"
    "\n"
    "  -SetDeviceFamily FAMILY  number or name from quobe-unlock's menu; without it the device is "
    "asked\n"
    "  -SelectEmuBySN NUMBER    USB serial number of the probe; without it any probe on USB\n"
    "  -IP ADDRESS              address or host name of a probe on Ethernet\n"
    "  -Speed SPEED             interface speed in kHz, auto or adaptive; 1000 without it\n"
    "  -SetPowerTarget 0|1      1: the probe supplies the target until the program ends\n"
    "  --json                   one JSON object instead of a table (docs/options.md)\n"
    "  --expect factory|FILE    compares with the factory values, or with an earlier output of "
    "--json\n"
    "  --help, --version\n"
    "\n"
    "Exit status: 0 shown and as expected, 1 differs, 2 wrong use, 3 no probe or no target,\n"
    "4 the debug port does not answer.\n";

static bool IsDecimal(const char* sText) {
  // Nine digits and the ten that fit are in 32 bits; longer ones are not.
  const size_t Length = strlen(sText);
  return Length != 0 && strspn(sText, "0123456789") == Length &&
         (Length < 10 || (Length == 10 && strcmp(sText, "4294967295") <= 0));
}

static int32_t TakeCheckedIP(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  if (sValue[0] == 0 || strlen(sValue) >= IP_ADDR_SIZE) {
    return -1;
  }
  return TakeIP(pSettings, sValue);
}

static int32_t TakeCheckedSerialNo(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  return IsDecimal(sValue) ? TakeSerialNo(pSettings, sValue) : -1;
}

static int32_t TakeCheckedSpeed(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  const bool IsWord = CompareNoCase(sValue, "auto") || CompareNoCase(sValue, "adaptive");
  return IsWord || IsDecimal(sValue) ? TakeSpeed(pSettings, sValue) : -1;
}

static int32_t TakeCheckedPower(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  return IsDecimal(sValue) ? TakePowerTarget(pSettings, sValue) : -1;
}

// A text that begins with a digit is a number, as no name does.
static int32_t TakeCheckedFamily(UNLOCK_SETTINGS* pSettings, const char* sValue) {
  const bool IsNumber = strspn(sValue, "0123456789 \t\r\n") != 0;
  return !IsNumber || IsDecimal(sValue) ? TakeFamily(pSettings, sValue) : -1;
}

namespace {
struct ARGUMENT_ROW {
  const char* sOption;
  int32_t (*pfTake)(UNLOCK_SETTINGS* pSettings, const char* sValue);
  const char* sWanted;  // what the value has to be
};
}  // namespace

static const ARGUMENT_ROW ArgumentTable[] = {
    {"-IP", TakeCheckedIP, "an address or host name of at most 127 characters"},
    {"-SelectEmuBySN", TakeCheckedSerialNo, "a decimal serial number"},
    {"-Speed", TakeCheckedSpeed, "kHz, auto or adaptive"},
    {"-SetPowerTarget", TakeCheckedPower, "0 or 1"},
    {"-SetDeviceFamily", TakeCheckedFamily, "a number from 1 to 12 or a name of the menu"},
};

static int32_t Refuse(char (&acError)[ERROR_SIZE], const char* sOption, const char* sValue,
                      const char* sWanted) {
  if (sValue == NULL) {
    UTIL_snprintf(acError, ERROR_SIZE, "%s needs a value: %s", sOption, sWanted);
  } else {
    UTIL_snprintf(acError, ERROR_SIZE, "%s: \"%s\" is not %s", sOption, sValue, sWanted);
  }
  return -1;
}

// The number of arguments that were taken; 0: not one of the table; -1: refused.
static int32_t TakeFromTable(ARGUMENTS* pArguments, const char* sArg, const char* sValue,
                             char (&acError)[ERROR_SIZE]) {
  for (const ARGUMENT_ROW& Row : ArgumentTable) {
    if (CompareNoCase(sArg, Row.sOption)) {
      if (sValue == NULL || Row.pfTake(&pArguments->Settings, sValue) < 0) {
        return Refuse(acError, Row.sOption, sValue, Row.sWanted);
      }
      return 2;
    }
  }
  return 0;
}

static int32_t TakeOwn(ARGUMENTS* pArguments, const char* sArg, const char* sValue,
                       char (&acError)[ERROR_SIZE]) {
  if (strcmp(sArg, "--json") == 0) {
    pArguments->IsJson = true;
  } else if (strcmp(sArg, "--help") == 0) {
    pArguments->WantsHelp = true;
  } else if (strcmp(sArg, "--version") == 0) {
    pArguments->WantsVersion = true;
  } else if (strcmp(sArg, "--expect") == 0) {
    if (sValue == NULL || sValue[0] == 0) {
      return Refuse(acError, sArg, NULL, "factory or a file that --json wrote");
    }
    pArguments->sExpect = sValue;
    return 2;
  } else {
    UTIL_snprintf(acError, ERROR_SIZE, "\"%s\" is no option; see quobe-options --help", sArg);
    return -1;
  }
  return 1;
}

int32_t ARGUMENTS_Parse(ARGUMENTS* pArguments, int NumArgs, const char* const* pasArgs,
                        char (&acError)[ERROR_SIZE]) {
  memset(pArguments, 0, sizeof(*pArguments));
  SetDefaultSettings(&pArguments->Settings);
  int i = 1;
  while (i < NumArgs) {
    const char* sValue = i + 1 < NumArgs ? pasArgs[i + 1] : NULL;
    int32_t     Taken  = TakeFromTable(pArguments, pasArgs[i], sValue, acError);
    if (Taken == 0) {
      Taken = TakeOwn(pArguments, pasArgs[i], sValue, acError);
    }
    if (Taken < 0) {
      return -1;
    }
    i += Taken;
  }
  return 0;
}
