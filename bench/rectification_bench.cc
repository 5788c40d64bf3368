#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>

#include "bench/images.h"
#include "planex/processing/rectification.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using datafusion::planex::RectificationMode;

constexpr std::size_t kPixels = std::size_t{bench::kWidth} * bench::kHeight;

/// A profile of one point a column, with jitter, on a wavy surface.
struct Scene {
  Scene()
      : x(bench::kWidth, bench::kHeight, Image::s_defaultImageAllocator),
        z(bench::kWidth, bench::kHeight, Image::s_defaultImageAllocator),
        intensity(bench::kWidth, bench::kHeight, Image::s_defaultImageAllocator),
        height(bench::kWidth, bench::kHeight, Image::s_defaultImageAllocator),
        heightIntensity(bench::kWidth, bench::kHeight, Image::s_defaultImageAllocator) {
    std::mt19937 random(3);
    const auto unit = [&] { return static_cast<float>(random() % 1000) * 1e-3f; };
    for (int v = 0; v < bench::kHeight; ++v) {
      for (int u = 0; u < bench::kWidth; ++u) {
        x.Pix(u, v) = static_cast<float>(u) + unit() - 0.5f;
        z.Pix(u, v) =
            random() % 100 < 12
                ? std::nanf("")
                : 100.0f + 50.0f * std::sin(static_cast<float>(u) * 0.01f) + 5.0f * unit();
        intensity.Pix(u, v) = static_cast<std::uint8_t>(random());
      }
    }
    height.PixelSize.z = 1.0 / 300;
    height.Origin.z = 10;
    height.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  }

  ImageOf<float> x;
  ImageOf<float> z;
  ImageOf<std::uint8_t> intensity;
  ImageOf<std::uint16_t> height;
  ImageOf<std::uint8_t> heightIntensity;
};

Scene& scene() {
  static Scene instance;
  return instance;
}

/// The spacing whose half-width is `halfWidth` columns.
double spacingOf(std::int64_t halfWidth) { return static_cast<double>(halfWidth) / 0.55; }

void scalar(benchmark::State& state, RectificationMode mode, bool withIntensity) {
  Scene& s = scene();
  const reference::Rectification k{
      1, 0, 300, -3000, 0, static_cast<double>(state.range(0)), static_cast<int>(mode), true};
  while (state.KeepRunning()) {
    s.height.SetAll(0);
    if (withIntensity) s.heightIntensity.SetAll(0);
    for (int v = 0; v < bench::kHeight; ++v) {
      reference::rectifyRow(
          k, s.x.GetRowPtr(v), s.z.GetRowPtr(v), withIntensity ? s.intensity.GetRowPtr(v) : nullptr,
          bench::kWidth, s.height.GetRowPtr(v),
          withIntensity ? s.heightIntensity.GetRowPtr(v) : nullptr, bench::kWidth);
    }
    benchmark::ClobberMemory();
  }
  bench::reportItems(state, kPixels);
}

void rectify(benchmark::State& state, RectificationMode mode, bool withIntensity) {
  omp_set_num_threads(1);
  Scene& s = scene();
  while (state.KeepRunning()) {
    if (withIntensity) {
      toRectified(s.x, s.z, s.intensity, {0, spacingOf(state.range(0))}, 1.0, mode, s.height,
                  s.heightIntensity, true);
    } else {
      toRectified(s.x, s.z, {0, spacingOf(state.range(0))}, 1.0, mode, s.height, true);
    }
    benchmark::ClobberMemory();
  }
  bench::reportItems(state, kPixels);
}

#define MODE(mode, suffix, withIntensity)                                          \
  BENCHMARK_CAPTURE(scalar, mode##suffix, RectificationMode::mode, withIntensity)  \
      ->Arg(1)                                                                     \
      ->Arg(4)                                                                     \
      ->Arg(15);                                                                   \
  BENCHMARK_CAPTURE(rectify, mode##suffix, RectificationMode::mode, withIntensity) \
      ->Arg(1)                                                                     \
      ->Arg(4)                                                                     \
      ->Arg(15)

MODE(MEAN, , false);
MODE(LOWEST, , false);
MODE(HIGHEST, , false);
MODE(MEAN, _intensity, true);
MODE(LOWEST, _intensity, true);
MODE(HIGHEST, _intensity, true);
MODE(DARKEST, _intensity, true);
MODE(BRIGHTEST, _intensity, true);

}  // namespace
