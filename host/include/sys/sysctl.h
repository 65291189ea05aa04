// SPDX-License-Identifier: MIT

// Stand-in for Darwin's <sys/sysctl.h>: only what the product calls.

#ifndef HOST_SYS_SYSCTL_H
#define HOST_SYS_SYSCTL_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// Stores the value of sName at pValue and its size at *pSize, which holds the room at pValue.
// Returns -1 with errno ENOENT for an unknown name, ENOMEM when there is not enough room.
// Supported here: "hw.logicalcpu", a 32-bit count. Left out: setting values (EPERM), other names,
// asking for the size alone.
int sysctlbyname(const char* sName, void* pValue, size_t* pSize, void* pNewValue, size_t NewSize);

#ifdef __cplusplus
}
#endif

#endif
