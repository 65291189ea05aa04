// What UTIL costs beside what a user would take instead: the C library, the standard library, or a
// plain loop. build/release/bench/util_bench [--benchmark_filter=...]
//
// Every pair does the same work on the same data. At the end each pair's ratio is printed: above 1
// ours is the faster one.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <algorithm>
#include <bit>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "util/arith.h"
#include "util/bits.h"
#include "util/byteorder.h"
#include "util/format.h"
#include "util/scan.h"
#include "util/string.h"
#include "util/value_text.h"

using benchmark::DoNotOptimize;
using benchmark::State;

static std::vector<uint8_t> RandomBytes(size_t NumBytes) {
  std::mt19937         Random(1);
  std::vector<uint8_t> Bytes(NumBytes);
  for (uint8_t& b : Bytes) {
    b = (uint8_t)Random();
  }
  return Bytes;
}

static void SetBytes(State& s) {
  s.SetBytesProcessed((int64_t)s.iterations() * s.range(0));
}

// Array swaps

template <typename UNIT>
static UNIT Swapped(UNIT Value) {
  if constexpr (sizeof(UNIT) == 2) {
    return __builtin_bswap16(Value);
  } else if constexpr (sizeof(UNIT) == 4) {
    return __builtin_bswap32(Value);
  } else {
    return __builtin_bswap64(Value);
  }
}

template <typename UNIT>
static void SwapOurs(void* pDest, const void* pSource, uint32_t NumItems) {
  if constexpr (sizeof(UNIT) == 2) {
    UTIL_SwapArrayU16(pDest, pSource, NumItems);
  } else if constexpr (sizeof(UNIT) == 4) {
    UTIL_SwapArrayU32(pDest, pSource, NumItems);
  } else {
    UTIL_SwapArrayU64(pDest, pSource, NumItems);
  }
}

template <typename UNIT>
static void InPlaceOurs(State& s) {
  std::vector<uint8_t> Data = RandomBytes((size_t)s.range(0));
  for (auto _ : s) {
    SwapOurs<UNIT>(Data.data(), Data.data(), (uint32_t)(Data.size() / sizeof(UNIT)));
    benchmark::ClobberMemory();
  }
  SetBytes(s);
}

template <typename UNIT>
static void InPlacePeer(State& s) {
  std::vector<UNIT> Data((size_t)s.range(0) / sizeof(UNIT), 1);
  for (auto _ : s) {
    std::transform(Data.begin(), Data.end(), Data.begin(), Swapped<UNIT>);
    benchmark::ClobberMemory();
  }
  SetBytes(s);
}

template <typename UNIT>
static void CopyOurs(State& s) {
  const std::vector<uint8_t> Source = RandomBytes((size_t)s.range(0));
  std::vector<uint8_t>       Dest(Source.size());
  for (auto _ : s) {
    SwapOurs<UNIT>(Dest.data(), Source.data(), (uint32_t)(Source.size() / sizeof(UNIT)));
    benchmark::ClobberMemory();
  }
  SetBytes(s);
}

template <typename UNIT>
static void CopyPeer(State& s) {
  const std::vector<UNIT> Source((size_t)s.range(0) / sizeof(UNIT), 1);
  std::vector<UNIT>       Dest(Source.size());
  for (auto _ : s) {
    std::transform(Source.begin(), Source.end(), Dest.begin(), Swapped<UNIT>);
    benchmark::ClobberMemory();
  }
  SetBytes(s);
}

// Bytes

static void MemCmpOurs(State& s) {
  const std::vector<uint8_t> A = RandomBytes((size_t)s.range(0)), B = A;
  for (auto _ : s) {
    DoNotOptimize(UTIL_MemCmp(A.data(), B.data(), (uint32_t)A.size()));
  }
  SetBytes(s);
}

static void MemCmpPeer(State& s) {
  const std::vector<uint8_t> A = RandomBytes((size_t)s.range(0)), B = A;
  for (auto _ : s) {
    DoNotOptimize(memcmp(A.data(), B.data(), A.size()));
  }
  SetBytes(s);
}

static void FindDiffOurs(State& s) {
  const std::vector<uint8_t> A = RandomBytes((size_t)s.range(0)), B = A;
  for (auto _ : s) {
    DoNotOptimize(UTIL_FindDiff(A.data(), B.data(), (int32_t)A.size()));
  }
  SetBytes(s);
}

static void FindDiffPeer(State& s) {
  const std::vector<uint8_t> A = RandomBytes((size_t)s.range(0)), B = A;
  for (auto _ : s) {
    DoNotOptimize(std::mismatch(A.begin(), A.end(), B.begin()));
  }
  SetBytes(s);
}

static void MemCaseCmpOurs(State& s) {
  const std::vector<uint8_t> A((size_t)s.range(0), 'a'), B((size_t)s.range(0), 'A');
  for (auto _ : s) {
    DoNotOptimize(UTIL_MemCaseCmp(A.data(), B.data(), (uint32_t)A.size()));
  }
  SetBytes(s);
}

static void MemCaseCmpPeer(State& s) {
  const std::vector<char> A((size_t)s.range(0), 'a'), B((size_t)s.range(0), 'A');
  for (auto _ : s) {
    DoNotOptimize(strncasecmp(A.data(), B.data(), A.size()));
  }
  SetBytes(s);
}

static void FillCheckOurs(State& s) {
  const std::vector<uint8_t> A((size_t)s.range(0), 0xFF);
  for (auto _ : s) {
    DoNotOptimize(UTIL_FindNotEqual(A.data(), 0xFF, (uint32_t)A.size()));
  }
  SetBytes(s);
}

static void FillCheckPeer(State& s) {
  const std::vector<uint8_t> A((size_t)s.range(0), 0xFF);
  for (auto _ : s) {
    DoNotOptimize(std::find_if(A.begin(), A.end(), [](uint8_t b) { return b != 0xFF; }));
  }
  SetBytes(s);
}

static void ReverseOurs(State& s) {
  std::vector<uint8_t> A = RandomBytes((size_t)s.range(0));
  for (auto _ : s) {
    UTIL_ReverseBytes(A.data(), (uint32_t)A.size());
    benchmark::ClobberMemory();
  }
  SetBytes(s);
}

static void ReversePeer(State& s) {
  std::vector<uint8_t> A = RandomBytes((size_t)s.range(0));
  for (auto _ : s) {
    std::reverse(A.begin(), A.end());
    benchmark::ClobberMemory();
  }
  SetBytes(s);
}

static void HexDumpOurs(State& s) {
  const std::vector<uint8_t> A = RandomBytes((size_t)s.range(0));
  std::vector<char>          Text(A.size() * 4 + 64);
  for (auto _ : s) {
    DoNotOptimize(UTIL_HexDump(Text.data(), (uint32_t)Text.size(), A.data(), (uint32_t)A.size(), 1,
                               0x20000000, 16));
  }
  SetBytes(s);
}

static void HexDumpPeer(State& s) {
  const std::vector<uint8_t> A = RandomBytes((size_t)s.range(0));
  std::vector<char>          Text(A.size() * 4 + 64);
  for (auto _ : s) {
    char* p = Text.data();
    for (size_t i = 0; i < A.size(); i++) {
      if (i % 16 == 0) {
        p += snprintf(p, 16, "0x%08X: ", (unsigned)(0x20000000 + i));
      }
      p += snprintf(p, 4, "%02X ", A[i]);
      if (i % 16 == 15) {
        p += snprintf(p, 3, "\r\n");
      }
    }
    DoNotOptimize(p);
  }
  SetBytes(s);
}

// Bits

static void SetBitsOurs(State& s) {
  std::vector<uint8_t> Bitmap((size_t)s.range(0));
  for (auto _ : s) {
    UTIL_SetBits(Bitmap.data(), 3, (uint32_t)Bitmap.size() * 8 - 5);
    benchmark::ClobberMemory();
  }
  SetBytes(s);
}

static void SetBitsPeer(State& s) {
  std::vector<bool> Bitmap((size_t)s.range(0) * 8);
  for (auto _ : s) {
    std::fill(Bitmap.begin() + 3, Bitmap.end() - 2, true);
    benchmark::ClobberMemory();
  }
  SetBytes(s);
}

static const size_t NUM_WORDS = 1024;

static std::vector<uint32_t> RandomWords() {
  std::mt19937          Random(2);
  std::vector<uint32_t> Words(NUM_WORDS);
  for (uint32_t& Word : Words) {
    Word = (uint32_t)Random();
  }
  return Words;
}

template <typename FUNC>
static void OverWords(State& s, FUNC Func) {
  const std::vector<uint32_t> Words = RandomWords();
  for (auto _ : s) {
    uint32_t Sum = 0;
    for (uint32_t Word : Words) {
      Sum += Func(Word);
    }
    DoNotOptimize(Sum);
  }
  s.SetItemsProcessed(s.iterations() * (int64_t)NUM_WORDS);
}

static uint32_t ReversedByShifts(uint32_t x) {
  x = ((x >> 1) & 0x55555555) | ((x & 0x55555555) << 1);
  x = ((x >> 2) & 0x33333333) | ((x & 0x33333333) << 2);
  x = ((x >> 4) & 0x0F0F0F0F) | ((x & 0x0F0F0F0F) << 4);
  return __builtin_bswap32(x);
}

// A call for each word, as ours is.
__attribute__((noinline)) static uint32_t CalledReversal(uint32_t x) {
  return ReversedByShifts(x);
}

__attribute__((noinline)) static uint32_t CalledPopcount(uint32_t x) {
  return (uint32_t)std::popcount(x);
}

static void CountBitsOurs(State& s) {
  OverWords(s, UTIL_CountBits);
}

static void CountBitsPeer(State& s) {
  OverWords(s, CalledPopcount);
}

static void BitRevOurs(State& s) {
  OverWords(s, UTIL_GetBitRev32);
}

static void BitRevPeer(State& s) {
  OverWords(s, CalledReversal);
}

static void QuartilesOurs(State& s) {
  std::mt19937_64       Random(3);
  std::vector<uint64_t> Samples((size_t)s.range(0));
  std::vector<uint32_t> Buckets(1000);
  for (uint64_t& Sample : Samples) {
    Sample = Random() % 1000000;
  }
  for (auto _ : s) {
    uint64_t a[3];
    DoNotOptimize(UTIL_FindQuartiles(0, 999999, Samples.data(), (uint32_t)Samples.size(),
                                     Buckets.data(), 1000, 1000, &a[0], &a[1], &a[2]));
  }
  SetBytes(s);
}

static void QuartilesPeer(State& s) {
  std::mt19937_64       Random(3);
  std::vector<uint64_t> Samples((size_t)s.range(0));
  for (uint64_t& Sample : Samples) {
    Sample = Random() % 1000000;
  }
  for (auto _ : s) {
    std::vector<uint64_t> Copy = Samples;  // ours leaves the samples in their order too
    const long            n    = (long)Copy.size();
    std::nth_element(Copy.begin(), Copy.begin() + n / 2, Copy.end());
    std::nth_element(Copy.begin(), Copy.begin() + n / 4, Copy.begin() + n / 2);
    std::nth_element(Copy.begin() + n / 2, Copy.begin() + (n - n / 4), Copy.end());
    DoNotOptimize(Copy.data());
  }
  SetBytes(s);
}

// Texts

static void FormatOurs(State& s) {
  char ac[128];
  int  i = 0;
  for (auto _ : s) {
    DoNotOptimize(
        UTIL_snprintf(ac, sizeof(ac), "%s: %d of %u at 0x%.8X", "Write", i++, 1000u, 0x20u));
  }
}

static void FormatPeer(State& s) {
  char ac[128];
  int  i = 0;
  for (auto _ : s) {
    DoNotOptimize(snprintf(ac, sizeof(ac), "%s: %d of %u at 0x%.8X", "Write", i++, 1000u, 0x20u));
  }
}

static void ParseIntOurs(State& s) {
  for (auto _ : s) {
    const char* p = "  -1234567 0x12ABCDEF";
    int64_t     A = 0, B = 0;
    UTIL_ParseInt(&p, &A, 0);
    UTIL_ParseInt(&p, &B, 0);
    DoNotOptimize(A + B);
  }
}

static void ParseIntPeer(State& s) {
  for (auto _ : s) {
    const char* p = "  -1234567 0x12ABCDEF";
    DoNotOptimize(p);
    char*           pEnd;
    const long long A = strtoll(p, &pEnd, 0);
    const long long B = strtoll(pEnd, &pEnd, 0);
    DoNotOptimize(A + B);
  }
}

static void ParseIPOurs(State& s) {
  for (auto _ : s) {
    uint32_t Addr = 0;
    DoNotOptimize(UTIL_ParseIPAddr("192.168.100.200", &Addr));
    DoNotOptimize(Addr);
  }
}

static void ParseIPPeer(State& s) {
  for (auto _ : s) {
    in_addr Addr;
    DoNotOptimize(inet_pton(AF_INET, "192.168.100.200", &Addr));
    DoNotOptimize(Addr);
  }
}

static void CompareNoCaseOurs(State& s) {
  const std::string A((size_t)s.range(0), 'a'), B((size_t)s.range(0), 'A');
  for (auto _ : s) {
    DoNotOptimize(UTIL_StrCaseCmp(A.c_str(), B.c_str()));
  }
  SetBytes(s);
}

static void CompareNoCasePeer(State& s) {
  const std::string A((size_t)s.range(0), 'a'), B((size_t)s.range(0), 'A');
  for (auto _ : s) {
    DoNotOptimize(strcasecmp(A.c_str(), B.c_str()));
  }
  SetBytes(s);
}

static void CopyStringOurs(State& s) {
  const std::string A((size_t)s.range(0), 'a');
  std::vector<char> Dest(A.size() + 1);
  for (auto _ : s) {
    UTIL_CopyString(Dest.data(), A.c_str(), (uint32_t)Dest.size());
    benchmark::ClobberMemory();
  }
  SetBytes(s);
}

static void CopyStringPeer(State& s) {
  const std::string A((size_t)s.range(0), 'a');
  std::vector<char> Dest(A.size() + 1);
  for (auto _ : s) {
    snprintf(Dest.data(), Dest.size(), "%s", A.c_str());
    benchmark::ClobberMemory();
  }
  SetBytes(s);
}

// Prints the usual lines and keeps the times for the ratios.
class RATIO_REPORTER : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& Runs) override {
    ConsoleReporter::ReportRuns(Runs);
    for (const Run& Each : Runs) {
      const std::string Name = Each.benchmark_name();
      const size_t      At   = Name.find(" ours");
      const size_t      Peer = Name.find(" peer");
      const size_t      Cut  = At != std::string::npos ? At : Peer;
      if (Cut != std::string::npos) {
        std::pair<double, double>& Times = aTimes[Name.substr(0, Cut) + Name.substr(Cut + 5)];
        (At != std::string::npos ? Times.first : Times.second) = Each.GetAdjustedCPUTime();
      }
    }
  }
  void Finalize() override {
    printf("\n%-32s %12s %12s %8s\n", "ratio", "ours/ns", "peer/ns", "peer/ours");
    for (const auto& [Name, Times] : aTimes) {
      printf("%-32s %12.1f %12.1f %8.2f\n", Name.c_str(), Times.first, Times.second,
             Times.second / Times.first);
    }
  }

 private:
  std::map<std::string, std::pair<double, double>> aTimes;
};

typedef void BENCH_FUNC(State&);

static void AddPair(const std::string& Name, BENCH_FUNC* pfOurs, BENCH_FUNC* pfPeer,
                    const std::vector<int64_t>& Sizes) {
  benchmark::internal::Benchmark* pOurs =
      benchmark::RegisterBenchmark((Name + " ours").c_str(), pfOurs);
  benchmark::internal::Benchmark* pPeer =
      benchmark::RegisterBenchmark((Name + " peer").c_str(), pfPeer);
  for (const int64_t Size : Sizes) {
    pOurs->Arg(Size);
    pPeer->Arg(Size);
  }
}

int main(int argc, char** argv) {
  const std::vector<int64_t> Images = {64, 4096, 1 << 20};  // bytes
  AddPair("swap16 in place", InPlaceOurs<uint16_t>, InPlacePeer<uint16_t>, Images);
  AddPair("swap32 in place", InPlaceOurs<uint32_t>, InPlacePeer<uint32_t>, Images);
  AddPair("swap64 in place", InPlaceOurs<uint64_t>, InPlacePeer<uint64_t>, Images);
  AddPair("swap16 copy", CopyOurs<uint16_t>, CopyPeer<uint16_t>, Images);
  AddPair("swap32 copy", CopyOurs<uint32_t>, CopyPeer<uint32_t>, Images);
  AddPair("swap64 copy", CopyOurs<uint64_t>, CopyPeer<uint64_t>, Images);
  AddPair("memcmp", MemCmpOurs, MemCmpPeer, Images);
  AddPair("first difference", FindDiffOurs, FindDiffPeer, Images);
  AddPair("memcmp no case", MemCaseCmpOurs, MemCaseCmpPeer, Images);
  AddPair("fill check", FillCheckOurs, FillCheckPeer, Images);
  AddPair("reverse bytes", ReverseOurs, ReversePeer, Images);
  AddPair("hex dump", HexDumpOurs, HexDumpPeer, {64, 4096});
  AddPair("set bit run", SetBitsOurs, SetBitsPeer, Images);
  AddPair("count bits", CountBitsOurs, CountBitsPeer, {});
  AddPair("reverse bits", BitRevOurs, BitRevPeer, {});
  AddPair("quartiles", QuartilesOurs, QuartilesPeer, {1000, 100000});
  AddPair("format", FormatOurs, FormatPeer, {});
  AddPair("parse int", ParseIntOurs, ParseIntPeer, {});
  AddPair("parse IP", ParseIPOurs, ParseIPPeer, {});
  AddPair("compare no case", CompareNoCaseOurs, CompareNoCasePeer, {16, 256});
  AddPair("copy string", CopyStringOurs, CopyStringPeer, {16, 256});

  benchmark::Initialize(&argc, argv);
  RATIO_REPORTER Reporter;
  benchmark::RunSpecifiedBenchmarks(&Reporter);
  return 0;
}
