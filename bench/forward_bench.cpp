// What a forwarding function costs once it is resolved, against a call through the procedure
// linkage table into the same code. Runs of the two alternate; the ratio is that of the medians.

#include <benchmark/benchmark.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

extern "C" {
uint32_t QUOBEARM_GetSpeed(void);  // the forwarding function
uint32_t PEER_GetSpeed(void);      // in a library this program links
}

static void BM_Plt(benchmark::State& State) {
  for (auto _ : State) {
    benchmark::DoNotOptimize(PEER_GetSpeed());
  }
}

static void BM_Forwarding(benchmark::State& State) {
  QUOBEARM_GetSpeed();  // the first call resolves
  for (auto _ : State) {
    benchmark::DoNotOptimize(QUOBEARM_GetSpeed());
  }
}

BENCHMARK(BM_Plt)->Repetitions(15)->MinTime(0.1);
BENCHMARK(BM_Forwarding)->Repetitions(15)->MinTime(0.1);

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& Runs) override {
    ConsoleReporter::ReportRuns(Runs);
    for (const Run& R : Runs) {
      if (R.run_type == Run::RT_Iteration) {
        Times[R.run_name.function_name].push_back(R.GetAdjustedCPUTime());
      }
    }
  }
  double Median(const std::string& Name) {
    std::vector<double>& T = Times[Name];
    std::sort(T.begin(), T.end());
    return T.empty() ? 0 : T[T.size() / 2];
  }

 private:
  std::map<std::string, std::vector<double>> Times;
};

int main(int NumArgs, char** pasArgs) {
  // Repetitions of the two in random order, so that neither has the quieter half of the machine.
  std::vector<char*> Args(pasArgs, pasArgs + NumArgs);
  char               acInterleave[] = "--benchmark_enable_random_interleaving=true";
  Args.insert(Args.begin() + 1, acInterleave);
  int NumAll = static_cast<int>(Args.size());
  benchmark::Initialize(&NumAll, Args.data());
  RatioReporter Reporter;
  benchmark::RunSpecifiedBenchmarks(&Reporter);
  const double Plt = Reporter.Median("BM_Plt"), Forwarding = Reporter.Median("BM_Forwarding");
  if (Plt > 0) {
    printf("resolved forwarding call / call through the PLT: %.3f\n", Forwarding / Plt);
  }
  return 0;
}
