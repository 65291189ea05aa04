// SPDX-License-Identifier: MIT

// A probe library that records each call and has only the operations that read. What quobe-options
// gets through it, it gets without a write, a reset or a halt.
//
//   QUOBE_RECORD   file that gets one line per call
//   QUOBE_WORDS    file with lines "address value" in hexadecimal: the words that can be read
//   QUOBE_OPEN     what QUOBEARM_Open says instead of opening
//   QUOBE_MV       target voltage in millivolts, 3300 without it

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <string>

#define EXPORT extern "C" __attribute__((visibility("default")))

static bool IsOpen;

static void Record(const std::string& Call) {
  if (FILE* pFile = fopen(getenv("QUOBE_RECORD"), "a"); pFile != nullptr) {
    fprintf(pFile, "%s\n", Call.c_str());
    fclose(pFile);
  }
}

static std::map<uint32_t, uint32_t> Words() {
  std::map<uint32_t, uint32_t> Found;
  const char*                  sPath = getenv("QUOBE_WORDS");
  FILE*                        pFile = sPath != nullptr ? fopen(sPath, "r") : nullptr;
  char                         acLine[64];
  while (pFile != nullptr && fgets(acLine, sizeof(acLine), pFile) != nullptr) {
    char*          pRest   = nullptr;
    const uint32_t Address = static_cast<uint32_t>(strtoul(acLine, &pRest, 16));
    Found[Address]         = static_cast<uint32_t>(strtoul(pRest, nullptr, 16));
  }
  if (pFile != nullptr) {
    fclose(pFile);
  }
  return Found;
}

EXPORT uint32_t QUOBEARM_IsOpen() {
  Record("IsOpen");
  return 0xABCDEF00u | (IsOpen ? 1 : 0);  // a byte, and rubbish above it
}

EXPORT uint32_t QUOBEARM_SelectIP(const char* sHost, int32_t Port) {
  Record(std::string("SelectIP ") + sHost + " " + std::to_string(Port));
  return strcmp(sHost, "nowhere") == 0 ? 0xABCDEF01u : 0xABCDEF00u;
}

EXPORT int32_t QUOBEARM_EMU_SelectByUSBSN(uint32_t SerialNo) {
  Record("EMU_SelectByUSBSN " + std::to_string(SerialNo));
  return 0;
}

EXPORT const char* QUOBEARM_Open() {
  Record("Open");
  const char* sError = getenv("QUOBE_OPEN");
  IsOpen             = sError == nullptr;
  return sError;
}

EXPORT void QUOBEARM_Close() {
  Record("Close");
  IsOpen = false;
}

EXPORT int32_t QUOBEARM_ExecCommand(const char* sCommand, char*, int32_t) {
  Record(std::string("ExecCommand ") + sCommand);
  return 0;
}

EXPORT int32_t QUOBEARM_TIF_Select(int32_t Interface) {
  Record("TIF_Select " + std::to_string(Interface));
  return 0;
}

EXPORT void QUOBEARM_SetSpeed(uint32_t SpeedkHz) {
  Record("SetSpeed " + std::to_string(SpeedkHz));
}

#ifndef RECORDING_PROBE_LACKS_GET_SPEED
EXPORT uint32_t QUOBEARM_GetSpeed() {
  Record("GetSpeed");
  return 0xABCD0000u | 1000;
}
#endif

EXPORT int32_t QUOBEARM_GetHWStatus(void* pStatus) {
  Record("GetHWStatus");
  const char*    sVoltage = getenv("QUOBE_MV");
  const uint16_t Voltage  = static_cast<uint16_t>(sVoltage != nullptr ? atoi(sVoltage) : 3300);
  memcpy(pStatus, &Voltage, sizeof(Voltage));
  return 0;
}

EXPORT int32_t QUOBEARM_ReadMemU32(uint32_t Address, uint32_t NumItems, uint32_t* pData, uint8_t*) {
  char acCall[64];
  snprintf(acCall, sizeof(acCall), "ReadMemU32 %08X %u", Address, NumItems);
  Record(acCall);
  const std::map<uint32_t, uint32_t> Readable = Words();
  for (uint32_t i = 0; i < NumItems; i++) {
    const auto Found = Readable.find(Address + 4 * i);
    if (Found == Readable.end()) {
      return -1;
    }
    pData[i] = Found->second;
  }
  return 0;
}
