// sys/misc.h
// SPDX-License-Identifier: MIT
//
// Small services of the system: processors, log, idle sleep, random bytes, starting a program.
//
// Nothing here prints.

#ifndef SYS_MISC_H
#define SYS_MISC_H

#include <stdint.h>

// Returns the number of logical processors in use.
// Returns 0 when the system does not report it.
int32_t SYS_GetNumProcessors(void);

// Writes a message to the system log, as a debug message of a user process.
// A message of fewer than 128 characters is padded on the left to 128; a longer one is logged
// whole. Any thread may call.
void SYS_Log(const char* sMessage);

// Keep the machine from falling asleep while nobody uses it, and allow it again.
// SYS_PreventIdleSleep is a switch, not a count: calling it twice is the same as calling it once.
// It lasts until SYS_AllowIdleSleep or the end of the process. There is no result that shows
// whether the system agreed. One thread at a time; no lock.
void SYS_PreventIdleSleep(void);
void SYS_AllowIdleSleep(void);

// Fills NumBytes bytes at pBuffer from the system's random source.
// The bytes are fit for keys. NumBytes is at most 256: the source delivers that many in one read,
// and a read that fails or is short is not reported.
// Returns -1 when the source cannot be opened, else the result of closing it, 0 or -1. No
// descriptor stays open.
int32_t SYS_GetRandom(void* pBuffer, uint32_t NumBytes);

// Starts a program and does not wait for it.
// sPath is not searched for in PATH. The program's only argument is its path; it gets this
// process's environment and no descriptor, not even 0, 1 and 2. Its process id is not kept: unless
// the caller ignores SIGCHLD, the ended program stays a zombie until this process ends.
// Returns 0, or the error numbers of the calls that failed, or-ed together. The program may run
// although the result is not 0: when its attributes cannot be set up (no memory) it is started all
// the same, and inherits the descriptors.
int32_t SYS_StartProgram(const char* sPath);

#endif
