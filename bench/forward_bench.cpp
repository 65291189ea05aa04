// SPDX-License-Identifier: MIT

// What a forwarding function costs once it is resolved, against a call through the procedure
// linkage table into the same code.

#include <stdint.h>

#include "bench/support/peer_bench.h"

extern "C" {
uint32_t QUOBEARM_GetSpeed(void);  // the forwarding function
uint32_t PEER_GetSpeed(void);      // in a library this program links
}

static uint32_t Speed;

int main(int NumArgs, char** pasArgs) {
  const auto Answer = [] { return std::to_string(Speed); };
  BENCH_Job("forward", "Forwarding functions");
  BENCH_Row("one call, resolved", 1.0);
  BENCH_Add(
      "ours", [] { Speed = QUOBEARM_GetSpeed(); }, Answer);
  BENCH_Add(
      "linked library", [] { Speed = PEER_GetSpeed(); }, Answer);
  return BENCH_Main(NumArgs, pasArgs);
}
