// util/arith.h
//
// Integer arithmetic: ranges of addresses, rounded scaling, division without a divide instruction,
// days between dates, and an estimate of quartiles.
//
// All are plain functions; none traps, whatever the arguments. Any thread may call them, except
// UTIL_FindQuartiles (see there). No allocation.

#ifndef UTIL_ARITH_H
#define UTIL_ARITH_H

#include <stdint.h>

// Ranges of addresses. A range of size 0 holds nothing. The last address, Base + Size - 1, wraps in
// 64 bits; a range that wraps holds nothing either.

// 1 when Addr lies in the range, else 0.
int32_t UTIL_IsAddrInRange(uint64_t Addr, uint64_t Base, uint64_t Size);

// 1 when the ranges share an address, else 0.
int32_t UTIL_DoRangesOverlap(uint64_t BaseA, uint64_t SizeA, uint64_t BaseB, uint64_t SizeB);

// The smaller one of two values.
inline uint32_t UTIL_MinU32(uint32_t A, uint32_t B) {
  return A < B ? A : B;
}

// The greatest common divisor; 0 when either value is 0.
uint32_t UTIL_GetGCD(uint32_t A, uint32_t B);

// |A - B|, compared as signed values; of the 64-bit difference the low 32 bits.
uint32_t UTIL_AbsDiff32(int32_t A, int32_t B);
uint32_t UTIL_AbsDiff64(int64_t A, int64_t B);

// A * B / C, rounded half up.
//
// Exact while the indices of the highest set bits of A and B add up to less than 62; above that it
// is computed in double precision, product and sum rounded one after the other, so that only the
// first 15 or 16 digits count, and a result that does not fit gives all bits set. C must not be 0;
// the result is then 0.
uint64_t UTIL_MulDivRound(uint64_t A, uint64_t B, uint64_t C);

// Long division by shifting and subtracting, for targets without a divide instruction. The divisor
// must not be 0; the quotient then has all bits set, and the remainder is the dividend.

// pRemainder may be NULL.
uint32_t UTIL_DivU32(uint32_t Dividend, uint32_t Divisor, uint32_t* pRemainder);
uint32_t UTIL_ModU32(uint32_t Dividend, uint32_t Divisor);

// Takes the sign of the dividend only, on purpose: a negative divisor is taken as its unsigned
// value, which makes the quotient 0 for every dividend of smaller magnitude.
int32_t UTIL_DivI32(int32_t Dividend, int32_t Divisor);

// Days from date B to date A, negative when A is the earlier one.
//
// Dates are decimal, YYYYMMDD; below 10000000 they are YYMMDD of 20YY. The days are counted from 1
// January 2001, and a date before 2002 counts as one of 2001, on purpose: distances across the
// years before come out short. Months and days are not checked: a month of 0 counts as January, one
// above 12 as following December.
int32_t UTIL_GetDaysDiff(uint32_t DateA, uint32_t DateB);

// Estimates the samples at the ranks of 25 %, 50 % and 75 % without sorting them: counts them in
// buckets over [Low, High] and takes the centre of the bucket that a rank falls into. While a
// bucket is wider than Resolution its range is counted again, in 800 buckets; a rank outside of
// [Low, High] is looked for there in the same way. At most 10 such levels.
//
// The ranks are those of NumSamples / 4, NumSamples / 2 and NumSamples - NumSamples / 4 samples,
// counted from the smallest as 1; a rank of 0, of fewer than four samples, counts as 1. A bucket's
// width is fractional, (High - Low + 1) / NumBuckets, and its edges, multiples of that width
// rounded down, are the ends of the range that is counted again; only the comparison with
// Resolution takes the width's integer part. Counters have 32 bits and cannot overflow, as
// NumSamples has no more.
//
// Samples must be NumSamples values. pBuckets is the caller's memory of NumBuckets counters, at
// least one; its contents do not matter. A sample at the very top belongs to the last bucket.
// Resolution is in units of the samples, at least 1: no bucket counts as narrower than that, so
// that 0 uses up the levels. Estimates are rounded down. A result pointer may be NULL, and its rank
// is then not looked for.
//
// Returns 0, or -1 when a rank could not be reached: there are no samples, the levels were used up,
// NumBuckets is 0, or High is below Low. Its result is then untouched; the others are valid.
//
// Not for two threads at once: the levels count in one process-wide area.
int32_t UTIL_FindQuartiles(uint64_t Low, uint64_t High, const uint64_t* pSamples,
                           uint32_t NumSamples, uint32_t* pBuckets, uint32_t NumBuckets,
                           uint64_t Resolution, uint64_t* pQ25, uint64_t* pQ50, uint64_t* pQ75);

#endif
