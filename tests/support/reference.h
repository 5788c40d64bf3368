#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

/// Plain scalar loops over the formulas: what the kernels are compared with, bit for bit, and what
/// the benchmarks measure them against. Nothing here is shared with the library.
namespace reference {

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
    x = z = std::numeric_limits<float>::quiet_NaN();
    return;
  }
  double xn;
  double yn;
  if constexpr (sizeof(Real) == sizeof(float)) {
    xn = std::fma(static_cast<float>(column), static_cast<float>(k.a), static_cast<float>(k.c));
    yn = std::fma(static_cast<float>(sample), static_cast<float>(k.b), static_cast<float>(k.d));
  } else {
    xn = static_cast<double>(column) * k.a + k.c;
    yn = static_cast<double>(sample) * k.b + k.d;
  }
  const double* q = k.lens;
  const double rho = xn * xn + yn * yn;
  const double radial = 1.0 + rho * (q[0] + rho * (q[1] + rho * q[2]));
  const double xd = static_cast<Real>(xn * radial + 2.0 * q[3] * xn * yn +
                                      q[4] * (rho + 2.0 * (xn * xn)) + q[5] * rho);
  const double yd = static_cast<Real>(yn * radial + q[3] * (rho + 2.0 * (yn * yn)) +
                                      2.0 * q[4] * xn * yn + q[6] * rho);
  const double* t = k.transform;
  const double w = t[6] * xd + t[7] * yd + t[8];
  x = static_cast<float>((t[0] * xd + t[1] * yd + t[2]) / w);
  z = static_cast<float>((t[3] * xd + t[4] * yd + t[5]) / w);
}

inline void correctSheet(const double* s, float x, float& z) {
  if (std::isnan(z)) return;
  const double t = (static_cast<double>(x) - s[0]) * (1.0 + static_cast<double>(z) * s[1]);
  z = static_cast<float>(s[2] + s[3] * t + s[4] * (t * t) + s[5] * (t * t * t)) + z;
}

template <typename Real, typename Pixel>
void calibrate(const Calibration& k, const Pixel* range, int width, int height, float* x,
               float* z) {
  for (int v = 0; v < height; ++v) {
    for (int u = 0; u < width; ++u) {
      const std::size_t i = static_cast<std::size_t>(v) * static_cast<std::size_t>(width) +
                            static_cast<std::size_t>(u);
      calibratePixel<Real>(k, range[i], u, x[i], z[i]);
    }
  }
  if (!k.hasSheet) return;
  const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  for (std::size_t i = 0; i < pixels; ++i) correctSheet(k.sheet, x[i], z[i]);
}

struct Rectification {
  double sx, ox, sz, oz, ws, wb;
  int mode;  ///< 0 mean, 1 lowest, 2 highest, 3 darkest, 4 brightest
  bool clear;
};

inline double roundAway(double v) { return std::trunc(v >= 0 ? v + 0.5 : v - 0.5); }

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
      bool store = false;
      switch (k.mode) {
        case 0:
          count[cell] += 1;
          heights[cell] += h;
          intensities[cell] += ip;
          break;
        case 1:
          store = out[cell] == 0 || q < out[cell];
          break;
        case 2:
          store = q > out[cell];
          break;
        case 3:
          store = out[cell] == 0 || ip < outIntensity[cell];
          break;
        default:
          store = outIntensity[cell] < ip;
          break;
      }
      if (!store) continue;
      out[cell] = static_cast<std::uint16_t>(q);
      if (outIntensity != nullptr) outIntensity[cell] = ip;
    }
  }
  if (k.mode != 0) return;
  for (std::size_t n = 0; n < count.size(); ++n) {
    if (count[n] == 0) continue;
    if (k.clear) {
      out[n] = static_cast<std::uint16_t>(heights[n] / count[n]);
      if (outIntensity != nullptr) {
        outIntensity[n] = static_cast<std::uint8_t>(std::floor(intensities[n] / count[n] + 0.5));
      }
      continue;
    }
    const double old = out[n];
    out[n] = static_cast<std::uint16_t>((old * count[n] + heights[n]) /
                                        (count[n] * (out[n] != 0 ? 2 : 1)));
    if (outIntensity == nullptr) continue;
    const double oldIntensity = outIntensity[n];
    const double merged =
        (oldIntensity * count[n] + intensities[n]) / (count[n] * (out[n] != 0 ? 2 : 1)) + 0.5;
    outIntensity[n] = static_cast<std::uint8_t>(std::min(merged, 255.0));
  }
}

/// Equal bits, any NaN being equal to any NaN.
inline bool sameBits(float a, float b) {
  return (a == b && std::signbit(a) == std::signbit(b)) || (a != a && b != b);
}

}  // namespace reference
