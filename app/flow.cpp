// SPDX-License-Identifier: MIT

// One function for each part of what the user sees: banner, family, connection, target, reset, end.
// Scripts read the texts and expect their order, so both are part of the tool's contract.

#include "app/flow.h"

#include <stdio.h>
#include <unistd.h>

#include "app/connect.h"
#include "app/family.h"
#include "app/menu.h"
#include "app/options.h"
#include "app/print.h"
#include "app/reset.h"
#include "app/settings.h"

static const useconds_t ERROR_PAUSE_US = 3000 * 1000;  // to read the message

// Of the one run that a process makes.
static UNLOCK_SETTINGS Settings;

static void PrintBanner(void) {
  // When this file was compiled: a build that changes only other files keeps the older time.
  PrintText("OSTREL Quobe Unlock tool for STM32 devices");
  PrintLine("\nCompiled " __DATE__ " " __TIME__ "\n");
}

// 1: *ppRow is the family to reset. 0: the user chose "Exit". -1: an error, which has been printed.
static int32_t ChooseFamily(int NumArgs, const char* const* pasArgs, const FAMILY_ROW** ppRow) {
  if (NumArgs >= 2) {
    PrintText("Parsing command line...");
    if (ParseCommandLine(&Settings, NumArgs, pasArgs) < 0) {
      // In a terminal window that closes with the process the message can still be read.
      usleep(ERROR_PAUSE_US);
      return -1;
    }
    PrintLine("O.K.");
    // 0 is the default and means that no option named a family: the option refuses row 0, "Exit".
    if (Settings.FamilyIndex != 0) {
      *ppRow = &FamilyTable[Settings.FamilyIndex];
      PrintFormat("Select device family: %s\n", (*ppRow)->Name);
      return 1;
    }
  }
  PrintFamilyDescription();
  return SelectFamily(ppRow);
}

// Chooses the probe and opens it. 0: open. -1: an error, which has been printed.
static int32_t Connect(void) {
  PrintText(Settings.HostIF == HOST_IF_ETHERNET ? "Connecting to Quobe via ethernet..."
                                                : "Connecting to Quobe via USB...");
  if (SelectProbe(&Settings) < 0) {
    PrintLine("failed.");
    return -1;
  }
  const char* sError = OpenProbe();
  if (sError != NULL) {  // an empty text is a failure too
    PrintLine(sError);
    return -1;
  }
  PrintLine("O.K.");
  return 0;
}

// Sends the device command to the probe, supplies the target if asked to, and brings up SWD.
// 0: the target can be reset. -1: its voltage is too low; that has been printed.
static int32_t PrepareTarget(const char* sCore) {
  SendDevice(sCore);
  // Before SWD is used and the voltage measured: both need a target with power.
  if (Settings.PowerTarget != 0) {
    PrintLine("Powering target via Quobe.");
    SupplyTarget();
  }

  PrintLine("Using SWD as target interface.");
  PrintFormat("Target interface speed: %d kHz.\n", (int)SelectSwd(Settings.Speed));

  const uint32_t Voltage = TargetVoltage();  // mV, printed as volts with three decimals
  PrintFormat("VTarget = %d.%.3dV\n", (int)(Voltage / 1000), (int)(Voltage % 1000));
  if (Voltage < MIN_TARGET_VOLTAGE_MV) {
    PrintLine("Target voltage too low");
    return -1;
  }
  return 0;
}

// The routines of a single family, with the parameter that the table needs.

// Required: L0 and L1 end with status 0 whatever their routine returns. They report a failure in
// words only.
static int32_t ResetL0(int32_t) {
  ResetOptionBytesL0();
  return 0;
}

static int32_t ResetL1(int32_t) {
  ResetOptionBytesL1();
  return 0;
}

static int32_t ResetL4(int32_t) {
  return ResetOptionBytesL4();
}

static int32_t ResetH7(int32_t) {
  return ResetOptionBytesH7();
}

namespace {
struct RESET_ROW {
  int32_t FamilyId;
  int32_t (*pfReset)(int32_t FamilyId);  // its result is the exit status
};
}  // namespace

// F0, F1 and F3 are the last row. No routine is reached for "Exit": it ends before the connection.
static const RESET_ROW ResetTable[] = {
    {FAMILY_F2, ResetOptionBytesF2F4F7},
    {FAMILY_F4, ResetOptionBytesF2F4F7},
    {FAMILY_F72_F75, ResetOptionBytesF2F4F7},
    {FAMILY_F76_F77, ResetOptionBytesF2F4F7},
    {FAMILY_L1, ResetL1},
    {FAMILY_L4, ResetL4},
    {FAMILY_L0, ResetL0},
    {FAMILY_H7, ResetH7},
    {FAMILY_OTHERS, ResetOptionBytesF0F1F3},
};

// The part of the run between banner and end. Returns the exit status.
static int32_t Unlock(int NumArgs, const char* const* pasArgs) {
  const FAMILY_ROW* pRow;
  const int32_t     Choice = ChooseFamily(NumArgs, pasArgs, &pRow);
  if (Choice <= 0) {
    return Choice;  // "Exit" ends with status 0, an error with -1
  }
  if (Connect() < 0 || PrepareTarget(pRow->Core) < 0) {
    return -1;
  }
  return FindFamilyRow(ResetTable, pRow->Id)->pfReset(pRow->Id);
}

int32_t RunUnlock(int NumArgs, const char* const* pasArgs) {
  PrintBanner();
  SetDefaultSettings(&Settings);
  const int32_t Result = Unlock(NumArgs, pasArgs);
  // Every run comes here, even one that never used the probe. This then loads the probe library;
  // without the library the process ends here with exit status 1.
  CloseProbe(&Settings);
  if (Settings.NoExitWait == 0) {
    PrintLine("Press any key to exit.");
    getchar();  // returns at once if standard input is at its end
  }
  return Result;
}
