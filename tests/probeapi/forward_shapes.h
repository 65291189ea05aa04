// SPDX-License-Identifier: MIT

// The argument and result types of the forwarding tests, for the caller and for the probe library.

#ifndef TESTS_PROBEAPI_FORWARD_SHAPES_H
#define TESTS_PROBEAPI_FORWARD_SHAPES_H

#include <stdint.h>

struct LARGE_STRUCT {  // passed and returned in memory
  int64_t Values[5];
};

struct MIXED_STRUCT {  // in one register of each kind
  double  Real;
  int64_t Whole;
};

// The widest vector that fits into one register of AVX (WIDE) and of AVX-512 (WIDEST). Functions
// that take it need the attribute WIDE_CODE or WIDEST_CODE.
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
