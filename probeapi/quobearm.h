// probeapi/quobearm.h
//
// The 16 operations of the probe library that the tool uses.
//
// They are forwarding functions: the first call of each finds the library (loader.h) and the
// function of the same name in it, later calls go straight through. If either is missing the
// process ends with exit status 1 after one line on standard output; no error reaches the caller.
//
// Where a result is "a byte", only its low 8 bits mean anything and the rest of the register may
// hold rubbish. Such a function is declared with a 32-bit result on purpose: of an 8-bit one the
// compiler may take the upper bits for granted. Convert to uint8_t before testing.
//
// Addresses, data and counts are unsigned 32 bit. One thread at a time.

#ifndef PROBEAPI_QUOBEARM_H
#define PROBEAPI_QUOBEARM_H

#include <stdint.h>

// Filled by QUOBEARM_GetHWStatus. The library writes as much as its own layout has, so the record
// is larger than any published one, and aligned for any field it may have. Zero it first.
struct alignas(16) HWSTATUS {
  uint16_t VTarget;  // target voltage in millivolts
  uint8_t  aFurther[510];
};
static_assert(sizeof(HWSTATUS) == 512, "room for any layout of the library");

enum {
  QUOBEARM_TIF_SWD      = 1,  // interface number for QUOBEARM_TIF_Select
  QUOBEARM_RESET_NORMAL = 0   // reset type 0: the library's default reset, core halted behind it
};

extern "C" {

// -- Connection ----------------------------------------------------------------------------------

// A byte: non-zero while a connection to a probe is open.
uint32_t QUOBEARM_IsOpen(void);

// Chooses the probe that QUOBEARM_Open connects to by host name or address; Port 0 is the default.
// A byte: non-zero on failure.
uint32_t QUOBEARM_SelectIP(const char* sHost, int32_t Port);

// Chooses the probe by its USB serial number. What it returns is of no use: a serial number that
// is not there shows when the probe is opened.
int32_t QUOBEARM_EMU_SelectByUSBSN(uint32_t SerialNo);

// Opens the chosen probe, or any on USB when none was chosen.
// NULL on success, else a text that says why not; the text is the library's.
const char* QUOBEARM_Open(void);

// Closes the connection, and the target's supply if "DisablePowerSupplyOnClose" was sent.
void QUOBEARM_Close(void);

// Sends a text command. pError (may be NULL, then BufferSize is 0) receives an error text of at
// most BufferSize - 1 characters, empty when there is none. The result is the command's own.
int32_t QUOBEARM_ExecCommand(const char* sCommand, char* pError, int32_t BufferSize);

// -- Target interface ----------------------------------------------------------------------------

// Selects the interface to the target: QUOBEARM_TIF_SWD.
int32_t QUOBEARM_TIF_Select(int32_t Interface);

// Sets the interface speed in kHz; 0 is automatic, 0xFFFF adaptive.
void QUOBEARM_SetSpeed(uint32_t SpeedkHz);

// The low 16 bits are the speed in use in kHz; the others are not.
uint32_t QUOBEARM_GetSpeed(void);

// Fills the record. 0 on success; the voltage stays as the caller left it otherwise.
int32_t QUOBEARM_GetHWStatus(HWSTATUS* pStatus);

// -- Target --------------------------------------------------------------------------------------

// How the next resets are made: their type and the delay behind them in ms.
int32_t QUOBEARM_SetResetType(int32_t Type);
void    QUOBEARM_SetResetDelay(int32_t Delayms);

// Resets the target. What it returns differs between versions of the library and is not used.
int32_t QUOBEARM_Reset(void);

// Reads NumItems words. pStatus (may be NULL) receives one status byte per word.
// 0 or more: read; negative: failed, and pData may or may not have been written.
int32_t QUOBEARM_ReadMemU32(uint32_t Address, uint32_t NumItems, uint32_t* pData, uint8_t* pStatus);

// Write one word, one half-word. A write that fails is not told: read back where it matters.
int32_t QUOBEARM_WriteU32(uint32_t Address, uint32_t Data);
int32_t QUOBEARM_WriteU16(uint32_t Address, uint16_t Data);

}  // extern "C"

#endif
