#include <benchmark/benchmark.h>
#include <omp.h>

#include <fstream>
#include <functional>

#include "bench/calls.h"

/// Whole calls from 1 M to 250 M pixels on one thread: time per pixel, and as `extra_MB` the peak
/// memory beyond the caller's buffers. The largest image takes 3.5 GB.
namespace {

/// A figure of /proc/self/status in MB.
double memory(const std::string& figure) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(figure + ":", 0) == 0) return std::stod(line.substr(figure.size() + 1)) / 1024;
  }
  return 0;
}

void resetPeak() { std::ofstream("/proc/self/clear_refs") << 5; }

constexpr int kWidth = 4096;

/// The peak is that from the first call on, which finds all buffers written.
void run(benchmark::State& state, bench::Calls& calls, const std::function<void()>& call) {
  omp_set_num_threads(1);
  resetPeak();
  const double before = memory("VmRSS");
  call();
  while (state.KeepRunning()) call();
  state.counters["extra_MB"] = memory("VmHWM") - before;
  bench::reportItems(state, calls.pixels());
}

void applyCalibration(benchmark::State& state) {
  const auto height = static_cast<int>(state.range(0));
  bench::Calls calls(kWidth, height, height);
  run(state, calls, [&] { calls.calibrate(); });
}

void rectify(benchmark::State& state) {
  const auto height = static_cast<int>(state.range(0));
  bench::Calls calls(kWidth, height, height);
  calls.calibrate();
  run(state, calls, [&] { calls.rectify(); });
}

#define HEIGHTS ->Arg(250)->Arg(2500)->Arg(25000)->Arg(61035)
BENCHMARK(applyCalibration) HEIGHTS;
BENCHMARK(rectify) HEIGHTS;

}  // namespace
