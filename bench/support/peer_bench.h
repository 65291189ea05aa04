// bench/support/peer_bench.h
// SPDX-License-Identifier: MIT
//
// One job side by side: our function and what a user would take instead, in one program.
//
//   int main(int argc, char** argv) {
//     BENCH_Job("leb128", "Numbers of variable length");
//     BENCH_Row("read, one byte", 1.10);
//     BENCH_Add("ours", [] { return ReadAll(); }, [] { return Text(aResult); });
//     BENCH_Add("LLVM", ...);
//     return BENCH_Main(argc, argv);
//   }
//
// Each contender is a Run, which does the job once and is what gets timed, and an Answer, which
// gives what the last Run produced as text. The first contender of a row is ours, the others are
// its peers. Before anything is timed each one runs once, and the program ends with status 1 when
// an answer differs from ours. So a Run must write its result where Answer finds it.
//
// Options: --check only compares the answers; --json=FILE writes the medians; --instructions runs
// each contender a fixed number of times under "valgrind --tool=callgrind --collect-atstart=no",
// one dump each; others are Google Benchmark's, such as --benchmark_filter=read.
//
// Repetitions of all contenders run in random order, so that none has the quieter part of the run.
// Times are processor time of the thread, and the figures are medians.

#ifndef BENCH_SUPPORT_PEER_BENCH_H
#define BENCH_SUPPORT_PEER_BENCH_H

#include <benchmark/benchmark.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <type_traits>

static constexpr double BENCH_NO_GOAL = 0;

// Names the program's job: a key without blanks, and a title. Call it first.
void BENCH_Job(const char* sKey, const char* sTitle);

// Begins a row. Goal is the ratio, our time by that of the fastest peer, that is to be reached.
// sNote says why it is not, where that is known.
void BENCH_Row(const char* sRow, double Goal, const char* sNote = "");

// Goals for the geometric mean over all rows so far: against the fastest peer of each row, or
// against one that is named.
void BENCH_Mean(const char* sRow, double Goal, const char* sPeer = NULL, const char* sNote = "");

// Begins a row of growth: the same work at several sizes. MaxGrowth is how many times the cost of
// one unit may rise from the first size to the last. Follow with one BENCH_AddSize for each size.
void BENCH_Growth(const char* sRow, double MaxGrowth, const char* sNote = "");

// Sizes of a growth in bytes of memory or the like: all of them in the second cache and none in the
// first, so that what grows is the work.
static constexpr int64_t BENCH_aSize[] = {1 << 16, 1 << 17, 1 << 18, 1 << 19};

// The loops of a contender: the timed one, and one for a fixed number of runs.
struct BENCH_LOOPS {
  std::function<void(benchmark::State&)> Timed;
  std::function<void(int64_t)>           Fixed;
  std::function<std::string()>           Answer;  // runs once and returns what came of it
};

void BENCH_AddLoops(const char* sName, BENCH_LOOPS Loops);
void BENCH_AddSizeLoops(int64_t Size, int64_t NumUnits, BENCH_LOOPS Loops);

template <typename RUN>
inline __attribute__((always_inline)) void BENCH_RunOnce(RUN& Run) {
  if constexpr (std::is_void_v<std::invoke_result_t<RUN&>>) {
    Run();
  } else {
    benchmark::DoNotOptimize(Run());
  }
  benchmark::ClobberMemory();
}

template <typename RUN, typename ANSWER>
BENCH_LOOPS BENCH_MakeLoops(RUN Run, ANSWER Answer) {
  BENCH_LOOPS Loops;
  Loops.Timed = [Run](benchmark::State& s) mutable {
    for (auto _ : s) {
      BENCH_RunOnce(Run);
    }
  };
  Loops.Fixed = [Run](int64_t NumRuns) mutable {
    for (int64_t i = 0; i < NumRuns; i++) {
      BENCH_RunOnce(Run);
    }
  };
  Loops.Answer = [Run, Answer]() mutable {
    BENCH_RunOnce(Run);
    return std::string(Answer());
  };
  return Loops;
}

// Adds a contender to the row.
template <typename RUN, typename ANSWER>
void BENCH_Add(const char* sName, RUN Run, ANSWER Answer) {
  BENCH_AddLoops(sName, BENCH_MakeLoops(Run, Answer));
}

// Adds a size to a row of growth; one Run does NumUnits units of the work.
template <typename RUN>
void BENCH_AddSize(int64_t Size, int64_t NumUnits, RUN Run) {
  BENCH_AddSizeLoops(Size, NumUnits, BENCH_MakeLoops(Run, [] { return ""; }));
}

// Checks, runs and prints. Returns the program's status: 0, or 1 when an answer differs from ours.
int BENCH_Main(int NumArgs, char** pasArgs);

#endif
