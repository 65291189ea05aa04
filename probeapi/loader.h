// probeapi/loader.h
// SPDX-License-Identifier: MIT
//
// Finds the probe library and opens it once for the whole process.
//
// The file "libquobearm.dylib" is looked for in this order; the first one that opens is taken:
//
//   1. in the folder of the module that holds this code, by the path that dladdr() gives
//   2. three folders above that
//   3. in the folder of the executable, by the path that proc_pidpath() gives
//   4. three folders above that
//   5. /Applications/OSTREL/Quobe/libquobearm.dylib
//   6. /Applications/OSTREL/Quobe/libquobearm.5.dylib
//
// Module and executable paths of 512 characters or more are skipped, never cut. In a path without a
// separator after its first character, the file name is appended to the whole path. A candidate of
// 512 characters or more ends the process by abort(): a cut path could name another file, and that
// would be run.
//
// Security. The library's code runs in this process, with its user's rights. The loader reads no
// environment variable and follows no link, but each candidate goes to dlopen(), and there the
// system decides:
//
//   - A candidate without a separator is looked for by the system's own rules (on Linux
//     LD_LIBRARY_PATH and the library folders). That is so when dladdr() gives a bare name, as it
//     does on Linux for a program that the shell found through PATH.
//   - A candidate that does not begin with a separator is looked for below the current folder.
//   - On macOS, DYLD_LIBRARY_PATH is searched for the file name before each candidate, unless the
//     process is protected (hardened runtime, set-user-ID).
//   - dladdr() gives the path by which the program was started up to macOS 11, its real path from
//     macOS 12 on.
//
// To be sure of the library, start the tool by its full path, keep its folder and those above it
// writable for trusted users only, and do not pass on an environment that others have set.
//
// Not for several threads at once: no lock. Two threads that load at the same moment may both open
// the library; it is the same one.

#ifndef PROBEAPI_LOADER_H
#define PROBEAPI_LOADER_H

#include <stdint.h>

// The opened library, NULL before a load succeeds. Only the loader writes it.
extern void* APILOADER_hLib;

// Opens the library unless it is open.
//
// 0: open. 1: no candidate opened and ExitOnFailure is 0; one line on standard output reports it,
// and the next call searches again. With ExitOnFailure non-zero a failed search prints its line and
// ends the process with exit status 1.
int32_t APILOADER_Load(int32_t ExitOnFailure);

// The form that never ends the process: 0 when the library is open, -1 when it could not be opened.
int32_t APILOADER_TryLoad(void);

// Does nothing. Its address shows which module this code is in.
void APILOADER_Anchor(void);

#endif
