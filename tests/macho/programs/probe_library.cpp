// SPDX-License-Identifier: MIT

// A probe library in Mach-O form, as the tool opens it on a Mac. It has only the functions of a run
// that ends in the menu.

#include <stdint.h>
#include <stdio.h>

extern "C" __attribute__((visibility("default"))) uint32_t QUOBEARM_IsOpen(void) {
  puts("the Mach-O library was called");
  return 0;
}
