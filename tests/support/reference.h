#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

/// Plain scalar loops over the formulas: what the library is compared with, bit for bit, and what
/// the benchmarks measure it against. Nothing here is shared with the library.
namespace reference {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

inline double roundAway(double v) { return std::trunc(v >= 0 ? v + 0.5 : v - 0.5); }

/// Corrects a point in focal lengths for the lens c0 ... c6.
inline void undistort(const double* c, double& x, double& y) {
  const double rho = x * x + y * y;
  const double radial = 1.0 + rho * (c[0] + rho * (c[1] + rho * c[2]));
  const double xd = x * radial + 2.0 * c[3] * x * y + c[4] * (rho + 2.0 * (x * x)) + c[5] * rho;
  y = y * radial + c[3] * (rho + 2.0 * (y * y)) + 2.0 * c[4] * x * y + c[6] * rho;
  x = xd;
}

/// Takes a point through a homography.
inline void project(const double* h, double& x, double& y) {
  const double w = h[6] * x + h[7] * y + h[8];
  const double xp = (h[0] * x + h[1] * y + h[2]) / w;
  y = (h[3] * x + h[4] * y + h[5]) / w;
  x = xp;
}

/// Takes a point through the three upper rows of a 4 x 4 matrix.
inline void transform(const double* m, double& x, double& y, double& z) {
  const double p[3] = {x, y, z};
  for (double* out : {&x, &y, &z}) {
    *out = m[0] * p[0] + m[1] * p[1] + m[2] * p[2] + m[3];
    m += 4;
  }
}

struct Calibration {
  double a, b, c, d;  ///< column scale, value scale, column offset, value offset
  double lens[7];
  double transform[9];
  double sheet[6];
  bool hasSheet;
};

template <typename Real, typename Pixel>
inline void calibratePixel(const Calibration& k, Pixel sample, int column, float& x, float& z) {
  if (!(sample > Pixel{0})) {
    x = z = kNan;
    return;
  }
  double xn = static_cast<double>(column) * k.a + k.c;
  double yn = static_cast<double>(sample) * k.b + k.d;
  if constexpr (sizeof(Real) == sizeof(float)) {
    xn = std::fma(static_cast<float>(column), static_cast<float>(k.a), static_cast<float>(k.c));
    yn = std::fma(static_cast<float>(sample), static_cast<float>(k.b), static_cast<float>(k.d));
  }
  undistort(k.lens, xn, yn);
  xn = static_cast<Real>(xn);
  yn = static_cast<Real>(yn);
  project(k.transform, xn, yn);
  x = static_cast<float>(xn);
  z = static_cast<float>(yn);
}

inline void correctSheet(const double* s, float x, float& z) {
  if (std::isnan(z)) return;
  const double t = (static_cast<double>(x) - s[0]) * (1.0 + static_cast<double>(z) * s[1]);
  z = static_cast<float>(s[2] + s[3] * t + s[4] * (t * t) + s[5] * (t * t * t)) + z;
}

/// The least-squares line r = slope z + offset; both stay where the points have no spread in z.
inline void fitLine(const std::vector<double>& z, const std::vector<double>& r, double& slope,
                    double& offset) {
  double sums[4] = {};
  for (std::size_t i = 0; i < z.size(); ++i) {
    sums[0] += z[i];
    sums[1] += z[i] * z[i];
    sums[2] += r[i];
    sums[3] += r[i] * z[i];
  }
  const auto n = static_cast<double>(z.size());
  const double det = n * sums[1] - sums[0] * sums[0];
  if (!(std::abs(det) > 0.001)) return;
  slope = (n * sums[3] - sums[0] * sums[2]) / det;
  offset = (sums[1] * sums[2] - sums[0] * sums[3]) / det;
}

struct Rectification {
  double sx, ox, sz, oz, ws, wb;
  int mode;  ///< 0 mean, 1 lowest, 2 highest, 3 darkest, 4 brightest
  bool clear;
};

/// One row, point by point and cell by cell; `intensity` and `outIntensity` may be null together.
template <typename X, typename Z>
void rectifyRow(const Rectification& k, const X* x, const Z* z, const std::uint8_t* intensity,
                int points, std::uint16_t* out, std::uint8_t* outIntensity, int width) {
  std::vector<double> count, heights, intensities;
  if (k.mode == 0) {
    count.resize(static_cast<std::size_t>(width));
    heights = intensities = count;
  }
  for (int i = 0; i < points; ++i) {
    if (z[i] == Z{0} ? !std::numeric_limits<Z>::has_quiet_NaN : z[i] != z[i]) continue;
    const double column = roundAway(static_cast<double>(x[i]) * k.sx + k.ox);
    if (!(column >= -2147483648.0 && column <= 2147483647.0)) continue;
    const double h = static_cast<double>(z[i]) * k.sz + k.oz;
    if (k.mode == 0 ? !(h > 0 && h <= 65535.0) : !(h >= 1 && h < 65536.0)) continue;
    const double q = std::trunc(h);
    const double wide = k.ws * (k.mode == 0 ? h : q) + k.wb;
    const double w = std::isnan(wide) ? 0.0 : std::min(std::max(roundAway(wide), 0.0), 15.0);
    const auto c = static_cast<std::int64_t>(column);
    const auto half = static_cast<std::int64_t>(w);
    const std::uint8_t ip = intensity != nullptr ? intensity[i] : std::uint8_t{0};
    const std::int64_t end = std::min<std::int64_t>(c + half + 1, width);
    for (std::int64_t n = std::max<std::int64_t>(c - half, 0); n < end; ++n) {
      const auto cell = static_cast<std::size_t>(n);
      if (k.mode == 0) {
        count[cell] += 1;
        heights[cell] += h;
        intensities[cell] += ip;
        continue;
      }
      const bool store = k.mode == 1   ? out[cell] == 0 || q < out[cell]
                         : k.mode == 2 ? q > out[cell]
                         : k.mode == 3 ? out[cell] == 0 || ip < outIntensity[cell]
                                       : outIntensity[cell] < ip;
      if (!store) continue;
      out[cell] = static_cast<std::uint16_t>(q);
      if (outIntensity != nullptr) outIntensity[cell] = ip;
    }
  }
  for (std::size_t n = 0; n < count.size(); ++n) {
    if (count[n] == 0) continue;
    // A merged cell weighs as much as all points, once it holds a height.
    const auto merged = [&](double old, double sum) {
      return k.clear ? sum / count[n] : (old * count[n] + sum) / (count[n] * (out[n] != 0 ? 2 : 1));
    };
    out[n] = static_cast<std::uint16_t>(merged(out[n], heights[n]));
    if (outIntensity == nullptr) continue;
    const double mean = merged(outIntensity[n], intensities[n]) + 0.5;
    outIntensity[n] = static_cast<std::uint8_t>(std::min(mean, 255.0));
  }
}

}  // namespace reference
