// probeapi/loader.h
//
// Finds the probe library and opens it once for the whole process.
//
// The file "libquobearm.dylib" is looked for in this order; the first one that opens is taken:
//
//   1. beside the module that holds this code, by the path that dladdr() tells
//   2. three folders above that
//   3. beside the executable, by the path that proc_pidpath() tells
//   4. three folders above that
//   5. /Applications/OSTREL/Quobe/libquobearm.dylib
//   6. /Applications/OSTREL/Quobe/libquobearm.5.dylib
//
// No environment variable takes part and nothing is resolved further: no link is followed here.
// Module and executable paths of 512 characters or more are skipped, never cut. A path without a
// separator behind its first character stays whole in front of the file name. A candidate that
// would come to 512 characters or more ends the process by abort(): a cut path could name, and so
// run, another file.
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
// 0: open. 1: no candidate opened and ExitOnFailure is 0; one line on standard output says so, and
// the next call searches again. With ExitOnFailure non-zero a failed search prints its line and
// ends the process with exit status 1.
int32_t APILOADER_Load(int32_t ExitOnFailure);

// The form that never ends the process: 0 when the library is open, -1 when it could not be opened.
int32_t APILOADER_TryLoad(void);

// Does nothing; its address tells which module this code is in.
void APILOADER_Anchor(void);

#endif
