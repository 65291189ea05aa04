// SPDX-License-Identifier: MIT

// tcp_echo_server [port [connections]]
//
// Sends back the bytes that its clients send, one client after the other, on 127.0.0.1. With port
// 0, or none, the system chooses the port; the first line printed gives it. Ends after that many
// connections, or never.

#include <errno.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>

#include "sys/sockets.h"

static const uint32_t LOOPBACK = 0x7F000001;  // 127.0.0.1, in host order

static uint16_t GetPort(int32_t hSocket) {
  struct sockaddr_in Addr   = {};
  socklen_t          Length = sizeof(Addr);
  getsockname(hSocket, (struct sockaddr*)&Addr, &Length);
  return ntohs(Addr.sin_port);
}

// A client may disconnect at any moment: sending then fails.
static void Echo(int32_t hClient) {
  char acBuffer[4096];
  for (;;) {
    const int32_t NumBytes = SYS_SOCKET_Receive(hClient, acBuffer, sizeof(acBuffer));
    int32_t       NumSent  = 0;
    while (NumSent < NumBytes) {
      const int32_t Result =
          SYS_SOCKET_Send(hClient, acBuffer + NumSent, (uint32_t)(NumBytes - NumSent));
      if (Result < 0) {
        return;
      }
      NumSent += Result;
    }
    if (NumBytes <= 0) {
      return;
    }
  }
}

int main(int NumArgs, char** pasArgs) {
  const uint16_t Port       = NumArgs > 1 ? (uint16_t)atoi(pasArgs[1]) : 0;
  const long     NumClients = NumArgs > 2 ? atol(pasArgs[2]) : -1;
  const int32_t  hListener  = SYS_TCP_CreateIPv4();
  if (SYS_TCP_ListenIPv4(hListener, LOOPBACK, Port, 8) != 0) {
    fprintf(stderr, "cannot listen on port %d\n", Port);
    return 1;
  }
  signal(SIGPIPE, SIG_IGN);  // raised by a client that disconnected before it was accepted
  printf("listening on port %d\n", GetPort(hListener));
  fflush(stdout);
  for (long i = 0; i != NumClients; i++) {
    const int32_t hClient = SYS_TCP_Accept(hListener);
    if (hClient >= 0) {
      Echo(hClient);
      SYS_SOCKET_Close(hClient);
    } else if (errno != ECONNABORTED) {  // ECONNABORTED: such a client too
      perror("accept");
      return 1;
    }
  }
  SYS_SOCKET_Close(hListener);
  return 0;
}
