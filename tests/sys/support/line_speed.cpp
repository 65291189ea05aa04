// SPDX-License-Identifier: MIT

// In its own file because the kernel's header of line attributes and the C library's cannot both be
// included.

#include <asm/termbits.h>
#include <sys/ioctl.h>

// Returns the speed of a line in bits per second, 0 for anything that is not a line.
unsigned GetLineSpeed(int hLine);

unsigned GetLineSpeed(int hLine) {
  struct termios2 Settings;
  return ioctl(hLine, TCGETS2, &Settings) == 0 && Settings.c_ispeed == Settings.c_ospeed
             ? Settings.c_ospeed
             : 0;
}
