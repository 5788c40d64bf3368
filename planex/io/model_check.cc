#include "planex/io/model_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <utility>

#include "planex/foundation/image.h"
#include "planex/foundation/matrix_inverse.h"
#include "planex/foundation/transform.h"
#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/io/library_warnings.h"
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

constexpr int kGrid = 64;              // intervals of the grid along each side of the sensor
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

/// The undistorted place of a pixel, in focal lengths.
Point undistorted(const CalibrationModel& model, double u, double v) {
  double x = u, y = v;
  datafusion::planex::basic::normalise(model.FocalLength, model.LensCenter.x, model.LensCenter.y, x,
                                       y);
  datafusion::planex::basic::undistort(model.LensCoefficients.data(), x, y);
  return {x, y};
}

/// Where the polynomial folds the sensor: the pixel's four sides no longer turn as they should.
bool keepsOrder(const CalibrationModel& model, const Point& pixel) {
  const Point left = undistorted(model, pixel.x - 0.5, pixel.y);
  const Point right = undistorted(model, pixel.x + 0.5, pixel.y);
  const Point above = undistorted(model, pixel.x, pixel.y - 0.5);
  const Point below = undistorted(model, pixel.x, pixel.y + 0.5);
  const double xu = right.x - left.x, yu = right.y - left.y;
  const double xv = below.x - above.x, yv = below.y - above.y;
  return xu > 0 && yv > 0 && xu * yv - xv * yu > 0;
}

void checkLens(const CalibrationModel& model, const PointList& grid, std::vector<Fault>& faults) {
  if (isCalibrated(model.CurrentState) &&
      (!(model.LensCenter.x > 0) || !(model.LensCenter.y > 0))) {
    add(faults, "data.LensCenter",
        fmt::format("is ({}, {}); a calibrated model has one above 0", model.LensCenter.x,
                    model.LensCenter.y));
  }
  for (const Point& pixel : grid) {
    if (keepsOrder(model, pixel)) continue;
    add(faults, "data.LensCoefficients",
        "the polynomial turns back at " + placeText(pixel) + "; it must be monotonic");
    return;
  }
}

void checkHomography(const CalibrationModel& model, const PointList& grid,
                     std::vector<Fault>& faults) {
  Matrix inverse;
  if (!cmnalg::math::Inverse(inverse, model.Homography)) {
    add(faults, "data.Homography", "cannot be inverted");
    return;
  }
  const double* w = model.Homography[2];
  double sign = 0;
  for (const Point& pixel : grid) {
    const Point p = undistorted(model, pixel.x, pixel.y);
    const double here = w[0] * p.x + w[1] * p.y + w[2];
    if (sign == 0) sign = here;
    if (here * sign > 0) continue;
    add(faults, "data.Homography", "its horizon crosses the sensor at " + placeText(pixel));
    return;
  }
}

void checkSheetCurve(const CalibrationModel& model, const PointList& grid,
                     std::vector<Fault>& faults) {
  if (model.SheetCurve.empty()) return;
  const double* s = model.SheetCurve.data();
  for (const Point& pixel : grid) {
    Point p = undistorted(model, pixel.x, pixel.y);
    datafusion::planex::basic::applyHomography(model.Homography.Data(), p.x, p.y);
    const double d = (p.x - s[0]) * (1 + s[1] * p.y);
    const double slope = 1 + (s[3] + 2 * s[4] * d + 3 * s[5] * (d * d)) * ((p.x - s[0]) * s[1]);
    if (slope > 0) continue;
    add(faults, "data.SheetCurve", "turns back at " + placeText(pixel) + "; it must be monotonic");
    return;
  }
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
    checkLens(model, grid, faults);
    checkHomography(model, grid, faults);
    if (faults.empty()) checkSheetCurve(model, grid, faults);
    if (faults.empty()) checkReturn(model, grid, faults);
  }
  checkPose(model, faults);
  checkRegion(model, faults);
  takeLibraryWarnings();
  return faults;
}

}  // namespace planex::io
