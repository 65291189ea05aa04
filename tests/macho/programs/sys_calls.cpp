// SPDX-License-Identifier: MIT

// Calls SYS, so that macho_test can read in the runner's trace which of Darwin's flags and numbers
// it passes to the system. Results are not checked here.
//
//   sys_calls files|regular|console|serial|ports|services|sockets|connect

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "sys/console.h"
#include "sys/files.h"
#include "sys/misc.h"
#include "sys/serial.h"
#include "sys/sockets.h"
#include "sys/thread.h"
#include "tests/sys/support/pty.h"

// Makes files in the current folder.
static void CallFiles(void) {
  static const uint32_t aModes[] = {0x13, 0x93, 0xB3, 0x01, 0x02, 0x03, 0x32, 0x23, 0x43, 0x80};
  for (uint32_t i = 0; i < sizeof(aModes) / sizeof(aModes[0]); i++) {
    char sPath[32];
    snprintf(sPath, sizeof(sPath), "%02x", (unsigned)aModes[i]);
    SYS_FILE_Close(SYS_FILE_Open(sPath, aModes[i]));
  }
  const int32_t hFile = SYS_FILE_Open("13", 0x03);
  void*         pView = SYS_FILE_MapView(hFile, 5000, 10);
  if (pView != NULL) {
    SYS_FILE_FlushView(pView, 10);
    SYS_FILE_UnmapView(pView, 10);
  }
  SYS_FILE_Close(hFile);
}

// The same with files that may be something else.
static void CallRegular(void) {
  SYS_FILE_Close(SYS_FILE_OpenRegular("regular", 0x12, 0, 0));
  SYS_FILE_Close(SYS_FILE_OpenRegular("regular", 0x23, 0, 0));
  SYS_FILE_Exists("regular");
}

// Standard input has to be a terminal for this one.
static void CallConsole(void) {
  PTY Pty;
  PTY_Open(&Pty);
  dup2(Pty.hKeep, STDIN_FILENO);
  const int32_t NumBefore = SYS_CONSOLE_IsKeyPressed();
  write(Pty.hMaster, "ab", 2);
  SYS_SOCKET_WaitReadable(STDIN_FILENO, 10000);  // a terminal delivers bytes with a delay
  printf("%d keys, then %d\n", (int)NumBefore, (int)SYS_CONSOLE_IsKeyPressed());
  PTY_Close(&Pty);
}

static void CallSerial(void) {
  PTY Pty;
  PTY_Open(&Pty);
  SYS_SERIAL_PORT* pPort = SYS_SERIAL_Open(Pty.acName, 115200);
  if (pPort != NULL) {
    SYS_SERIAL_Close(pPort);
  }
  PTY_Close(&Pty);
}

// Room for two; what follows them must not change.
static void CallPorts(void) {
  SYS_SERIAL_NAME aNames[3];
  memset(aNames, '#', sizeof(aNames));
  const uint32_t NumFound = SYS_SERIAL_Enumerate(aNames, 2);
  printf("%u found, first %s, second %s, third %c\n", (unsigned)NumFound, aNames[0].ac,
         aNames[1].ac, aNames[2].ac[0]);
}

static void* DoNothing(void* pArg) {
  return pArg;
}

static void CallServices(void) {
  uint32_t Random;
  SYS_GetRandom(&Random, sizeof(Random));
  SYS_Log("text");
  SYS_StartProgram("/no/such/program");
  SYS_PreventIdleSleep();
  SYS_PreventIdleSleep();
  SYS_AllowIdleSleep();
  SYS_THREAD_Start(DoNothing, NULL, NULL);
}

static void CallSockets(void) {
  const int32_t hV4 = SYS_TCP_CreateIPv4();
  SYS_SOCKET_AllowBroadcast(hV4);
  SYS_SOCKET_EnableKeepAlive(hV4);
  SYS_SOCKET_SetReceiveBufferSize(hV4, 4096);
  SYS_SOCKET_SetLinger(hV4, 1500);
  SYS_SOCKET_SetNoLinger(hV4);
  SYS_SOCKET_SetTimeouts(hV4, 2345, 67);
  SYS_TCP_ListenIPv4(hV4, 0x7F000001, 0, 1);
  SYS_SOCKET_Close(hV4);
  SYS_SOCKET_Close(SYS_TCP_CreateIPv6(1));
  SYS_SOCKET_Close(SYS_UDP_CreateIPv4());
  SYS_SOCKET_Close(SYS_UDP_CreateIPv6(1));
  uint8_t aAddress[16];
  SYS_NET_ResolveIPv6("127.0.0.1", 1, aAddress);
}

static int32_t IsThirdAttempt(void) {
  static int NumAttempts;
  return ++NumAttempts == 3;
}

static void CallConnect(void) {
  SYS_TCP_ConnectTimeout(0xE0000001, 5000, 60000, IsThirdAttempt);  // 224.0.0.1
}

static const struct {
  const char* sName;
  void (*pfCall)(void);
} Areas[] = {
    {"files", CallFiles},     {"regular", CallRegular}, {"console", CallConsole},
    {"serial", CallSerial},   {"ports", CallPorts},     {"services", CallServices},
    {"sockets", CallSockets}, {"connect", CallConnect},
};

int main(int NumArgs, char** pasArgs) {
  for (uint32_t i = 0; i < sizeof(Areas) / sizeof(Areas[0]); i++) {
    if (NumArgs == 2 && strcmp(pasArgs[1], Areas[i].sName) == 0) {
      Areas[i].pfCall();
      return 0;
    }
  }
  return 2;
}
