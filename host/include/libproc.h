// SPDX-License-Identifier: MIT

// Stand-in for Darwin's <libproc.h>: only what the product calls.

#ifndef HOST_LIBPROC_H
#define HOST_LIBPROC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Stores the path of the executable of process Pid, terminated, and returns its length without the
// terminator; 0 (errno set) when the process cannot be asked or the path does not fit.
// As on Darwin the size must be at most 4096. Left out: any process state but "running".
int proc_pidpath(int Pid, void* pBuffer, uint32_t BufferSize);

#ifdef __cplusplus
}
#endif

#endif
