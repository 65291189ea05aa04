// SPDX-License-Identifier: MIT

#include "tests/app/fake_probe.h"

#include <mach/mach_time.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "app/clock.h"
#include "probeapi/quobearm.h"

FAKE_PROBE FakeProbe;

static std::map<uint32_t, int> NumReadsAt;

void FAKE_PROBE_Begin(uint64_t StartMs) {
  FakeProbe               = FAKE_PROBE();
  FakeProbe.TimeUs        = StartMs * 1000;
  FakeProbe.TickNumer     = 1;
  FakeProbe.TickDenom     = 1;
  FakeProbe.FailureResult = -1;
  FakeProbe.Voltage       = 3300;
  NumReadsAt.clear();
  TimeOrigin = 0;
}

std::string FAKE_PROBE_Transcript(const std::string& Output) {
  std::string Transcript;
  size_t      Shown = 0;
  for (const auto& [At, Call] : FakeProbe.Log) {
    Transcript += Output.substr(Shown, At - Shown) + "<" + Call + ">";
    Shown = At;
  }
  return Transcript + Output.substr(Shown);
}

void FAKE_PROBE_Log(const char* sFormat, ...) {
  char    acCall[4200];
  va_list Args;
  va_start(Args, sFormat);
  vsnprintf(acCall, sizeof(acCall), sFormat, Args);
  va_end(Args);
  struct stat Status = {};
  const bool  IsFile = fstat(STDOUT_FILENO, &Status) == 0 && S_ISREG(Status.st_mode);
  FakeProbe.Log.emplace_back(IsFile ? static_cast<size_t>(Status.st_size) : 0, acCall);
  FakeProbe.Last = std::string(acCall, strcspn(acCall, "("));
}

// The linker takes these definitions instead of the system's.
extern "C" uint64_t mach_absolute_time(void) {
  const auto Ns = static_cast<unsigned __int128>(FakeProbe.TimeUs) * 1000;
  return static_cast<uint64_t>(Ns * FakeProbe.TickDenom / FakeProbe.TickNumer);
}

extern "C" int mach_timebase_info(mach_timebase_info_data_t* pInfo) {
  *pInfo = {FakeProbe.TickNumer, FakeProbe.TickDenom};
  return 0;
}

extern "C" int usleep(useconds_t Microseconds) {
  const std::string Last = FakeProbe.Last;
  FAKE_PROBE_Log("usleep(%u)", static_cast<unsigned>(Microseconds));
  FakeProbe.Last = Last;
  FakeProbe.SleptUs += Microseconds;
  FakeProbe.TimeUs += Microseconds;
  return 0;
}

int32_t QUOBEARM_ReadMemU32(uint32_t Address, uint32_t NumItems, uint32_t* pData, uint8_t*) {
  FAKE_PROBE_Log("Read(0x%08X, %u)", Address, NumItems);
  FakeProbe.NumReads++;
  FakeProbe.TimeUs += FakeProbe.TimePerReadUs;
  if (FakeProbe.Fails && FakeProbe.Fails(Address, NumReadsAt[Address])) {
    NumReadsAt[Address]++;
    return FakeProbe.FailureResult;
  }
  for (uint32_t i = 0; i < NumItems; i++) {
    pData[i] = FakeProbe.Read(Address + 4 * i, NumReadsAt[Address + 4 * i]++);
  }
  return 0;
}

int32_t QUOBEARM_WriteU32(uint32_t Address, uint32_t Data) {
  FAKE_PROBE_Log("WriteU32(0x%08X, 0x%08X)", Address, Data);
  return 0;
}

int32_t QUOBEARM_WriteU16(uint32_t Address, uint16_t Data) {
  FAKE_PROBE_Log("WriteU16(0x%08X, 0x%04X)", Address, Data);
  return 0;
}

int32_t QUOBEARM_Reset(void) {
  FAKE_PROBE_Log("Reset()");
  FakeProbe.NumResets++;
  if (FakeProbe.OnReset) {
    FakeProbe.OnReset();
  }
  return 0;
}

int32_t QUOBEARM_SetResetType(int32_t Type) {
  FAKE_PROBE_Log("SetResetType(%d)", Type);
  return 0;
}

void QUOBEARM_SetResetDelay(int32_t Delayms) {
  FAKE_PROBE_Log("SetResetDelay(%d)", Delayms);
}

uint32_t QUOBEARM_IsOpen(void) {
  FAKE_PROBE_Log("IsOpen()");
  return FakeProbe.IsOpen;
}

uint32_t QUOBEARM_SelectIP(const char* sHost, int32_t Port) {
  FAKE_PROBE_Log("SelectIP(%s, %d)", sHost, Port);
  return 0;
}

int32_t QUOBEARM_EMU_SelectByUSBSN(uint32_t SerialNo) {
  FAKE_PROBE_Log("EMU_SelectByUSBSN(%u)", SerialNo);
  return 0;
}

const char* QUOBEARM_Open(void) {
  FAKE_PROBE_Log("Open()");
  FakeProbe.IsOpen = FakeProbe.sOpenError == nullptr;
  return FakeProbe.sOpenError;
}

void QUOBEARM_Close(void) {
  FAKE_PROBE_Log("Close()");
  FakeProbe.IsOpen = false;
}

int32_t QUOBEARM_ExecCommand(const char* sCommand, char*, int32_t) {
  FAKE_PROBE_Log("ExecCommand(%s)", sCommand);
  return 0;
}

int32_t QUOBEARM_TIF_Select(int32_t Interface) {
  FAKE_PROBE_Log("TIF_Select(%d)", Interface);
  return 0;
}

void QUOBEARM_SetSpeed(uint32_t SpeedkHz) {
  FAKE_PROBE_Log("SetSpeed(%u)", SpeedkHz);
}

uint32_t QUOBEARM_GetSpeed(void) {
  FAKE_PROBE_Log("GetSpeed()");
  return 1000;
}

int32_t QUOBEARM_GetHWStatus(HWSTATUS* pStatus) {
  FAKE_PROBE_Log("GetHWStatus()");
  pStatus->VTarget = FakeProbe.Voltage;
  return 0;
}
