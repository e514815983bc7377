#pragma once

#include <benchmark/benchmark.h>

#include <ctime>

namespace zorva::bench {

/// The CPU time of every thread of the process (the SDK's workers and the loopback server's
/// included) from construction to `report`, which sets it as the counter "process_cpu_us" per
/// iteration. A benchmark's own CPU column counts only the thread running it, which for work
/// handed to other threads says little.
class ProcessCpu {
 public:
  ProcessCpu() : start_(now()) {}

  void report(benchmark::State& state) const {
    state.counters["process_cpu_us"] =
        benchmark::Counter((now() - start_) * 1e6, benchmark::Counter::kAvgIterations);
  }

 private:
  static double now() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  }
  double start_;
};

}  // namespace zorva::bench
