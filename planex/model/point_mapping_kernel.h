#pragma once

#include <cstddef>

#include "planex/foundation/multiversion.h"
#include "planex/foundation/vec.h"

namespace datafusion::planex::kernel {

/// One step of a mapping, applied to many points; x and z are the coordinates in the plane, y runs
/// along the scan. The formulas are those of one point in the headers of this folder.
enum class MappingStep : int {
  PixelToPlane,      ///< normalise, undistort, project: sensor pixels to the laser plane
  PlaneToPixel,      ///< project, distort, denormalise: and back
  Project,           ///< homography within the plane
  ApplySheetCurve,   ///< forward
  RemoveSheetCurve,  ///< inverse
  ProfileToWorld,    ///< Y = p scale + offset
  WorldToProfile,    ///< p = (Y - offset) / scale
  Transform,         ///< the upper rows of a 4 x 4 matrix
};

/// Coefficients of PixelToPlane and PlaneToPixel: focal length and principal point, lens c0 ... c6,
/// homography in the direction of the step.
constexpr int kCameraCoefficientCount = 3 + 7 + 9;

/// The steps of a mapping in order, with their coefficients.
class MappingPlan {
 public:
  static constexpr int kMaximumSteps = 8;
  static constexpr int kMaximumCoefficients = kCameraCoefficientCount;

  /// Appends a step; `count` coefficients are copied.
  void Add(MappingStep step, const double* coefficients, int count) {
    Entry& entry = entries_[size_++];
    entry.step = step;
    for (int i = 0; i < count; ++i) entry.coefficients[i] = coefficients[i];
  }

  struct Entry {
    MappingStep step;
    double coefficients[kMaximumCoefficients];
  };
  const Entry* begin() const { return entries_; }
  const Entry* end() const { return entries_ + size_; }

 private:
  Entry entries_[kMaximumSteps] = {};
  int size_ = 0;
};

/// Applies a plan to `count` points; `out` may be `in`.
template <typename Point>
using MapPoints = void (*)(const MappingPlan& plan, const Point* in, Point* out, std::size_t count);

/// The loop for a point type (Vec<2, T> with y as z, or Vec<3, T>; T = float or double).
template <typename Point>
MapPoints<Point> mapPointsKernel(cmnalg::InstructionSet set);

}  // namespace datafusion::planex::kernel
