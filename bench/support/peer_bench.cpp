// SPDX-License-Identifier: MIT

#include "bench/support/peer_bench.h"

#include <math.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <deque>
#include <map>
#include <vector>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#define HAS_CALLGRIND 1
#else
#define HAS_CALLGRIND 0
#endif

namespace {

// Under callgrind each contender runs so many times. One that takes longer than this for a single
// run is left out: for long jobs the time says more.
[[maybe_unused]] const int64_t NUM_COUNTED_RUNS = 20;
[[maybe_unused]] const clock_t MAX_COUNTED_TIME = CLOCKS_PER_SEC / 20;

// Growth is seen in fewer repetitions than a ratio.
const int NUM_GROWTH_REPETITIONS = 9;

struct CONTENDER {
  std::string         Name;  // of a row of growth: the size
  int64_t             NumUnits;
  BENCH_LOOPS         Loops;
  std::vector<double> aTime;  // nanoseconds, one for each repetition
};

struct ROW {
  std::string           Name;
  std::string           Note;
  double                Goal;
  bool                  IsGrowth;
  std::deque<CONTENDER> aContender;
};

struct MEAN {
  std::string Name;
  std::string Note;
  double      Goal;
  std::string Peer;  // empty: the fastest one
  size_t      NumRows;
};

struct JOB {
  std::string      Key;
  std::string      Title;
  std::deque<ROW>  aRow;
  std::deque<MEAN> aMean;
};

JOB Job;

double Median(std::vector<double> aTime) {
  if (aTime.empty()) {
    return 0;
  }
  const size_t Middle = aTime.size() / 2;
  std::sort(aTime.begin(), aTime.end());
  return aTime.size() % 2 != 0 ? aTime[Middle] : (aTime[Middle - 1] + aTime[Middle]) / 2;
}

double MedianOf(const CONTENDER& Contender) {
  return Median(Contender.aTime);
}

// Ours by the peer of that name, or by the fastest one; 0 when there is no such peer.
double Ratio(const ROW& Row, const std::string& Peer) {
  double Best = 0;
  for (size_t i = 1; i < Row.aContender.size(); i++) {
    const double Time = MedianOf(Row.aContender[i]);
    if ((Peer.empty() || Peer == Row.aContender[i].Name) && Time > 0 &&
        (Best == 0 || Time < Best)) {
      Best = Time;
    }
  }
  return Best == 0 || Row.aContender.empty() ? 0 : MedianOf(Row.aContender[0]) / Best;
}

// How many times the cost of one unit rises from the first size to the last.
double Growth(const ROW& Row) {
  const CONTENDER& First = Row.aContender.front();
  const CONTENDER& Last  = Row.aContender.back();
  const double     Begin = MedianOf(First) / (double)First.NumUnits;
  return Begin == 0 ? 0 : MedianOf(Last) / (double)Last.NumUnits / Begin;
}

// The geometric mean of the ratios of all rows that have one.
double MeanRatio(const MEAN& Mean) {
  double Sum = 0;
  int    Num = 0;
  for (size_t i = 0; i < Mean.NumRows; i++) {
    const double Each = Job.aRow[i].IsGrowth ? 0 : Ratio(Job.aRow[i], Mean.Peer);
    if (Each > 0) {
      Sum += log(Each);
      Num++;
    }
  }
  return Num == 0 ? 0 : exp(Sum / Num);
}

class REPORTER : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, CONTENDER*> aByName;

  void ReportRuns(const std::vector<Run>& aRun) override {
    for (const Run& Each : aRun) {
      const auto Found = aByName.find(Each.run_name.function_name);
      if (Each.run_type == Run::RT_Iteration && Found != aByName.end()) {
        Found->second->aTime.push_back(Each.GetAdjustedCPUTime());
      }
    }
  }
};

bool AreAnswersEqual() {
  bool IsEqual = true;
  for (ROW& Row : Job.aRow) {
    std::string Ours;
    for (CONTENDER& Contender : Row.aContender) {
      const std::string Answer = Contender.Loops.Answer();
      if (&Contender == &Row.aContender.front()) {
        Ours = Answer;
      } else if (Answer != Ours) {
        fprintf(stderr, "%s: %s: the answer of %s differs:\n  %.400s\nours:\n  %.400s\n",
                Job.Key.c_str(), Row.Name.c_str(), Contender.Name.c_str(), Answer.c_str(),
                Ours.c_str());
        IsEqual = false;
      }
    }
  }
  return IsEqual;
}

const char* Verdict(double Value, double Goal) {
  return Goal == BENCH_NO_GOAL || Value == 0 ? "" : Value <= Goal ? "met" : "NOT MET";
}

void PrintRow(const ROW& Row) {
  const double Value = Row.IsGrowth ? Growth(Row) : Ratio(Row, "");
  printf("%-36s ratio %6.2f  goal %5.2f  %-7s", Row.Name.c_str(), Value, Row.Goal,
         Verdict(Value, Row.Goal));
  for (const CONTENDER& Contender : Row.aContender) {
    printf("  %s %.1f", Contender.Name.c_str(), MedianOf(Contender));
  }
  printf("\n");
}

void PrintAll() {
  printf("%s: medians in ns\n", Job.Title.c_str());
  for (const ROW& Row : Job.aRow) {
    if (!Row.aContender.empty() && MedianOf(Row.aContender[0]) > 0) {
      PrintRow(Row);
    }
  }
  for (const MEAN& Mean : Job.aMean) {
    const double Value = MeanRatio(Mean);
    printf("%-36s ratio %6.2f  goal %5.2f  %s\n", Mean.Name.c_str(), Value, Mean.Goal,
           Verdict(Value, Mean.Goal));
  }
}

// The texts come from the programs themselves; only quotes and backslashes need an escape.
std::string Quoted(const std::string& Text) {
  std::string Result = "\"";
  for (const char c : Text) {
    if (c == '"' || c == '\\') {
      Result += '\\';
    }
    Result += c;
  }
  return Result + '"';
}

void WriteJsonRow(FILE* pFile, const ROW& Row) {
  fprintf(pFile, "    {\"row\": %s, \"note\": %s, \"goal\": %g, \"growth\": %s, \"ratio\": %.4f,\n",
          Quoted(Row.Name).c_str(), Quoted(Row.Note).c_str(), Row.Goal,
          Row.IsGrowth ? "true" : "false", Row.IsGrowth ? Growth(Row) : Ratio(Row, ""));
  fprintf(pFile, "     \"contenders\": [");
  const char* sSep = "";
  for (const CONTENDER& Contender : Row.aContender) {
    fprintf(pFile, "%s{\"name\": %s, \"units\": %lld, \"ns\": %.3f}", sSep,
            Quoted(Contender.Name).c_str(), (long long)Contender.NumUnits, MedianOf(Contender));
    sSep = ", ";
  }
  fprintf(pFile, "]}");
}

int WriteJson(const char* sFile) {
  FILE* pFile = fopen(sFile, "w");
  if (pFile == NULL) {
    perror(sFile);
    return 1;
  }
  fprintf(pFile, "{\"job\": %s, \"title\": %s,\n  \"rows\": [\n", Quoted(Job.Key).c_str(),
          Quoted(Job.Title).c_str());
  for (const ROW& Row : Job.aRow) {
    WriteJsonRow(pFile, Row);
    fprintf(pFile, "%s\n", &Row == &Job.aRow.back() ? "" : ",");
  }
  fprintf(pFile, "  ],\n  \"means\": [\n");
  for (const MEAN& Mean : Job.aMean) {
    fprintf(pFile,
            "    {\"row\": %s, \"note\": %s, \"goal\": %g, \"peer\": %s, \"ratio\": %.4f}%s\n",
            Quoted(Mean.Name).c_str(), Quoted(Mean.Note).c_str(), Mean.Goal,
            Quoted(Mean.Peer).c_str(), MeanRatio(Mean), &Mean == &Job.aMean.back() ? "" : ",");
  }
  fprintf(pFile, "  ]}\n");
  return fclose(pFile) == 0 ? 0 : 1;
}

int CountInstructions() {
#if HAS_CALLGRIND
  for (ROW& Row : Job.aRow) {
    if (Row.IsGrowth) {
      continue;
    }
    for (CONTENDER& Contender : Row.aContender) {
      const std::string Name  = Row.Name + " | " + Contender.Name;
      const clock_t     Begin = clock();
      Contender.Loops.Fixed(1);
      if (clock() - Begin > MAX_COUNTED_TIME) {
        continue;
      }
      CALLGRIND_TOGGLE_COLLECT;
      Contender.Loops.Fixed(NUM_COUNTED_RUNS);
      CALLGRIND_TOGGLE_COLLECT;
      CALLGRIND_DUMP_STATS_AT(Name.c_str());
    }
  }
  printf("runs counted: %lld\n", (long long)NUM_COUNTED_RUNS);
  return 0;
#else
  fprintf(stderr, "built without valgrind's headers: instructions cannot be counted\n");
  return 1;
#endif
}

void Register(REPORTER* pReporter) {
  for (ROW& Row : Job.aRow) {
    for (CONTENDER& Contender : Row.aContender) {
      const std::string Name   = Row.Name + " | " + Contender.Name;
      pReporter->aByName[Name] = &Contender;
      auto* pBenchmark         = benchmark::RegisterBenchmark(Name.c_str(), Contender.Loops.Timed);
      if (Row.IsGrowth) {
        pBenchmark->Repetitions(NUM_GROWTH_REPETITIONS);
      }
    }
  }
}

// Ours come first, so that a user's own options have the last word.
std::vector<char*> WithDefaults(const std::vector<char*>& aArg) {
  static char acInterleave[]  = "--benchmark_enable_random_interleaving=true";
  static char acRepetitions[] = "--benchmark_repetitions=25";
  static char acMinTime[]     = "--benchmark_min_time=0.01";

  std::vector<char*> aAll = {aArg[0], acInterleave, acRepetitions, acMinTime};
  aAll.insert(aAll.end(), aArg.begin() + 1, aArg.end());
  return aAll;
}

}  // namespace

void BENCH_Job(const char* sKey, const char* sTitle) {
  Job.Key   = sKey;
  Job.Title = sTitle;
}

void BENCH_Row(const char* sRow, double Goal, const char* sNote) {
  Job.aRow.push_back({sRow, sNote, Goal, false, {}});
}

void BENCH_Mean(const char* sRow, double Goal, const char* sPeer, const char* sNote) {
  Job.aMean.push_back({sRow, sNote, Goal, sPeer != NULL ? sPeer : "", Job.aRow.size()});
}

void BENCH_Growth(const char* sRow, double MaxGrowth, const char* sNote) {
  Job.aRow.push_back({sRow, sNote, MaxGrowth, true, {}});
}

void BENCH_AddLoops(const char* sName, BENCH_LOOPS Loops) {
  Job.aRow.back().aContender.push_back({sName, 1, std::move(Loops), {}});
}

void BENCH_AddSizeLoops(int64_t Size, int64_t NumUnits, BENCH_LOOPS Loops) {
  Job.aRow.back().aContender.push_back({std::to_string(Size), NumUnits, std::move(Loops), {}});
}

int BENCH_Main(int NumArgs, char** pasArgs) {
  const char*        sJson          = NULL;
  bool               IsCheckOnly    = false;
  bool               IsInstructions = false;
  std::vector<char*> aArg;
  for (int i = 0; i < NumArgs; i++) {
    if (strncmp(pasArgs[i], "--json=", 7) == 0) {
      sJson = pasArgs[i] + 7;
    } else if (strcmp(pasArgs[i], "--check") == 0) {
      IsCheckOnly = true;
    } else if (strcmp(pasArgs[i], "--instructions") == 0) {
      IsInstructions = true;
    } else {
      aArg.push_back(pasArgs[i]);
    }
  }
  if (!AreAnswersEqual()) {
    return 1;
  }
  if (IsCheckOnly || IsInstructions) {
    return IsCheckOnly ? 0 : CountInstructions();
  }
  REPORTER Reporter;
  Register(&Reporter);
  aArg       = WithDefaults(aArg);
  int NumAll = (int)aArg.size();
  benchmark::Initialize(&NumAll, aArg.data());
  if (benchmark::ReportUnrecognizedArguments(NumAll, aArg.data())) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks(&Reporter);
  PrintAll();
  return sJson != NULL ? WriteJson(sJson) : 0;
}
