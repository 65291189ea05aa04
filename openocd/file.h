// openocd/file.h
// SPDX-License-Identifier: MIT
//
// The files that the configuration names, and the configuration itself.

#ifndef OPENOCD_FILE_H
#define OPENOCD_FILE_H

#include <stdio.h>

// Opens a file for reading, from its beginning, or for adding to its end; the latter makes it if it is
// missing. Never waits: a named pipe without somebody at its other end would stop the tool, and a
// reader that leaves would end it in the middle of its work. So it must be a file or a device.
// NULL on failure, with errno; EINVAL for what is neither.
FILE* FILE_OpenToRead(const char* sPath);
FILE* FILE_OpenToAppend(const char* sPath);

#endif
