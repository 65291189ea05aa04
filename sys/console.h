// sys/console.h
// SPDX-License-Identifier: MIT
//
// The console as a source of single keys.
//
// One thread at a time: the first call changes the state of standard input.

#ifndef SYS_CONSOLE_H
#define SYS_CONSOLE_H

#include <stdint.h>

// Returns the number of bytes waiting on standard input.
// Returns 0 when no key was pressed, and when standard input cannot be asked. Never waits and reads
// nothing.
//
// The first call of the process switches a terminal on standard input out of canonical mode, so
// that a key counts before Return is pressed. It also makes the stream stdin unbuffered, so that
// getchar() takes one byte and leaves the rest to be counted here. Neither is undone.
int32_t SYS_CONSOLE_IsKeyPressed(void);

#endif
