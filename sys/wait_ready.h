// sys/wait_ready.h
// SPDX-License-Identifier: MIT
//
// Waiting for one descriptor with select(). For sys/sockets.cpp and sys/serial.cpp.

#ifndef SYS_WAIT_READY_H
#define SYS_WAIT_READY_H

#include <stdint.h>
#include <sys/time.h>

// 1 when select() can wait for the descriptor (0 to FD_SETSIZE - 1), else 0.
int32_t SYS_WAIT_IsSelectable(int32_t hFile);

// Milliseconds as seconds and microseconds.
struct timeval SYS_WAIT_SplitMs(uint32_t Milliseconds);

// Wait until a read, or a write, would not block. Returns 1 when that is so, 0 after the time-out,
// and -1 with errno set for an error: EBADF for a descriptor that is not selectable.
int32_t SYS_WAIT_Readable(int32_t hFile, struct timeval Timeout);
int32_t SYS_WAIT_Writable(int32_t hFile, struct timeval Timeout);

#endif
