// util/cpu.h
// SPDX-License-Identifier: MIT
//
// Which instructions the loops over long buffers use: the one place that chooses, once and at run
// time. For UTIL and SYS themselves; callers need not know.
//
// Every loop has a plain version for what each processor of its kind can do. Some have a second one
// in AVX2 instructions under CPU_HAS_WIDE, called when CPU_HasAVX2() says 1. Both give the same
// results. Any thread may call; two that ask first at the same time get the same answer.

#ifndef UTIL_CPU_H
#define UTIL_CPU_H

#include <stdint.h>

#if defined(__x86_64__)
#define CPU_HAS_WIDE    1
#define CPU_TARGET_AVX2 __attribute__((target("avx2")))
#else
#define CPU_HAS_WIDE 0
#endif

enum CPU_LEVEL : int32_t { CPU_UNKNOWN = -1, CPU_PLAIN, CPU_AVX2 };

// For the two functions below alone.
extern __attribute__((visibility("hidden"))) CPU_LEVEL CPU_ChosenLevel;
CPU_LEVEL                                              CPU_Choose();

// 1 when AVX2 has been chosen. Until there is a choice it is 0: routines that are over in a few cycles
// ask this first, as it calls nothing, and CPU_HasAVX2() when the answer is 0.
static inline int32_t CPU_IsAVX2Chosen() {
  return __atomic_load_n(&CPU_ChosenLevel, __ATOMIC_RELAXED) == CPU_AVX2;
}

// 1 when the processor has AVX2 and the system saves its registers, and no limit forbids it.
static inline int32_t CPU_HasAVX2() {
#if CPU_HAS_WIDE
  const CPU_LEVEL Known = __atomic_load_n(&CPU_ChosenLevel, __ATOMIC_RELAXED);
  return Known == CPU_AVX2 || (Known == CPU_UNKNOWN && CPU_Choose() == CPU_AVX2);
#else
  return 0;
#endif
}

// Allows at most this level from now on, so that tests and benchmarks can run each version. A
// processor without AVX2 stays at CPU_PLAIN. Returns the level now in use.
CPU_LEVEL CPU_Limit(CPU_LEVEL Level);

#endif
