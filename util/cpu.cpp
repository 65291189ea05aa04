// SPDX-License-Identifier: MIT

// The marks "coverage:" are for script/coverage: they name lines that only other processors run.

#include "util/cpu.h"

#if CPU_HAS_WIDE
#include <cpuid.h>
#endif

CPU_LEVEL CPU_ChosenLevel = CPU_UNKNOWN;

// Asked once: under a virtual machine each question costs thousands of cycles.
static CPU_LEVEL Ask() {
#if CPU_HAS_WIDE
  const uint32_t XCR0_SSE_AVX = 0x6;  // the system saves these registers when it switches threads
  uint32_t       a, b, c, d, Saved, High;
  __cpuid(1, a, b, c, d);
  if ((c & bit_OSXSAVE) == 0) {  // coverage: only an emulated processor is that old
    return CPU_PLAIN;            // coverage: see above
  }
  // Not the intrinsic: only code that is compiled for processors with XSAVE may use it.
  __asm__("xgetbv" : "=a"(Saved), "=d"(High) : "c"(0));
  if ((Saved & XCR0_SSE_AVX) == XCR0_SSE_AVX &&        // coverage: see above
      __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 &&  // coverage: see above
      (b & bit_AVX2) != 0) {                           // coverage: see above
    return CPU_AVX2;
  }
#endif
  return CPU_PLAIN;  // coverage: depends on the processor
}

CPU_LEVEL CPU_Choose() {
  return CPU_Limit(CPU_AVX2);
}

CPU_LEVEL CPU_Limit(CPU_LEVEL Level) {
  // Without a lock: two threads that ask at the same time store the same answer.
  const CPU_LEVEL Best   = Ask();
  const CPU_LEVEL Chosen = Level < Best ? Level : Best;
  __atomic_store_n(&CPU_ChosenLevel, Chosen, __ATOMIC_RELAXED);
  return Chosen;
}
