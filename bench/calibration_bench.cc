#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>
#include <cstring>

#include "bench/images.h"
#include "planex/foundation/multiversion.h"
#include "planex/processing/calibration_block.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::InstructionSet;

/// Image sets used in turn: one stays in the caches, six do not.
struct Sets {
  explicit Sets(int count, int height)
      : pixels(static_cast<std::size_t>(bench::kWidth) * static_cast<std::size_t>(height)) {
    const auto samples = bench::rangeImage(pixels);
    for (int i = 0; i < count; ++i) {
      range.emplace_back(bench::kWidth, height, Image::s_defaultImageAllocator);
      std::memcpy(range.back().GetData(), samples.data(), pixels * sizeof(samples[0]));
      x.emplace_back(bench::kWidth, height, Image::s_defaultImageAllocator);
      z.emplace_back(bench::kWidth, height, Image::s_defaultImageAllocator);
      x.back().SetAll(0);
      z.back().SetAll(0);
    }
  }
  std::size_t next() { return turn = (turn + 1) % range.size(); }

  std::size_t pixels;
  std::vector<ImageOf<std::uint16_t>> range;
  std::vector<ImageOf<float>> x;
  std::vector<ImageOf<float>> z;
  std::size_t turn = 0;
};

void copyBytes(benchmark::State& state, int sets) {
  Sets images(sets, bench::kHeight);
  while (state.KeepRunning()) {
    const std::size_t i = images.next();
    const std::uint16_t* in = images.range[i].GetRowPtr(0);
    float* x = images.x[i].GetRowPtr(0);
    float* z = images.z[i].GetRowPtr(0);
#pragma omp simd
    for (std::size_t n = 0; n < images.pixels; ++n) {
      x[n] = in[n];
      z[n] = in[n];
    }
    benchmark::ClobberMemory();
  }
  bench::reportItems(state, images.pixels);
}

void scalar(benchmark::State& state, bool sheet) {
  Sets images(1, bench::kHeight);
  const reference::Calibration k = bench::camera(sheet);
  while (state.KeepRunning()) {
    bench::calibratePlainly<float>(k, images.range[0].GetRowPtr(0), bench::kWidth, bench::kHeight,
                                   images.x[0].GetRowPtr(0), images.z[0].GetRowPtr(0));
    benchmark::ClobberMemory();
  }
  bench::reportItems(state, images.pixels);
}

void calibrate(benchmark::State& state, InstructionSet set, bool sheet, int sets, int height,
               int threads) {
  omp_set_num_threads(threads);
  cmnalg::limitInstructionSet(set);
  Sets images(sets, height);
  const reference::Calibration k = bench::camera(sheet);
  while (state.KeepRunning()) {
    const std::size_t i = images.next();
    datafusion::planex::basic::applyCalibration(images.range[i], k.a, k.b, k.c, k.d, std::nan(""),
                                                k.lens, k.transform, images.x[i], images.z[i],
                                                false);
    if (sheet) {
      datafusion::planex::basic::applyCalibrationSheetCurve(k.sheet, images.x[i], images.z[i]);
    }
    benchmark::ClobberMemory();
  }
  bench::reportItems(state, images.pixels);
  cmnalg::limitInstructionSet(InstructionSet::Avx512);
}

#define SETS(name, sheet)                                                                       \
  BENCHMARK_CAPTURE(scalar, name, sheet);                                                       \
  BENCHMARK_CAPTURE(calibrate, name##_avx512, InstructionSet::Avx512, sheet, 1, bench::kHeight, \
                    1);                                                                         \
  BENCHMARK_CAPTURE(calibrate, name##_avx2, InstructionSet::Avx2, sheet, 1, bench::kHeight, 1); \
  BENCHMARK_CAPTURE(calibrate, name##_baseline, InstructionSet::Baseline, sheet, 1,             \
                    bench::kHeight, 1)

BENCHMARK_CAPTURE(copyBytes, cached, 1);
BENCHMARK_CAPTURE(copyBytes, uncached, 6);
SETS(flat, false);
SETS(sheet, true);
BENCHMARK_CAPTURE(calibrate, flat_uncached, InstructionSet::Avx512, false, 6, bench::kHeight, 1);
BENCHMARK_CAPTURE(calibrate, sheet_uncached, InstructionSet::Avx512, true, 6, bench::kHeight, 1);
BENCHMARK_CAPTURE(calibrate, flat_two_threads, InstructionSet::Avx512, false, 1, bench::kHeight, 2)
    ->UseRealTime();
BENCHMARK_CAPTURE(calibrate, flat_one_profile, InstructionSet::Avx512, false, 1, 1, 2)
    ->UseRealTime();

}  // namespace
