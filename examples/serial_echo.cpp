// SPDX-License-Identifier: MIT

// serial_echo [device [baud rate]]
//
// Sends back the bytes that arrive on a serial port, until a byte 4 (Ctrl-D) arrives. The device is
// named without "/dev/"; without a device the first USB serial port is used.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "sys/clock.h"
#include "sys/serial.h"

static const uint32_t READ_TIMEOUT = 1000;  // milliseconds

// Returns 0 after Ctrl-D, -1 when the line fails or the device is gone: SYS_SERIAL_Read then
// returns -1, or 0 well before the time-out.
static int Echo(SYS_SERIAL_PORT* pPort) {
  char acBuffer[256];
  for (;;) {
    const uint32_t Start   = SYS_GetTickCount();
    const int32_t  NumRead = SYS_SERIAL_Read(pPort, acBuffer, sizeof(acBuffer), READ_TIMEOUT);
    if (NumRead < 0) {
      return -1;
    }
    if (NumRead == 0 && SYS_GetTickCount() - Start < READ_TIMEOUT / 2) {
      return -1;
    }
    const char*    pEnd     = (const char*)memchr(acBuffer, 4, (uint32_t)NumRead);
    const uint32_t NumBytes = pEnd != NULL ? (uint32_t)(pEnd - acBuffer) : (uint32_t)NumRead;
    uint32_t       NumSent  = 0;
    while (NumSent < NumBytes) {
      const int32_t Result = SYS_SERIAL_Write(pPort, acBuffer + NumSent, NumBytes - NumSent);
      if (Result < 0) {
        return -1;
      }
      NumSent += (uint32_t)Result;
    }
    if (pEnd != NULL) {
      return 0;
    }
  }
}

int main(int NumArgs, char** pasArgs) {
  SYS_SERIAL_NAME Name;
  const char*     sDevice  = NumArgs > 1 ? pasArgs[1] : Name.ac;
  const uint32_t  BaudRate = NumArgs > 2 ? (uint32_t)strtoul(pasArgs[2], NULL, 10) : 115200;
  if (NumArgs < 2 && SYS_SERIAL_Enumerate(&Name, 1) == 0) {
    fprintf(stderr, "serial_echo: no USB serial port found\n");
    return 1;
  }
  SYS_SERIAL_PORT* pPort = SYS_SERIAL_Open(sDevice, BaudRate);
  if (pPort == NULL) {
    fprintf(stderr, "serial_echo: cannot open %s\n", sDevice);
    return 1;
  }
  printf("echoing on %s\n", sDevice);
  fflush(stdout);
  const int Result = Echo(pPort);
  SYS_SERIAL_Close(pPort);
  return Result == 0 ? 0 : 1;
}
