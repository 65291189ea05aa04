// probeapi/quobearm.h
// SPDX-License-Identifier: MIT
//
// The 16 operations of the probe library that the tool uses.
//
// They are forwarding functions: the first call of each opens the library (loader.h) and finds the
// function of the same name in it; later calls go straight there. If either is missing, the process
// ends with exit status 1 after one line on standard output; the caller never sees an error.
//
// Where a result is "a byte", only its low 8 bits count, and the rest of the register may hold
// anything. Such a function is declared with a 32-bit result, because for an 8-bit one the compiler
// may assume the upper bits. Convert the result to uint8_t before testing it.
//
// Addresses, data and counts are unsigned 32 bit. One thread at a time.

#ifndef PROBEAPI_QUOBEARM_H
#define PROBEAPI_QUOBEARM_H

#include <stdint.h>

// Filled by QUOBEARM_GetHWStatus. The library writes its own layout, whatever its length. So this
// record is larger than any published one, and aligned for any type of field. Zero it first.
struct alignas(16) HWSTATUS {
  uint16_t VTarget;  // target voltage in millivolts
  uint8_t  aFurther[510];
};
static_assert(sizeof(HWSTATUS) == 512, "room for any layout of the library");

enum {
  QUOBEARM_TIF_SWD      = 1,  // interface number for QUOBEARM_TIF_Select
  QUOBEARM_RESET_NORMAL = 0   // reset type: the library's default reset, then the core is halted
};

extern "C" {

// -- Connection ----------------------------------------------------------------------------------

// A byte: non-zero while a connection to a probe is open.
uint32_t QUOBEARM_IsOpen(void);

// Chooses the probe that QUOBEARM_Open connects to by host name or address; Port 0 is the default.
// A byte: non-zero on failure.
uint32_t QUOBEARM_SelectIP(const char* sHost, int32_t Port);

// Chooses the probe by its USB serial number. The result is not used: if no such probe exists,
// QUOBEARM_Open fails.
int32_t QUOBEARM_EMU_SelectByUSBSN(uint32_t SerialNo);

// Opens the chosen probe, or any probe on USB if none was chosen.
// NULL on success, else a text with the reason; the library owns it.
const char* QUOBEARM_Open(void);

// Closes the connection. If "DisablePowerSupplyOnClose" was sent, switches the target's supply off.
void QUOBEARM_Close(void);

// Sends a text command. pError (may be NULL, then BufferSize is 0) receives an error text of at
// most BufferSize - 1 characters, empty when there is none. The result is the command's own.
int32_t QUOBEARM_ExecCommand(const char* sCommand, char* pError, int32_t BufferSize);

// -- Target interface ----------------------------------------------------------------------------

// Selects the interface to the target: QUOBEARM_TIF_SWD.
int32_t QUOBEARM_TIF_Select(int32_t Interface);

// Sets the interface speed in kHz; 0 is automatic, 0xFFFF adaptive.
void QUOBEARM_SetSpeed(uint32_t SpeedkHz);

// The low 16 bits are the speed in use, in kHz. Ignore the others.
uint32_t QUOBEARM_GetSpeed(void);

// Fills the record. 0 on success; otherwise the voltage stays as the caller set it.
int32_t QUOBEARM_GetHWStatus(HWSTATUS* pStatus);

// -- Target --------------------------------------------------------------------------------------

// How the next resets are made: their type, and the delay after each in ms.
int32_t QUOBEARM_SetResetType(int32_t Type);
void    QUOBEARM_SetResetDelay(int32_t Delayms);

// Resets the target. The result differs between versions of the library and is not used.
int32_t QUOBEARM_Reset(void);

// Reads NumItems words. pStatus (may be NULL) receives one status byte per word.
// 0 or more: read; negative: failed, and pData may or may not have been written.
int32_t QUOBEARM_ReadMemU32(uint32_t Address, uint32_t NumItems, uint32_t* pData, uint8_t* pStatus);

// Write one word, one half-word. A failed write is not reported: read back where it matters.
int32_t QUOBEARM_WriteU32(uint32_t Address, uint32_t Data);
int32_t QUOBEARM_WriteU16(uint32_t Address, uint16_t Data);

}  // extern "C"

#endif
