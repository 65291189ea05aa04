#include "tests/app/fake_probe.h"

#include <mach/mach_time.h>
#include <stdio.h>
#include <unistd.h>

#include <map>

#include "app/clock.h"
#include "probeapi/quobearm.h"

FAKE_PROBE FakeProbe;

static std::map<uint32_t, int> NumReadsAt;

void FAKE_PROBE_Begin(uint64_t StartMs) {
  FakeProbe           = FAKE_PROBE();
  FakeProbe.TimeUs    = StartMs * 1000;
  FakeProbe.TickNumer = 1;
  FakeProbe.TickDenom = 1;
  NumReadsAt.clear();
  TimeOrigin = 0;
}

static int32_t Called(const std::string& Call) {
  FakeProbe.Last = Call;
  return 0;
}

// These definitions stand before the system's own in this program.
extern "C" uint64_t mach_absolute_time(void) {
  const auto Ns = static_cast<unsigned __int128>(FakeProbe.TimeUs) * 1000;
  return static_cast<uint64_t>(Ns * FakeProbe.TickDenom / FakeProbe.TickNumer);
}

extern "C" int mach_timebase_info(mach_timebase_info_data_t* pInfo) {
  *pInfo = {FakeProbe.TickNumer, FakeProbe.TickDenom};
  return 0;
}

extern "C" int usleep(useconds_t Microseconds) {
  FakeProbe.SleptUs += Microseconds;
  FakeProbe.TimeUs += Microseconds;
  return 0;
}

int32_t QUOBEARM_ReadMemU32(uint32_t Address, uint32_t NumItems, uint32_t* pData, uint8_t*) {
  FakeProbe.NumReads++;
  FakeProbe.TimeUs += FakeProbe.TimePerReadUs;
  Called("Read");
  if (FakeProbe.Fails && FakeProbe.Fails(Address, NumReadsAt[Address])) {
    NumReadsAt[Address]++;
    return -1;
  }
  for (uint32_t i = 0; i < NumItems; i++) {
    pData[i] = FakeProbe.Read(Address + 4 * i, NumReadsAt[Address + 4 * i]++);
  }
  return 0;
}

int32_t QUOBEARM_WriteU32(uint32_t, uint32_t) {
  return Called("WriteU32");
}

int32_t QUOBEARM_WriteU16(uint32_t, uint16_t) {
  return Called("WriteU16");
}

int32_t QUOBEARM_Reset(void) {
  FakeProbe.NumResets++;
  if (FakeProbe.OnReset) {
    FakeProbe.OnReset();
  }
  return Called("Reset");
}

int32_t QUOBEARM_SetResetType(int32_t) {
  return Called("SetResetType");
}

void QUOBEARM_SetResetDelay(int32_t) {
  Called("SetResetDelay");
}

// The flow is tested as a process; nothing here reaches these.
uint32_t QUOBEARM_IsOpen(void) {
  return 0;
}
uint32_t QUOBEARM_SelectIP(const char*, int32_t) {
  return 0;
}
int32_t QUOBEARM_EMU_SelectByUSBSN(uint32_t) {
  return 0;
}
const char* QUOBEARM_Open(void) {
  return nullptr;
}
void    QUOBEARM_Close(void) {}
int32_t QUOBEARM_ExecCommand(const char*, char*, int32_t) {
  return 0;
}
int32_t QUOBEARM_TIF_Select(int32_t) {
  return 0;
}
void     QUOBEARM_SetSpeed(uint32_t) {}
uint32_t QUOBEARM_GetSpeed(void) {
  return 0;
}
int32_t QUOBEARM_GetHWStatus(HWSTATUS*) {
  return 0;
}
