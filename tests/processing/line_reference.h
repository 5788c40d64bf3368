#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

/// Lines in one column by the plain formulas: what extractLines() is compared with. Nothing here is
/// shared with the library.
namespace reference {

/// Of a Gaussian line at half height.
constexpr double kWidthOfSigma = 2.3548200450309493;

inline int rounded(double value) { return static_cast<int>(std::floor(value + 0.5)); }

using Column = std::vector<std::int64_t>;

inline std::int64_t levelAt(const Column& f, int i) {
  return f[static_cast<std::size_t>(std::clamp(i, 0, static_cast<int>(f.size()) - 1))];
}

/// v of every row.
inline Column strengths(const Column& f, int a) {
  const int w = 2 * a + 1;
  const auto sum = [&](int i) {
    std::int64_t s = 0;
    for (int k = i - a; k <= i + a; ++k) s += levelAt(f, k);
    return s;
  };
  Column v;
  for (int i = 0; i < static_cast<int>(f.size()); ++i) {
    v.push_back(sum(i) - std::max(sum(i - w), sum(i + w)));
  }
  return v;
}

/// h_1 ... h_(K-1).
inline std::vector<int> taps(double lineWidth) {
  const int K = rounded(1.7 * lineWidth);
  double total = 0;
  const auto shape = [&](int k) { return k * std::pow(double(K) * K - double(k) * k, 2); };
  for (int k = 1; k < K; ++k) total += shape(k);
  std::vector<int> h;
  for (int scale = 128;; --scale) {
    h.clear();
    int sum = 0;
    for (int k = 1; k < K; ++k) {
      h.push_back(rounded(scale * (shape(k) / total)));
      sum += h.back();
    }
    if (sum <= 128) return h;
  }
}

inline std::int64_t slope(const Column& f, const std::vector<int>& h, int i) {
  std::int64_t d = 0;
  for (int k = 1; k <= static_cast<int>(h.size()); ++k) {
    d += h[static_cast<std::size_t>(k - 1)] * (levelAt(f, i + k) - levelAt(f, i - k));
  }
  return d;
}

/// Where d crosses zero.
struct Crossing {
  int before = 0;   ///< the row in front of it
  int nearest = 0;  ///< row to it
  double row = 0;   ///< its place
};

/// Whether d(i) > 0 >= d(i + 1); where d stays 0 then, as on lines that are clipped far, the place
/// is the middle of that, up to row `last`.
inline bool crossesAt(const Column& f, const std::vector<int>& h, double lineWidth, int i, int last,
                      Crossing& found) {
  const std::int64_t d = slope(f, h, i), next = slope(f, h, i + 1);
  if (!(d > 0 && next <= 0)) return false;
  const double sigma = lineWidth / kWidthOfSigma, K = static_cast<double>(h.size()) + 1;
  const double c = static_cast<double>(d) / static_cast<double>(d - next),
               q = 1 / (2 * (sigma * sigma + K * K / 9));
  int flat = 0;
  while (next == 0 && i + flat < last && slope(f, h, i + flat + 2) == 0) ++flat;
  found = {i, (d < -next ? i : i + 1) + flat / 2,
           i + c - q * c * (1 - c) * (1 - 2 * c) + 0.5 * flat};
  return true;
}

/// The crossing nearest to a row, at most `within` away; false without one.
inline bool crossesNear(const Column& f, const std::vector<int>& h, double lineWidth, int from,
                        int within, Crossing& found) {
  for (int k = 0; k <= within; ++k) {
    for (const int i : {from - k, from + k}) {
      if (crossesAt(f, h, lineWidth, i, from + within, found)) return true;
    }
  }
  return false;
}

/// The line width of the filter for a line that is as wide as measured.
inline double fittingWidth(double told, double measured) {
  if (told >= 4 && measured < 0.65 * told) return told / 2;
  return measured > 1.38 * told ? std::min(2 * told, 60.) : told;
}

/// Whether a line is clipped whose crossing is nearest to row i.
inline bool isClipped(const Column& f, int i, double fullScale) {
  const auto peak = std::max({levelAt(f, i - 1), levelAt(f, i), levelAt(f, i + 1)});
  return static_cast<double>(peak) >= fullScale * 15 / 16;
}

/// The levels that clipped lines are located in.
inline Column bent(Column f, double fullScale) {
  for (std::int64_t& level : f) {
    const double t = std::min(static_cast<double>(level) / fullScale, 1.);
    level = rounded(fullScale * t * (2 - t));
  }
  return f;
}

/// The standard deviation of a place, in rows.
/// @param located the levels in which it was found: f, or bent
inline double deviation(const Column& f, const Column& located, double fullScale,
                        const std::vector<int>& h, const Crossing& at, double gain,
                        double readVariance, double placesPerRow) {
  const auto d =
      static_cast<double>(slope(located, h, at.before) - slope(located, h, at.before + 1));
  double variance = 0;
  for (int k = 1; k <= static_cast<int>(h.size()); ++k) {
    for (const int i : {at.nearest + k, at.nearest - k}) {
      const auto level = static_cast<double>(levelAt(f, i));
      const double bend = f == located ? 1 : 2 - 2 * std::min(level / fullScale, 1.);
      const double tap = bend * h[static_cast<std::size_t>(k - 1)];
      variance += tap * tap * (readVariance + 1. / 12 + gain * level);
    }
  }
  return std::sqrt(variance / (d * d) + 1 / (12 * placesPerRow * placesPerRow));
}

/// The centre of gravity that a window moves to from `row`; NaN where it loses the line.
inline double centreOfGravity(const Column& f, double lineWidth, double row) {
  const int h = rounded(2.5 * lineWidth / kWidthOfSigma);
  const double start = row;
  for (int round = 0; round < 3; ++round) {
    const double low = row - h, high = row + h;
    const int first = rounded(low);
    const int last = rounded(high);
    double beside = 0, sum = 0, moment = 0;
    for (int k = 1; k <= 3; ++k) {
      beside += static_cast<double>(levelAt(f, first - k) + levelAt(f, last + k)) / 6;
    }
    for (int i = first; i <= last; ++i) {
      const double from = std::max(low, i - 0.5), to = std::min(high, i + 0.5);
      const double level = (to - from) * (static_cast<double>(levelAt(f, i)) - beside);
      sum += level;
      moment += level * i;
    }
    row = moment / sum;
    if (!(sum > 0 && std::abs(row - start) <= h)) return std::nan("");
  }
  return row;
}

/// A stretch of rows that outshine their surroundings.
struct Run {
  int row;  ///< of the largest v
  std::int64_t strength;
};

inline std::vector<Run> runs(const Column& v, double least, int firstRow, int endRow) {
  std::vector<Run> found;
  bool inside = false;
  for (int i = firstRow; i < endRow; ++i) {
    const std::int64_t strength = v[static_cast<std::size_t>(i)];
    const bool was = std::exchange(inside, static_cast<double>(strength) >= least);
    if (!inside) continue;
    if (!was) found.push_back({i, strength});
    if (strength > found.back().strength) found.back() = {i, strength};
  }
  return found;
}

}  // namespace reference
