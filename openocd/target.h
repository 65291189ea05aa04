// openocd/target.h
// SPDX-License-Identifier: MIT
//
// The chip at the other end of the wires, by means that need no knowledge of its family: the debug
// port, the bus that it reaches, and the debug registers that every Cortex-M has. Register names are
// those of ARM's manuals.
//
// One thread at a time. No access is made that was not asked for, except to the core's own
// registers.

#ifndef OPENOCD_TARGET_H
#define OPENOCD_TARGET_H

#include <stddef.h>
#include <stdint.h>

#include "openocd/adapter.h"
#include "openocd/config.h"

enum TARGET_RESULT {
  TARGET_OK     = 0,
  TARGET_FAILED = -1,  // the access failed, the connection is as it was
  TARGET_GONE   = -2   // the server no longer answers
};

// What is known of a chip that has been attached.
struct TARGET_FACTS {
  uint32_t DpIdr;  // DPIDR
  uint32_t ApIdr;  // IDR of the access port
  uint32_t Cpuid;
};

// Connects to the chip, halted at its first instruction if that is configured. May be called again
// after a failure, for example when the chip has been powered since.
// False on failure, with a text of one line in pError; the reset pin is released then.
bool TARGET_Attach(ADAPTER* pAdapter, const CONFIG* pConfig, TARGET_FACTS* pFacts, char* pError,
                   size_t ErrorSize);

// Lets the core run, without any trap for the next reset. Tried again when it fails, like all
// accesses to the core.
void TARGET_Resume(ADAPTER* pAdapter);

// Resets the chip and stops its core before the first instruction. If no reset was seen, tries once
// more. Then waits for Delayms.
TARGET_RESULT TARGET_Reset(ADAPTER* pAdapter, bool ByPin, uint32_t Delayms);

// Reads Count words by one 32-bit access each. pData is left alone on failure.
TARGET_RESULT TARGET_Read(ADAPTER* pAdapter, uint32_t Address, uint32_t Count, uint32_t* pData);

// One write access of 16 or 32 bits.
TARGET_RESULT TARGET_Write(ADAPTER* pAdapter, uint32_t Address, uint32_t Bits, uint32_t Value);

// Whether the debug port answers. A debug port that lost its power is connected to anew by this.
bool TARGET_PortAnswers(ADAPTER* pAdapter);

// Whether the debug port says that its power-up requests are granted: the chip is supplied.
bool TARGET_IsPowered(ADAPTER* pAdapter);

#endif
