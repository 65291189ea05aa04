// util/arith.h
// SPDX-License-Identifier: MIT
//
// Integer arithmetic: ranges of addresses, rounded scaling, division without a divide instruction,
// days between dates, and an estimate of quartiles.
//
// Plain functions without state. None of them traps, whatever the arguments. Any thread may call
// them, except UTIL_FindQuartiles. No allocation.

#ifndef UTIL_ARITH_H
#define UTIL_ARITH_H

#include <stdint.h>

// Ranges of addresses. A range of size 0 is empty. A range whose last address, Base + Size - 1,
// wraps in 64 bits counts as empty too.

// Tells whether an address is in a range: 1 or 0.
int32_t UTIL_IsAddrInRange(uint64_t Addr, uint64_t Base, uint64_t Size);

// Tells whether two ranges share an address: 1 or 0.
int32_t UTIL_DoRangesOverlap(uint64_t BaseA, uint64_t SizeA, uint64_t BaseB, uint64_t SizeB);

// Returns the smaller of two values.
inline uint32_t UTIL_MinU32(uint32_t A, uint32_t B) {
  return A < B ? A : B;
}

// Returns the greatest common divisor, 0 when either value is 0.
uint32_t UTIL_GetGCD(uint32_t A, uint32_t B);

// Returns the absolute difference of two signed values. The 64-bit difference is cut to its low 32
// bits.
uint32_t UTIL_AbsDiff32(int32_t A, int32_t B);
uint32_t UTIL_AbsDiff64(int64_t A, int64_t B);

// Returns A * B / C, rounded half up.
//
// The result is exact while the indices of the highest set bits of A and B add up to less than 62.
// Above that it is computed in double precision, and only the first 15 or 16 digits count; a result
// that does not fit in 64 bits gives all bits set. C must not be 0; if it is, the result is 0.
uint64_t UTIL_MulDivRound(uint64_t A, uint64_t B, uint64_t C);

// Divides by shifting and subtracting, for targets without a divide instruction.
//
// UTIL_DivU32 returns the quotient and stores the remainder at pRemainder, which may be NULL.
// UTIL_ModU32 returns the remainder. Divisor must not be 0; if it is, the quotient has all bits set
// and the remainder is the dividend.
uint32_t UTIL_DivU32(uint32_t Dividend, uint32_t Divisor, uint32_t* pRemainder);
uint32_t UTIL_ModU32(uint32_t Dividend, uint32_t Divisor);

// Divides a signed dividend in the same way; the divisor's sign is ignored.
//
// A negative divisor counts as its unsigned value, so the quotient is 0 for every dividend of
// smaller magnitude. Callers rely on it.
int32_t UTIL_DivI32(int32_t Dividend, int32_t Divisor);

// Returns the days from date B to date A, negative when A is earlier.
//
// Dates are decimal numbers YYYYMMDD. A value below 10000000 is YYMMDD of the years 2000 to 2099
// (20YY). Days are counted from 1 January 2001, and a date before 2002 counts as one of 2001, so
// distances across earlier years come out short; callers rely on that too. Months and days are not
// checked: a month of 0 counts as January, one above 12 as the month after December.
int32_t UTIL_GetDaysDiff(uint32_t DateA, uint32_t DateB);

// Estimates the quartiles of samples without sorting them.
//
// The ranks sought are NumSamples / 4, NumSamples / 2 and NumSamples - NumSamples / 4, counted from
// 1 for the smallest sample; a rank of 0 counts as 1. Samples are counted in buckets over [Low,
// High], and the estimate is the centre of the bucket that a rank falls into, rounded down. While a
// bucket is wider than Resolution, its range is counted again in 800 narrower buckets. A rank
// outside of [Low, High] is sought there in the same way. There are at most 10 such levels.
//
// pSamples    NumSamples values, in any order
// pBuckets    the caller's memory for NumBuckets counters, at least one; its contents do not matter
// Resolution  in units of the samples, at least 1; with 0 no bucket is narrow enough
// pQ25, ...   results; NULL for one that is not wanted
//
// Returns 0, or -1 when a rank could not be reached: there are no samples, the levels were used up,
// NumBuckets is 0, or High is below Low. The result of that rank is unchanged; the others are
// valid.
//
// Not for two threads at once: the levels count in one area of the process.
int32_t UTIL_FindQuartiles(uint64_t Low, uint64_t High, const uint64_t* pSamples,
                           uint32_t NumSamples, uint32_t* pBuckets, uint32_t NumBuckets,
                           uint64_t Resolution, uint64_t* pQ25, uint64_t* pQ50, uint64_t* pQ75);

#endif
