#include <benchmark/benchmark.h>

#include <cmath>

#include "bench/images.h"
#include "planex/foundation/matrix_inverse.h"
#include "planex/foundation/multiversion.h"
#include "planex/model/point_mapping.h"

namespace {

using cmnalg::Vec;
using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using Points = etl::Vector<Vec<2, double>>;

constexpr std::size_t kPoints = 1 << 20;

CalibrationModel camera(bool sheet) {
  const reference::Calibration k = bench::camera(sheet);
  CalibrationModel model;
  model.CurrentState = datafusion::planex::ModelState::CALIBRATED;
  model.FocalLength = 4100;
  model.LensCenter = {1271, 492};
  std::copy(k.lens, k.lens + 7, model.LensCoefficients.begin());
  model.Homography = cmnalg::Matrix<double>::FromRows(3, 3, k.transform);
  if (sheet) model.SheetCurve.assign(k.sheet, k.sheet + 6);
  return model;
}

Points pixels() {
  std::mt19937 random(2);
  Points points(kPoints);
  for (auto& point : points) {
    point = {static_cast<double>(random() % 25600) * 0.1,
             static_cast<double>(random() % 10000) * 0.1};
  }
  return points;
}

/// One point after the other, each through all formulas.
void scalarForward(const CalibrationModel& m, const Points& in, Points& out) {
  const double* c = m.LensCoefficients.data();
  const double* h = m.Homography.Data();
  const double* s = m.SheetCurve.empty() ? nullptr : m.SheetCurve.data();
  for (std::size_t i = 0; i < in.size(); ++i) {
    const double x = (in[i].x - m.LensCenter.x) / m.FocalLength;
    const double y = (in[i].y - m.LensCenter.y) / m.FocalLength;
    const double r2 = x * x + y * y;
    const double radial = 1 + r2 * (c[0] + r2 * (c[1] + r2 * c[2]));
    const double xd = x * radial + 2 * c[3] * x * y + c[4] * (r2 + 2 * (x * x)) + c[5] * r2;
    const double yd = y * radial + c[3] * (r2 + 2 * (y * y)) + 2 * c[4] * x * y + c[6] * r2;
    const double w = h[6] * xd + h[7] * yd + h[8];
    out[i] = {(h[0] * xd + h[1] * yd + h[2]) / w, (h[3] * xd + h[4] * yd + h[5]) / w};
    if (s == nullptr) continue;
    const double d = (out[i].x - s[0]) * (1 + s[1] * out[i].y);
    out[i].y = out[i].y + s[2] + s[3] * d + s[4] * (d * d) + s[5] * (d * d * d);
  }
}

void scalarInverse(const CalibrationModel& m, const Points& in, Points& out) {
  cmnalg::Matrix<double> inverse;
  cmnalg::math::Inverse(inverse, m.Homography);
  const double* c = m.LensCoefficients.data();
  const double* h = inverse.Data();
  const double* s = m.SheetCurve.empty() ? nullptr : m.SheetCurve.data();
  for (std::size_t i = 0; i < in.size(); ++i) {
    double z = in[i].y;
    for (int step = 0; s != nullptr && step < 10; ++step) {
      const double a = in[i].x - s[0];
      const double t = 1 + s[1] * z;
      const double d = a * t;
      const double g = z + s[3] * d + s[4] * (d * d) + s[5] * (d * d * d) + s[2] - in[i].y;
      z = z - g / (1 + s[1] * s[3] * a + 2 * s[1] * s[4] * (a * a) * t +
                   3 * s[1] * s[5] * (a * a * a) * (t * t));
    }
    const double w = h[6] * in[i].x + h[7] * z + h[8];
    const double xd = (h[0] * in[i].x + h[1] * z + h[2]) / w;
    const double yd = (h[3] * in[i].x + h[4] * z + h[5]) / w;
    double x = xd;
    double y = yd;
    for (int round = 0; round < 100; ++round) {
      const double r2 = x * x + y * y;
      const double radial = 1 + r2 * (c[0] + r2 * (c[1] + r2 * c[2]));
      const double xn = (xd - (2 * c[3] * x * y + c[4] * (r2 + 2 * (x * x)) + c[5] * r2)) / radial;
      const double yn = (yd - (c[3] * (r2 + 2 * (y * y)) + 2 * c[4] * x * y + c[6] * r2)) / radial;
      const bool settled = std::abs(xn - x) < 1e-5 && std::abs(yn - y) < 1e-5;
      x = xn;
      y = yn;
      if (settled) break;
    }
    out[i] = {m.FocalLength * x + m.LensCenter.x, m.FocalLength * y + m.LensCenter.y};
  }
}

void scalar(benchmark::State& state, bool sheet, bool inverse) {
  const CalibrationModel model = camera(sheet);
  const Points in = pixels();
  Points calibrated(in.size());
  Points out(in.size());
  scalarForward(model, in, calibrated);
  while (state.KeepRunning()) {
    if (inverse) {
      scalarInverse(model, calibrated, out);
    } else {
      scalarForward(model, in, calibrated);
    }
    benchmark::ClobberMemory();
  }
  bench::reportItems(state, kPoints);
}

void mapPoints(benchmark::State& state, cmnalg::InstructionSet set, bool sheet, bool inverse) {
  cmnalg::limitInstructionSet(set);
  const CalibrationModel model = camera(sheet);
  const Points in = pixels();
  Points calibrated(in.size());
  Points out(in.size());
  scalarForward(model, in, calibrated);
  while (state.KeepRunning()) {
    if (inverse) {
      datafusion::planex::mapPoints(model, calibrated, out, CoordinateSystem::Calibrated,
                                    CoordinateSystem::Pixel);
    } else {
      datafusion::planex::mapPoints(model, in, out, CoordinateSystem::Pixel,
                                    CoordinateSystem::Calibrated);
    }
    benchmark::ClobberMemory();
  }
  bench::reportItems(state, kPoints);
  cmnalg::limitInstructionSet(cmnalg::InstructionSet::Avx512);
}

#define DIRECTION(name, sheet, inverse)                                                        \
  BENCHMARK_CAPTURE(scalar, name, sheet, inverse);                                             \
  BENCHMARK_CAPTURE(mapPoints, name##_avx512, cmnalg::InstructionSet::Avx512, sheet, inverse); \
  BENCHMARK_CAPTURE(mapPoints, name##_avx2, cmnalg::InstructionSet::Avx2, sheet, inverse);     \
  BENCHMARK_CAPTURE(mapPoints, name##_baseline, cmnalg::InstructionSet::Baseline, sheet, inverse)
DIRECTION(forward, false, false);
DIRECTION(forward_sheet, true, false);
DIRECTION(inverse, false, true);
DIRECTION(inverse_sheet, true, true);

}  // namespace
