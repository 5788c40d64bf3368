#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "tests/support/reference.h"

/// Images that the benchmarks share: 12 % of the samples are missing.
namespace bench {

constexpr int kWidth = 2560;
constexpr int kHeight = 1000;

inline std::vector<std::uint16_t> rangeImage(std::size_t pixels) {
  std::mt19937 random(1);
  std::vector<std::uint16_t> range(pixels);
  for (auto& sample : range) {
    sample = random() % 100 < 12 ? std::uint16_t{0} : static_cast<std::uint16_t>(random() % 16000);
  }
  return range;
}

inline reference::Calibration camera(bool sheet) {
  return {1.0 / 4100,
          1.0 / (16 * 4100.0),
          -0.31,
          -0.12,
          {-0.11, 0.04, 0.013, 0.002, -0.0017, 0.02, -0.04},
          {110, -3, 12, 2, 140, 300, -0.02, 0.31, 1.01},
          {1.5, 1e-4, 0.02, 1e-4, -2e-5, 3e-7},
          sheet};
}

/// The scalar loop that kernels are measured against.
template <typename Real, typename Pixel>
void calibratePlainly(const reference::Calibration& k, const Pixel* range, int width, int height,
                      float* x, float* z) {
  for (int v = 0; v < height; ++v) {
    for (int u = 0; u < width; ++u) {
      const std::size_t i = static_cast<std::size_t>(v) * static_cast<std::size_t>(width) +
                            static_cast<std::size_t>(u);
      reference::calibratePixel<Real>(k, range[i], u, x[i], z[i]);
    }
  }
  if (!k.hasSheet) return;
  const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  for (std::size_t i = 0; i < pixels; ++i) reference::correctSheet(k.sheet, x[i], z[i]);
}

/// Makes the time of one pixel or point the inverse of `items_per_second`.
inline void reportItems(benchmark::State& state, std::size_t itemsPerIteration) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(itemsPerIteration));
}

}  // namespace bench
