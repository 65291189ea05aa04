// openocd/child.h
// SPDX-License-Identifier: MIT
//
// OpenOCD as a process: where it is, how it is started and how it is ended. It never outlives this
// process, however that one ends. A guard, a fork of this process, waits for that; it then makes a last
// request and ends OpenOCD. Guard and OpenOCD are in their own session, so that Ctrl-C at the terminal
// reaches this process alone.
//
// One thread at a time.

#ifndef OPENOCD_CHILD_H
#define OPENOCD_CHILD_H

#include <stddef.h>
#include <sys/types.h>

struct CHILD {
  int   Socket;  // OpenOCD's standard input and output; non-blocking
  int   Log;     // its standard error, to be read from; non-blocking
  int   Life;    // the guard ends OpenOCD when this is closed
  pid_t Guard;
};

// Where OpenOCD is: the configured path if it is not empty, else the first of the folders of PATH and
// the two where Homebrew installs. False when no program is there.
bool CHILD_Find(const char* sConfigured, char* pPath, size_t Size);

// Starts the program with arguments that make it wait for requests on its standard input. The guard
// sends sLastRequest, byte for byte, if this process ends without CHILD_End.
// 0, or -1 with errno.
int CHILD_Start(CHILD* pChild, const char* sProgram, const char* sLastRequest);

// Ends OpenOCD, which has GraceMs to end by itself after its standard input is closed, waits until it
// is gone and closes all three files. pfDrain is called meanwhile so that OpenOCD never waits for
// somebody to read its log; it returns false at the end of the log.
void CHILD_End(CHILD* pChild, int GraceMs, bool (*pfDrain)(void* pContext), void* pContext);

#endif
