// sys/console.h
//
// The console as a source of single keys.
//
// One thread at a time: the first call changes the state of standard input.

#ifndef SYS_CONSOLE_H
#define SYS_CONSOLE_H

#include <stdint.h>

// The number of bytes that wait on standard input, 0 when no key was pressed or when it cannot be
// asked. Never waits and takes nothing.
//
// The first call of the process takes a terminal on standard input out of canonical mode, so that a
// key counts before the line is ended, and makes the stream stdin unbuffered, so that getchar()
// takes one byte and what it leaves is still counted here. Neither is ever undone.
int32_t SYS_CONSOLE_IsKeyPressed(void);

#endif
