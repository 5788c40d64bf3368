#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>

#include "bench/images.h"
#include "planex/foundation/multiversion.h"
#include "planex/processing/alignment_block.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::InstructionSet;
using cmnalg::Matrix;

constexpr int kCachedRows = 400;  ///< 20 bytes a pixel: 20 MB
constexpr double kPose[12] = {0.98, 0.1, 0.2, 12, 0.05, 1, 0.02, -7, -0.2, 0.01, 0.98, 30};

/// Calibrated X and Z, and what alignment writes.
struct Set {
  explicit Set(int height) {
    std::mt19937 random(4);
    for (ImageOf<float>* image : {&x, &z, &xOut, &yOut, &zOut}) {
      image->Create(bench::kWidth, height, Image::s_defaultImageAllocator);
      image->SetAll(0);
    }
    for (std::size_t i = 0; i < pixels(); ++i) {
      x.GetRowPtr(0)[i] = static_cast<float>(random() % 6000) * 0.01f - 30;
      z.GetRowPtr(0)[i] =
          random() % 100 < 12 ? std::nanf("") : static_cast<float>(random() % 4000) * 0.01f;
    }
  }
  std::size_t pixels() const {
    return static_cast<std::size_t>(x.GetWidth()) * static_cast<std::size_t>(x.GetHeight());
  }

  ImageOf<float> x, z, xOut, yOut, zOut;
};

etl::Vector<double> profilePositions(int height) {
  etl::Vector<double> y;
  for (int row = 0; row < height; ++row) y.push_back(0.25 * row);
  return y;
}

/// Runs `align(set)` over `count` sets in turn: one stays in the caches, six do not.
template <typename Align>
void run(benchmark::State& state, int count, int height, Align align) {
  std::vector<Set> sets;
  sets.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) sets.emplace_back(height);
  std::size_t turn = 0;
  while (state.KeepRunning()) {
    align(sets[turn = (turn + 1) % sets.size()]);
    benchmark::ClobberMemory();
  }
  bench::reportItems(state, sets[0].pixels());
}

void copyBytes(benchmark::State& state, int count, int height) {
  run(state, count, height, [](Set& set) {
    const float* x = set.x.GetRowPtr(0);
    const float* z = set.z.GetRowPtr(0);
    float* xOut = set.xOut.GetRowPtr(0);
    float* yOut = set.yOut.GetRowPtr(0);
    float* zOut = set.zOut.GetRowPtr(0);
    const std::size_t pixels = set.pixels();
#pragma omp simd
    for (std::size_t n = 0; n < pixels; ++n) {
      xOut[n] = x[n];
      yOut[n] = z[n];
      zOut[n] = z[n];
    }
  });
}

/// `scale` is that of the values of X and Z; with 1 they are taken as they are.
void scalar(benchmark::State& state, double scale) {
  const etl::Vector<double> positions = profilePositions(bench::kHeight);
  const double* t = kPose;
  run(state, 1, kCachedRows, [&](Set& set) {
    for (int v = 0; v < kCachedRows; ++v) {
      const double y = static_cast<float>(positions[static_cast<std::size_t>(v)]);
      for (int u = 0; u < bench::kWidth; ++u) {
        const float z = set.z.Pix(u, v);
        if (std::isnan(z)) {
          set.xOut.Pix(u, v) = set.yOut.Pix(u, v) = set.zOut.Pix(u, v) = std::nanf("");
          continue;
        }
        const double xs = static_cast<float>(set.x.Pix(u, v) * scale);
        const double zs = static_cast<float>(z * scale);
        set.xOut.Pix(u, v) = static_cast<float>(t[0] * xs + t[1] * y + t[2] * zs + t[3]);
        set.yOut.Pix(u, v) = static_cast<float>(t[4] * xs + t[5] * y + t[6] * zs + t[7]);
        set.zOut.Pix(u, v) = static_cast<float>(t[8] * xs + t[9] * y + t[10] * zs + t[11]);
      }
    }
  });
}

void align(benchmark::State& state, InstructionSet instructions, double scale, int count,
           int height) {
  omp_set_num_threads(1);
  cmnalg::limitInstructionSet(instructions);
  const etl::Vector<double> positions = profilePositions(height);
  const Matrix<double> transform = Matrix<double>::FromRows(3, 4, kPose);
  run(state, count, height, [&](Set& set) {
    set.x.PixelSize.z = set.z.PixelSize.z = scale;
    datafusion::planex::basic::applyAlignment(set.x, positions, set.z, transform, set.xOut,
                                              set.yOut, set.zOut);
  });
  cmnalg::limitInstructionSet(InstructionSet::Avx512);
}

BENCHMARK_CAPTURE(copyBytes, align_cached, 1, kCachedRows);
BENCHMARK_CAPTURE(copyBytes, align_uncached, 6, bench::kHeight);

#define BODY(name, scale)                                                                     \
  BENCHMARK_CAPTURE(scalar, name, scale);                                                     \
  BENCHMARK_CAPTURE(align, name##_avx512, InstructionSet::Avx512, scale, 1, kCachedRows);     \
  BENCHMARK_CAPTURE(align, name##_avx2, InstructionSet::Avx2, scale, 1, kCachedRows);         \
  BENCHMARK_CAPTURE(align, name##_baseline, InstructionSet::Baseline, scale, 1, kCachedRows); \
  BENCHMARK_CAPTURE(align, name##_uncached, InstructionSet::Avx512, scale, 6, bench::kHeight)
BODY(physical, 1);
BODY(scaled, 0.5);

}  // namespace
