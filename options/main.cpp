// SPDX-License-Identifier: MIT

// quobe-options: says what is in the option bytes of a device. Reads only.

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "app/connect.h"
#include "app/family.h"
#include "app/process.h"
#include "options/arguments.h"
#include "options/expect.h"
#include "options/reading.h"
#include "options/report.h"
#include "probeapi/loader.h"
#include "util/format.h"
#include "util/string.h"

// Without a family the probe is told a core that every device answers to as a bus.
static const char DEFAULT_CORE[] = "Cortex-M3";

// How a library's error text begins when it could not reach the target.
static const char PORT_IS_SILENT[] = "The debug port does not answer";

static char acError[ERROR_SIZE];

// -- The library ---------------------------------------------------------------------------------

// The loader prints a line of its own on standard output, where only the report belongs.
static int32_t LoadQuietly(void) {
  fflush(stdout);
  const int Saved = dup(STDOUT_FILENO);
  const int Null  = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (Saved >= 0 && Null >= 0) {
    dup2(Null, STDOUT_FILENO);
  }
  const int32_t Result = APILOADER_TryLoad();
  fflush(stdout);
  if (Saved >= 0 && Null >= 0) {
    dup2(Saved, STDOUT_FILENO);
  }
  if (Saved >= 0) {
    close(Saved);
  }
  if (Null >= 0) {
    close(Null);
  }
  return Result;
}

// A forwarding function whose function is missing would end the process with status 1, which here
// means that something differs. So all that are called are looked for first.
static int32_t FindLibrary(void) {
  static const char* const Functions[] = {
      "QUOBEARM_IsOpen",      "QUOBEARM_SelectIP",   "QUOBEARM_EMU_SelectByUSBSN",
      "QUOBEARM_Open",        "QUOBEARM_Close",      "QUOBEARM_ExecCommand",
      "QUOBEARM_TIF_Select",  "QUOBEARM_SetSpeed",   "QUOBEARM_GetSpeed",
      "QUOBEARM_GetHWStatus", "QUOBEARM_ReadMemU32",
  };
  if (LoadQuietly() < 0) {
    UTIL_CopyString(acError,
                    "no probe library: put libquobearm.dylib beside this program or install it",
                    ERROR_SIZE);
    return -1;
  }
  for (const char* sFunction : Functions) {
    if (dlsym(APILOADER_hLib, sFunction) == NULL) {
      UTIL_snprintf(acError, ERROR_SIZE,
                    "the probe library has no %s: it is too old or another library", sFunction);
      return -1;
    }
  }
  return 0;
}

// -- The run -------------------------------------------------------------------------------------

// A library's text may have several lines, and ends as it likes.
static void TakeLibraryText(const char* sText) {
  UTIL_snprintf(acError, ERROR_SIZE, "the probe was not opened: %s",
                sText[0] != 0 ? sText : "its library gives no reason");
  size_t Length = strlen(acError);
  while (Length > 0 && strchr("\r\n.", acError[Length - 1]) != NULL) {
    acError[--Length] = 0;
  }
  for (char* p = acError; *p != 0; p++) {
    *p = *p == '\n' || *p == '\r' ? ' ' : *p;
  }
}

// The connection, as the unlock tool makes it.
static EXIT_STATUS Connect(const UNLOCK_SETTINGS* pSettings, REPORT* pReport) {
  if (FindLibrary() < 0) {
    return EXIT_NO_TARGET;
  }
  if (SelectProbe(pSettings) < 0) {
    UTIL_snprintf(acError, ERROR_SIZE, "no probe at \"%s\": check the address and its network",
                  pSettings->IPAddr);
    return EXIT_NO_TARGET;
  }
  const char* sReason = OpenProbe();
  if (sReason != NULL) {
    TakeLibraryText(sReason);
    // The library over OpenOCD reaches for the target when it opens the probe.
    return strncmp(sReason, PORT_IS_SILENT, strlen(PORT_IS_SILENT)) == 0 ? EXIT_PORT_CLOSED
                                                                         : EXIT_NO_TARGET;
  }
  SendDevice(pSettings->FamilyIndex != 0 ? FamilyTable[pSettings->FamilyIndex].Core : DEFAULT_CORE);
  if (pSettings->PowerTarget != 0) {
    SupplyTarget();
  }
  pReport->SpeedKhz      = SelectSwd(pSettings->Speed);
  pReport->VoltageMv     = TargetVoltage();
  pReport->HasConnection = true;
  if (pReport->VoltageMv < MIN_TARGET_VOLTAGE_MV) {
    UTIL_snprintf(
        acError, ERROR_SIZE,
        "no target: its voltage is %u mV; connect and supply it, or use -SetPowerTarget 1",
        pReport->VoltageMv);
    return EXIT_NO_TARGET;
  }
  return EXIT_SHOWN;
}

static EXIT_STATUS Read(const ARGUMENTS* pArguments, const EXPECTED* pExpected, READING* pReading,
                        DIFFERENCES* pDifferences) {
  if (READING_Take(pArguments->Settings.FamilyIndex, pReading) < 0) {
    UTIL_CopyString(
        acError,
        "the debug port does not answer: protection level 2, a program that uses its pins "
        "or sleeps, or the wiring",
        ERROR_SIZE);
    return EXIT_PORT_CLOSED;
  }
  if (pArguments->sExpect == NULL) {
    return EXIT_SHOWN;
  }
  if (strcmp(pArguments->sExpect, "factory") == 0) {
    EXPECT_CompareWithFactory(pReading, pDifferences);
  } else {
    EXPECT_CompareWithFile(pReading, pExpected, pDifferences);
  }
  return pDifferences->NumDifferences == 0 ? EXIT_SHOWN : EXIT_DIFFERS;
}

static void Complain(const char* sText) {
  fprintf(stderr, "quobe-options: %s.\n", sText);
}

static EXIT_STATUS Run(const ARGUMENTS* pArguments) {
  static EXPECTED    Expected;
  static READING     Reading;
  static DIFFERENCES Differences;
  const bool IsFile = pArguments->sExpect != NULL && strcmp(pArguments->sExpect, "factory") != 0;
  if (IsFile && EXPECT_ReadFile(pArguments->sExpect, &Expected, acError) < 0) {
    Complain(acError);
    return EXIT_USAGE;
  }
  REPORT Report;
  memset(&Report, 0, sizeof(Report));
  Report.pSettings    = &pArguments->Settings;
  Report.sExpected    = pArguments->sExpect;
  Report.pDifferences = &Differences;
  Report.Status       = Connect(&pArguments->Settings, &Report);
  if (Report.Status == EXIT_SHOWN) {
    Report.Status = Read(pArguments, &Expected, &Reading, &Differences);
  }
  if (Report.Status <= EXIT_DIFFERS) {
    Report.pReading = &Reading;
  } else {
    Report.sError = acError;
  }
  // Before anything is printed: a reader that is slow must not keep the probe.
  if (Report.HasConnection) {
    CloseProbe(&pArguments->Settings);
  }
  const int32_t Printed =
      pArguments->IsJson ? REPORT_PrintJson(&Report) : REPORT_PrintText(&Report);
  if (Report.sError != NULL) {
    Complain(acError);
  }
  if (Printed < 0) {
    Complain("standard output could not be written");
    return EXIT_USAGE;
  }
  return Report.Status;
}

int main(int NumArgs, char** pasArgs) {
  OpenStandardDescriptors();  // first: nothing has opened a file yet
  ARGUMENTS Arguments;
  if (ARGUMENTS_Parse(&Arguments, NumArgs, pasArgs, acError) < 0) {
    Complain(acError);
    return EXIT_USAGE;
  }
  if (Arguments.WantsHelp || Arguments.WantsVersion) {
    fputs(Arguments.WantsHelp ? ARGUMENTS_Help : "quobe-options " QUOBE_OPTIONS_VERSION "\n",
          stdout);
    return fflush(stdout) != 0 ? EXIT_USAGE : EXIT_SHOWN;
  }
  return Run(&Arguments);
}
