// machorun/socket_address.h
// SPDX-License-Identifier: MIT
//
// Translates socket addresses between the two systems, for the shims of sockets and of names.

#ifndef MACHORUN_SOCKET_ADDRESS_H
#define MACHORUN_SOCKET_ADDRESS_H

#include <netinet/in.h>
#include <stdint.h>
#include <sys/socket.h>

union HostAddress {
  sockaddr     Any;
  sockaddr_in  V4;
  sockaddr_in6 V6;
};

// IPv4, IPv6 and "any"; other families are Unknown. To Darwin they become "any".
int FamilyToHost(int Family);
int FamilyToDarwin(int Family);

// Returns the length of the result. To Darwin at most Room bytes are written; the result is the
// whole length all the same, as with the system calls.
socklen_t AddressToHost(const void* pAddress, uint32_t Length, HostAddress* pHost);
uint32_t  AddressToDarwin(const sockaddr* pHost, void* pAddress, uint32_t Room);

#endif
