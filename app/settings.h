// app/settings.h
// SPDX-License-Identifier: MIT
//
// The settings of one run, and how each is read from the text that a user gave.

#ifndef APP_SETTINGS_H
#define APP_SETTINGS_H

#include <stdint.h>

enum { HOST_IF_USB = 1, HOST_IF_ETHERNET = 2 };

static constexpr uint32_t SPEED_DEFAULT  = 1000;    // kHz
static constexpr uint32_t SPEED_AUTO     = 0;       // the probe chooses
static constexpr uint32_t SPEED_ADAPTIVE = 0xFFFF;  // the probe follows the target's returned clock

static constexpr uint32_t IP_ADDR_SIZE = 128;  // terminator counted

struct UNLOCK_SETTINGS {
  uint32_t Speed;                 // target interface speed in kHz, or one of the two above
  char     IPAddr[IP_ADDR_SIZE];  // host name or address of the probe; used with HOST_IF_ETHERNET
  uint32_t SerialNo;              // USB serial number of the probe; 0 = any
  uint32_t HostIF;                // HOST_IF_USB or HOST_IF_ETHERNET
  uint32_t PowerTarget;           // non-zero = the probe supplies the target
  uint32_t FamilyIndex;           // row of the family table; 0 = ask
  uint32_t NoExitWait;            // non-zero = end without waiting for a key
};

// Zeroes the record and sets the defaults: USB, any probe, 1000 kHz, ask for the family, wait for a
// key at the end.
void SetDefaultSettings(UNLOCK_SETTINGS* pSettings);

// Each reads one value. 0: set. -1: refused; the settings are unchanged. Nothing is printed.
int32_t TakeIP(UNLOCK_SETTINGS* pSettings, const char* sValue);        // never refused; may be cut
int32_t TakeSerialNo(UNLOCK_SETTINGS* pSettings, const char* sValue);  // decimal
int32_t TakeSpeed(UNLOCK_SETTINGS* pSettings, const char* sValue);  // decimal, "auto", "adaptive"
int32_t TakePowerTarget(UNLOCK_SETTINGS* pSettings, const char* sValue);  // decimal
int32_t TakeFamily(UNLOCK_SETTINGS* pSettings, const char* sValue);       // a name or a number

#endif
