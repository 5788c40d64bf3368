#include <benchmark/benchmark.h>
#include <omp.h>

#include "bench/calls.h"
#include "planex/api/registries.h"

namespace {

/// `rows` profiles a call: all of them, or one.
void calibrateCalls(benchmark::State& state, int rows, int threads) {
  omp_set_num_threads(threads);
  bench::Calls calls(bench::kWidth, bench::kHeight, rows);
  while (state.KeepRunning()) calls.calibrate();
  bench::reportItems(state, calls.pixels());
}

void rectifyCalls(benchmark::State& state, int rows, int threads) {
  omp_set_num_threads(threads);
  bench::Calls calls(bench::kWidth, bench::kHeight, rows);
  calls.calibrate();
  while (state.KeepRunning()) calls.rectify();
  bench::reportItems(state, calls.pixels());
}

/// What every call does first.
void lookUpModel(benchmark::State& state) {
  const bench::Calls calls(bench::kWidth, 1, 1);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(tavik::planex::models().copyOf(calls.model()));
  }
}

#define CALLS(function)                                                               \
  BENCHMARK_CAPTURE(function, image, bench::kHeight, 1);                              \
  BENCHMARK_CAPTURE(function, profiles, 1, 1);                                        \
  BENCHMARK_CAPTURE(function, image_all_threads, bench::kHeight, omp_get_num_procs()) \
      ->UseRealTime();                                                                \
  BENCHMARK_CAPTURE(function, profiles_all_threads, 1, omp_get_num_procs())->UseRealTime()
CALLS(calibrateCalls);
CALLS(rectifyCalls);
BENCHMARK(lookUpModel);

}  // namespace
