// Stand-in for what Darwin's <sys/socket.h> has beyond the system's own: SO_NOSIGPIPE.
//
// The Darwin contract: a send on a socket with the option set fails with EPIPE where it would
// otherwise raise SIGPIPE. The option is per socket, off on a new socket, and not inherited by an
// accepted one.
// Here the option is kept beside the socket: four calls go through functions of the stand-in, which
// look it up by descriptor. Left out: reading it with getsockopt(), its effect on write() and
// sendmsg(), duplicated descriptors, and descriptors from 65536 on (refused with EBADF).

#include_next <sys/socket.h>

#ifndef HOST_SYS_SOCKET_H
#define HOST_SYS_SOCKET_H

#define SO_NOSIGPIPE 0x1022

// The stand-in itself calls the real ones.
#ifndef HOST_SYS_SOCKET_IMPLEMENTATION

#ifdef __cplusplus
extern "C" {
#endif

int socket(int Domain, int Type, int Protocol) __THROW __asm__("HOST_socket");
int accept(int hSocket, struct sockaddr* pAddr, socklen_t* pLength) __asm__("HOST_accept");
int setsockopt(int hSocket, int Level, int Name, const void* pValue, socklen_t Length) __THROW
    __asm__("HOST_setsockopt");
ssize_t send(int hSocket, const void* pBuffer, size_t NumBytes, int Flags) __asm__("HOST_send");

#ifdef __cplusplus
}
#endif

#endif

#endif
