// SPDX-License-Identifier: MIT

#include "openocd/config.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "openocd/file.h"
#include "openocd/text.h"

static const uint32_t MAX_VTARGET_MV = 65535;   // the tool's record has 16 bits
static const uint32_t MAX_SPEED_KHZ  = 100000;  // no adapter comes near it

// -- Values --------------------------------------------------------------------------------------

// Sets one key. NULL when the value is good, else what was expected.
typedef const char* SET_VALUE(CONFIG* pConfig, const char* sValue);

static const char* SetText(char* pField, size_t Size, const char* sValue) {
  if (strlen(sValue) >= Size) {
    return "a shorter value";
  }
  TEXT_Format(pField, Size, "%s", sValue);
  return NULL;
}

static const char* SetDriver(CONFIG* pConfig, const char* sValue) {
  const size_t Length = strlen(sValue);
  if (strcmp(sValue, "st-link") == 0) {
    pConfig->Driver = CONFIG_DRIVER_STLINK;
    return NULL;
  }
  if (strcmp(sValue, "cmsis-dap") == 0) {
    pConfig->Driver = CONFIG_DRIVER_CMSIS_DAP;
    return NULL;
  }
  if (Length <= 4 || strcmp(sValue + Length - 4, ".cfg") != 0) {
    return "st-link, cmsis-dap or an OpenOCD interface file that ends in .cfg";
  }
  if (!TEXT_IsPlain(sValue)) {
    return "a file name of letters, digits and . _ : / - only";
  }
  pConfig->Driver = CONFIG_DRIVER_FILE;
  return SetText(pConfig->acDriverFile, sizeof(pConfig->acDriverFile), sValue);
}

static const char* SetOpenocd(CONFIG* pConfig, const char* sValue) {
  return SetText(pConfig->acOpenocd, sizeof(pConfig->acOpenocd), sValue);
}

static const char* SetVTarget(CONFIG* pConfig, const char* sValue) {
  uint32_t Millivolts = 0;
  if (!TEXT_ParseU32(sValue, &Millivolts) || Millivolts > MAX_VTARGET_MV) {
    return "millivolts from 0 to 65535";
  }
  pConfig->VTargetmV = static_cast<int>(Millivolts);
  return NULL;
}

static const char* SetReset(CONFIG* pConfig, const char* sValue) {
  pConfig->ResetByPin = strcmp(sValue, "pin") == 0;
  return pConfig->ResetByPin || strcmp(sValue, "core") == 0 ? NULL : "core or pin";
}

static const char* SetConnect(CONFIG* pConfig, const char* sValue) {
  pConfig->ConnectUnderReset = strcmp(sValue, "under-reset") == 0;
  return pConfig->ConnectUnderReset || strcmp(sValue, "normal") == 0 ? NULL
                                                                     : "normal or under-reset";
}

static const char* SetSpeed(CONFIG* pConfig, const char* sValue) {
  uint32_t Speed = 0;
  if (!TEXT_ParseU32(sValue, &Speed) || Speed == 0 || Speed > MAX_SPEED_KHZ) {
    return "kHz from 1 to 100000";
  }
  pConfig->SpeedLimit = Speed;
  return NULL;
}

// A hook is put between braces in a request: one brace too many would end the request early.
static bool IsBalanced(const char* sTcl) {
  int Braces = 0;
  for (; *sTcl != '\0'; sTcl++) {
    if (*sTcl == '\\') {
      sTcl++;
      if (*sTcl == '\0') {
        return false;
      }
    } else if (*sTcl == '{') {
      Braces++;
    } else if (*sTcl == '}' && --Braces < 0) {
      return false;
    }
  }
  return Braces == 0;
}

static const char* SetHook(char* pField, const char* sValue) {
  if (!IsBalanced(sValue)) {
    return "Tcl with as many closing braces as opening ones";
  }
  return SetText(pField, CONFIG_MAX_HOOK, sValue);
}

static const char* SetPowerOn(CONFIG* pConfig, const char* sValue) {
  return SetHook(pConfig->acPowerOn, sValue);
}

static const char* SetPowerOff(CONFIG* pConfig, const char* sValue) {
  return SetHook(pConfig->acPowerOff, sValue);
}

static const char* SetLog(CONFIG* pConfig, const char* sValue) {
  return SetText(pConfig->acLog, sizeof(pConfig->acLog), sValue);
}

static const char* SetTrace(CONFIG* pConfig, const char* sValue) {
  return SetText(pConfig->acTrace, sizeof(pConfig->acTrace), sValue);
}

static const char* AddSerial(CONFIG* pConfig, const char* sNumber, const char* sValue) {
  CONFIG_SERIAL* pRow = &pConfig->aSerials[pConfig->NumSerials];
  if (pConfig->NumSerials == CONFIG_MAX_SERIALS) {
    return "at most 64 serial numbers";
  }
  if (!TEXT_ParseU32(sNumber, &pRow->Number)) {
    return "a decimal number after \"serial.\"";
  }
  for (int i = 0; i < pConfig->NumSerials; i++) {
    if (pConfig->aSerials[i].Number == pRow->Number) {
      return "each number once";
    }
  }
  if (!TEXT_IsPlain(sValue)) {
    return "a serial number of letters, digits and . _ : / - only";
  }
  const char* sExpected = SetText(pRow->acText, sizeof(pRow->acText), sValue);
  pConfig->NumSerials += sExpected == NULL;
  return sExpected;
}

// -- Lines ---------------------------------------------------------------------------------------

struct KEY_ROW {
  const char* sName;
  SET_VALUE*  pfSet;
};

static const KEY_ROW aKeys[] = {
    {"driver", SetDriver},    {"openocd", SetOpenocd},    {"vtarget", SetVTarget},
    {"reset", SetReset},      {"connect", SetConnect},    {"speed", SetSpeed},
    {"power_on", SetPowerOn}, {"power_off", SetPowerOff}, {"log", SetLog},
    {"trace", SetTrace},
};
static const size_t NUM_KEYS = sizeof(aKeys) / sizeof(aKeys[0]);

static const char SERIAL_PREFIX[] = "serial.";

// Bit i of *pSeen: aKeys[i] has been given.
static bool SetKey(CONFIG* pConfig, uint32_t* pSeen, const char* sKey, const char* sValue,
                   char* pError, size_t ErrorSize) {
  const char* sExpected = NULL;
  if (strncmp(sKey, SERIAL_PREFIX, sizeof(SERIAL_PREFIX) - 1) == 0) {
    sExpected = AddSerial(pConfig, sKey + sizeof(SERIAL_PREFIX) - 1, sValue);
  } else {
    size_t i = 0;
    while (i < NUM_KEYS && strcmp(aKeys[i].sName, sKey) != 0) {
      i++;
    }
    if (i == NUM_KEYS) {
      TEXT_Append(pError, ErrorSize, "unknown key \"%s\"", sKey);
      return false;
    }
    if ((*pSeen & 1u << i) != 0) {
      TEXT_Append(pError, ErrorSize, "\"%s\" is given twice", sKey);
      return false;
    }
    *pSeen |= 1u << i;
    sExpected = aKeys[i].pfSet(pConfig, sValue);
  }
  if (sExpected != NULL) {
    TEXT_Append(pError, ErrorSize, "\"%s = %s\": expected %s", sKey, sValue, sExpected);
    return false;
  }
  return true;
}

static bool ParseLine(CONFIG* pConfig, uint32_t* pSeen, char* sLine, char* pError,
                      size_t ErrorSize) {
  sLine = TEXT_Trim(sLine);
  if (*sLine == '\0' || *sLine == '#') {
    return true;
  }
  for (const char* p = sLine; *p != '\0'; p++) {
    if ((static_cast<unsigned char>(*p) < ' ' && *p != '\t') || *p == 0x7F) {
      TEXT_Append(pError, ErrorSize, "a control character");
      return false;
    }
  }
  char* pEqual = strchr(sLine, '=');
  if (pEqual == NULL) {
    TEXT_Append(pError, ErrorSize, "expected \"key = value\"");
    return false;
  }
  *pEqual            = '\0';
  const char* sKey   = TEXT_Trim(sLine);
  const char* sValue = TEXT_Trim(pEqual + 1);
  if (*sKey == '\0' || *sValue == '\0') {
    TEXT_Append(pError, ErrorSize, "expected \"key = value\"");
    return false;
  }
  return SetKey(pConfig, pSeen, sKey, sValue, pError, ErrorSize);
}

bool CONFIG_Parse(CONFIG* pConfig, const char* pBytes, size_t Length, char* pError,
                  size_t ErrorSize) {
  char     acLine[2048];
  uint32_t Seen      = 0;
  size_t   Position  = 0;
  pConfig->VTargetmV = -1;
  for (int LineNo = 1; Position < Length; LineNo++) {
    const char*  pLine    = pBytes + Position;
    const char*  pNewline = static_cast<const char*>(memchr(pLine, '\n', Length - Position));
    const size_t NumBytes =
        pNewline != NULL ? static_cast<size_t>(pNewline - pLine) : Length - Position;
    Position += NumBytes + (pNewline != NULL);
    TEXT_Format(pError, ErrorSize, "%s:%d: ", pConfig->acPath, LineNo);
    if (NumBytes >= sizeof(acLine)) {
      TEXT_Append(pError, ErrorSize, "the line is too long");
      return false;
    }
    if (memchr(pLine, '\0', NumBytes) != NULL) {
      TEXT_Append(pError, ErrorSize, "a control character");
      return false;
    }
    memcpy(acLine, pLine, NumBytes);
    acLine[NumBytes] = '\0';
    if (!ParseLine(pConfig, &Seen, acLine, pError, ErrorSize)) {
      return false;
    }
  }
  pError[0] = '\0';
  return true;
}

// -- File ----------------------------------------------------------------------------------------

bool CONFIG_Load(CONFIG* pConfig, char* pError, size_t ErrorSize) {
  static char acBytes[CONFIG_MAX_BYTES + 1];
  const char* sGiven  = getenv("QUOBE_OPENOCD");
  const char* sHome   = getenv("HOME");
  const bool  IsGiven = sGiven != NULL && *sGiven != '\0';
  *pConfig            = CONFIG{};
  pConfig->VTargetmV  = -1;
  TEXT_Format(pConfig->acPath, sizeof(pConfig->acPath), "%s%s",
              IsGiven ? sGiven : (sHome != NULL ? sHome : ""),
              IsGiven ? "" : "/.config/quobe/openocd.conf");
  FILE* pFile = FILE_OpenToRead(pConfig->acPath);
  // ENOTDIR: accounts of services have no folder as their home.
  if (pFile == NULL && (errno == ENOENT || errno == ENOTDIR) && !IsGiven) {
    return true;
  }
  if (pFile == NULL) {
    TEXT_Format(pError, ErrorSize, "%s: %s", pConfig->acPath, strerror(errno));
    return false;
  }
  const size_t Length = fread(acBytes, 1, sizeof(acBytes), pFile);
  const int    Error  = ferror(pFile) != 0 ? errno : Length == sizeof(acBytes) ? EFBIG : 0;
  fclose(pFile);
  if (Error != 0) {
    TEXT_Format(pError, ErrorSize, "%s: %s", pConfig->acPath, strerror(Error));
    return false;
  }
  return CONFIG_Parse(pConfig, acBytes, Length, pError, ErrorSize);
}

void CONFIG_SerialText(const CONFIG* pConfig, uint32_t Number, char* pText, size_t Size) {
  for (int i = 0; i < pConfig->NumSerials; i++) {
    if (pConfig->aSerials[i].Number == Number) {
      TEXT_Format(pText, Size, "%s", pConfig->aSerials[i].acText);
      return;
    }
  }
  TEXT_Format(pText, Size, "%u", Number);
}
