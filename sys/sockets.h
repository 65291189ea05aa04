// sys/sockets.h
//
// TCP and UDP over IPv4 and IPv6 on BSD sockets, with time-outs.
//
// A socket is its plain descriptor. IPv4 addresses and all ports are numbers in host byte order
// (0x7F000001 is 127.0.0.1); an IPv6 address is its 16 bytes in network order. Time-outs are in
// milliseconds, lengths in bytes and at most 0x7FFFFFFF. Where nothing else is said a function
// returns 0 for success and -1 for failure with errno as the failing call left it. Pointers must
// not be NULL unless it says they may. Nothing here prints.
//
// Every TCP socket made or accepted here is set to send small packets at once (TCP_NODELAY) and to
// give an error instead of a SIGPIPE when it sends on a broken connection (SO_NOSIGPIPE). Errors of
// setting these and the dual-stack option are not told. Where SO_NOSIGPIPE could not be set (a
// connection that is over when it is accepted, for one) a send raises the signal, which by default
// ends the process: a server ignores SIGPIPE besides. UDP sockets have no connection to break.
//
// Waiting is done with select(), which knows descriptors below FD_SETSIZE (1024) only: functions
// with a time-out give -1 for any other.
//
// Sockets may be shared by threads as far as the system allows: one may send while one receives.

#ifndef SYS_SOCKETS_H
#define SYS_SOCKETS_H

#include <stdint.h>

// What a send or a receive returns instead of a number of bytes.
enum {
  SYS_SOCKET_ERR_OTHER       = -1,
  SYS_SOCKET_ERR_WOULD_BLOCK = -2,  // not now: non-blocking, or the socket's own time-out ran out
  SYS_SOCKET_ERR_TIMED_OUT   = -3,  // the connection timed out
  SYS_SOCKET_ERR_NET_RESET   = -4,  // the network reset it
  SYS_SOCKET_ERR_INTERRUPTED = -5   // by a signal
};

// What an accept or a connect with a time-out returns instead of a descriptor, beside -1.
enum { SYS_TCP_ERR_TIMEOUT = -2, SYS_TCP_ERR_ABORTED = -3 };

// ---- Making and closing -------------------------------------------------------------------------

// The descriptor, or -1. DualStack not 0: the socket also reaches IPv4 peers, under mapped
// addresses (::FFFF:a.b.c.d); 0 leaves this as the system has it.
int32_t SYS_UDP_CreateIPv4(void);
int32_t SYS_UDP_CreateIPv6(int32_t DualStack);
int32_t SYS_TCP_CreateIPv4(void);
int32_t SYS_TCP_CreateIPv6(int32_t DualStack);

// The descriptor is gone also when this fails.
int32_t SYS_SOCKET_Close(int32_t hSocket);

// How: one of the below; any other value does nothing. No result.
enum { SYS_SHUTDOWN_RECEIVE = 0, SYS_SHUTDOWN_SEND = 1, SYS_SHUTDOWN_BOTH = 2 };
void SYS_SOCKET_Shutdown(int32_t hSocket, int32_t How);

// ---- Server side --------------------------------------------------------------------------------

// Binds to an address of this machine (0, or 16 zero bytes, for all) and listens. Port 0 lets the
// system choose. Backlog: connections that may wait to be accepted.
// The IPv4 form takes a port over from closed connections that linger (SO_REUSEADDR); the IPv6 form
// does not.
int32_t SYS_TCP_ListenIPv4(int32_t hSocket, uint32_t Addr, uint16_t Port, int32_t Backlog);
int32_t SYS_TCP_ListenIPv6(int32_t hSocket, const uint8_t* pAddr, uint16_t Port, int32_t Backlog);

// Waits for a connection. Returns its descriptor or -1, and with a time-out SYS_TCP_ERR_TIMEOUT when
// none came in.
// A connection may be over before it is taken: the accept then fails (ECONNABORTED: accept again)
// or waits for the next one, with a time-out too, unless hSocket is non-blocking. What a
// non-blocking socket accepts is non-blocking as well on some systems, macOS among them.
int32_t SYS_TCP_Accept(int32_t hSocket);
int32_t SYS_TCP_AcceptTimeout(int32_t hSocket, uint32_t Timeout);

// ---- Client side --------------------------------------------------------------------------------

// One connect(). For UDP: sets the peer.
int32_t SYS_SOCKET_ConnectIPv4(int32_t hSocket, uint32_t Addr, uint16_t Port);
int32_t SYS_SOCKET_ConnectIPv6(int32_t hSocket, const uint8_t* pAddr, uint16_t Port);

// Makes a TCP socket and connects it, for a peer that may not be up yet: a peer that refuses is
// tried again about every 10 ms until more than the time-out has passed.
// pfIsAborted (may be NULL) is called about every 10 ms, from this thread; not 0 ends the attempt.
//
// Returns the connected, blocking socket; -1 when no socket can be made (or none that select()
// knows); SYS_TCP_ERR_TIMEOUT; SYS_TCP_ERR_ABORTED. No socket stays open but the one returned.
// At least one attempt is made, also with a time-out of 0. A socket that TCP connects to itself, as
// may happen with a port of this machine where nobody listens, counts as refused.
int32_t SYS_TCP_ConnectTimeout(uint32_t Addr, uint16_t Port, uint32_t Timeout,
                               int32_t (*pfIsAborted)(void));

// ---- Transfer -----------------------------------------------------------------------------------

// One send(): the number of bytes taken, which may be less than asked for;
// SYS_SOCKET_ERR_WOULD_BLOCK when the socket can take none now (EAGAIN); SYS_SOCKET_ERR_OTHER.
int32_t SYS_SOCKET_Send(int32_t hSocket, const void* pData, uint32_t NumBytes);

// One recv(): the number of bytes received; 0 when the peer will send no more;
// SYS_SOCKET_ERR_WOULD_BLOCK when there is nothing now (EAGAIN), _TIMED_OUT (ETIMEDOUT), _NET_RESET
// (ENETRESET), _INTERRUPTED (EINTR), _OTHER for any other error.
int32_t SYS_SOCKET_Receive(int32_t hSocket, void* pBuffer, uint32_t NumBytes);

// Receives until NumBytes bytes are there and returns NumBytes. -1 as soon as the peer ends or
// anything fails (a time-out too): what came before is in the buffer, but not how much.
int32_t SYS_SOCKET_ReceiveExactly(int32_t hSocket, void* pBuffer, uint32_t NumBytes);

// 1 when at least one byte can be received without waiting, else 0 (also for what is no socket).
int32_t SYS_SOCKET_IsDataPending(int32_t hSocket);

// 1 when a receive (or accept) or a send would not wait, 0 after the time-out, -1 for an error.
// Any descriptor that select() knows will do.
int32_t SYS_SOCKET_WaitReadable(int32_t hSocket, uint32_t Timeout);
int32_t SYS_SOCKET_WaitWritable(int32_t hSocket, uint32_t Timeout);

// ---- Options ------------------------------------------------------------------------------------

int32_t SYS_SOCKET_AllowBroadcast(int32_t hSocket);
int32_t SYS_SOCKET_SetReceiveBufferSize(int32_t hSocket, int32_t NumBytes);
int32_t SYS_SOCKET_EnableKeepAlive(int32_t hSocket);
int32_t SYS_SOCKET_SetBlocking(int32_t hSocket);
int32_t SYS_SOCKET_SetNonBlocking(int32_t hSocket);

// How long closing waits for unsent data, in whole seconds: milliseconds rounded to the nearest,
// but at least 1 unless 0. With 0 closing drops the data and resets the connection. Both return 0
// always. macOS keeps the time in 16 bits of 10 ms each: give at most 327 seconds.
int32_t SYS_SOCKET_SetLinger(int32_t hSocket, uint32_t Milliseconds);
int32_t SYS_SOCKET_SetNoLinger(int32_t hSocket);

// How long a send and a receive may wait; 0 without limit. Returns the result of the second
// setting.
int32_t SYS_SOCKET_SetTimeouts(int32_t hSocket, uint32_t SendTimeout, uint32_t ReceiveTimeout);

// ---- Addresses and names ------------------------------------------------------------------------

// The peer of a connected socket of that family. pPort may be NULL. Zeros when there is none.
void SYS_SOCKET_GetPeerIPv4(int32_t hSocket, uint32_t* pAddr, uint16_t* pPort);
void SYS_SOCKET_GetPeerIPv6(int32_t hSocket, uint8_t* pAddr, uint16_t* pPort);

// The address of a host name (or of an address in text form). Of several it is the first: the
// system has sorted them by how well they can be reached from here. With AllowMapped a name that
// has IPv4 addresses only gives those, mapped into IPv6.
// After a failure *pAddr is as before.
int32_t SYS_NET_ResolveIPv4(const char* sName, uint32_t* pAddr);
int32_t SYS_NET_ResolveIPv6(const char* sName, int32_t AllowMapped, uint8_t* pAddr);

// The names of an address and of a port, or their text forms where they have none. Sizes count the
// terminator; a name that does not fit is a failure. Either buffer may be NULL with size 0, not
// both.
int32_t SYS_NET_GetNameIPv4(uint32_t Addr, uint16_t Port, char* pHost, uint32_t HostSize,
                            char* pService, uint32_t ServiceSize);
int32_t SYS_NET_GetNameIPv6(const uint8_t* pAddr, uint16_t Port, char* pHost, uint32_t HostSize,
                            char* pService, uint32_t ServiceSize);

#endif
