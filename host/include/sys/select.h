// SPDX-License-Identifier: MIT

// Stand-in for Darwin's <sys/select.h>. It differs from the system's own in one thing: a stream
// socket whose connect() failed at once is never reported writable (see the stand-in's
// <sys/socket.h>).

#include_next <sys/select.h>

#ifndef HOST_SYS_SELECT_H
#define HOST_SYS_SELECT_H

// The stand-in itself calls the real one.
#ifndef HOST_SYS_SOCKET_IMPLEMENTATION

#ifdef __cplusplus
extern "C" {
#endif

int select(int Num, fd_set* pRead, fd_set* pWrite, fd_set* pError,
           struct timeval* pTimeout) __asm__("HOST_select");

#ifdef __cplusplus
}
#endif

#endif

#endif
