// SPDX-License-Identifier: MIT

// A port of 127.0.0.1 that refuses connections: it is bound, so that no other program gets it, but
// nothing listens on it.

#ifndef TESTS_SYS_SUPPORT_REFUSING_PORT_H
#define TESTS_SYS_SUPPORT_REFUSING_PORT_H

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

struct REFUSING_PORT {
  int      hSocket;
  uint16_t Port;

  REFUSING_PORT() : hSocket(socket(AF_INET, SOCK_STREAM, 0)) {
    struct sockaddr_in Addr   = {};
    socklen_t          Length = sizeof(Addr);
    Addr.sin_family           = AF_INET;
    Addr.sin_addr.s_addr      = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0, bind(hSocket, (struct sockaddr*)&Addr, sizeof(Addr)));
    EXPECT_EQ(0, getsockname(hSocket, (struct sockaddr*)&Addr, &Length));
    Port = ntohs(Addr.sin_port);
  }
  ~REFUSING_PORT() { close(hSocket); }
  REFUSING_PORT(const REFUSING_PORT&)            = delete;
  REFUSING_PORT& operator=(const REFUSING_PORT&) = delete;
};

#endif
