// SPDX-License-Identifier: MIT

// The estimate of quartiles beside std::nth_element three times on a copy of the samples, which is
// exact. The answers compared are whether each estimate is as near as it promises.

#include <algorithm>
#include <random>
#include <vector>

#include "bench/support/peer_bench.h"
#include "util/arith.h"

namespace {

const uint64_t LIMIT = 1000000;

uint64_t aQuartile[3];

// The three ranks, exactly; with a tolerance the estimates become them.
std::string Nearest(const std::vector<uint64_t>& aSample, uint64_t Tolerance) {
  std::vector<uint64_t> aSorted = aSample;
  std::sort(aSorted.begin(), aSorted.end());
  const size_t n       = aSorted.size();
  const size_t aRank[] = {n / 4, n / 2, n - n / 4};
  std::string  Text;
  for (int i = 0; i < 3; i++) {
    const uint64_t Exact = aSorted[aRank[i] - 1];
    const uint64_t Diff  = Exact > aQuartile[i] ? Exact - aQuartile[i] : aQuartile[i] - Exact;
    Text += std::to_string(Diff <= Tolerance ? Exact : aQuartile[i]) + ' ';
  }
  return Text;
}

void AddRow(const char* sRow, double Goal, size_t NumSamples, uint64_t Resolution) {
  std::mt19937_64       Random(3);
  std::vector<uint64_t> aSample(NumSamples);
  std::vector<uint32_t> aBucket(1000);
  for (uint64_t& Sample : aSample) {
    Sample = Random() % LIMIT;
  }
  BENCH_Row(sRow, Goal);
  BENCH_Add(
      "ours",
      [aSample, aBucket, Resolution]() mutable {
        UTIL_FindQuartiles(0, LIMIT - 1, aSample.data(), (uint32_t)aSample.size(), aBucket.data(),
                           (uint32_t)aBucket.size(), Resolution, &aQuartile[0], &aQuartile[1],
                           &aQuartile[2]);
      },
      [aSample, Resolution] { return Nearest(aSample, Resolution); });
  BENCH_Add(
      "nth_element",
      [aSample] {
        std::vector<uint64_t> aCopy = aSample;  // ours leaves the samples in their order too
        const auto            First = aCopy.begin();
        const long            n     = (long)aCopy.size();
        const long            Q25   = n / 4 - 1;
        const long            Q50   = n / 2 - 1;
        const long            Q75   = n - n / 4 - 1;
        std::nth_element(First, First + Q50, aCopy.end());
        std::nth_element(First, First + Q25, First + Q50);
        std::nth_element(First + Q50 + 1, First + Q75, aCopy.end());
        aQuartile[0] = First[Q25];
        aQuartile[1] = First[Q50];
        aQuartile[2] = First[Q75];
      },
      [aSample] { return Nearest(aSample, 0); });
}

void AddGrowth() {
  static std::vector<uint64_t> aSample(1 << 19);
  static std::vector<uint32_t> aBucket(1000);
  std::mt19937_64              Random(4);
  for (uint64_t& Sample : aSample) {
    Sample = Random() % LIMIT;
  }
  BENCH_Growth("two levels, for each sample", 1.5);
  for (const int64_t Size : BENCH_aSize) {
    BENCH_AddSize(Size, Size, [Size] {
      return UTIL_FindQuartiles(0, LIMIT - 1, aSample.data(), (uint32_t)Size, aBucket.data(),
                                (uint32_t)aBucket.size(), 1, &aQuartile[0], &aQuartile[1],
                                &aQuartile[2]);
    });
  }
}

}  // namespace

int main(int NumArgs, char** pasArgs) {
  BENCH_Job("quartiles", "Quartiles of samples below one million");
  AddRow("1000 samples, one level", BENCH_NO_GOAL, 1000, 1000);
  AddRow("100,000 samples, one level", 1.0, 100000, 1000);
  AddRow("1000 samples, two levels", BENCH_NO_GOAL, 1000, 2);
  AddRow("100,000 samples, two levels", 0.40, 100000, 2);
  AddRow("1,000,000 samples, two levels", 0.40, 1000000, 2);
  AddGrowth();
  return BENCH_Main(NumArgs, pasArgs);
}
