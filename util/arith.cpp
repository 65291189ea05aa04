// SPDX-License-Identifier: MIT

#include "util/arith.h"

#include <stddef.h>
#include <string.h>

#include "util/bits.h"

static const double TWO_POW_63 = 9223372036854775808.0;

// A double to an integer, rounded down; all bits set for one that does not fit. Not negative.
// Values from 2^63 up go through the offset, as the signed conversion is what processors have.
static uint64_t DoubleToU64(double Value) {
  if (Value >= 2 * TWO_POW_63) {
    return UINT64_MAX;
  }
  if (Value >= TWO_POW_63) {
    return (uint64_t)(int64_t)(Value - TWO_POW_63) + ((uint64_t)1 << 63);
  }
  return (uint64_t)(int64_t)Value;
}

int32_t UTIL_IsAddrInRange(uint64_t Addr, uint64_t Base, uint64_t Size) {
  // By the last address: Base + Size may wrap to 0 for a range that ends at the last address of
  // all.
  return Size != 0 && Base <= Addr && Addr <= Base + Size - 1;
}

int32_t UTIL_DoRangesOverlap(uint64_t BaseA, uint64_t SizeA, uint64_t BaseB, uint64_t SizeB) {
  if (SizeA == 0 || SizeB == 0) {
    return 0;
  }
  const uint64_t LastA = BaseA + SizeA - 1;
  const uint64_t LastB = BaseB + SizeB - 1;
  if (LastA < BaseA || LastB < BaseB) {
    return 0;  // one of them wraps
  }
  return BaseA <= LastB && BaseB <= LastA;
}

uint32_t UTIL_GetGCD(uint32_t A, uint32_t B) {
  if (A == 0 || B == 0) {
    return 0;
  }
  while (B != 0) {
    const uint32_t Remainder = A % B;
    A                        = B;
    B                        = Remainder;
  }
  return A;
}

uint32_t UTIL_AbsDiff32(int32_t A, int32_t B) {
  // Unsigned: the difference can exceed the largest signed value.
  return A > B ? (uint32_t)A - (uint32_t)B : (uint32_t)B - (uint32_t)A;
}

uint32_t UTIL_AbsDiff64(int64_t A, int64_t B) {
  return (uint32_t)(A > B ? (uint64_t)A - (uint64_t)B : (uint64_t)B - (uint64_t)A);
}

uint64_t UTIL_MulDivRound(uint64_t A, uint64_t B, uint64_t C) {
  if (C == 0) {
    return 0;
  }
  // The product is below 2^63 then and leaves room for C / 2. With a factor of 0 both ways give 0.
  if (UTIL_GetHighestBit64(A) + UTIL_GetHighestBit64(B) < 62) {
    return (A * B + C / 2) / C;
  }
  // Product and sum round one after the other; the build keeps compilers from fusing them.
  const uint64_t HalfC   = C / 2;
  const double   Product = (double)B * (double)A;
  const double   Sum     = (double)HalfC + Product;
  return DoubleToU64(Sum / (double)C);
}

uint32_t UTIL_DivU32(uint32_t Dividend, uint32_t Divisor, uint32_t* pRemainder) {
  uint64_t Remainder = 0;  // 64 bits: after the shift it may need 33
  uint32_t Quotient  = 0;
  // One bit of the quotient in each step, the highest first. A divisor of 0 fits in every step,
  // which sets all bits and leaves the dividend as the remainder.
  for (uint32_t i = 0; i < 32; i++) {
    Remainder = (Remainder << 1) | (Dividend >> 31);
    Dividend <<= 1;
    Quotient <<= 1;
    if (Remainder >= Divisor) {
      Remainder -= Divisor;
      Quotient |= 1;
    }
  }
  if (pRemainder != NULL) {
    *pRemainder = (uint32_t)Remainder;
  }
  return Quotient;
}

uint32_t UTIL_ModU32(uint32_t Dividend, uint32_t Divisor) {
  uint32_t Remainder;
  UTIL_DivU32(Dividend, Divisor, &Remainder);
  return Remainder;
}

int32_t UTIL_DivI32(int32_t Dividend, int32_t Divisor) {
  if (Dividend >= 0) {
    return (int32_t)UTIL_DivU32((uint32_t)Dividend, (uint32_t)Divisor, NULL);
  }
  // Negated as unsigned: the smallest dividend has no positive counterpart.
  return (int32_t)(0 - UTIL_DivU32(0 - (uint32_t)Dividend, (uint32_t)Divisor, NULL));
}

static uint32_t IsLeapYear(uint32_t Year) {
  return (Year % 4 == 0 && Year % 100 != 0) || Year % 400 == 0;
}

// Leap years from year 1 up to Year.
static uint32_t NumLeapYears(uint32_t Year) {
  return Year / 4 - Year / 100 + Year / 400;
}

// The day of a date, YYYYMMDD or YYMMDD, counted from the beginning of 2001.
static uint32_t DayNumber(uint32_t Date) {
  static const uint16_t aDaysBefore[] = {0,   31,  59,  90,  120, 151, 181,
                                         212, 243, 273, 304, 334, 365};
  if (Date < 10000000) {
    Date += 20000000;
  }
  const uint32_t Year  = Date / 10000;
  const uint32_t Month = Date / 100 % 100;
  // Whole months before the date's; a month of 0 counts as January.
  const uint32_t NumMonthsTaken = Month > 12 ? 12 : Month - (Month > 0);
  uint32_t       Days           = Date % 100 + aDaysBefore[NumMonthsTaken];
  if (Month > 2) {
    Days += IsLeapYear(Year);
  }
  if (Year > 2001) {  // an earlier year counts as 2001: see the header
    Days += 365 * (Year - 2001) + NumLeapYears(Year - 1) - NumLeapYears(2000);
  }
  return Days;
}

int32_t UTIL_GetDaysDiff(uint32_t DateA, uint32_t DateB) {
  return (int32_t)(DayNumber(DateA) - DayNumber(DateB));
}

// Quartiles
//
// Samples are counted in buckets of equal width. The bucket that a rank falls into becomes the
// range of the next level, until its buckets are narrow enough. One pass over the samples costs
// more than all the rest, so each level makes one for all ranks that are still sought.

namespace {

const uint32_t NUM_LEVELS        = 10;
const uint32_t NUM_LEVEL_BUCKETS = 800;
const uint32_t NUM_RANKS         = 3;

// The counters of the levels, for each rank its own: all ranks are counted in one pass.
uint32_t aaLevelBucket[NUM_RANKS][NUM_LEVEL_BUCKETS];

struct RANGE {
  uint64_t Low;
  uint64_t High;
};

struct SAMPLES {
  const uint64_t* p;
  uint32_t        NumItems;
  uint64_t        Smallest;
  uint64_t        Largest;
};

// The samples, counted in buckets over a range.
struct HISTOGRAM {
  RANGE     Range;
  uint32_t* pBuckets;
  uint32_t  NumBuckets;
  double    Width;     // of a bucket
  uint64_t  Step;      // its integer part, at least 1
  uint32_t  NumUnder;  // samples below the range
};

// A rank that is sought.
struct SEEK {
  HISTOGRAM Hist;
  uint32_t  Rank;
  uint64_t* pEstimate;
};

}  // namespace

// Clears the buckets and sets their width for the range.
static void StartCount(HISTOGRAM* pHist) {
  // Both ends belong to the range. In double, as there is one value too many for 64 bits when the
  // range is everything.
  pHist->Width = ((double)(pHist->Range.High - pHist->Range.Low) + 1) / (double)pHist->NumBuckets;
  pHist->Step  = pHist->Width < 1 ? 1 : DoubleToU64(pHist->Width);
  pHist->NumUnder = 0;
  memset(pHist->pBuckets, 0, sizeof(pHist->pBuckets[0]) * pHist->NumBuckets);
}

// Counts a sample by its distance from the beginning of the range.
static inline void CountInBucket(const HISTOGRAM* pHist, uint64_t Offset) {
  // The division may round up to one bucket too many at the end of the range.
  const uint64_t k = DoubleToU64((double)Offset / pHist->Width);
  pHist->pBuckets[k < pHist->NumBuckets ? k : pHist->NumBuckets - 1]++;
}

// Counts all samples over the caller's range and finds the smallest and the largest of them, which
// bound the search for a rank outside of it.
static void CountTop(HISTOGRAM* pHist, SAMPLES* pSamples) {
  const uint64_t Low      = pHist->Range.Low;
  const uint64_t Span     = pHist->Range.High - Low;
  uint32_t       NumUnder = 0;
  StartCount(pHist);
  for (uint32_t i = 0; i < pSamples->NumItems; i++) {
    const uint64_t Sample = pSamples->p[i];
    pSamples->Smallest    = Sample < pSamples->Smallest ? Sample : pSamples->Smallest;
    pSamples->Largest     = Sample > pSamples->Largest ? Sample : pSamples->Largest;
    NumUnder += Sample < Low;
    if (Sample - Low <= Span) {  // wraps to more than Span for a sample below the range
      CountInBucket(pHist, Sample - Low);
    }
  }
  pHist->NumUnder = NumUnder;
}

// Counts for all seeks in one pass. Few samples are in one of the narrow ranges, so nearly all cost
// two comparisons for each seek.
//
// NUM_SEEKS is known to the compiler and the arrays are local, so that they can be in registers.
template <uint32_t NUM_SEEKS>
static void CountLevel(SEEK* const* papSeek, const SAMPLES* pSamples) {
  uint64_t aLow[NUM_SEEKS];
  uint64_t aSpan[NUM_SEEKS];
  uint32_t aNumUnder[NUM_SEEKS];
  for (uint32_t k = 0; k < NUM_SEEKS; k++) {
    StartCount(&papSeek[k]->Hist);
    aLow[k]      = papSeek[k]->Hist.Range.Low;
    aSpan[k]     = papSeek[k]->Hist.Range.High - aLow[k];
    aNumUnder[k] = 0;
  }
  for (uint32_t i = 0; i < pSamples->NumItems; i++) {
    const uint64_t Sample = pSamples->p[i];
    for (uint32_t k = 0; k < NUM_SEEKS; k++) {
      aNumUnder[k] += Sample < aLow[k];
      if (Sample - aLow[k] <= aSpan[k]) {
        CountInBucket(&papSeek[k]->Hist, Sample - aLow[k]);
      }
    }
  }
  for (uint32_t k = 0; k < NUM_SEEKS; k++) {
    papSeek[k]->Hist.NumUnder = aNumUnder[k];
  }
}

// The bucket that the sample of this rank is in, NumBuckets when it is above all of them. The rank
// must not be among the samples below the range.
static uint32_t FindBucket(const HISTOGRAM* pHist, uint32_t Rank) {
  uint64_t NumCounted = pHist->NumUnder;
  uint32_t k          = 0;
  while (k < pHist->NumBuckets) {
    NumCounted += pHist->pBuckets[k];
    if (NumCounted >= Rank) {
      break;
    }
    k++;
  }
  return k;
}

// Looks for a rank, 1 to the number of samples. Returns 0 after storing the estimate, or 1 with the
// range to look into next.
static int32_t Narrow(const SEEK* pSeek, const SAMPLES* pSamples, uint64_t Resolution,
                      RANGE* pNext) {
  const HISTOGRAM* pHist = &pSeek->Hist;
  // Below the range, above it, or in a bucket.
  if (pHist->NumUnder >= pSeek->Rank) {
    *pNext = {pSamples->Smallest, pHist->Range.Low};
    return 1;
  }
  const uint32_t k = FindBucket(pHist, pSeek->Rank);
  if (k == pHist->NumBuckets) {
    *pNext = {pHist->Range.High, pSamples->Largest};
    return 1;
  }
  if (pHist->Step <= Resolution) {  // narrow enough: the centre of the bucket
    *pSeek->pEstimate = pHist->Range.Low + DoubleToU64((double)k * pHist->Width + pHist->Width / 2);
    return 0;
  }
  // The edges as the samples were counted, in the fractional width: multiples of the integer step
  // would fall behind from bucket to bucket and miss the rank.
  const uint64_t Last      = pHist->Range.High - pHist->Range.Low;
  const uint64_t UpperEdge = DoubleToU64((k + 1.0) * pHist->Width);
  pNext->Low               = pHist->Range.Low + DoubleToU64(k * pHist->Width);
  pNext->High              = pHist->Range.Low + (UpperEdge < Last ? UpperEdge : Last);
  return 1;
}

// Follows all ranks down the levels. Returns -1 when the levels are used up before a rank is found;
// its estimate is then unchanged.
static int32_t FindRanks(SEEK** papSeek, uint32_t NumSeeks, const SAMPLES* pSamples,
                         uint64_t Resolution) {
  int32_t Result = 0;
  for (uint32_t Level = 0; NumSeeks > 0; Level++) {
    uint32_t NumLeft = 0;
    for (uint32_t i = 0; i < NumSeeks; i++) {
      SEEK* pSeek = papSeek[i];
      RANGE Next;
      if (Narrow(pSeek, pSamples, Resolution, &Next) == 0) {
        continue;
      }
      if (Level == NUM_LEVELS) {  // this rank is given up, the others go on
        Result = -1;
        continue;
      }
      pSeek->Hist.Range = Next;
      // Only the first count was in the caller's buckets. These hold counts of a seek that has been
      // looked at already, or none.
      pSeek->Hist.pBuckets   = aaLevelBucket[NumLeft];
      pSeek->Hist.NumBuckets = NUM_LEVEL_BUCKETS;
      papSeek[NumLeft++]     = pSeek;
    }
    NumSeeks = NumLeft;
    if (NumSeeks == 3) {
      CountLevel<3>(papSeek, pSamples);
    } else if (NumSeeks == 2) {
      CountLevel<2>(papSeek, pSamples);
    } else if (NumSeeks == 1) {
      CountLevel<1>(papSeek, pSamples);
    }
  }
  return Result;
}

int32_t UTIL_FindQuartiles(uint64_t Low, uint64_t High, const uint64_t* pSamples,
                           uint32_t NumSamples, uint32_t* pBuckets, uint32_t NumBuckets,
                           uint64_t Resolution, uint64_t* pQ25, uint64_t* pQ50, uint64_t* pQ75) {
  if (NumSamples == 0 || NumBuckets == 0 || High < Low) {
    return -1;
  }
  SAMPLES Samples = {pSamples, NumSamples, UINT64_MAX, 0};

  const uint32_t aRank[NUM_RANKS] = {NumSamples / 4, NumSamples / 2, NumSamples - NumSamples / 4};
  uint64_t*      apResult[NUM_RANKS] = {pQ25, pQ50, pQ75};
  SEEK           aSeek[NUM_RANKS];
  SEEK*          apSeek[NUM_RANKS];
  uint32_t       NumSeeks = 0;
  HISTOGRAM      Top      = {{Low, High}, pBuckets, NumBuckets, 0, 0, 0};
  CountTop(&Top, &Samples);
  for (uint32_t i = 0; i < NUM_RANKS; i++) {
    if (apResult[i] != NULL) {
      // Of fewer than four samples the first rank is 0; the smallest sample stands for it.
      aSeek[i]           = {Top, aRank[i] == 0 ? 1 : aRank[i], apResult[i]};
      apSeek[NumSeeks++] = &aSeek[i];
    }
  }
  return FindRanks(apSeek, NumSeeks, &Samples, Resolution);
}
