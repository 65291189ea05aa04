// machorun/runner.h
// SPDX-License-Identifier: MIT
//
// The part of the runner that its shims call: a Mach-O library that the program opens is bound as
// the program was.

#ifndef MACHORUN_RUNNER_H
#define MACHORUN_RUNNER_H

#include "machorun/image.h"

// Throws std::runtime_error for an import that nothing here provides.
void* ResolveImport(const Import& Wanted);

#endif
