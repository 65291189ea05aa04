// SPDX-License-Identifier: MIT

// Stand-in for what Darwin's <sys/socket.h> has beyond the system's own, or has in another way:
// SO_NOSIGPIPE, SO_LINGER in ticks and SO_LINGER_SEC, and a connect() that fails at once.
//
// SO_NOSIGPIPE, the Darwin contract: a send on a socket with the option set fails with EPIPE where
// it would otherwise raise SIGPIPE. The option is per socket and off on a new one.
// Here the option is kept beside the socket, looked up by its descriptor. Left out: that an
// accepted socket inherits it, reading it with getsockopt(), its effect on write() and sendmsg(),
// duplicated descriptors, and descriptors from 65536 on (refused with EBADF).
//
// SO_LINGER, the Darwin contract: counts in ticks of the kernel, 100 a second; SO_LINGER_SEC is the
// same option in seconds.
// Here the kernel keeps whole seconds: ticks are rounded up to them.
//
// connect(), the Darwin contract: a stream socket whose connect() fails at once, with an error
// other than EINPROGRESS and EINTR, is not reported writable by select() (<sys/select.h>).
// Here the descriptor is remembered until it is used for another connect() or socket.

#include_next <sys/socket.h>

#ifndef HOST_SYS_SOCKET_H
#define HOST_SYS_SOCKET_H

#define SO_NOSIGPIPE  0x1022
#define SO_LINGER_SEC 0x1080

// The stand-in itself calls the real ones.
#ifndef HOST_SYS_SOCKET_IMPLEMENTATION

#ifdef __cplusplus
extern "C" {
#endif

int socket(int Domain, int Type, int Protocol) __THROW __asm__("HOST_socket");
int accept(int hSocket, struct sockaddr* pAddr, socklen_t* pLength) __asm__("HOST_accept");
int connect(int hSocket, const struct sockaddr* pAddr, socklen_t Length) __asm__("HOST_connect");
int getsockopt(int hSocket, int Level, int Name, void* pValue, socklen_t* pLength) __THROW
    __asm__("HOST_getsockopt");
int setsockopt(int hSocket, int Level, int Name, const void* pValue, socklen_t Length) __THROW
    __asm__("HOST_setsockopt");
ssize_t send(int hSocket, const void* pBuffer, size_t NumBytes, int Flags) __asm__("HOST_send");

#ifdef __cplusplus
}
#endif

#endif

#endif
