// SPDX-License-Identifier: MIT

#include "util/arith.h"

#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

static const int NUM_RANDOM = 100000;

// Numbers of every magnitude.
static uint64_t NextOfAnySize(std::mt19937_64* pRandom) {
  const uint64_t Shift = (*pRandom)() % 64;
  return (*pRandom)() >> Shift;
}

TEST(UtilRanges, AgreeWithAModelThatListsTheAddresses) {
  std::mt19937 Random(1);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const uint32_t BaseA = (uint32_t)Random() % 60, SizeA = (uint32_t)Random() % 4;
    const uint32_t BaseB = (uint32_t)Random() % 60, SizeB = (uint32_t)Random() % 4;
    uint64_t       A = 0, B = 0;
    for (uint32_t k = 0; k < 64; k++) {
      A |= k >= BaseA && k < BaseA + SizeA ? 1ull << k : 0;
      B |= k >= BaseB && k < BaseB + SizeB ? 1ull << k : 0;
    }
    ASSERT_EQ((A & B) != 0 ? 1 : 0, UTIL_DoRangesOverlap(BaseA, SizeA, BaseB, SizeB));
    ASSERT_EQ((A >> BaseB) % 2, (uint64_t)UTIL_IsAddrInRange(BaseB, BaseA, SizeA));
  }
}

TEST(UtilRanges, RangesThatWrapHoldNothing) {
  // The last 64 addresses, one bit for each.
  const uint64_t First = UINT64_MAX - 63;
  std::mt19937   Random(8);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const uint32_t BaseA = (uint32_t)Random() % 64, SizeA = (uint32_t)Random() % 20;
    const uint32_t BaseB = (uint32_t)Random() % 64, SizeB = (uint32_t)Random() % 20;
    uint64_t       A = 0, B = 0;
    for (uint32_t k = 0; k < 64; k++) {
      A |= BaseA + SizeA <= 64 && k >= BaseA && k < BaseA + SizeA ? 1ull << k : 0;
      B |= BaseB + SizeB <= 64 && k >= BaseB && k < BaseB + SizeB ? 1ull << k : 0;
    }
    const int32_t Expected = (A & B) != 0 ? 1 : 0;
    ASSERT_EQ(Expected, UTIL_DoRangesOverlap(First + BaseA, SizeA, First + BaseB, SizeB));
    ASSERT_EQ(Expected, UTIL_DoRangesOverlap(First + BaseB, SizeB, First + BaseA, SizeA));
    ASSERT_EQ((A >> BaseB) % 2, (uint64_t)UTIL_IsAddrInRange(First + BaseB, First + BaseA, SizeA));
  }
}

TEST(UtilRanges, RangeThatWrapsSharesNoAddressWithOneThatReachesAllOthers) {
  // The wrapping range would hold the last four addresses and the first six.
  EXPECT_EQ(0, UTIL_DoRangesOverlap(UINT64_MAX - 3, 10, 0, UINT64_MAX));
  EXPECT_EQ(0, UTIL_DoRangesOverlap(0, UINT64_MAX, UINT64_MAX - 3, 10));
  EXPECT_EQ(1, UTIL_DoRangesOverlap(UINT64_MAX - 3, 4, 0, UINT64_MAX));
}

TEST(UtilGetGCD, AgreesWithTheStandardLibrary) {
  std::mt19937_64 Random(2);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const uint32_t A = (uint32_t)NextOfAnySize(&Random), B = (uint32_t)NextOfAnySize(&Random);
    ASSERT_EQ(A == 0 || B == 0 ? 0 : std::gcd(A, B), UTIL_GetGCD(A, B)) << A << " " << B;
  }
}

TEST(UtilAbsDiff, AgreesWithWiderArithmetic) {
  std::mt19937_64 Random(3);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const int64_t  A = (int64_t)Random(), B = (int64_t)Random();
    const __int128 Diff = (__int128)A - B;
    ASSERT_EQ((uint32_t)(Diff < 0 ? -Diff : Diff), UTIL_AbsDiff64(A, B));
    const int64_t Diff32 = (int64_t)(int32_t)A - (int32_t)B;
    ASSERT_EQ((uint32_t)std::abs(Diff32), UTIL_AbsDiff32((int32_t)A, (int32_t)B));
  }
}

// The sum of the indices of the highest set bits, by halving.
static int SumOfIndices(uint64_t A, uint64_t B) {
  int Sum = -2;
  for (; A > 0; A /= 2) {
    Sum++;
  }
  for (; B > 0; B /= 2) {
    Sum++;
  }
  return Sum;
}

TEST(UtilMulDivRound, LargeProductsRoundAfterEveryStep) {
  std::mt19937_64 Random(9);
  int             NumInDoubles = 0;
  for (int i = 0; i < 4 * NUM_RANDOM; i++) {
    const uint64_t A = NextOfAnySize(&Random), B = NextOfAnySize(&Random);
    const uint64_t C = NextOfAnySize(&Random) | 1;
    if (SumOfIndices(A, B) < 62) {
      continue;
    }
    NumInDoubles++;
    // Through memory, so that no step can be fused with the next one.
    volatile double Step    = (double)A;
    volatile double Other   = (double)B;
    Step                    = Step * Other;
    Other                   = (double)(C / 2);
    Step                    = Step + Other;
    Other                   = (double)C;
    Step                    = Step / Other;
    const uint64_t Expected = Step >= 18446744073709551616.0 ? UINT64_MAX : (uint64_t)Step;
    ASSERT_EQ(Expected, UTIL_MulDivRound(A, B, C)) << A << " " << B << " " << C;
  }
  EXPECT_LT(NUM_RANDOM, NumInDoubles);
}

TEST(UtilMulDivRound, IsExactOrAsGoodAsADouble) {
  std::mt19937_64 Random(4);
  int             NumExact = 0;
  for (int i = 0; i < 2 * NUM_RANDOM; i++) {
    const uint64_t          A = NextOfAnySize(&Random), B = NextOfAnySize(&Random);
    const uint64_t          C     = NextOfAnySize(&Random) | 1;
    const unsigned __int128 Exact = ((unsigned __int128)A * B + C / 2) / C;
    const uint64_t          Value = UTIL_MulDivRound(A, B, C);
    if (A == 0 || B == 0 || log2((double)A) + log2((double)B) < 61.99) {
      NumExact++;
      ASSERT_EQ((uint64_t)Exact, Value) << A << " " << B << " " << C;
    } else if (Exact >= (unsigned __int128)1 << 64) {
      ASSERT_GE(Value, UINT64_MAX - 0x1000) << A << " " << B << " " << C;
    } else {
      ASSERT_NEAR((double)Exact, (double)Value, 1 + (double)Exact * 1e-15);
    }
  }
  EXPECT_LT(NUM_RANDOM / 2, NumExact);
}

TEST(UtilSoftwareDivision, AgreesWithTheMachine) {
  std::mt19937_64 Random(5);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const uint32_t A = (uint32_t)NextOfAnySize(&Random);
    const uint32_t B = (uint32_t)NextOfAnySize(&Random);
    if (B == 0) {
      continue;
    }
    uint32_t Remainder = 0;
    ASSERT_EQ(A / B, UTIL_DivU32(A, B, &Remainder));
    ASSERT_EQ(A % B, Remainder);
    ASSERT_EQ(A % B, UTIL_ModU32(A, B));
    const int64_t Dividend = (int32_t)(A * 3);
    ASSERT_EQ(Dividend / (int64_t)B, UTIL_DivI32((int32_t)Dividend, (int32_t)B));
  }
}

TEST(UtilSoftwareDivision, RemainderIsOptional) {
  uint32_t Remainder = 77;
  EXPECT_EQ(14u, UTIL_DivU32(100, 7, nullptr));
  EXPECT_EQ(14u, UTIL_DivU32(100, 7, &Remainder));
  EXPECT_EQ(2u, Remainder);
}

TEST(UtilGetDaysDiff, AgreesWithACountDayByDay) {
  // Every day from 1 January 2001 to the end of 2405, with the day number counted up.
  static const uint32_t aLength[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  std::vector<uint32_t> Dates;
  for (uint32_t Year = 2001; Year <= 2405; Year++) {
    const bool IsLeap = Year % 400 == 0 || (Year % 4 == 0 && Year % 100 != 0);
    for (uint32_t Month = 1; Month <= 12; Month++) {
      const uint32_t NumDays = aLength[Month - 1] + (IsLeap && Month == 2 ? 1 : 0);
      for (uint32_t Day = 1; Day <= NumDays; Day++) {
        Dates.push_back(Year * 10000 + Month * 100 + Day);
      }
    }
  }
  std::mt19937 Random(6);
  for (int i = 0; i < NUM_RANDOM; i++) {
    const size_t A = Random() % Dates.size(), B = Random() % Dates.size();
    ASSERT_EQ((int64_t)A - (int64_t)B, UTIL_GetDaysDiff(Dates[A], Dates[B]));
    if (Dates[A] < 21000000) {
      ASSERT_EQ((int64_t)A - (int64_t)B, UTIL_GetDaysDiff(Dates[A] - 20000000, Dates[B]));
    }
  }
}

TEST(UtilGetDaysDiff, DatesBefore2002CountAsDaysOf2001) {
  static const uint32_t aLength[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  std::mt19937          Random(10);
  uint32_t              aDate[2];
  int32_t               aDay[2];
  for (int i = 0; i < NUM_RANDOM; i++) {
    for (int k = 0; k < 2; k++) {
      const uint32_t Year   = 1000 + (uint32_t)Random() % 1002;
      const uint32_t Month  = 1 + (uint32_t)Random() % 12;
      const bool     IsLeap = Year % 400 == 0 || (Year % 4 == 0 && Year % 100 != 0);
      const uint32_t Day    = 1 + (uint32_t)Random() % aLength[Month - 1];
      aDate[k]              = Year * 10000 + Month * 100 + Day;
      aDay[k]               = (int32_t)std::accumulate(aLength, aLength + Month - 1, Day) +
                (Month > 2 && IsLeap ? 1 : 0);
    }
    ASSERT_EQ(aDay[0] - aDay[1], UTIL_GetDaysDiff(aDate[0], aDate[1]))
        << aDate[0] << " " << aDate[1];
    ASSERT_EQ(aDay[0] - 366, UTIL_GetDaysDiff(aDate[0], 20020101)) << aDate[0];
  }
}

// Quartiles

struct QUARTILES {
  int32_t  Result;
  uint64_t a[3];
};

static const uint64_t UNTOUCHED = 0x5A5A5A5A5A5A5A5A;

static QUARTILES FindQuartiles(const std::vector<uint64_t>& Samples, uint64_t Low, uint64_t High,
                               uint32_t NumBuckets, uint64_t Resolution) {
  std::vector<uint32_t> Buckets(NumBuckets + 2, 0xEEEEEEEE);
  QUARTILES             Found = {0, {UNTOUCHED, UNTOUCHED, UNTOUCHED}};
  Found.Result =
      UTIL_FindQuartiles(Low, High, Samples.data(), (uint32_t)Samples.size(), &Buckets[1],
                         NumBuckets, Resolution, &Found.a[0], &Found.a[1], &Found.a[2]);
  EXPECT_EQ(0xEEEEEEEE, Buckets[0]);
  EXPECT_EQ(0xEEEEEEEE, Buckets[NumBuckets + 1]);
  return Found;
}

static uint64_t Distance(uint64_t A, uint64_t B) {
  return A > B ? A - B : B - A;
}

// The sample at a rank, by sorting.
static uint64_t SampleAt(std::vector<uint64_t> Samples, size_t Rank) {
  std::sort(Samples.begin(), Samples.end());
  return Samples[std::max<size_t>(Rank, 1) - 1];
}

static void ExpectQuartilesWithin(uint64_t Tolerance, const std::vector<uint64_t>& Samples,
                                  const QUARTILES& Found) {
  const size_t n       = Samples.size();
  const size_t aRank[] = {n / 4, n / 2, n - n / 4};
  EXPECT_EQ(0, Found.Result);
  for (int i = 0; i < 3; i++) {
    const uint64_t Exact = SampleAt(Samples, aRank[i]);
    EXPECT_LE(Distance(Exact, Found.a[i]), Tolerance) << i << ": " << Exact << " " << Found.a[i];
  }
}

static std::vector<uint64_t> RandomSamples(size_t NumSamples, uint64_t Limit, uint32_t Seed) {
  std::mt19937_64       Random(Seed);
  std::vector<uint64_t> Samples(NumSamples);
  for (uint64_t& Sample : Samples) {
    Sample = Random() % Limit;
  }
  return Samples;
}

TEST(UtilFindQuartiles, BucketsAsWideAsTheResolutionGiveTheirCentre) {
  std::vector<uint64_t> Samples;
  for (uint64_t i = 0; i < 100; i++) {
    Samples.push_back(99 - i);
  }
  const QUARTILES Found = FindQuartiles(Samples, 0, 99, 10, 10);
  EXPECT_EQ(0, Found.Result);
  EXPECT_EQ(25u, Found.a[0]);
  EXPECT_EQ(45u, Found.a[1]);
  EXPECT_EQ(75u, Found.a[2]);
}

TEST(UtilFindQuartiles, IntegerWideBucketsGiveTheSample) {
  const std::vector<uint64_t> Samples = RandomSamples(5001, 1000, 1);
  ExpectQuartilesWithin(0, Samples, FindQuartiles(Samples, 0, 999, 1000, 1));
}

TEST(UtilFindQuartiles, StaysWithinABucketOverRandomSamples) {
  for (uint32_t Seed = 0; Seed < 300; Seed++) {
    const std::vector<uint64_t> Samples = RandomSamples(1 + Seed * 3, 1000000, Seed);
    ExpectQuartilesWithin(5000, Samples, FindQuartiles(Samples, 0, 999999, 100, 10000));
    ExpectQuartilesWithin(50, Samples, FindQuartiles(Samples, 0, 999999, 100, 100));
    ExpectQuartilesWithin(1, Samples, FindQuartiles(Samples, 0, 999999, 7, 1));
  }
}

TEST(UtilFindQuartiles, AgreesWithSortingOverRandomRangesAndBuckets) {
  std::mt19937_64 Random(11);
  for (int i = 0; i < 100000; i++) {
    std::vector<uint64_t> Samples(1 + Random() % 12);
    const uint64_t        Low = Random() % 100, High = Low + Random() % 400;
    for (uint64_t& Sample : Samples) {
      Sample = Random() % 4 == 0 ? Random() % 600 : Low + Random() % (High - Low + 1);
    }
    const uint32_t NumBuckets = 1 + (uint32_t)Random() % 20;
    const uint64_t Resolution = 1 + Random() % 30;
    // No bucket is as wide as Resolution + 1, and its centre is at most half of that away.
    ExpectQuartilesWithin(Resolution / 2 + 1, Samples,
                          FindQuartiles(Samples, Low, High, NumBuckets, Resolution));
    ASSERT_FALSE(HasFailure()) << Low << " " << High << " " << NumBuckets << " " << Resolution;
  }
}

TEST(UtilFindQuartiles, RanksOutsideOfTheRangeAreLookedForThere) {
  for (uint32_t Seed = 0; Seed < 100; Seed++) {
    const std::vector<uint64_t> Samples = RandomSamples(400, 1000000, Seed);
    ExpectQuartilesWithin(10, Samples, FindQuartiles(Samples, 450000, 460000, 10, 10));
    ExpectQuartilesWithin(10, Samples, FindQuartiles(Samples, 0, 10, 10, 10));
    ExpectQuartilesWithin(10, Samples, FindQuartiles(Samples, 2000000, 3000000, 10, 10));
  }
}

TEST(UtilFindQuartiles, LastSampleUnderTheRangeIsNotInItsFirstBucket) {
  // Ranks 2, 4 and 6 of eight; four samples lie under the range and two above it.
  const std::vector<uint64_t> Samples = {603, 4, 1, 602, 2, 900, 3, 901};
  ExpectQuartilesWithin(1, Samples, FindQuartiles(Samples, 500, 699, 200, 1));
}

TEST(UtilFindQuartiles, WholeRangeOf64BitsWorks) {
  std::mt19937_64       Random(7);
  std::vector<uint64_t> Samples(1000);
  for (uint64_t& Sample : Samples) {
    Sample = Random();
  }
  Samples[0] = 0;
  Samples[1] = UINT64_MAX;
  for (uint32_t NumBuckets : {1u, 3u, 1000u}) {
    ExpectQuartilesWithin(1u << 20, Samples,
                          FindQuartiles(Samples, 0, UINT64_MAX, NumBuckets, 1u << 20));
    ExpectQuartilesWithin(1, Samples, FindQuartiles(Samples, 0, UINT64_MAX, NumBuckets, 1));
  }
}

TEST(UtilFindQuartiles, SampleAtTheVeryTopBelongsToTheLastBucket) {
  for (uint64_t High : {uint64_t(9), uint64_t(99), uint64_t(1000000), UINT64_MAX}) {
    for (uint32_t NumBuckets : {1u, 3u, 7u, 10u, 49u}) {
      const std::vector<uint64_t> Samples(8, High);
      const QUARTILES             Found = FindQuartiles(Samples, 0, High, NumBuckets, UINT64_MAX);
      const double                Width = ((double)High + 1) / NumBuckets;
      EXPECT_EQ(0, Found.Result);
      EXPECT_NEAR((NumBuckets - 0.5) * Width, (double)Found.a[1], 1 + 1e-9 * Width) << High;
    }
  }
}

TEST(UtilFindQuartiles, FewSamplesHaveRanksToo) {
  ExpectQuartilesWithin(1, {42}, FindQuartiles({42}, 0, 99, 100, 1));
  ExpectQuartilesWithin(1, {42, 7}, FindQuartiles({42, 7}, 0, 99, 100, 1));
  ExpectQuartilesWithin(1, {42, 7, 80}, FindQuartiles({42, 7, 80}, 0, 99, 100, 1));
}

TEST(UtilFindQuartiles, WithoutSamplesNoRankIsReached) {
  const QUARTILES Found = FindQuartiles({}, 0, 99, 10, 1);
  EXPECT_EQ(-1, Found.Result);
  for (uint64_t Value : Found.a) {
    EXPECT_EQ(UNTOUCHED, Value);
  }
}

TEST(UtilFindQuartiles, ResolutionThatCannotBeReachedUsesUpTheLevels) {
  for (uint32_t NumBuckets : {1u, 10u, 1000u}) {
    const QUARTILES Found = FindQuartiles(RandomSamples(100, 1000, 5), 0, 999, NumBuckets, 0);
    EXPECT_EQ(-1, Found.Result);
    EXPECT_EQ(UNTOUCHED, Found.a[0]);
  }
}

TEST(UtilFindQuartiles, RankThatIsMissedIsReportedThoughTheNextOneIsFound) {
  // At this width a double's digits do not separate the second rank's sample from the edge of its
  // range: the levels are used up before it is found.
  const std::vector<uint64_t> Samples = {0,
                                         42524257,
                                         16947946117720651356u,
                                         3,
                                         7862924661418696319u,
                                         14234189785799205981u,
                                         10168767670632392180u,
                                         UINT64_MAX};
  const QUARTILES             Found   = FindQuartiles(Samples, 0, UINT64_MAX, 1, 1);
  EXPECT_EQ(-1, Found.Result);
  EXPECT_LE(Distance(3, Found.a[0]), 1u);
  EXPECT_EQ(UNTOUCHED, Found.a[1]);
  EXPECT_LE(Distance(14234189785799205981u, Found.a[2]), 1u);
}

TEST(UtilFindQuartiles, ImpossibleRangesFail) {
  const std::vector<uint64_t> Samples = {1, 2, 3, 4};
  EXPECT_EQ(-1, FindQuartiles(Samples, 10, 9, 10, 1).Result);
  EXPECT_EQ(-1, FindQuartiles(Samples, 0, 9, 0, 1).Result);
}

TEST(UtilFindQuartiles, ResultsThatAreNotAskedForAreSkipped) {
  const std::vector<uint64_t> Samples = RandomSamples(100, 100, 3);
  uint32_t                    aBucket[100];
  uint64_t                    Value = UNTOUCHED;
  EXPECT_EQ(
      0, UTIL_FindQuartiles(0, 99, Samples.data(), 100, aBucket, 100, 1, nullptr, &Value, nullptr));
  EXPECT_EQ(SampleAt(Samples, 50), Value);
  EXPECT_EQ(0, UTIL_FindQuartiles(0, 99, Samples.data(), 100, aBucket, 100, 1, nullptr, nullptr,
                                  nullptr));
}
