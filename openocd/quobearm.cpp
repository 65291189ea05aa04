// SPDX-License-Identifier: MIT

// The probe library's entry points.

#include "openocd/quobearm.h"

#include <string.h>

#include "openocd/probe.h"

#define EXPORT __attribute__((visibility("default")))

extern "C" {

EXPORT uint32_t QUOBEARM_IsOpen(void) {
  return PROBE_IsOpen();
}

EXPORT uint32_t QUOBEARM_SelectIP(const char* sHost, int32_t Port) {
  return !PROBE_SelectIP(sHost, Port);
}

EXPORT int32_t QUOBEARM_EMU_SelectByUSBSN(uint32_t SerialNo) {
  PROBE_SelectByUSBSN(SerialNo);
  return 0;
}

EXPORT const char* QUOBEARM_Open(void) {
  return PROBE_Open();
}

EXPORT void QUOBEARM_Close(void) {
  PROBE_Close();
}

EXPORT int32_t QUOBEARM_ExecCommand(const char* sCommand, char* pError, int32_t BufferSize) {
  return PROBE_ExecCommand(sCommand, pError, BufferSize);
}

EXPORT int32_t QUOBEARM_TIF_Select(int32_t Interface) {
  return PROBE_SelectInterface(Interface);
}

EXPORT void QUOBEARM_SetSpeed(uint32_t SpeedkHz) {
  PROBE_SetSpeed(SpeedkHz);
}

EXPORT uint32_t QUOBEARM_GetSpeed(void) {
  return PROBE_GetSpeed();
}

EXPORT int32_t QUOBEARM_GetHWStatus(HWSTATUS* pStatus) {
  uint16_t Millivolts = 0;
  if (!PROBE_GetVoltage(&Millivolts)) {
    return -1;
  }
  memcpy(pStatus, &Millivolts, sizeof(Millivolts));
  return 0;
}

EXPORT int32_t QUOBEARM_SetResetType(int32_t Type) {
  return PROBE_SetResetType(Type);
}

EXPORT void QUOBEARM_SetResetDelay(int32_t Delayms) {
  PROBE_SetResetDelay(Delayms);
}

EXPORT int32_t QUOBEARM_Reset(void) {
  return PROBE_Reset();
}

EXPORT int32_t QUOBEARM_ReadMemU32(uint32_t Address, uint32_t NumItems, uint32_t* pData,
                                   uint8_t* pStatus) {
  return PROBE_ReadMemory(Address, NumItems, pData, pStatus);
}

EXPORT int32_t QUOBEARM_WriteU32(uint32_t Address, uint32_t Data) {
  return PROBE_WriteMemory(Address, 32, Data);
}

EXPORT int32_t QUOBEARM_WriteU16(uint32_t Address, uint16_t Data) {
  return PROBE_WriteMemory(Address, 16, Data);
}

}  // extern "C"
