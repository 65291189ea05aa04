// sys/misc.h
//
// Small services of the system that fit nowhere else: processors, log, idle sleep, random bytes,
// starting a program. Nothing here prints.

#ifndef SYS_MISC_H
#define SYS_MISC_H

#include <stdint.h>

// The number of logical processors in use. 0 when the system does not say.
int32_t SYS_GetNumProcessors(void);

// Writes sMessage to the system log, as a debug message of a user process. The message is padded on
// the left to 128 characters; a longer one is logged whole. Any thread may call.
void SYS_Log(const char* sMessage);

// From SYS_PreventIdleSleep on the machine does not fall asleep for want of input, until
// SYS_AllowIdleSleep or the end of the process. A switch, not a count: doing either twice is doing
// it once. Whether the system agreed is not told. One thread; no lock.
void SYS_PreventIdleSleep(void);
void SYS_AllowIdleSleep(void);

// Fills NumBytes bytes at pBuffer from the system's random source, fit for keys.
// Returns -1 when the source cannot be opened, else the result of closing it, 0 or -1: a read that
// fails or comes back short is not told, so keep NumBytes at 256 or below, which the source gives
// whole. No descriptor stays open.
int32_t SYS_GetRandom(void* pBuffer, uint32_t NumBytes);

// Starts the program sPath (not searched for in the PATH) with its path as only argument and this
// process's environment. It inherits no descriptor, not even 0, 1 and 2. It is not waited for and
// its process id is not kept: where the caller does not ignore SIGCHLD it stays behind as a zombie
// when it ends, until this process does.
// Returns 0 when all went well, else the error numbers of the calls that failed, or-ed. A result
// other than 0 need not mean that it does not run: when the attributes cannot be set up (no memory)
// the program is started all the same, and inherits descriptors as with a plain exec.
int32_t SYS_StartProgram(const char* sPath);

#endif
