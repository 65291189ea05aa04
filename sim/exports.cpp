// The probe library's entry points: the 16 operations, on one probe per process.

#include "probeapi/quobearm.h"

#include "sim/probe.h"

#define EXPORT __attribute__((visibility("default")))

static sim::Probe& TheProbe() {
  static sim::Probe Probe;
  return Probe;
}

extern "C" {

EXPORT uint32_t QUOBEARM_IsOpen(void) {
  return TheProbe().IsOpen();
}

EXPORT uint32_t QUOBEARM_SelectIP(const char* sHost, int32_t Port) {
  return TheProbe().SelectIP(sHost, Port);
}

EXPORT int32_t QUOBEARM_EMU_SelectByUSBSN(uint32_t SerialNo) {
  return TheProbe().SelectByUSBSN(SerialNo);
}

EXPORT const char* QUOBEARM_Open(void) {
  return TheProbe().Open();
}

EXPORT void QUOBEARM_Close(void) {
  TheProbe().Close();
}

EXPORT int32_t QUOBEARM_ExecCommand(const char* sCommand, char* pError, int32_t BufferSize) {
  return TheProbe().ExecCommand(sCommand, pError, BufferSize);
}

EXPORT int32_t QUOBEARM_TIF_Select(int32_t Interface) {
  return TheProbe().SelectInterface(Interface);
}

EXPORT void QUOBEARM_SetSpeed(uint32_t SpeedkHz) {
  TheProbe().SetSpeed(SpeedkHz);
}

EXPORT uint32_t QUOBEARM_GetSpeed(void) {
  return TheProbe().GetSpeed();
}

// Of the record only the voltage is filled in; the rest is the caller's.
EXPORT int32_t QUOBEARM_GetHWStatus(HWSTATUS* pStatus) {
  return TheProbe().GetVoltage(&pStatus->VTarget) ? 0 : -1;
}

EXPORT int32_t QUOBEARM_SetResetType(int32_t Type) {
  return TheProbe().SetResetType(Type);
}

EXPORT void QUOBEARM_SetResetDelay(int32_t Delayms) {
  TheProbe().SetResetDelay(Delayms);
}

EXPORT int32_t QUOBEARM_Reset(void) {
  return TheProbe().Reset();
}

EXPORT int32_t QUOBEARM_ReadMemU32(uint32_t Address, uint32_t NumItems, uint32_t* pData,
                                   uint8_t* pStatus) {
  return TheProbe().ReadMemory(Address, NumItems, pData, pStatus);
}

EXPORT int32_t QUOBEARM_WriteU32(uint32_t Address, uint32_t Data) {
  return TheProbe().WriteMemory(Address, 4, Data);
}

EXPORT int32_t QUOBEARM_WriteU16(uint32_t Address, uint16_t Data) {
  return TheProbe().WriteMemory(Address, 2, Data);
}

}  // extern "C"
