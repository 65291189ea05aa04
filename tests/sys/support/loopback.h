// SPDX-License-Identifier: MIT

// The loopback addresses of this machine. Not every machine has ::1, and the name of an address (or
// that it has none) depends on the machine.

#ifndef TESTS_SYS_SUPPORT_LOOPBACK_H
#define TESTS_SYS_SUPPORT_LOOPBACK_H

#include <netdb.h>
#include <netinet/in.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

static inline struct sockaddr_in GetLoopbackIPv4(void) {
  struct sockaddr_in Addr;
  memset(&Addr, 0, sizeof(Addr));
  Addr.sin_family      = AF_INET;
  Addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return Addr;
}

static inline struct sockaddr_in6 GetLoopbackIPv6(void) {
  static const uint8_t aBytes[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  struct sockaddr_in6  Addr;
  memset(&Addr, 0, sizeof(Addr));
  Addr.sin6_family = AF_INET6;
  memcpy(&Addr.sin6_addr, aBytes, sizeof(aBytes));
  return Addr;
}

static inline int HasLoopbackIPv6(void) {
  const struct sockaddr_in6 Addr    = GetLoopbackIPv6();
  const int                 hSocket = socket(AF_INET6, SOCK_STREAM, 0);
  if (hSocket < 0) {
    return 0;
  }
  const int IsBound = bind(hSocket, (const struct sockaddr*)&Addr, sizeof(Addr)) == 0;
  close(hSocket);
  return IsBound;
}

static inline int IsLocalhostKnown(void) {
  struct addrinfo  Hints;
  struct addrinfo* pResults = NULL;
  memset(&Hints, 0, sizeof(Hints));
  Hints.ai_family = AF_INET;
  if (getaddrinfo("localhost", NULL, &Hints, &pResults) != 0) {
    return 0;
  }
  freeaddrinfo(pResults);
  return 1;
}

// Stores the name of an address, or its text if it has no name. Returns 0, or -1 when the system
// has neither.
static inline int GetSystemsName(const void* pAddr, socklen_t Size, char* pName,
                                 socklen_t NameSize) {
  return getnameinfo((const struct sockaddr*)pAddr, Size, pName, NameSize, NULL, 0, 0) == 0 ? 0
                                                                                            : -1;
}

#endif
