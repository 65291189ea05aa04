// sys/sockets.h
// SPDX-License-Identifier: MIT
//
// Sockets: TCP and UDP over IPv4 and IPv6, with time-outs.
//
// A socket is its plain descriptor. IPv4 addresses and all ports are numbers in host byte order
// (0x7F000001 is 127.0.0.1); an IPv6 address is its 16 bytes in network order. Time-outs are in
// milliseconds. Lengths are in bytes and at most 0x7FFFFFFF. Unless its comment says otherwise, a
// function returns 0 for success and -1 for failure, with errno set by the call that failed.
// Pointers must not be NULL unless the comment allows it. Nothing here prints.
//
// Every TCP socket that is made or accepted here is set to send small packets at once (TCP_NODELAY)
// and to return an error instead of raising SIGPIPE when the connection is broken (SO_NOSIGPIPE).
// Errors of setting these and the dual-stack option are ignored. SO_NOSIGPIPE may not be settable,
// for example on a connection that is over when it is accepted; a send then raises SIGPIPE, which
// ends the process by default, so a server should ignore SIGPIPE too. On macOS an accepted socket
// inherits SO_NOSIGPIPE from the listening one. UDP sockets have no connection to break.
//
// Waiting is done with select(), which supports descriptors below FD_SETSIZE (1024) only. Functions
// with a time-out return -1 for any other descriptor.
//
// Threads may share a socket as far as the system allows: one may send while another receives.

#ifndef SYS_SOCKETS_H
#define SYS_SOCKETS_H

#include <stdint.h>

// What SYS_SOCKET_Send and SYS_SOCKET_Receive return instead of a number of bytes.
enum {
  SYS_SOCKET_ERR_OTHER       = -1,
  SYS_SOCKET_ERR_WOULD_BLOCK = -2,  // EAGAIN: non-blocking, or the socket's time-out is over
  SYS_SOCKET_ERR_TIMED_OUT   = -3,  // ETIMEDOUT: the connection timed out
  SYS_SOCKET_ERR_NET_RESET   = -4,  // ENETRESET: the network reset the connection
  SYS_SOCKET_ERR_INTERRUPTED = -5   // EINTR: a signal
};

// What SYS_TCP_AcceptTimeout and SYS_TCP_ConnectTimeout return instead of a descriptor, beside -1.
enum { SYS_TCP_ERR_TIMEOUT = -2, SYS_TCP_ERR_ABORTED = -3 };

// ---- Making and closing -------------------------------------------------------------------------

// Make a UDP or a TCP socket.
// If DualStack is not 0, an IPv6 socket also reaches IPv4 peers, under mapped addresses
// (::FFFF:a.b.c.d); with 0 the system's setting is kept. Return the descriptor, or -1.
int32_t SYS_UDP_CreateIPv4(void);
int32_t SYS_UDP_CreateIPv6(int32_t DualStack);
int32_t SYS_TCP_CreateIPv4(void);
int32_t SYS_TCP_CreateIPv6(int32_t DualStack);

// Closes a socket.
// The descriptor is closed also when this fails.
int32_t SYS_SOCKET_Close(int32_t hSocket);

enum { SYS_SHUTDOWN_RECEIVE = 0, SYS_SHUTDOWN_SEND = 1, SYS_SHUTDOWN_BOTH = 2 };

// Ends receiving, sending, or both, on a connection.
// How is one of the values above; any other value does nothing.
void SYS_SOCKET_Shutdown(int32_t hSocket, int32_t How);

// ---- Server side --------------------------------------------------------------------------------

// Bind a socket to an address of this machine, and listen.
// The address 0, or 16 zero bytes, stands for all addresses; with port 0 the system chooses a port.
// Backlog is the number of connections that may wait to be accepted. The IPv4 form reuses a port
// that closed connections still hold (SO_REUSEADDR); the IPv6 form does not.
int32_t SYS_TCP_ListenIPv4(int32_t hSocket, uint32_t Addr, uint16_t Port, int32_t Backlog);
int32_t SYS_TCP_ListenIPv6(int32_t hSocket, const uint8_t* pAddr, uint16_t Port, int32_t Backlog);

// Wait for a connection and accept it.
// Return its descriptor or -1; SYS_TCP_AcceptTimeout returns SYS_TCP_ERR_TIMEOUT when no connection
// came in. A connection may be over before it is accepted. The accept then fails with ECONNABORTED
// (call it again) or, unless hSocket is non-blocking, waits for the next connection, even beyond
// the time-out. On some systems, macOS among them, a connection accepted from a non-blocking socket
// is non-blocking too.
int32_t SYS_TCP_Accept(int32_t hSocket);
int32_t SYS_TCP_AcceptTimeout(int32_t hSocket, uint32_t Timeout);

// ---- Client side --------------------------------------------------------------------------------

// Connect a socket by one connect(), or set the peer of a UDP socket.
int32_t SYS_SOCKET_ConnectIPv4(int32_t hSocket, uint32_t Addr, uint16_t Port);
int32_t SYS_SOCKET_ConnectIPv6(int32_t hSocket, const uint8_t* pAddr, uint16_t Port);

// Makes a TCP socket and connects it to a peer that may not be listening yet.
// When the peer refuses, a new attempt follows about 10 ms after the last one, until more than
// Timeout has passed. Any failed attempt counts as refused, and so does a socket that TCP connects
// to itself, which can happen with a port of this machine that nobody listens on. At least one
// attempt is made, even with a Timeout of 0.
// pfIsAborted may be NULL. It is called about every 10 ms, by this thread; if it returns anything
// but 0, the function gives up.
//
// Returns the connected, blocking socket; -1 when no socket can be made (or only one that select()
// does not support); SYS_TCP_ERR_TIMEOUT; SYS_TCP_ERR_ABORTED. Only the returned socket stays open.
int32_t SYS_TCP_ConnectTimeout(uint32_t Addr, uint16_t Port, uint32_t Timeout,
                               int32_t (*pfIsAborted)(void));

// ---- Transfer -----------------------------------------------------------------------------------

// Sends by one send().
// Returns the number of bytes sent, which may be less than NumBytes; SYS_SOCKET_ERR_WOULD_BLOCK
// when the socket can take none now; SYS_SOCKET_ERR_OTHER for any other error.
int32_t SYS_SOCKET_Send(int32_t hSocket, const void* pData, uint32_t NumBytes);

// Receives by one recv().
// Returns the number of bytes received; 0 when the peer will send no more; one of
// SYS_SOCKET_ERR_...
int32_t SYS_SOCKET_Receive(int32_t hSocket, void* pBuffer, uint32_t NumBytes);

// Receives exactly NumBytes bytes.
// Returns NumBytes, or -1 as soon as the peer ends or anything fails, a time-out included. The
// buffer then holds the bytes received so far, but their number is not reported.
int32_t SYS_SOCKET_ReceiveExactly(int32_t hSocket, void* pBuffer, uint32_t NumBytes);

// Returns 1 when at least one byte can be received without waiting, else 0.
// Returns 0 also for anything that is not a socket. On macOS an empty UDP datagram counts as well.
int32_t SYS_SOCKET_IsDataPending(int32_t hSocket);

// Wait until a receive or an accept, or a send, would not block.
// Return 1 when that is so, 0 after the time-out, -1 for an error. Any descriptor that select()
// supports can be given.
int32_t SYS_SOCKET_WaitReadable(int32_t hSocket, uint32_t Timeout);
int32_t SYS_SOCKET_WaitWritable(int32_t hSocket, uint32_t Timeout);

// ---- Options ------------------------------------------------------------------------------------

// Allows sending to broadcast addresses (SO_BROADCAST).
int32_t SYS_SOCKET_AllowBroadcast(int32_t hSocket);

// Sets the size of the receive buffer (SO_RCVBUF).
// macOS refuses sizes below 1.
int32_t SYS_SOCKET_SetReceiveBufferSize(int32_t hSocket, int32_t NumBytes);

// Makes the system check now and then whether an idle peer still answers (SO_KEEPALIVE).
int32_t SYS_SOCKET_EnableKeepAlive(int32_t hSocket);

// Make calls on the socket wait, or return at once.
int32_t SYS_SOCKET_SetBlocking(int32_t hSocket);
int32_t SYS_SOCKET_SetNonBlocking(int32_t hSocket);

// Set how long closing waits for unsent data (SO_LINGER).
// Milliseconds are rounded to the nearest second, but to at least 1 second unless they are 0. With
// 0, closing discards unsent data and resets the connection. Give at most 327 seconds: macOS keeps
// the time in 16 bits of 10 ms each. Both always return 0.
int32_t SYS_SOCKET_SetLinger(int32_t hSocket, uint32_t Milliseconds);
int32_t SYS_SOCKET_SetNoLinger(int32_t hSocket);

// Sets how long a send and a receive may wait; 0 means without limit.
// Returns the result of setting the second one.
int32_t SYS_SOCKET_SetTimeouts(int32_t hSocket, uint32_t SendTimeout, uint32_t ReceiveTimeout);

// ---- Addresses and names ------------------------------------------------------------------------

// Give the address and the port of a connected socket's peer.
// pPort may be NULL. Both are zero when the socket has no peer of that family.
void SYS_SOCKET_GetPeerIPv4(int32_t hSocket, uint32_t* pAddr, uint16_t* pPort);
void SYS_SOCKET_GetPeerIPv6(int32_t hSocket, uint8_t* pAddr, uint16_t* pPort);

// Give the address of a host name, or of an address in text form.
// Of several addresses the first one is taken: the system sorts them by how well they can be
// reached from this machine. If AllowMapped is not 0, a name that has only IPv4 addresses gives one
// of them, mapped into IPv6. After a failure *pAddr is unchanged.
// An IPv4 address has its first number in the high byte: "192.168.1.2" gives 0xC0A80102.
// UTIL_FormatIPAddr takes 0x0201A8C0 for that text: swap the bytes (UTIL_SwapU32) in between.
int32_t SYS_NET_ResolveIPv4(const char* sName, uint32_t* pAddr);
int32_t SYS_NET_ResolveIPv6(const char* sName, int32_t AllowMapped, uint8_t* pAddr);

// Give the names of an address and of a port, or their text forms if they have no names.
// Sizes include the terminator; a name that does not fit is a failure. One of the two buffers may
// be NULL, with size 0.
// An IPv4 address has its first number in the high byte: 0xC0A80102 is 192.168.1.2. For that text
// UTIL_ParseIPAddr gives 0x0201A8C0: swap the bytes (UTIL_SwapU32) in between.
int32_t SYS_NET_GetNameIPv4(uint32_t Addr, uint16_t Port, char* pHost, uint32_t HostSize,
                            char* pService, uint32_t ServiceSize);
int32_t SYS_NET_GetNameIPv6(const uint8_t* pAddr, uint16_t Port, char* pHost, uint32_t HostSize,
                            char* pService, uint32_t ServiceSize);

#endif
