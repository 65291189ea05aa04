// Apart from the test: the kernel's header of line attributes and the C library's exclude each
// other.

#include <asm/termbits.h>
#include <sys/ioctl.h>

// The speed of a line in bits per second, 0 for what is no line.
unsigned GetLineSpeed(int hLine);

unsigned GetLineSpeed(int hLine) {
  struct termios2 Settings;
  return ioctl(hLine, TCGETS2, &Settings) == 0 && Settings.c_ispeed == Settings.c_ospeed
             ? Settings.c_ospeed
             : 0;
}
