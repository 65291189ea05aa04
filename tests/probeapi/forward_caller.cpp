// SPDX-License-Identifier: MIT

// A module outside the executable that calls the functions which the executable exports.

#include "tests/probeapi/forward_shapes.h"

extern "C" {
int64_t QUOBE_AddMirrorArea(int64_t, int64_t, int64_t, int64_t, int64_t, int64_t, int64_t, int64_t,
                            int64_t, int64_t);
double QUOBE_AddMirrorAreaEx(double, double, double, double, double, double, double, double, double,
                             float, int);
int    QUOBE_BeginDownload(char* pBuffer, int Size, const char* sFormat, ...);
LARGE_STRUCT              QUOBE_Clock(LARGE_STRUCT, int);
MIXED_STRUCT              QUOBE_Close(MIXED_STRUCT);
WIDE_CODE WIDE_VECTOR     QUOBE_ClrBP(WIDE_VECTOR, WIDE_VECTOR);
WIDEST_CODE WIDEST_VECTOR QUOBE_ClrBPEx(WIDEST_VECTOR, WIDEST_VECTOR);
int                       QUOBE_ClrDataEvent(int, ...);

__attribute__((visibility("default"))) int64_t CALLER_Integers(void) {
  return QUOBE_AddMirrorArea(1, 20, 300, 4000, 50000, 600000, 7000000, 80000000, 900000000,
                             -1000000000);
}

__attribute__((visibility("default"))) double CALLER_Doubles(void) {
  return QUOBE_AddMirrorAreaEx(1.5, 2.5, 3.5, 4.5, 5.5, 6.5, 7.5, 8.5, 9.5, 10.5f, 11);
}

__attribute__((visibility("default"))) int CALLER_Variadic(char* pBuffer, int Size) {
  return QUOBE_BeginDownload(pBuffer, Size,
                             "%d %.2f %s %lld %.1f %.1f %.1f %.1f %.1f %.1f %.1f %.1f", -1, 2.25,
                             "text", 1234567890123LL, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0);
}

__attribute__((visibility("default"))) LARGE_STRUCT CALLER_LargeStruct(void) {
  return QUOBE_Clock({{1, 2, 3, 4, 5}}, 10);
}

__attribute__((visibility("default"))) MIXED_STRUCT CALLER_MixedStruct(void) {
  return QUOBE_Close({1.25, 7});
}

__attribute__((visibility("default"))) WIDE_CODE void CALLER_Vector(double* pResult) {
  WIDE_VECTOR a, b;
  for (int i = 0; i < WIDE_VECTOR_ITEMS; i++) {
    a[i] = i + 1;
    b[i] = 100 * (i + 1);
  }
  const WIDE_VECTOR Sum = QUOBE_ClrBP(a, b);
  for (int i = 0; i < WIDE_VECTOR_ITEMS; i++) {
    pResult[i] = Sum[i];
  }
}
__attribute__((visibility("default"))) WIDEST_CODE void CALLER_WidestVector(double* pResult) {
  WIDEST_VECTOR a, b;
  for (int i = 0; i < WIDEST_VECTOR_ITEMS; i++) {
    a[i] = i + 1;
    b[i] = 100 * (i + 1);
  }
  const WIDEST_VECTOR Sum = QUOBE_ClrBPEx(a, b);
  for (int i = 0; i < WIDEST_VECTOR_ITEMS; i++) {
    pResult[i] = Sum[i];
  }
}

__attribute__((visibility("default"))) int CALLER_NumVectorRegisters(void) {
  return QUOBE_ClrDataEvent(1, 1.0, 2.0, 3.0);
}
}
