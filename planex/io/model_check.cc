#include "planex/io/model_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>

#include "planex/foundation/image.h"
#include "planex/foundation/matrix_inverse.h"
#include "planex/foundation/transform.h"
#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/io/bounds.h"
#include "planex/io/library_warnings.h"
#include "planex/io/positive_search.h"
#include "planex/model/coordinate_system.h"
#include "planex/model/homography.h"
#include "planex/model/lens_polynomial.h"
#include "planex/model/point_mapping.h"
#include "planex/model/sheet_curve.h"

namespace planex::io {
namespace {

using cmnalg::math::TransformType;
using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using datafusion::planex::ModelState;
using Matrix = cmnalg::Matrix<double>;
using Point = cmnalg::Vec<2, double>;
using PointList = etl::Vector<Point>;

constexpr int kGrid = 64;              // intervals of the grid of places that are to come back
constexpr double kMostReturn = 1.0;    // pixels that a place may be off when it comes back
constexpr double kLeastSkewY = 1e-13;  // what setSkew accepts

void add(std::vector<Fault>& faults, const char* path, std::string text) {
  faults.push_back({path, std::move(text)});
}

std::string placeText(const Point& pixel) {
  return fmt::format("column {:.0f}, row {:.0f}", pixel.x, pixel.y);
}

PointList sensorGrid(const CalibrationModel& model) {
  PointList grid;
  for (int row = 0; row <= kGrid; ++row) {
    for (int column = 0; column <= kGrid; ++column) {
      grid.push_back(
          {(model.SensorSize.x - 1.0) * column / kGrid, (model.SensorSize.y - 1.0) * row / kGrid});
    }
  }
  return grid;
}

/// The formulas of a model for numbers, bounds and derivatives.
template <typename T>
class Formulas {
 public:
  explicit Formulas(const CalibrationModel& model) : model_(model) {}

  /// From a pixel to its undistorted place, in focal lengths.
  void undistort(T& x, T& y) const {
    const T f = model_.FocalLength, cx = model_.LensCenter.x, cy = model_.LensCenter.y;
    datafusion::planex::basic::normalise(f, cx, cy, x, y);
    const std::array<T, 7> c = listOf<7>(model_.LensCoefficients.data());
    datafusion::planex::basic::undistort(c.data(), x, y);
  }

  /// From an undistorted place to X and Z of the laser plane.
  void project(T& x, T& y) const {
    const std::array<T, 9> h = listOf<9>(model_.Homography.Data());
    datafusion::planex::basic::applyHomography(h.data(), x, y);
  }

 private:
  template <std::size_t N, std::size_t... I>
  static std::array<T, N> listOf(const double* numbers, std::index_sequence<I...> /*all*/) {
    return {T(numbers[I])...};
  }
  template <std::size_t N>
  static std::array<T, N> listOf(const double* numbers) {
    return listOf<N>(numbers, std::make_index_sequence<N>());
  }

  const CalibrationModel& model_;
};

/// The diagonal and the determinant of the derivative of the undistorted place: where all are
/// positive on a rectangle, no two pixels of it have one place.
///
/// Source: Gale and Nikaido, The Jacobian matrix and global univalence of mappings, Mathematische
/// Annalen 159, 1965.
struct LensOrder {
  const CalibrationModel& model;

  template <typename T>
  std::array<T, 3> operator()(const T& u, const T& v) const {
    Dual<T> x(u, 1.0, 0.0), y(v, 0.0, 1.0);
    Formulas<Dual<T>>(model).undistort(x, y);
    return {x.u, y.v, x.u * y.v - x.v * y.u};
  }
};

/// The denominator of the homography, positive in the first pixel.
struct Horizon {
  const CalibrationModel& model;
  double sign = 1;

  template <typename T>
  std::array<T, 1> operator()(const T& u, const T& v) const {
    const double* w = model.Homography[2];
    T x = u, y = v;
    Formulas<T>(model).undistort(x, y);
    return {sign * (w[0] * x + w[1] * y + w[2])};
  }
};

/// The derivative of the corrected Z by Z.
struct SheetCurveSlope {
  const CalibrationModel& model;

  template <typename T>
  std::array<T, 1> operator()(const T& u, const T& v) const {
    const double* s = model.SheetCurve.data();
    T x = u, z = v;
    Formulas<T>(model).undistort(x, z);
    Formulas<T>(model).project(x, z);
    const T a = x - s[0];
    const T d = a * (1 + s[1] * z);
    return {1 + (s[3] + 2 * s[4] * d + 3 * s[5] * (d * d)) * (a * s[1])};
  }
};

/// Adds a fault where a function is not positive. @param is, may  what it means, with {} for where
template <typename Functions>
void requirePositive(const CalibrationModel& model, const Functions& functions, const char* path,
                     const char* is, const char* may, std::vector<Fault>& faults) {
  const Point last{std::max(model.SensorSize.x - 1.0, 0.0),
                   std::max(model.SensorSize.y - 1.0, 0.0)};
  const std::optional<NotPositive> found = PositiveSearch<Functions>(last, functions).run();
  if (!found) return;
  add(faults, path, fmt::format(fmt::runtime(found->decided ? is : may), placeText(found->place)));
}

void checkLens(const CalibrationModel& model, std::vector<Fault>& faults) {
  if (isCalibrated(model.CurrentState) &&
      (!(model.LensCenter.x > 0) || !(model.LensCenter.y > 0))) {
    add(faults, "data.LensCenter",
        fmt::format("is ({}, {}); a calibrated model has one above 0", model.LensCenter.x,
                    model.LensCenter.y));
  }
  requirePositive(model, LensOrder{model}, "data.LensCoefficients",
                  "the polynomial turns back at {}; it must be monotonic",
                  "whether the polynomial turns back cannot be decided at {}", faults);
}

void checkHomography(const CalibrationModel& model, std::vector<Fault>& faults) {
  Matrix inverse;
  if (!cmnalg::math::Inverse(inverse, model.Homography)) {
    add(faults, "data.Homography", "cannot be inverted");
    return;
  }
  Horizon horizon{model};
  if (horizon(0.0, 0.0)[0] < 0) horizon.sign = -1;
  requirePositive(model, horizon, "data.Homography", "its horizon crosses the sensor at {}",
                  "whether its horizon crosses the sensor cannot be decided at {}", faults);
}

void checkSheetCurve(const CalibrationModel& model, std::vector<Fault>& faults) {
  if (model.SheetCurve.empty()) return;
  requirePositive(model, SheetCurveSlope{model}, "data.SheetCurve",
                  "turns back at {}; it must be monotonic",
                  "whether it turns back cannot be decided at {}", faults);
}

/// Where the way to the laser plane and back ends elsewhere.
void checkReturn(const CalibrationModel& model, const PointList& grid, std::vector<Fault>& faults) {
  PointList points = grid;
  if (!datafusion::planex::mapPoints<double>(model, points, points, CoordinateSystem::Pixel,
                                             CoordinateSystem::Calibrated) ||
      !datafusion::planex::mapPoints<double>(model, points, points, CoordinateSystem::Calibrated,
                                             CoordinateSystem::Pixel)) {
    add(faults, "data", "cannot be mapped with: " + takeLibraryWarnings());
    return;
  }
  for (std::size_t i = 0; i < grid.size(); ++i) {
    if (std::hypot(points[i].x - grid[i].x, points[i].y - grid[i].y) <= kMostReturn) continue;
    add(faults, "data",
        fmt::format("{} comes back from the laser plane to column {:.2f}, row {:.2f}",
                    placeText(grid[i]), points[i].x, points[i].y));
    return;
  }
}

/// A pose of three rows has (0, 0, 0, 1) as a fourth.
Matrix fullPose(const Matrix& pose) {
  Matrix full = Matrix::Identity(4, 4);
  for (int row = 0; row < pose.Height(); ++row) std::copy_n(pose[row], 4, full[row]);
  return full;
}

void checkPose(const CalibrationModel& model, std::vector<Fault>& faults) {
  const cmnalg::Vec<3, double>& skew = model.Skew;
  if (!(std::abs(skew.y) > kLeastSkewY)) {
    add(faults, "data.Skew", "has no part along the scan; its y must not be 0");
  }
  const Matrix pose = fullPose(model.Pose);
  Matrix inverse;
  cmnalg::math::Transform<3, double> transform;
  if (!cmnalg::math::Inverse(inverse, pose)) {
    add(faults, "data.Pose", "cannot be inverted");
  } else if (!transform.Create(pose, TransformType::HOMOGRAPHY) ||
             transform.GetTypeNumerical() > TransformType::SIMILARITY) {
    add(faults, "data.Pose", "is no similarity: rotation, one scale and translation");
  }
}

constexpr const char* kRegionPaths[] = {
    "data.CalibratedRegion.PointCount", "data.CalibratedRegion.AverageResidualX",
    "data.CalibratedRegion.AverageResidualZ", "data.CalibratedRegion.MaximumResidualX",
    "data.CalibratedRegion.MaximumResidualZ"};

/// The images of a region, in the order of the paths.
struct RegionImages {
  cmnalg::Image images[5];

  bool read(const datafusion::planex::CalibratedRegion& region) {
    return region.GetPointCount(images[0]) && region.GetAverageResiduals(images[1], images[2]) &&
           region.GetMaximumResiduals(images[3], images[4]);
  }
};

bool lieAlike(const cmnalg::Image& a, const cmnalg::Image& b) {
  return a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight() &&
         a.PixelSize == b.PixelSize && a.Origin == b.Origin;
}

/// Adds at most one fault for each image.
void checkCells(const RegionImages& region, std::vector<Fault>& faults) {
  bool faulty[5] = {};
  const auto report = [&](int image, int column, int row, const char* text) {
    if (!std::exchange(faulty[image], true)) {
      add(faults, kRegionPaths[image], fmt::format("{} in column {}, row {}", text, column, row));
    }
  };
  for (int row = 0; row < region.images[0].GetHeight(); ++row) {
    for (int column = 0; column < region.images[0].GetWidth(); ++column) {
      if (region.images[0].GetPixel(column, row) < 0) report(0, column, row, "is negative");
      for (int i = 1; i <= 2; ++i) {
        const double mean = region.images[i].GetPixel(column, row);
        const double most = region.images[i + 2].GetPixel(column, row);
        if (!std::isfinite(mean)) report(i, column, row, "is not finite");
        if (!std::isfinite(most)) report(i + 2, column, row, "is not finite");
        // Both are sums in single precision, whose rounding differs.
        if (most < std::abs(mean) * (1 - 1e-4)) {
          report(i + 2, column, row, "is smaller than the average residual");
        }
      }
    }
  }
}

void checkRegion(const CalibrationModel& model, std::vector<Fault>& faults) {
  RegionImages region;
  cmnalg::Image count, x, z;
  const datafusion::planex::CalibratedRegion& source = model.CalibratedRegion;
  const bool none = !source.GetPointCount(count) && !source.GetAverageResiduals(x, z) &&
                    !source.GetMaximumResiduals(x, z);
  if (none) return;
  if (!region.read(source)) {
    add(faults, "data.CalibratedRegion", "has some of its five images, but not all");
    return;
  }
  if (region.images[0].GetRawBufferSize() == 0) return;
  bool alike = true;
  for (int i = 1; i < 5; ++i) {
    if (lieAlike(region.images[i], region.images[0])) continue;
    add(faults, kRegionPaths[i], "has another size, PixelSize or Origin than PointCount");
    alike = false;
  }
  const cmnalg::Vec<3, double>& cell = region.images[0].PixelSize;
  if (!(cell.x > 0) || !(cell.y > 0)) {
    add(faults, kRegionPaths[0], "has a PixelSize that is not above 0");
  }
  if (alike) checkCells(region, faults);
}

}  // namespace

std::vector<Fault> checkModel(const CalibrationModel& model) {
  std::vector<Fault> faults;
  if (model.CurrentState != ModelState::UNCALIBRATED) {
    const PointList grid = sensorGrid(model);
    checkLens(model, faults);
    checkHomography(model, faults);
    if (faults.empty()) checkSheetCurve(model, faults);
    if (faults.empty()) checkReturn(model, grid, faults);
  }
  checkPose(model, faults);
  checkRegion(model, faults);
  takeLibraryWarnings();
  return faults;
}

}  // namespace planex::io
