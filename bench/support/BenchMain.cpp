#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/Ratio.h"

namespace zorva::bench {
namespace {

std::vector<std::pair<std::string, std::string>>& ratios() {
  static std::vector<std::pair<std::string, std::string>> pairs;
  return pairs;
}

struct Times {
  double real = 0;
  double cpu = 0;
};

// Reports to the console as usual and keeps each benchmark's real and CPU time per iteration:
// with --benchmark_repetitions, the least of the repetitions (the one least disturbed by the
// rest of the machine), which --benchmark_enable_random_interleaving spreads over the run.
class RecordingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.iterations <= 0) continue;
      const Times measured{run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
      auto [entry, added] = times.try_emplace(run.benchmark_name(), measured);
      if (!added && measured.real < entry->second.real) entry->second = measured;
    }
  }
  std::map<std::string, Times> times;
};

}  // namespace

bool reportRatio(std::string measured, std::string baseline) {
  ratios().emplace_back(std::move(measured), std::move(baseline));
  return true;
}

}  // namespace zorva::bench

int main(int argc, char** argv) {
  // Every program runs as a threaded process from the start. The SDK always is one (its URL
  // session runs a thread), while a process that has never started a thread gets the C and C++
  // libraries' single-threaded paths (shared pointers' counts and malloc without atomic
  // operations): a baseline measured before the first thread would be timed on those, and one
  // measured after on the others, depending on the order the benchmarks ran in.
  std::thread([] {}).join();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  zorva::bench::RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  for (const auto& [measured, baseline] : zorva::bench::ratios()) {
    auto m = reporter.times.find(measured);
    auto b = reporter.times.find(baseline);
    if (m == reporter.times.end() || b == reporter.times.end() || b->second.real <= 0 ||
        b->second.cpu <= 0) {
      continue;
    }
    std::printf("ratio %s / %s = %.2f (CPU time %.2f)\n", measured.c_str(), baseline.c_str(),
                m->second.real / b->second.real, m->second.cpu / b->second.cpu);
  }
  benchmark::Shutdown();
  return 0;
}
