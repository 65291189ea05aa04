// machorun/runner.h
//
// The one piece of the runner that its shims call back: a Mach-O library that the program opens is
// bound in the same manner as the program.

#ifndef MACHORUN_RUNNER_H
#define MACHORUN_RUNNER_H

#include "machorun/image.h"

// Throws std::runtime_error for an import that nothing here provides.
void* ResolveImport(const Import& Wanted);

#endif
