#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "support/Ratio.h"

namespace zorva::bench {
namespace {

std::vector<std::pair<std::string, std::string>>& ratios() {
  static std::vector<std::pair<std::string, std::string>> pairs;
  return pairs;
}

// Reports to the console as usual and keeps each benchmark's real time per iteration.
class RecordingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
      if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
        times[run.benchmark_name()] = run.GetAdjustedRealTime();
      }
    }
  }
  std::map<std::string, double> times;
};

}  // namespace

bool reportRatio(std::string measured, std::string baseline) {
  ratios().emplace_back(std::move(measured), std::move(baseline));
  return true;
}

}  // namespace zorva::bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  zorva::bench::RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  for (const auto& [measured, baseline] : zorva::bench::ratios()) {
    auto m = reporter.times.find(measured);
    auto b = reporter.times.find(baseline);
    if (m == reporter.times.end() || b == reporter.times.end() || b->second <= 0) continue;
    std::printf("ratio %s / %s = %.2f\n", measured.c_str(), baseline.c_str(),
                m->second / b->second);
  }
  benchmark::Shutdown();
  return 0;
}
