// SPDX-License-Identifier: MIT

// A probe library with functions of many signatures. They have names of the probe API because only
// these are exported; their arguments are the test's.

#include "tests/probeapi/forward_shapes.h"

#include <stdarg.h>
#include <stdio.h>
#include <unistd.h>

#define PROBE_CALL extern "C" __attribute__((visibility("default")))

PROBE_CALL int64_t QUOBE_AddMirrorArea(int64_t a, int64_t b, int64_t c, int64_t d, int64_t e,
                                       int64_t f, int64_t g, int64_t h, int64_t i, int64_t j) {
  return a + 2 * b + 3 * c + 4 * d + 5 * e + 6 * f + 7 * g + 8 * h + 9 * i + 10 * j;
}

PROBE_CALL double QUOBE_AddMirrorAreaEx(double a, double b, double c, double d, double e, double f,
                                        double g, double h, double i, float j, int k) {
  return a + 2 * b + 3 * c + 4 * d + 5 * e + 6 * f + 7 * g + 8 * h + 9 * i + 10 * j + 11 * k;
}

PROBE_CALL __attribute__((format(printf, 3, 4))) int QUOBE_BeginDownload(char* pBuffer, int Size,
                                                                         const char* sFormat, ...) {
  va_list Args;
  va_start(Args, sFormat);
  const int Length = vsnprintf(pBuffer, static_cast<size_t>(Size), sFormat, Args);
  va_end(Args);
  return Length;
}

PROBE_CALL LARGE_STRUCT QUOBE_Clock(LARGE_STRUCT s, int Add) {
  for (int64_t& Value : s.Values) {
    Value += Add;
  }
  return s;
}

PROBE_CALL MIXED_STRUCT QUOBE_Close(MIXED_STRUCT s) {
  return {s.Real * 2, s.Whole * 3};
}

PROBE_CALL WIDE_CODE WIDE_VECTOR QUOBE_ClrBP(WIDE_VECTOR a, WIDE_VECTOR b) {
  return a + b;
}

PROBE_CALL const char* QUOBE_Open(void) {
  return "QUOBE_Open";
}

PROBE_CALL const char* QUOBEARM_Open(void) {
  return "QUOBEARM_Open";
}

PROBE_CALL int QUOBE_IsOpen(void) {
  static int NumCalls;
  return ++NumCalls;
}

PROBE_CALL void QUOBE_SetSpeed(long* pWritten) {
  *pWritten = 4711;
}

PROBE_CALL WIDEST_CODE WIDEST_VECTOR QUOBE_ClrBPEx(WIDEST_VECTOR a, WIDEST_VECTOR b) {
  return a + b;
}

#define STRINGIFY(Text) #Text
#define EXPAND(Text)    STRINGIFY(Text)
#define ASM_NAME(Name)  EXPAND(__USER_LABEL_PREFIX__) #Name

// A symbol whose value is null.
__asm__(".globl " ASM_NAME(QUOBE_GetSpeed) "\n"
        ".set " ASM_NAME(QUOBE_GetSpeed) ", 0\n");

#if defined(__x86_64__)
// Returns the number of vector registers that a variadic call says it uses.
__asm__(".text\n"
        ".globl " ASM_NAME(QUOBE_ClrDataEvent) "\n"
        ASM_NAME(QUOBE_ClrDataEvent) ":\n"
        "  movzbl %al, %eax\n"
        "  retq\n");

// Overwrites the vector registers while the library is opened, as a dynamic loader may. Otherwise
// the first caller's arguments could survive in them by luck.
__attribute__((constructor, target("avx"))) static void UseVectorRegisters(void) {
  if (HAVE_WIDE_CODE) {
    __asm__ volatile("vzeroall" ::: "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7");
  }
}
#endif

// Shows that the library is closed.
__attribute__((destructor)) static void SayClosed(void) {
  static const char Text[] = "library closed\n";
  if (write(1, Text, sizeof(Text) - 1) < 0) {
    _exit(95);
  }
}
