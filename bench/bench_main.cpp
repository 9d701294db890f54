// Runs every benchmark, then prints the ratio of each benchmark to its baseline.
//
// A baseline is the benchmark of the same name with "_Baseline" inserted before the
// first "/" (or at the end): BM_Checksum/1024 is measured against BM_Checksum_Baseline/1024.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      Times[run.benchmark_name()] = run.GetAdjustedRealTime();
    }
  }

  void PrintRatios() const {
    std::printf("\nRatios to baseline (time per iteration; lower is faster):\n");
    for (const auto& [name, time] : Times) {
      const auto slash = name.find('/');
      std::string baseline = slash == std::string::npos
                                 ? name + "_Baseline"
                                 : name.substr(0, slash) + "_Baseline" + name.substr(slash);
      auto found = Times.find(baseline);
      if (found == Times.end() || found->second <= 0) continue;
      std::printf("  %-60s %8.3f x %s\n", name.c_str(), time / found->second, baseline.c_str());
    }
  }

 private:
  std::map<std::string, double> Times;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  benchmark::Shutdown();
  return 0;
}
