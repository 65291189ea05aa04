// openocd/config.h
// SPDX-License-Identifier: MIT
//
// The configuration: a text file of lines "key = value". docs/adapters.md lists the keys. A line that
// begins with '#' is a comment. Without a file everything has its default.

#ifndef OPENOCD_CONFIG_H
#define OPENOCD_CONFIG_H

#include <stddef.h>
#include <stdint.h>

enum {
  CONFIG_MAX_PATH    = 1024,
  CONFIG_MAX_HOOK    = 1024,
  CONFIG_MAX_SERIAL  = 128,
  CONFIG_MAX_SERIALS = 64,
  CONFIG_MAX_BYTES   = 64 * 1024  // of the file
};

enum CONFIG_DRIVER {
  CONFIG_DRIVER_ANY,  // ST-LINK, then CMSIS-DAP
  CONFIG_DRIVER_STLINK,
  CONFIG_DRIVER_CMSIS_DAP,
  CONFIG_DRIVER_FILE  // an OpenOCD interface file
};

// Which adapter the number means that the tool was given.
struct CONFIG_SERIAL {
  uint32_t Number;
  char     acText[CONFIG_MAX_SERIAL];
};

// Texts that were not given are empty.
struct CONFIG {
  char acPath[CONFIG_MAX_PATH];  // of the configuration itself, also when it does not exist
  CONFIG_DRIVER Driver;
  char acDriverFile[CONFIG_MAX_PATH];  // plain text (TEXT_IsPlain), as are the serial numbers
  char acOpenocd[CONFIG_MAX_PATH];
  CONFIG_SERIAL aSerials[CONFIG_MAX_SERIALS];
  int           NumSerials;
  int           VTargetmV;   // -1: not given
  uint32_t      SpeedLimit;  // kHz, 0: none
  bool          ResetByPin;
  bool          ConnectUnderReset;
  char          acPowerOn[CONFIG_MAX_HOOK];  // Tcl, its braces and brackets balanced
  char          acPowerOff[CONFIG_MAX_HOOK];
  char          acLog[CONFIG_MAX_PATH];
  char          acTrace[CONFIG_MAX_PATH];
};

// Reads $QUOBE_OPENOCD, or .config/quobe/openocd.conf in the home directory. Only the first of these
// must exist.
// False on failure, with a text of one line in pError.
bool CONFIG_Load(CONFIG* pConfig, char* pError, size_t ErrorSize);

// The same from memory; acPath must be set and names the file in errors.
bool CONFIG_Parse(CONFIG* pConfig, const char* pBytes, size_t Length, char* pError,
                  size_t ErrorSize);

// The adapter's own serial number for the number that the tool was given. Without a row for it the
// number itself, as decimal text.
void CONFIG_SerialText(const CONFIG* pConfig, uint32_t Number, char* pText, size_t Size);

#endif
