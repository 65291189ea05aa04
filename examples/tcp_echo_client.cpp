// SPDX-License-Identifier: MIT

// tcp_echo_client host port time-out-ms text
//
// Connects, sends the text, and prints the reply. While the server refuses, it tries again until
// the time-out or Ctrl-C. Exit status 0: the text came back.

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "sys/sockets.h"

static volatile sig_atomic_t IsInterrupted;

static void OnInterrupt(int) {
  IsInterrupted = 1;
}

static int32_t IsAborted(void) {
  return IsInterrupted;
}

static int Fail(const char* sReason) {
  fprintf(stderr, "tcp_echo_client: %s\n", sReason);
  return 1;
}

int main(int NumArgs, char** pasArgs) {
  if (NumArgs != 5) {
    return Fail("usage: tcp_echo_client host port time-out-ms text");
  }
  const char*    sText    = pasArgs[4];
  const uint32_t NumBytes = (uint32_t)strlen(sText);
  uint32_t       Addr;
  if (SYS_NET_ResolveIPv4(pasArgs[1], &Addr) != 0) {
    return Fail("unknown host");
  }
  signal(SIGINT, OnInterrupt);
  const int32_t hSocket = SYS_TCP_ConnectTimeout(Addr, (uint16_t)atoi(pasArgs[2]),
                                                 (uint32_t)atoi(pasArgs[3]), IsAborted);
  switch (hSocket) {
    case -1:
      return Fail("no socket available");
    case SYS_TCP_ERR_TIMEOUT:
      return Fail("timed out");
    case SYS_TCP_ERR_ABORTED:
      return Fail("interrupted");
    default:
      break;
  }

  char* pReply = (char*)malloc(NumBytes + 1);
  if (pReply == NULL) {
    return Fail("out of memory");
  }
  SYS_SOCKET_SetTimeouts(hSocket, 5000, 5000);
  const int HasReply = SYS_SOCKET_Send(hSocket, sText, NumBytes) == (int32_t)NumBytes &&
                       SYS_SOCKET_ReceiveExactly(hSocket, pReply, NumBytes) == (int32_t)NumBytes;
  SYS_SOCKET_Close(hSocket);
  if (HasReply) {
    pReply[NumBytes] = 0;
    printf("%s\n", pReply);
  }
  free(pReply);
  return HasReply ? 0 : Fail("no reply");
}
