// SPDX-License-Identifier: MIT

#include "openocd/probe.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "openocd/adapter.h"
#include "openocd/config.h"
#include "openocd/target.h"
#include "openocd/text.h"
#include "openocd/trace.h"

static const int32_t  INTERFACE_SWD    = 1;
static const uint32_t SPEED_AUTO       = 0;
static const uint32_t SPEED_ADAPTIVE   = 0xFFFF;  // SWD has no adaptive clock
static const uint32_t AUTO_SPEED_KHZ   = 4000;
static const uint32_t MAX_SPEED_KHZ    = 100000;  // no adapter comes near it; OpenOCD reckons in Hz
static const uint32_t ANSWERING_MV     = 3300;    // reported for "the chip has power"
static const int      HOOK_DEADLINE_MS = 10000;
static const int      END_GRACE_MS     = 1000;
static const int64_t  SILENT_MS        = 2000;  // a board may restart; longer and it is gone
static const uint32_t PATIENT_ACCESSES = 500;   // after so many that fail in a row, leave the CPU
static const uint32_t PATIENT_SLEEP_US = 1000;
static const uint32_t TRACED_WORDS     = 16;  // of a read; no option bytes are longer

// Everything of the one probe. Statics, because the operations have no argument that could carry it.
struct PROBE {
  bool           IsConfigured;  // Config and Trace are set
  bool           WasOpened;     // with them, so that the next Open reads the configuration anew
  CONFIG         Config;
  char           acError[1536];  // of the configuration or of a connection; Open's text
  TRACE          Trace;
  ADAPTER_CHOICE Choice;
  ADAPTER        Adapter;
  TARGET_FACTS   Facts;
  bool           IsOpen;
  bool           IsAttached;
  int64_t        SilentSinceMs;  // 0: the debug port answers
  bool           PowerOffAtEnd;
  bool           IsSwd;
  uint32_t       ResetDelayms;
  uint32_t       NumFailed;  // accesses in a row
};

static PROBE Probe;

// -- Connection lost or kept ---------------------------------------------------------------------

static void Lose(const char* sReason) {
  TRACE_Event(&Probe.Trace, "the connection is lost: %s", sReason);
  SERVER_End(&Probe.Adapter.Server, 0);
  Probe.IsOpen     = false;
  Probe.IsAttached = false;
}

// After an access that failed: what is still there?
static void LookAround() {
  if (!Probe.Adapter.Server.IsOpen) {
    Lose(Probe.Adapter.Server.acReason);
  } else if (!ADAPTER_IsAlive(&Probe.Adapter)) {
    Lose("the adapter does not answer");
  } else if (TARGET_PortAnswers(&Probe.Adapter)) {
    Probe.SilentSinceMs = 0;
  } else if (!Probe.Adapter.Server.IsOpen) {
    Lose(Probe.Adapter.Server.acReason);
  } else if (Probe.SilentSinceMs == 0) {
    Probe.SilentSinceMs = TEXT_NowMs();
  } else if (TEXT_NowMs() - Probe.SilentSinceMs > SILENT_MS) {
    Lose("the debug port does not answer");
  }
}

// Called with the outcome of each access. A caller that polls a connection that is gone would
// otherwise keep one core busy for nothing.
static int32_t Outcome(TARGET_RESULT Result) {
  if (Result == TARGET_OK) {
    Probe.NumFailed     = 0;
    Probe.SilentSinceMs = 0;
    return 0;
  }
  if (Probe.IsOpen) {
    LookAround();
  }
  Probe.NumFailed++;
  if (Probe.NumFailed > PATIENT_ACCESSES) {
    usleep(PATIENT_SLEEP_US);
  }
  return -1;
}

static bool ReachesTarget() {
  return Probe.IsOpen && Probe.IsAttached && Probe.IsSwd;
}

// -- Configuration -------------------------------------------------------------------------------

static void Configure() {
  TRACE_Close(&Probe.Trace);
  Probe.acError[0] = '\0';
  if (CONFIG_Load(&Probe.Config, Probe.acError, sizeof(Probe.acError)) &&
      Probe.Config.acTrace[0] != '\0' && !TRACE_Open(&Probe.Trace, Probe.Config.acTrace)) {
    TEXT_Format(Probe.acError, sizeof(Probe.acError), "%s: trace = %s: %s", Probe.Config.acPath,
                Probe.Config.acTrace, strerror(errno));
  }
}

// The configuration is read before the first operation, since that may already be traced. What is
// wrong with it is reported when the probe is opened.
static void Begin() {
  if (!Probe.IsConfigured) {
    Probe.IsConfigured = true;
    Configure();
  }
}

// -- Connection ----------------------------------------------------------------------------------

bool PROBE_IsOpen() {
  Begin();
  if (Probe.IsOpen && !SERVER_IsAlive(&Probe.Adapter.Server)) {
    Lose("OpenOCD has ended");
  }
  TRACE_Operation(&Probe.Trace, "IsOpen = %d", Probe.IsOpen);
  return Probe.IsOpen;
}

bool PROBE_SelectIP(const char* sHost, int32_t Port) {
  Begin();
  const char* sText = sHost != NULL ? sHost : "";
  const bool  Good =
      Port >= 0 && ADAPTER_ParseHost(&Probe.Choice, sText, static_cast<uint32_t>(Port));
  Probe.Choice.ByNetwork = Good;
  TRACE_Operation(&Probe.Trace, "SelectIP(\"%s\", %d) = %d", sText, Port, !Good);
  return Good;
}

void PROBE_SelectByUSBSN(uint32_t SerialNo) {
  Begin();
  Probe.Choice.ByNetwork = false;
  Probe.Choice.BySerial  = true;
  Probe.Choice.SerialNo  = SerialNo;
  TRACE_Operation(&Probe.Trace, "EMU_SelectByUSBSN(%u)", SerialNo);
}

// Connects to the chip. With a supply that can be switched on it may be too early for that: then it is
// tried again when the interface is selected.
static bool Attach() {
  Probe.IsAttached = TARGET_Attach(&Probe.Adapter, &Probe.Config, &Probe.Facts, Probe.acError,
                                   sizeof(Probe.acError));
  if (Probe.IsAttached) {
    TRACE_Event(&Probe.Trace, "target: DPIDR 0x%08X, AP 0x%08X, CPUID 0x%08X", Probe.Facts.DpIdr,
                Probe.Facts.ApIdr, Probe.Facts.Cpuid);
  }
  return Probe.IsAttached;
}

static bool OpenAdapter() {
  if (!ADAPTER_Open(&Probe.Adapter, &Probe.Config, &Probe.Choice, Probe.acError,
                    sizeof(Probe.acError))) {
    return false;
  }
  TRACE_Event(&Probe.Trace, "%s, driver %s%s%s", Probe.Adapter.acVersion, Probe.Adapter.acDriver,
              Probe.Choice.ByNetwork ? ", server at " : "",
              Probe.Choice.ByNetwork ? Probe.Choice.acHost : "");
  if (!Attach() && (Probe.Config.acPowerOn[0] == '\0' || !Probe.Adapter.Server.IsOpen)) {
    SERVER_End(&Probe.Adapter.Server, END_GRACE_MS);
    return false;
  }
  return true;
}

const char* PROBE_Open() {
  Begin();
  if (Probe.IsOpen) {
    TRACE_Operation(&Probe.Trace, "Open: is open already");
    return NULL;
  }
  if (Probe.WasOpened) {
    Configure();
  }
  Probe.WasOpened  = true;
  Probe.IsAttached = Probe.IsSwd = Probe.PowerOffAtEnd = false;
  Probe.ResetDelayms = Probe.NumFailed = 0;
  Probe.SilentSinceMs                  = 0;
  Probe.IsOpen                         = Probe.acError[0] == '\0' && OpenAdapter();
  if (Probe.IsOpen) {
    TRACE_Operation(&Probe.Trace, "Open: %s", Probe.Adapter.acDriver);
    return NULL;
  }
  TEXT_MakeOneLine(Probe.acError);  // the tool prints it unchanged
  TRACE_Operation(&Probe.Trace, "Open: %s", Probe.acError);
  return Probe.acError;
}

static bool RunHook(const char* sTcl, const char* sWhat, char* pError, size_t ErrorSize) {
  char                acAnswer[SERVER_MAX_ANSWER];
  const SERVER_RESULT Result = SERVER_Request(&Probe.Adapter.Server, HOOK_DEADLINE_MS, acAnswer,
                                              sizeof(acAnswer), "%s", sTcl);
  if (Result == SERVER_OK) {
    TRACE_Event(&Probe.Trace, "%s", sWhat);
    return true;
  }
  const char* sReason = Result == SERVER_GONE ? Probe.Adapter.Server.acReason : acAnswer;
  TEXT_Format(pError, ErrorSize, "%s failed%s%s", sWhat, *sReason != '\0' ? ": " : "", sReason);
  TEXT_MakeOneLine(pError);
  TRACE_Event(&Probe.Trace, "%s", pError);
  return false;
}

void PROBE_Close() {
  char acError[256];
  Begin();
  if (Probe.IsOpen) {
    if (Probe.IsAttached) {
      TARGET_Resume(&Probe.Adapter);
    }
    if (Probe.PowerOffAtEnd) {
      RunHook(Probe.Config.acPowerOff, "power_off", acError, sizeof(acError));
    }
    SERVER_End(&Probe.Adapter.Server, END_GRACE_MS);
  }
  Probe.IsOpen     = false;
  Probe.IsAttached = false;
  TRACE_Operation(&Probe.Trace, "Close");
}

// -- Commands ------------------------------------------------------------------------------------

static void SwitchSupply(bool On, char* pError, size_t ErrorSize) {
  const char* sKey = On ? "power_on" : "power_off";
  const char* sTcl = On ? Probe.Config.acPowerOn : Probe.Config.acPowerOff;
  if (*sTcl == '\0') {
    TEXT_Format(pError, ErrorSize,
                "The adapter has no supply that can be switched: set \"%s = TCL\" in %s to what "
                "switches it.",
                sKey, Probe.Config.acPath);
    return;
  }
  RunHook(sTcl, sKey, pError, ErrorSize);
}

// Splits "NAME = VALUE" in place; the value is empty without a '='.
static void SplitCommand(char* sCommand, const char** psName, const char** psValue) {
  char* pEqual = strchr(sCommand, '=');
  *psValue     = "";
  if (pEqual != NULL) {
    *pEqual  = '\0';
    *psValue = TEXT_Trim(pEqual + 1);
  }
  *psName = TEXT_Trim(sCommand);
}

// Stores "" or what is wrong with the command.
static void RunCommand(const char* sCommand, char* pError, size_t ErrorSize) {
  char        acCommand[256];
  const char* sName  = NULL;
  const char* sValue = NULL;
  pError[0]          = '\0';
  TEXT_Format(acCommand, sizeof(acCommand), "%s", sCommand);
  SplitCommand(acCommand, &sName, &sValue);
  const bool IsSupply = TEXT_EqualNoCase(sName, "SupplyPower");
  if (!Probe.IsOpen) {
    TEXT_Format(pError, ErrorSize, "Not connected to a probe");
  } else if (IsSupply && (strcmp(sValue, "0") == 0 || strcmp(sValue, "1") == 0)) {
    SwitchSupply(*sValue == '1', pError, ErrorSize);
  } else if (TEXT_EqualNoCase(sName, "DisablePowerSupplyOnClose") && *sValue == '\0') {
    Probe.PowerOffAtEnd = Probe.Config.acPowerOff[0] != '\0';
  } else if (!TEXT_EqualNoCase(sName, "device") || *sValue == '\0') {
    // The device's name is taken and of no use: the debug port is the same for all.
    TEXT_Format(pError, ErrorSize, "Unknown command \"%s\"", sCommand);
  }
}

int32_t PROBE_ExecCommand(const char* sCommand, char* pError, int32_t BufferSize) {
  char        acError[CONFIG_MAX_PATH + 256];
  const char* sText = sCommand != NULL ? sCommand : "";
  Begin();
  RunCommand(sText, acError, sizeof(acError));
  if (pError != NULL && BufferSize > 0) {
    TEXT_Format(pError, static_cast<size_t>(BufferSize), "%s", acError);
  }
  TRACE_Operation(&Probe.Trace, "ExecCommand(\"%s\")%s%s", sText, acError[0] != '\0' ? ": " : "",
                  acError);
  return acError[0] == '\0' ? 0 : -1;
}

// -- Target interface ----------------------------------------------------------------------------

int32_t PROBE_SelectInterface(int32_t Interface) {
  Begin();
  Probe.IsSwd = Interface == INTERFACE_SWD;
  if (Probe.IsOpen && !Probe.IsAttached && !Attach()) {
    TRACE_Event(&Probe.Trace, "%s", Probe.acError);
  }
  TRACE_Operation(&Probe.Trace, "TIF_Select(%d)%s", Interface,
                  Probe.IsSwd ? "  SWD" : ": not supported");
  return Probe.IsSwd ? 0 : -1;
}

void PROBE_SetSpeed(uint32_t SpeedkHz) {
  Begin();
  uint32_t Speed = SpeedkHz == SPEED_AUTO || SpeedkHz == SPEED_ADAPTIVE ? AUTO_SPEED_KHZ : SpeedkHz;
  const uint32_t Limit = Probe.Config.SpeedLimit != 0 ? Probe.Config.SpeedLimit : MAX_SPEED_KHZ;
  if (Speed > Limit) {
    Speed = Limit;
  }
  if (Probe.IsOpen && !ADAPTER_SetSpeed(&Probe.Adapter, Speed)) {
    TRACE_Event(&Probe.Trace, "the adapter's speed cannot be set");
    if (!Probe.Adapter.Server.IsOpen) {
      Lose(Probe.Adapter.Server.acReason);
    }
  }
  TRACE_Operation(&Probe.Trace, "SetSpeed(%u)  %u kHz", SpeedkHz, Probe.Adapter.SpeedkHz);
}

uint32_t PROBE_GetSpeed() {
  Begin();
  const uint32_t Speed = Probe.IsOpen ? Probe.Adapter.SpeedkHz : 0;
  TRACE_Operation(&Probe.Trace, "GetSpeed = %u", Speed);
  return Speed;
}

static uint32_t Voltage() {
  uint32_t Millivolts = 0;
  if (ADAPTER_MeasureVoltage(&Probe.Adapter, &Millivolts)) {
    return Millivolts;
  }
  if (Probe.Config.VTargetmV >= 0) {
    return static_cast<uint32_t>(Probe.Config.VTargetmV);
  }
  return Probe.IsAttached && TARGET_IsPowered(&Probe.Adapter) ? ANSWERING_MV : 0;
}

bool PROBE_GetVoltage(uint16_t* pMillivolts) {
  Begin();
  const uint32_t Millivolts = Probe.IsOpen ? Voltage() : 0;
  if (Probe.IsOpen && !Probe.Adapter.Server.IsOpen) {
    Lose(Probe.Adapter.Server.acReason);
  }
  if (!Probe.IsOpen) {
    TRACE_Operation(&Probe.Trace, "GetHWStatus: failed");
    return false;
  }
  *pMillivolts = static_cast<uint16_t>(Millivolts);
  TRACE_Operation(&Probe.Trace, "GetHWStatus  VTarget=%u mV", Millivolts);
  return true;
}

// -- Target --------------------------------------------------------------------------------------

int32_t PROBE_SetResetType(int32_t Type) {
  Begin();
  TRACE_Operation(&Probe.Trace, "SetResetType(%d)", Type);
  return 0;
}

void PROBE_SetResetDelay(int32_t Delayms) {
  Begin();
  Probe.ResetDelayms = Delayms > 0 ? static_cast<uint32_t>(Delayms) : 0;
  TRACE_Operation(&Probe.Trace, "SetResetDelay(%d)", Delayms);
}

int32_t PROBE_Reset() {
  Begin();
  const int32_t Result = Outcome(
      ReachesTarget() ? TARGET_Reset(&Probe.Adapter, Probe.Config.ResetByPin, Probe.ResetDelayms)
                      : TARGET_FAILED);
  TRACE_Operation(&Probe.Trace, "Reset%s", Result == 0 ? "" : ": failed");
  return Result;
}

static void TraceRead(uint32_t Address, uint32_t NumItems, const uint32_t* pData) {
  char           acText[TRACED_WORDS * sizeof("; [0x00000000] = 0x00000000") + 32] = "";
  const uint32_t Count = NumItems < TRACED_WORDS ? NumItems : TRACED_WORDS;
  for (uint32_t i = 0; i < Count && Probe.Trace.pFile != NULL; i++) {
    TEXT_Append(acText, sizeof(acText), "%s[0x%08X] = 0x%08X", i == 0 ? "" : "; ", Address + 4 * i,
                pData[i]);
  }
  if (NumItems > Count) {
    TEXT_Append(acText, sizeof(acText), "; ... (%u words)", NumItems);
  }
  TRACE_Operation(&Probe.Trace, "RD  %s", acText);
}

int32_t PROBE_ReadMemory(uint32_t Address, uint32_t NumItems, uint32_t* pData, uint8_t* pStatus) {
  Begin();
  const int32_t Result = Outcome(
      ReachesTarget() ? TARGET_Read(&Probe.Adapter, Address, NumItems, pData) : TARGET_FAILED);
  if (pStatus != NULL) {
    memset(pStatus, Result == 0 ? 0 : 1, NumItems);
  }
  if (Result == 0) {
    TraceRead(Address, NumItems, pData);
  } else {
    TRACE_Operation(&Probe.Trace, "RD  [0x%08X]: failed", Address);
  }
  return Result;
}

int32_t PROBE_WriteMemory(uint32_t Address, uint32_t Bits, uint32_t Data) {
  Begin();
  const int32_t Result =
      Outcome(ReachesTarget() ? TARGET_Write(&Probe.Adapter, Address, Bits, Data) : TARGET_FAILED);
  TRACE_Operation(&Probe.Trace, "%s[0x%08X] = 0x%0*X%s", Bits == 16 ? "WR16 " : "WR  ", Address,
                  static_cast<int>(Bits / 4), Data, Result == 0 ? "" : ": failed");
  return Result;
}
