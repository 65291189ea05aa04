// What the machine's resolver has to say of the loopback address, asked directly. It is a property
// of the machine: a bare container knows no name for it, another machine knows its own name.

#ifndef TESTS_SYS_NAMES_H
#define TESTS_SYS_NAMES_H

#include <netdb.h>
#include <netinet/in.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>

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

// The name of 127.0.0.1, or the number as text; 0 when it does not fit.
static inline int GetLoopbackName(char* pBuffer, socklen_t BufferSize) {
  struct sockaddr_in Addr;
  memset(&Addr, 0, sizeof(Addr));
  Addr.sin_family      = AF_INET;
  Addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return getnameinfo((const struct sockaddr*)&Addr, sizeof(Addr), pBuffer, BufferSize, NULL, 0,
                     0) == 0;
}

#endif
