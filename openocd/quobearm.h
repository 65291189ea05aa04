// openocd/quobearm.h
// SPDX-License-Identifier: MIT
//
// What the library exports: the 16 operations of the probe library that the tool uses, with the types
// by which the tool calls them.

#ifndef OPENOCD_QUOBEARM_H
#define OPENOCD_QUOBEARM_H

#include <stdint.h>

struct HWSTATUS;  // begins with the target voltage in millivolts, 16 bit; nothing else is filled in

extern "C" {

// Results of one byte are returned as 32 bits, all of them good.
uint32_t    QUOBEARM_IsOpen(void);
uint32_t    QUOBEARM_SelectIP(const char* sHost, int32_t Port);
int32_t     QUOBEARM_EMU_SelectByUSBSN(uint32_t SerialNo);
const char* QUOBEARM_Open(void);
void        QUOBEARM_Close(void);
int32_t     QUOBEARM_ExecCommand(const char* sCommand, char* pError, int32_t BufferSize);
int32_t     QUOBEARM_TIF_Select(int32_t Interface);
void        QUOBEARM_SetSpeed(uint32_t SpeedkHz);
uint32_t    QUOBEARM_GetSpeed(void);
int32_t     QUOBEARM_GetHWStatus(HWSTATUS* pStatus);
int32_t     QUOBEARM_SetResetType(int32_t Type);
void        QUOBEARM_SetResetDelay(int32_t Delayms);
int32_t     QUOBEARM_Reset(void);
int32_t QUOBEARM_ReadMemU32(uint32_t Address, uint32_t NumItems, uint32_t* pData, uint8_t* pStatus);
int32_t QUOBEARM_WriteU32(uint32_t Address, uint32_t Data);
int32_t QUOBEARM_WriteU16(uint32_t Address, uint16_t Data);

}  // extern "C"

#endif
