#include <benchmark/benchmark.h>

#include <Eigen/Core>
#include <cmath>
#include <cstdlib>

#include "bench/images.h"

/// What one would write with Eigen, compiled for this machine and at its best level: the
/// calibration formulas as expressions over rows, in double. A program of its own, because its
/// flags must not reach the library.
namespace {

using Row = Eigen::Array<double, 1, Eigen::Dynamic>;
using Rows = Eigen::Array<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
using RangeRow = Eigen::Map<const Eigen::Array<std::uint16_t, 1, Eigen::Dynamic>>;

void calibrateRow(const reference::Calibration& k, const Row& xn, const RangeRow& range,
                  Eigen::Index v, Rows& xOut, Rows& zOut) {
  constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
  const double* c = k.lens;
  const double* t = k.transform;
  const Row yn = (range > 0).select(range.cast<double>() * k.b + k.d, kMissing);
  const Row r2 = xn.square() + yn.square();
  const Row radial = 1 + r2 * (c[0] + r2 * (c[1] + r2 * c[2]));
  const Row x = xn * radial + 2 * c[3] * xn * yn + c[4] * (r2 + 2 * xn.square()) + c[5] * r2;
  const Row y = yn * radial + c[3] * (r2 + 2 * yn.square()) + 2 * c[4] * xn * yn + c[6] * r2;
  const Row w = t[6] * x + t[7] * y + t[8];
  xOut.row(v) = ((t[0] * x + t[1] * y + t[2]) / w).cast<float>();
  zOut.row(v) = ((t[3] * x + t[4] * y + t[5]) / w).cast<float>();
}

void correctRow(const double* s, Eigen::Index v, Rows& x, Rows& z) {
  const Row zs = z.row(v).cast<double>();
  const Row d = (x.row(v).cast<double>() - s[0]) * (1 + s[1] * zs);
  z.row(v) = (zs + s[2] + s[3] * d + s[4] * d.square() + s[5] * d.cube()).cast<float>();
}

void calibrate(const reference::Calibration& k, const std::vector<std::uint16_t>& range, Rows& x,
               Rows& z) {
  const Row xn = Row::LinSpaced(bench::kWidth, 0, bench::kWidth - 1) * k.a + k.c;
  for (Eigen::Index v = 0; v < bench::kHeight; ++v) {
    calibrateRow(k, xn, RangeRow(range.data() + v * bench::kWidth, bench::kWidth), v, x, z);
    if (k.hasSheet) correctRow(k.sheet, v, x, z);
  }
}

/// Whether the expressions give what the scalar loop gives, up to rounding.
bool agrees(const reference::Calibration& k, const std::vector<std::uint16_t>& range, const Rows& x,
            const Rows& z) {
  Rows wantX(bench::kHeight, bench::kWidth);
  Rows wantZ = wantX;
  bench::calibratePlainly<double>(k, range.data(), bench::kWidth, bench::kHeight, wantX.data(),
                                  wantZ.data());
  const auto close = [](const Rows& a, const Rows& b) {
    return (((a - b).abs() <= 1e-4f) || (a.isNaN() && b.isNaN())).all();
  };
  return close(x, wantX) && close(z, wantZ);
}

void eigenRows(benchmark::State& state, bool sheet) {
  static const auto range = bench::rangeImage(std::size_t{bench::kWidth} * bench::kHeight);
  const reference::Calibration k = bench::camera(sheet);
  Rows x(bench::kHeight, bench::kWidth);
  Rows z = x;
  calibrate(k, range, x, z);
  if (!agrees(k, range, x, z)) {
    state.SkipWithError("disagrees with the scalar loop");
    return;
  }
  while (state.KeepRunning()) {
    calibrate(k, range, x, z);
    benchmark::ClobberMemory();
  }
  bench::reportItems(state, range.size());
}

BENCHMARK_CAPTURE(eigenRows, flat, false);
BENCHMARK_CAPTURE(eigenRows, sheet, true);

}  // namespace
