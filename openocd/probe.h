// openocd/probe.h
// SPDX-License-Identifier: MIT
//
// The 16 operations of the probe library, on a debug adapter that OpenOCD drives. One probe per
// process, one thread. Results are those that the tool expects: see the probe library's contracts in
// quobearm.h.
//
// A connection is lost when OpenOCD ends or does not answer, when the adapter gives no sign of life,
// or when the debug port has been silent for two seconds. From then on IsOpen says no, all operations
// return at once, and nothing is left running; Open begins anew.

#ifndef OPENOCD_PROBE_H
#define OPENOCD_PROBE_H

#include <stdint.h>

bool        PROBE_IsOpen();
bool        PROBE_SelectIP(const char* sHost, int32_t Port);  // false: no usable address
void        PROBE_SelectByUSBSN(uint32_t SerialNo);
const char* PROBE_Open();  // NULL, or a text of one line
void        PROBE_Close();

// pError may be NULL. 0, or -1 with the reason in pError.
int32_t PROBE_ExecCommand(const char* sCommand, char* pError, int32_t BufferSize);

int32_t  PROBE_SelectInterface(int32_t Interface);
void     PROBE_SetSpeed(uint32_t SpeedkHz);
uint32_t PROBE_GetSpeed();
bool     PROBE_GetVoltage(uint16_t* pMillivolts);  // false: *pMillivolts is left alone

int32_t PROBE_SetResetType(int32_t Type);
void    PROBE_SetResetDelay(int32_t Delayms);
int32_t PROBE_Reset();

// pStatus may be NULL and receives a byte per word, 0 for a word that was read. Negative on failure,
// pData is left alone then.
int32_t PROBE_ReadMemory(uint32_t Address, uint32_t NumItems, uint32_t* pData, uint8_t* pStatus);
int32_t PROBE_WriteMemory(uint32_t Address, uint32_t Bits, uint32_t Data);

#endif
