// app/process.h
//
// What the tool changes of the process it runs in. Nothing is changed back: the process ends with
// the tool. Main thread only.

#ifndef APP_PROCESS_H
#define APP_PROCESS_H

// Opens /dev/null at each of the descriptors 0, 1 and 2 that is closed. Without it the next file to be
// opened, by the tool or by the probe library, gets such a number, and the tool's text goes into it.
// Call it before anything opens a file.
void OpenStandardDescriptors(void);

// Makes the character set of the process UTF-8 where the system has a locale for it. Affects which
// bytes the line editor takes, and no other format.
void UseUtf8(void);

// From here on SIGPIPE (a reader of the output that goes away) and SIGHUP (a terminal window that is
// closed, a connection that drops) do not end the process. SIGINT and SIGTERM still do.
void IgnoreLostTerminal(void);

#endif
