// app/process.h
// SPDX-License-Identifier: MIT
//
// What the tool changes in its process. Nothing is changed back, as the process ends with the tool.
// Main thread only.

#ifndef APP_PROCESS_H
#define APP_PROCESS_H

// Opens /dev/null at each of the descriptors 0, 1 and 2 that is closed. Otherwise the next file
// that the tool or the probe library opens gets that number, and the tool prints into it. Call it
// before anything opens a file.
void OpenStandardDescriptors(void);

// Makes the process's character set UTF-8, if the system has a locale for it. This decides which
// bytes the line editor accepts; number formats and all else stay.
void UseUtf8(void);

// From here on the process survives SIGPIPE (the reader of the output is gone) and SIGHUP (the
// terminal window was closed or the connection dropped). SIGINT and SIGTERM still end it.
void IgnoreLostTerminal(void);

#endif
