// tests/sys/support/connections.h
// SPDX-License-Identifier: MIT
//
// Sockets of SYS to test with: a listener and both ends of a connection on 127.0.0.1.

#ifndef TESTS_SYS_SUPPORT_CONNECTIONS_H
#define TESTS_SYS_SUPPORT_CONNECTIONS_H

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "sys/sockets.h"

inline const uint32_t LOOPBACK      = 0x7F000001;  // 127.0.0.1
inline const uint8_t  aLoopback6[]  = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
inline const uint8_t  aAny6[16]     = {};
inline const uint8_t  aMapped[]     = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 127, 0, 0, 1};
inline const int      NO_SIGNAL_OPT = 0x1022;

inline uint16_t GetPort(int hSocket) {
  struct sockaddr_in6 Addr   = {};  // the port is at the same place in both records
  socklen_t           Length = sizeof(Addr);
  EXPECT_EQ(0, getsockname(hSocket, (struct sockaddr*)&Addr, &Length));
  return ntohs(Addr.sin6_port);
}

inline int GetOption(int hSocket, int Level, int Name) {
  int       Value  = -1;
  socklen_t Length = sizeof(Value);
  EXPECT_EQ(0, getsockopt(hSocket, Level, Name, &Value, &Length));
  return Value;
}

// A listening socket on 127.0.0.1 and its port.
struct LISTENER {
  int32_t  hSocket;
  uint16_t Port;

  explicit LISTENER(int32_t Backlog = 16) : hSocket(SYS_TCP_CreateIPv4()) {
    EXPECT_EQ(0, SYS_TCP_ListenIPv4(hSocket, LOOPBACK, 0, Backlog));
    Port = GetPort(hSocket);
  }
  ~LISTENER() { close(hSocket); }
  LISTENER(const LISTENER&)            = delete;
  LISTENER& operator=(const LISTENER&) = delete;
};

// Two ends of a connection.
struct CONNECTION {
  int32_t hClient;
  int32_t hServer;

  CONNECTION() {
    const LISTENER Listener;
    hClient = SYS_TCP_CreateIPv4();
    EXPECT_EQ(0, SYS_SOCKET_ConnectIPv4(hClient, LOOPBACK, Listener.Port));
    hServer = SYS_TCP_Accept(Listener.hSocket);
    EXPECT_GE(hServer, 0);
  }
  ~CONNECTION() {
    CloseServer();
    close(hClient);
  }
  CONNECTION(const CONNECTION&)            = delete;
  CONNECTION& operator=(const CONNECTION&) = delete;

  void CloseServer() {
    if (hServer >= 0) {
      close(hServer);
      hServer = -1;
    }
  }
};

#endif
