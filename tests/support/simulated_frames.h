#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "planex/foundation/image_of.h"

namespace test {

/// Random numbers that are the same everywhere.
class FrameRandom {
 public:
  explicit FrameRandom(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15U + 1) {}

  std::uint64_t Bits() {  // SplitMix64
    std::uint64_t z = state_ += 0x9E3779B97F4A7C15U;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
  }
  double Between(double low, double high) {
    return low + (high - low) * (static_cast<double>(Bits() >> 11U) * 0x1p-53);
  }
  int Below(int end) { return static_cast<int>(Bits() % static_cast<std::uint64_t>(end)); }
  /// Of mean 0 and variance 1.
  double Normal() { return Quantiles()[Bits() >> 48U]; }

 private:
  static const std::vector<double>& Quantiles() {
    static const std::vector<double> table = [] {
      std::vector<double> x(65536);
      double at = -4.3;
      for (std::size_t i = 0; i < x.size(); ++i) {
        const double p = (static_cast<double>(i) + 0.5) / static_cast<double>(x.size());
        for (int step = 0; step < 8; ++step) {
          at += (p - 0.5 * std::erfc(-at * std::sqrt(0.5))) * std::sqrt(2 * M_PI) *
                std::exp(0.5 * at * at);
        }
        x[i] = at;
      }
      return x;
    }();
    return table;
  }

  std::uint64_t state_;
};

/// What a camera sees of a laser line, and how it measures it: levels of 8 bits, 10 000 electrons
/// at the greatest one.
struct LineScene {
  double sigma = 2, height = 100;       ///< of the line: rows, levels before clipping
  double light = 5, ramp = 0;           ///< other light in levels; what it grows by per row
  double speckle = 0;                   ///< contrast; grains are two rows high
  double second = 0, secondOffset = 0;  ///< another line: its height, and rows below the first
  double gain = 255. / 10000, readNoise = 0.5;  ///< as those of LineSettings

  /// The mean level of row i in a column whose line is at `place`.
  double Level(int i, double place) const {
    return light + ramp * i + height * Profile(i - place) +
           (second > 0 ? second * Profile(i - place - secondOffset) : 0);
  }
  /// What row i gets of a line of height 1: a Gaussian integrated over the pixel.
  double Profile(double row) const {
    if (std::abs(row) > 7 * sigma + 1) return 0;
    const double s = std::sqrt(0.5) / sigma;
    return sigma * std::sqrt(M_PI / 2) * (std::erf((row + 0.5) * s) - std::erf((row - 0.5) * s));
  }
  double Variance(double level) const { return readNoise * readNoise + 1. / 12 + gain * level; }

  /// The least variance that an unbiased place can have (Cramer and Rao), averaged over phases.
  double LeastVariance() const {
    double sum = 0;
    constexpr int kPhases = 16;
    for (int phase = 0; phase < kPhases; ++phase) {
      const int reach = static_cast<int>(6 * sigma) + 3;
      double information = 0;
      for (int i = -reach; i <= reach; ++i) {
        const double row = i - (phase + 0.5) / kPhases;
        const auto edge = [&](double x) { return std::exp(-0.5 * x * x / (sigma * sigma)); };
        const double slope = height * (edge(row - 0.5) - edge(row + 0.5));
        information += slope * slope / Variance(light + height * Profile(row));
      }
      sum += 1 / information / kPhases;
    }
    return sum;
  }
};

/// A frame with its truth: the line of column u is at places[u].
struct SimulatedFrame {
  cmnalg::ImageOf<std::uint8_t> image;
  std::vector<double> places;
};

/// Draws a frame whose line lies between rows `from` and `to`, its sub-pixel phases evenly spread.
inline SimulatedFrame simulateFrame(const LineScene& scene, int columns, int rows, double from,
                                    double to, FrameRandom& random) {
  SimulatedFrame frame;
  frame.image.Create(columns, rows, cmnalg::Image::s_defaultImageAllocator);
  const double spread = std::sqrt(std::log1p(scene.speckle * scene.speckle));
  const double start = random.Between(0, 1);
  for (int u = 0; u < columns; ++u) {
    const double way = start + u * 0.6180339887498949;
    const double whole = std::floor(random.Between(from, to));
    const double place = whole + (way - std::floor(way));
    frame.places.push_back(place);
    double grain = random.Normal();
    for (int i = 0; i < rows; ++i) {
      double level = scene.Level(i, place);
      if (scene.speckle > 0) {  // correlated from row to row
        grain = 0.5 * grain + std::sqrt(0.75) * random.Normal();
        const double dark = scene.light + scene.ramp * i;
        level = dark + (level - dark) * std::exp(spread * grain - 0.5 * spread * spread);
      }
      level += std::sqrt(scene.Variance(level) - 1. / 12) * random.Normal();
      frame.image.Pix(u, i) = static_cast<std::uint8_t>(std::clamp(level + 0.5, 0., 255.));
    }
  }
  return frame;
}

}  // namespace test
