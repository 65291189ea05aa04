// SPDX-License-Identifier: MIT

#include "openocd/adapter.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "openocd/answer.h"
#include "openocd/text.h"

static const int START_DEADLINE_MS   = 10000;  // from the start of the program to its first answer
static const int COMMAND_DEADLINE_MS = 2000;
static const int INIT_DEADLINE_MS    = 15000;  // an adapter that is silent costs 6 s per command
static const int END_GRACE_MS        = 1000;
static const int ALIVE_DEADLINE_MS   = 1000;
static const uint32_t OPEN_SPEED_KHZ = 1000;
static const uint32_t MAX_MILLIVOLTS = 6000;  // a measured value above it is not a voltage

// What stopped an adapter from being opened, the most telling one last.
enum TROUBLE { NO_TROUBLE, NOT_FOUND, OTHER_TROUBLE, NO_TARGET, NO_PERMISSION, BUSY };

// -- Selection -----------------------------------------------------------------------------------

bool ADAPTER_ParseHost(ADAPTER_CHOICE* pChoice, const char* sHost, uint32_t Port) {
  const char* sColon = strchr(sHost, ':');
  size_t      Length = strlen(sHost);
  const char* sPort  = NULL;
  if (*sHost == '[') {
    sHost++;
    Length = strcspn(sHost, "]");
    if (sHost[Length] != ']' || (sHost[Length + 1] != '\0' && sHost[Length + 1] != ':')) {
      return false;
    }
    sPort = sHost[Length + 1] == ':' ? sHost + Length + 2 : NULL;
  } else if (sColon != NULL && strchr(sColon + 1, ':') == NULL) {
    Length = static_cast<size_t>(sColon - sHost);
    sPort  = sColon + 1;
  }
  pChoice->Port = Port != 0 ? Port : ADAPTER_DEFAULT_PORT;
  if (sPort != NULL && !TEXT_ParseU32(sPort, &pChoice->Port)) {
    return false;
  }
  if (Length == 0 || Length >= sizeof(pChoice->acHost) || pChoice->Port == 0 ||
      pChoice->Port > UINT16_MAX) {
    return false;
  }
  TEXT_Format(pChoice->acHost, sizeof(pChoice->acHost), "%.*s", static_cast<int>(Length), sHost);
  return true;
}

// -- Why an adapter cannot be opened -------------------------------------------------------------

struct TROUBLE_ROW {
  const char* sPart;  // of OpenOCD's log
  TROUBLE     Trouble;
};

// The first row that fits holds, so the more telling messages come first.
static const TROUBLE_ROW aTroubles[] = {
    {"LIBUSB_ERROR_ACCESS", NO_PERMISSION},
    {"Access denied", NO_PERMISSION},
    {"insufficient permissions", NO_PERMISSION},
    {"LIBUSB_ERROR_BUSY", BUSY},
    {"Resource busy", BUSY},
    {"claim interface", BUSY},
    {"unable to open CMSIS-DAP device", NO_PERMISSION},
    {"unable to find a matching CMSIS-DAP device", NOT_FOUND},
    {"No device matches the serial string", NOT_FOUND},
    {"unable to connect to the target", NO_TARGET},
    {"open failed", NOT_FOUND},
};

// The last line of a text, without a line end and without the brace that ends a list.
static const char* LastLine(char* sText) {
  sText         = TEXT_Trim(sText);
  size_t Length = strlen(sText);
  if (Length > 0 && sText[Length - 1] == '}') {
    sText[Length - 1] = '\0';
    sText             = TEXT_Trim(sText);
  }
  const char* sLast = strrchr(sText, '\n');
  const char* sList = strrchr(sText, '{');
  return sLast != NULL ? sLast + 1 : sList != NULL ? sList + 1 : sText;
}

// Stores the line of the log that says it, or the last one.
static TROUBLE ClassOf(char* sLog, char* pLine, size_t LineSize) {
  for (const TROUBLE_ROW& Row : aTroubles) {
    const char* sPart = strstr(sLog, Row.sPart);
    if (sPart != NULL) {
      const char* sLine = sPart;
      while (sLine > sLog && sLine[-1] != '\n' && sLine[-1] != '{') {
        sLine--;
      }
      TEXT_Format(pLine, LineSize, "%.*s", static_cast<int>(strcspn(sLine, "\n}")), sLine);
      return Row.Trouble;
    }
  }
  TEXT_Format(pLine, LineSize, "%s", LastLine(sLog));
  return OTHER_TROUBLE;
}

static void TellNotFound(const CONFIG* pConfig, const char* sSerial, char* pError, size_t Size) {
  if (*sSerial != '\0') {
    TEXT_Format(pError, Size,
                "No debug adapter with the serial number %s was found. Check the number; "
                "\"serial.N = TEXT\" in %s says which adapter the number N means.",
                sSerial, pConfig->acPath);
    return;
  }
  static const char* const aWhat[] = {"ST-LINK or CMSIS-DAP adapter", "ST-LINK",
                                      "CMSIS-DAP adapter", "debug adapter"};
  TEXT_Format(pError, Size,
              "No %s was found. Connect it by USB and check the cable; another kind of adapter is "
              "named in %s (driver = FILE.cfg).",
              aWhat[pConfig->Driver], pConfig->acPath);
}

static const char sStlinkRule[] = "ATTRS{idVendor}==\"0483\", MODE=\"660\", TAG+=\"uaccess\"";
static const char sDapRule[]    = "ATTRS{product}==\"*CMSIS-DAP*\", MODE=\"660\", TAG+=\"uaccess\"";

// Stores what the user reads. sLog is OpenOCD's own word for it, of one line.
static void Tell(TROUBLE Trouble, const char* sDriver, const char* sLog, char* pError,
                 size_t Size) {
  switch (Trouble) {
    case NO_PERMISSION:
      TEXT_Format(pError, Size,
                  "This user may not open the debug adapter (%s). On Linux put the line %s into "
                  "/etc/udev/rules.d/60-debug-adapter.rules, run \"udevadm control --reload\" as "
                  "root and plug the adapter in again.",
                  sLog, strcmp(sDriver, "st-link") == 0 ? sStlinkRule : sDapRule);
      break;
    case BUSY:
      TEXT_Format(pError, Size,
                  "The debug adapter is in use (%s). End the program that is connected to it.",
                  sLog);
      break;
    case NO_TARGET:
      TEXT_Format(
          pError, Size,
          "The ST-LINK finds no target (%s). Check the wires SWDIO, SWCLK and GND, that the "
          "target has power, and that the device is not at protection level 2.",
          sLog);
      break;
    default:
      TEXT_Format(pError, Size, "OpenOCD cannot open the debug adapter: %s", sLog);
      break;
  }
}

// -- Steps of opening ----------------------------------------------------------------------------

// One attempt to open an adapter.
struct ATTEMPT {
  ADAPTER*      pAdapter;
  const CONFIG* pConfig;
  const char*   sProgram;
  const char*   sSerial;  // "" when any adapter will do
  char*         pError;
  size_t        ErrorSize;
};

// The conversation broke off. Why is in OpenOCD's log, if anywhere.
static TROUBLE TellGone(const ATTEMPT* pAttempt) {
  const SERVER* pServer = &pAttempt->pAdapter->Server;
  TEXT_Format(pAttempt->pError, pAttempt->ErrorSize, "%s (%s)%s%s", pServer->acReason,
              pAttempt->sProgram, pServer->acError[0] != '\0' ? ": " : "", pServer->acError);
  return OTHER_TROUBLE;
}

// Carries out a command of the phase before "init", which must succeed.
__attribute__((format(printf, 2, 3))) static TROUBLE Configure(const ATTEMPT* pAttempt,
                                                               const char*    sFormat, ...) {
  SERVER* pServer = &pAttempt->pAdapter->Server;
  char    acAnswer[SERVER_MAX_ANSWER];
  char    acCommand[SERVER_MAX_REQUEST];
  va_list Args;
  va_start(Args, sFormat);
  vsnprintf(acCommand, sizeof(acCommand), sFormat, Args);
  va_end(Args);
  switch (
      SERVER_Request(pServer, COMMAND_DEADLINE_MS, acAnswer, sizeof(acAnswer), "%s", acCommand)) {
    case SERVER_OK:
      return NO_TROUBLE;
    case SERVER_REFUSED:
      TEXT_Format(pAttempt->pError, pAttempt->ErrorSize, "OpenOCD refuses \"%s\": %s", acCommand,
                  pServer->acError[0] != '\0' ? pServer->acError : LastLine(acAnswer));
      return OTHER_TROUBLE;
    default:
      return TellGone(pAttempt);
  }
}

// What the core is owed if the tool is killed: DEMCR and DHCSR as TARGET_Resume() leaves them.
static const char sLetGo[] =
    "catch {stm32.mem write_memory 0xE000EDFC 32 {0x0}}; "
    "catch {stm32.mem write_memory 0xE000EDF0 32 {0xA05F0000}}";

static TROUBLE StartProgram(const ATTEMPT* pAttempt) {
  ADAPTER* pAdapter = pAttempt->pAdapter;
  char     acAnswer[SERVER_MAX_ANSWER];
  if (!SERVER_Start(&pAdapter->Server, pAttempt->sProgram, pAttempt->pConfig->acLog, sLetGo)) {
    TEXT_Format(pAttempt->pError, pAttempt->ErrorSize, "%s", pAdapter->Server.acReason);
    return OTHER_TROUBLE;
  }
  if (SERVER_Request(&pAdapter->Server, START_DEADLINE_MS, acAnswer, sizeof(acAnswer), "version") !=
      SERVER_OK) {
    return TellGone(pAttempt);
  }
  TEXT_Format(pAdapter->acVersion, sizeof(pAdapter->acVersion), "%s", acAnswer);
  return NO_TROUBLE;
}

static TROUBLE SelectDriver(const ATTEMPT* pAttempt, const char* sDriver) {
  const CONFIG* pConfig = pAttempt->pConfig;
  TROUBLE       Trouble = *sDriver != '\0'
                              ? Configure(pAttempt, "adapter driver %s", sDriver)
                              : Configure(pAttempt, "source [find %s]", pConfig->acDriverFile);
  if (Trouble == NO_TROUBLE && pAttempt->sSerial[0] != '\0') {
    Trouble = Configure(pAttempt, "adapter serial %s", pAttempt->sSerial);
  }
  if (Trouble == NO_TROUBLE) {
    // The second one is the ST-LINK's name for it.
    Trouble =
        Configure(pAttempt, "if {[catch {transport select swd}]} {transport select dapdirect_swd}");
  }
  return Trouble;
}

// No family is named and no core: the target is the bus, and nothing reads or writes it by itself.
static TROUBLE CreateTarget(const ATTEMPT* pAttempt) {
  const CONFIG* pConfig = pAttempt->pConfig;
  TROUBLE       Trouble = NO_TROUBLE;
  if (pConfig->ConnectUnderReset || pConfig->ResetByPin) {
    Trouble = Configure(pAttempt, "reset_config srst_only srst_nogate%s",
                        pConfig->ConnectUnderReset ? " connect_assert_srst" : "");
  }
  if (Trouble == NO_TROUBLE) {
    Trouble = Configure(pAttempt,
                        "source [find target/swj-dp.tcl]; swj_newdap stm32 cpu -irlen 4; "
                        "dap create stm32.dap -chain-position stm32.cpu; "
                        "target create stm32.mem mem_ap -dap stm32.dap -ap-num 0 -defer-examine");
  }
  return Trouble;
}

// "init" opens the adapter and then connects to the debug port. When only the latter fails the
// session goes on; when the adapter was not opened, OpenOCD ends with the next command or stays as
// it was before "init".
static TROUBLE Init(const ATTEMPT* pAttempt, const char* sDriver) {
  ADAPTER* pAdapter = pAttempt->pAdapter;
  SERVER*  pServer  = &pAdapter->Server;
  char     acLog[SERVER_MAX_ANSWER];
  char     acMode[SERVER_MAX_ANSWER];  // then the line of the log that says why
  if (SERVER_Request(pServer, INIT_DEADLINE_MS, acLog, sizeof(acLog),
                     "set l [capture {set c [catch {init}]}]; list $c $l") == SERVER_GONE) {
    return TellGone(pAttempt);
  }
  if (strncmp(acLog, "0 ", 2) == 0 ||
      (SERVER_Request(pServer, COMMAND_DEADLINE_MS, acMode, sizeof(acMode), "command mode") ==
           SERVER_OK &&
       strcmp(acMode, "exec") == 0)) {
    return NO_TROUBLE;
  }
  const TROUBLE Trouble = ClassOf(acLog, acMode, sizeof(acMode));
  if (Trouble == NOT_FOUND) {
    TellNotFound(pAttempt->pConfig, pAttempt->sSerial, pAttempt->pError, pAttempt->ErrorSize);
  } else {
    Tell(Trouble, sDriver, acMode, pAttempt->pError, pAttempt->ErrorSize);
  }
  return Trouble;
}

// sDriver is empty for the configured interface file. What was started is ended after a failure.
static TROUBLE TryDriver(const ATTEMPT* pAttempt, const char* sDriver) {
  ADAPTER* pAdapter = pAttempt->pAdapter;
  char     acAnswer[SERVER_MAX_ANSWER];
  TROUBLE  Trouble = StartProgram(pAttempt);
  if (Trouble == NO_TROUBLE) {
    Trouble = SelectDriver(pAttempt, sDriver);
  }
  if (Trouble == NO_TROUBLE) {
    const uint32_t Limit = pAttempt->pConfig->SpeedLimit;
    ADAPTER_SetSpeed(pAdapter, Limit != 0 && Limit < OPEN_SPEED_KHZ ? Limit : OPEN_SPEED_KHZ);
    Trouble = CreateTarget(pAttempt);
  }
  if (Trouble == NO_TROUBLE) {
    Trouble = Init(pAttempt, sDriver);
  }
  if (Trouble == NO_TROUBLE && SERVER_Request(&pAdapter->Server, COMMAND_DEADLINE_MS, acAnswer,
                                              sizeof(acAnswer), "adapter name") == SERVER_OK) {
    TEXT_Format(pAdapter->acDriver, sizeof(pAdapter->acDriver), "%s", acAnswer);
  }
  if (Trouble != NO_TROUBLE) {
    SERVER_End(&pAdapter->Server, END_GRACE_MS);
  }
  return Trouble;
}

static bool OpenByUsb(ATTEMPT* pAttempt) {
  char                     acOther[512];
  ADAPTER*                 pAdapter   = pAttempt->pAdapter;
  static const char* const aDrivers[] = {NULL, "st-link", "cmsis-dap", ""};
  TEXT_Format(pAdapter->acTarget, sizeof(pAdapter->acTarget), "stm32.mem");
  TEXT_Format(pAdapter->acDap, sizeof(pAdapter->acDap), "stm32.dap");
  if (pAttempt->pConfig->Driver != CONFIG_DRIVER_ANY) {
    return TryDriver(pAttempt, aDrivers[pAttempt->pConfig->Driver]) == NO_TROUBLE;
  }
  const TROUBLE First = TryDriver(pAttempt, "st-link");
  if (First == NO_TROUBLE) {
    return true;
  }
  // An ST-LINK that is there and cannot be opened is the better story, unless the other one opens.
  TEXT_Format(acOther, sizeof(acOther), "%s", pAttempt->pError);
  const TROUBLE Second = TryDriver(pAttempt, "cmsis-dap");
  if (Second != NO_TROUBLE && First > Second) {
    TEXT_Format(pAttempt->pError, pAttempt->ErrorSize, "%s", acOther);
  }
  return Second == NO_TROUBLE;
}

// -- A running server ----------------------------------------------------------------------------

// Its targets are somebody else's: the one that is only the bus is best, else the first will do.
static const char sFindTarget[] =
    "set t [lindex [target names] 0]; "
    "foreach n [target names] {if {[$n cget -type] eq {mem_ap}} {set t $n; break}}; set t";

static bool OpenByNetwork(ATTEMPT* pAttempt, const ADAPTER_CHOICE* pChoice) {
  ADAPTER* pAdapter = pAttempt->pAdapter;
  SERVER*  pServer  = &pAdapter->Server;
  char     acAnswer[SERVER_MAX_ANSWER];
  if (!SERVER_Connect(pServer, pChoice->acHost, pChoice->Port)) {
    TEXT_Format(pAttempt->pError, pAttempt->ErrorSize,
                "No OpenOCD server at %s, port %u: %s. Start one there, or name its Tcl port: "
                "-IP HOST:PORT.",
                pChoice->acHost, pChoice->Port, pServer->acReason);
    return false;
  }
  if (SERVER_Request(pServer, COMMAND_DEADLINE_MS, acAnswer, sizeof(acAnswer), "version") !=
      SERVER_OK) {
    TEXT_Format(pAttempt->pError, pAttempt->ErrorSize,
                "What answers at %s, port %u, is not the Tcl port of OpenOCD.", pChoice->acHost,
                pChoice->Port);
    SERVER_End(pServer, 0);
    return false;
  }
  TEXT_Format(pAdapter->acVersion, sizeof(pAdapter->acVersion), "%s", acAnswer);
  if (SERVER_Request(pServer, COMMAND_DEADLINE_MS, acAnswer, sizeof(acAnswer), sFindTarget) !=
          SERVER_OK ||
      !TEXT_IsPlain(acAnswer)) {
    TEXT_Format(pAttempt->pError, pAttempt->ErrorSize,
                "The OpenOCD server at %s, port %u, has no target. Start it with one.",
                pChoice->acHost, pChoice->Port);
    SERVER_End(pServer, 0);
    return false;
  }
  TEXT_Format(pAdapter->acTarget, sizeof(pAdapter->acTarget), "%s", acAnswer);
  if (SERVER_Request(pServer, COMMAND_DEADLINE_MS, acAnswer, sizeof(acAnswer), "%s cget -dap",
                     pAdapter->acTarget) == SERVER_OK &&
      TEXT_IsPlain(acAnswer)) {
    TEXT_Format(pAdapter->acDap, sizeof(pAdapter->acDap), "%s", acAnswer);
  }
  if (SERVER_Request(pServer, COMMAND_DEADLINE_MS, acAnswer, sizeof(acAnswer), "adapter name") ==
      SERVER_OK) {
    TEXT_Format(pAdapter->acDriver, sizeof(pAdapter->acDriver), "%s", acAnswer);
  }
  return true;
}

bool ADAPTER_Open(ADAPTER* pAdapter, const CONFIG* pConfig, const ADAPTER_CHOICE* pChoice,
                  char* pError, size_t ErrorSize) {
  char    acProgram[CONFIG_MAX_PATH];
  char    acSerial[CONFIG_MAX_SERIAL] = "";
  ATTEMPT Attempt                     = {pAdapter, pConfig, acProgram, acSerial, pError, ErrorSize};
  *pAdapter                           = ADAPTER{};
  if (pChoice->ByNetwork) {
    return OpenByNetwork(&Attempt, pChoice);
  }
  if (pChoice->BySerial) {
    CONFIG_SerialText(pConfig, pChoice->SerialNo, acSerial, sizeof(acSerial));
  }
  const bool IsFound = CHILD_Find(pConfig->acOpenocd, acProgram, sizeof(acProgram));
  if (!IsFound && pConfig->acOpenocd[0] != '\0') {
    TEXT_Format(pError, ErrorSize,
                "OpenOCD was not found: \"openocd = %s\" in %s names no program.",
                pConfig->acOpenocd, pConfig->acPath);
    return false;
  }
  if (!IsFound) {
    TEXT_Format(pError, ErrorSize,
                "OpenOCD was not found (looked in PATH, /opt/homebrew/bin and /usr/local/bin). "
                "Install it (apt install openocd, brew install open-ocd) or set \"openocd = PATH\" "
                "in %s.",
                pConfig->acPath);
    return false;
  }
  return OpenByUsb(&Attempt);
}

// -- While it is open ----------------------------------------------------------------------------

// The first number in a text; false if it has no number.
static bool FirstNumber(const char* sText, uint32_t* pValue) {
  char acDigits[16];
  sText += strcspn(sText, "0123456789");
  TEXT_Format(acDigits, sizeof(acDigits), "%.*s", static_cast<int>(strspn(sText, "0123456789")),
              sText);
  return TEXT_ParseU32(acDigits, pValue);
}

bool ADAPTER_SetSpeed(ADAPTER* pAdapter, uint32_t SpeedkHz) {
  char     acAnswer[SERVER_MAX_ANSWER];
  uint32_t Speed = 0;
  if (SERVER_Request(&pAdapter->Server, COMMAND_DEADLINE_MS, acAnswer, sizeof(acAnswer),
                     "adapter speed %u", SpeedkHz) != SERVER_OK) {
    return false;
  }
  pAdapter->HasSpeed = true;
  // The answer is "adapter speed: 1000 kHz".
  pAdapter->SpeedkHz = FirstNumber(acAnswer, &Speed) ? Speed : SpeedkHz;
  return true;
}

bool ADAPTER_IsAlive(ADAPTER* pAdapter) {
  uint32_t Millivolts = 0;
  char     acAnswer[SERVER_MAX_ANSWER];
  if (strcmp(pAdapter->acDriver, "st-link") == 0) {
    return ADAPTER_MeasureVoltage(pAdapter, &Millivolts);
  }
  // The speed that it has already: of all commands the one that changes nothing and cannot be
  // answered from memory.
  return !pAdapter->HasSpeed ||
         SERVER_Request(&pAdapter->Server, ALIVE_DEADLINE_MS, acAnswer, sizeof(acAnswer),
                        "adapter speed %u", pAdapter->SpeedkHz) == SERVER_OK;
}

// Two words: the reference's reading, which stands for 1.2 V, and that of half the target's
// voltage.
bool ADAPTER_MeasureVoltage(ADAPTER* pAdapter, uint32_t* pMillivolts) {
  static const uint32_t TWICE_REFERENCE_MV = 2400;
  char                  acAnswer[SERVER_MAX_ANSWER];
  uint32_t              aBytes[8] = {};
  if (strcmp(pAdapter->acDriver, "st-link") != 0 ||
      SERVER_Request(&pAdapter->Server, COMMAND_DEADLINE_MS, acAnswer, sizeof(acAnswer),
                     "st-link cmd 8 0xf7 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0") != SERVER_OK ||
      !ANSWER_Numbers(acAnswer, aBytes, 8)) {
    return false;
  }
  uint64_t aWords[2] = {};
  for (int i = 0; i < 8; i++) {
    aWords[i / 4] |= uint64_t{aBytes[i] & 0xFF} << 8 * (i % 4);
  }
  const uint64_t Millivolts =
      aWords[0] != 0 ? TWICE_REFERENCE_MV * aWords[1] / aWords[0] : UINT64_MAX;
  if (Millivolts > MAX_MILLIVOLTS) {
    return false;
  }
  *pMillivolts = static_cast<uint32_t>(Millivolts);
  return true;
}
