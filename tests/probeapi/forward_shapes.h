// Argument and result types that the forwarding tests send through, shared by the caller and the
// probe library.

#ifndef TESTS_PROBEAPI_FORWARD_SHAPES_H
#define TESTS_PROBEAPI_FORWARD_SHAPES_H

#include <stdint.h>

struct LARGE_STRUCT {  // in memory both ways
  int64_t Values[5];
};

struct MIXED_STRUCT {  // one register of each kind
  double  Real;
  int64_t Whole;
};

// The widest vector that goes in one register where AVX is; functions that take it carry WIDE_CODE.
#if defined(__x86_64__)
typedef double WIDE_VECTOR __attribute__((vector_size(32)));
#define WIDE_CODE __attribute__((target("avx")))
typedef double WIDEST_VECTOR __attribute__((vector_size(64)));
#define WIDEST_CODE      __attribute__((target("avx512f")))
#define HAVE_WIDEST_CODE __builtin_cpu_supports("avx512f")
#define HAVE_WIDE_CODE   __builtin_cpu_supports("avx")
#else
typedef double      WIDE_VECTOR __attribute__((vector_size(16)));
#define WIDE_CODE
#define HAVE_WIDE_CODE 1
typedef WIDE_VECTOR WIDEST_VECTOR;
#define WIDEST_CODE
#define HAVE_WIDEST_CODE 1
#endif
static const int WIDE_VECTOR_ITEMS   = sizeof(WIDE_VECTOR) / sizeof(double);
static const int WIDEST_VECTOR_ITEMS = sizeof(WIDEST_VECTOR) / sizeof(double);

#endif
