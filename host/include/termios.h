// SPDX-License-Identifier: MIT

// Stand-in for what Darwin's <termios.h> has beyond the system's own: flag names.
//
// Left out: that the flags are 64-bit words on Darwin, and the bits' values, which are the system's
// own here.

#include_next <termios.h>

#ifndef HOST_TERMIOS_H
#define HOST_TERMIOS_H

#define OXTABS     XTABS    // expand tabs on output
#define ONOEOT     0        // discard the end-of-transmission character; not supported here
#define CCTS_OFLOW CRTSCTS  // output flow control; one bit for both directions here
#define CRTS_IFLOW 0        // input flow control

#endif
