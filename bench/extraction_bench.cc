#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "bench/images.h"
#include "planex/foundation/multiversion.h"
#include "planex/processing/line_extraction.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::InstructionSet;
using datafusion::planex::LineChoice;
using datafusion::planex::LineLayers;
using datafusion::planex::LineMethod;
using datafusion::planex::LineSettings;

constexpr int kFrames = 4;

/// Frames with a line 5 rows wide that rises and falls, over noise.
template <typename Pixel>
struct Stack {
  explicit Stack(int height) {
    std::mt19937 random(7);
    std::normal_distribution<double> noise(12.0, 2.0);
    const auto& allocator = Image::s_defaultImageAllocator;
    for (int k = 0; k < kFrames; ++k) {
      ImageOf<Pixel> frame(bench::kWidth, height, allocator);
      for (int u = 0; u < bench::kWidth; ++u) {
        const double middle = height * (0.5 + 0.3 * std::sin(u / 300.0 + k));
        for (int v = 0; v < height; ++v) {
          const double way = (v - middle) / 2.12;
          const double level = 150.0 * std::exp(-0.5 * way * way) + noise(random);
          frame.Pix(u, v) = static_cast<Pixel>(std::clamp(level, 0.0, 255.0));
        }
      }
      frames.push_back(frame);
    }
    datafusion::planex::createLineTarget(frames[0], kFrames, range);
    intensity.Create(bench::kWidth, kFrames, allocator);
    width.Create(bench::kWidth, kFrames, allocator);
    deviation.Create(bench::kWidth, kFrames, allocator);
    quality.Create(bench::kWidth, kFrames, allocator);
  }

  std::vector<Image> frames;
  ImageOf<Pixel> intensity;
  ImageOf<std::uint16_t> range, width, deviation;
  ImageOf<std::uint8_t> quality;
};

/// Made once: their noise takes longer than what is measured.
template <typename Pixel>
Stack<Pixel>& stackOf(int height) {
  static std::map<int, Stack<Pixel>> stacks;
  return stacks.try_emplace(height, height).first->second;
}

/// Reads every pixel of a frame once.
void readOnce(benchmark::State& state, int height) {
  const Stack<std::uint8_t>& stack = stackOf<std::uint8_t>(height);
  const std::size_t words =
      static_cast<std::size_t>(bench::kWidth) * static_cast<std::size_t>(height) / 8;
  std::size_t turn = 0;
  while (state.KeepRunning()) {
    const auto* const pixels = static_cast<const std::uint64_t*>(stack.frames[turn].GetData());
    benchmark::DoNotOptimize(std::accumulate(pixels, pixels + words, std::uint64_t{0}));
    turn = (turn + 1) % kFrames;
  }
  bench::reportItems(state, words * 8);
}

template <typename Pixel>
void extract(benchmark::State& state, InstructionSet set, int height, const LineSettings& settings,
             bool withQuality, bool withDeviation, int threads) {
  omp_set_num_threads(threads);
  cmnalg::limitInstructionSet(set);
  Stack<Pixel>& stack = stackOf<Pixel>(height);
  LineLayers layers;
  layers.intensity = &stack.intensity;
  layers.width = &stack.width;
  if (withQuality) layers.quality = &stack.quality;
  if (withDeviation) layers.deviation = &stack.deviation;
  while (state.KeepRunningBatch(kFrames)) {
    if (!datafusion::planex::extractLines(stack.frames.data(), kFrames, settings, 0, stack.range,
                                          layers)) {
      state.SkipWithError("refused");
    }
  }
  bench::reportItems(state,
                     static_cast<std::size_t>(bench::kWidth) * static_cast<std::size_t>(height));
  cmnalg::limitInstructionSet(InstructionSet::Avx512);
}

constexpr auto extractBytes = extract<std::uint8_t>;
constexpr auto extractWide = extract<std::uint16_t>;

LineSettings withChoice(LineChoice choice) {
  LineSettings settings;
  settings.choice = choice;
  return settings;
}

LineSettings toldWidth(double rows) {
  LineSettings settings;
  settings.lineWidth = rows;
  return settings;
}

LineSettings withGravity() {
  LineSettings settings;
  settings.method = LineMethod::CENTRE_OF_GRAVITY;
  return settings;
}

#define FRAMES(set, height)                                                                \
  BENCHMARK_CAPTURE(extractBytes, strongest_##set##_##height, InstructionSet::set, height, \
                    LineSettings{}, false, false, 1);                                      \
  BENCHMARK_CAPTURE(extractBytes, any_##set##_##height, InstructionSet::set, height,       \
                    withChoice(LineChoice::FIRST), true, false, 1)

BENCHMARK_CAPTURE(readOnce, 1024, 1024);
BENCHMARK_CAPTURE(readOnce, 128, 128);
FRAMES(Avx512, 1024);
FRAMES(Avx2, 1024);
FRAMES(Baseline, 1024);
FRAMES(Avx512, 128);
FRAMES(Avx2, 128);
FRAMES(Baseline, 128);
BENCHMARK_CAPTURE(extractBytes, gravity, InstructionSet::Avx512, 1024, withGravity(), false, false,
                  1);
BENCHMARK_CAPTURE(extractBytes, told_half, InstructionSet::Avx512, 1024, toldWidth(2.5), false,
                  false, 1);
BENCHMARK_CAPTURE(extractBytes, told_twice, InstructionSet::Avx512, 1024, toldWidth(10), false,
                  false, 1);
BENCHMARK_CAPTURE(extractBytes, deviation, InstructionSet::Avx512, 1024, LineSettings{}, true, true,
                  1);
BENCHMARK_CAPTURE(extractWide, sixteen_bits, InstructionSet::Avx512, 1024, LineSettings{}, false,
                  false, 1);
BENCHMARK_CAPTURE(extractBytes, one_thread, InstructionSet::Avx512, 1024, LineSettings{}, false,
                  false, 1)
    ->UseRealTime();
BENCHMARK_CAPTURE(extractBytes, two_threads, InstructionSet::Avx512, 1024, LineSettings{}, false,
                  false, 2)
    ->UseRealTime();

}  // namespace
