// A probe library that is a Mach-O library: what the tool's own loader is given on a Mac. Just the
// calls of a run that leaves by the menu.

#include <stdint.h>
#include <stdio.h>

extern "C" __attribute__((visibility("default"))) uint32_t QUOBEARM_IsOpen(void) {
  puts("the Mach-O library was called");
  return 0;
}
