// openocd/adapter.h
// SPDX-License-Identifier: MIT
//
// A debug adapter opened through OpenOCD: which driver, which serial number, and why it cannot be
// opened. The chip at its other end is target.h's.
//
// One thread at a time.

#ifndef OPENOCD_ADAPTER_H
#define OPENOCD_ADAPTER_H

#include <stddef.h>
#include <stdint.h>

#include "openocd/config.h"
#include "openocd/server.h"

enum { ADAPTER_MAX_NAME = 64, ADAPTER_MAX_HOST = 128 };

static const uint32_t ADAPTER_DEFAULT_PORT = 6666;  // OpenOCD's own for Tcl

// Which adapter the caller has chosen.
struct ADAPTER_CHOICE {
  bool     ByNetwork;  // a running server
  char     acHost[ADAPTER_MAX_HOST];
  uint32_t Port;
  bool     BySerial;
  uint32_t SerialNo;
};

struct ADAPTER {
  SERVER   Server;
  char     acDriver[ADAPTER_MAX_NAME];  // OpenOCD's name of the driver
  char     acTarget[ADAPTER_MAX_NAME];  // OpenOCD's names of the target and its debug port
  char     acDap[ADAPTER_MAX_NAME];     // empty when a running server has none
  char     acVersion[ADAPTER_MAX_NAME];
  uint32_t SpeedkHz;  // in use; 0 while it is not known
  bool     HasSpeed;  // the driver can set one
};

// Takes "HOST", "HOST:PORT", "[ADDRESS]:PORT" or an IPv6 address. Port is used when the text has
// none, and ADAPTER_DEFAULT_PORT when it is 0 too. False when the text is none of these.
bool ADAPTER_ParseHost(ADAPTER_CHOICE* pChoice, const char* sHost, uint32_t Port);

// Opens an adapter. Without a choice and a configured driver an ST-LINK is tried, then CMSIS-DAP.
// False on failure, with a text of one line in pError and nothing left running.
bool ADAPTER_Open(ADAPTER* pAdapter, const CONFIG* pConfig, const ADAPTER_CHOICE* pChoice,
                  char* pError, size_t ErrorSize);

// Sets the speed of the wires and stores the one in use. False when the adapter did not do it; that is
// no failure for a driver that has no speed.
bool ADAPTER_SetSpeed(ADAPTER* pAdapter, uint32_t SpeedkHz);

// Asks the adapter itself for a sign of life. True when it gave one, or when nothing is known that
// it could be asked.
bool ADAPTER_IsAlive(ADAPTER* pAdapter);

// The target's voltage as the adapter measures it, in millivolts. False when it cannot.
bool ADAPTER_MeasureVoltage(ADAPTER* pAdapter, uint32_t* pMillivolts);

#endif
