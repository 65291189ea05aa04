// SPDX-License-Identifier: MIT

// The same small function twice: under a name of the probe API for the forwarding function, and
// under one of its own for the peer that the executable links directly.

#include <stdint.h>

#ifdef FORWARD_BENCH_PEER
#define FUNCTION PEER_GetSpeed
#else
#define FUNCTION QUOBEARM_GetSpeed
#endif

extern "C" __attribute__((visibility("default"))) uint32_t FUNCTION(void) {
  return 1000;
}
