#include "planex/processing/image_alignment.h"

#include <cmath>
#include <cstddef>

#include "planex/foundation/matrix_inverse.h"
#include "planex/foundation/memory_overlap.h"
#include "planex/infra/float_environment.h"
#include "planex/model/model_checks.h"
#include "planex/model/skewed_pose.h"
#include "planex/processing/alignment_block.h"

namespace datafusion::planex {
namespace {

constexpr double kSmallestSkewY = 1e-13;

/// E with row 1 and column 1 of the identity.
cmnalg::Matrix<double> inPlanePose(const cmnalg::Matrix<double>& pose) {
  cmnalg::Matrix<double> inPlane = pose;
  for (int i = 0; i < 4; ++i) inPlane[1][i] = inPlane[i][1] = i == 1 ? 1.0 : 0.0;
  return inPlane;
}

}  // namespace

cmnalg::Matrix<double> getAlignmentTransform(const CalibrationModel& model, bool aligned) {
  const base::DefaultFloatEnvironment environment;
  if (!poseUsable(model)) return {};
  cmnalg::Matrix<double> pose = skewedPose(model);
  if (!aligned) return pose;
  cmnalg::Matrix<double> inverse;
  if (!cmnalg::math::Inverse(inverse, inPlanePose(pose))) return {};
  return pose * inverse;
}

bool applyAlignment(const CalibrationModel& model, bool aligned, const cmnalg::Image& x,
                    const etl::Vector<double>& y, const cmnalg::Image& z,
                    cmnalg::ImageOf<float>& xOut, cmnalg::ImageOf<float>& yOut,
                    cmnalg::ImageOf<float>& zOut, RunMode /*mode*/) {
  const base::DefaultFloatEnvironment environment;
  if (!poseUsable(model)) return refuse("Invalid pose matrix.");
  const cmnalg::Vec<3, double>& skew = model.Skew;
  if (std::abs(skew.y) <= kSmallestSkewY || std::isnan(skew.x) || std::isnan(skew.z)) {
    return refuse("Invalid skew vector.");
  }
  for (const cmnalg::ImageOf<float>* target : {&xOut, &yOut, &zOut}) {
    if (sharesMemory(x, *target) || sharesMemory(z, *target)) {
      return refuse("Cannot reuse source image as target image.");
    }
  }
  if (sharesMemory(xOut, yOut) || sharesMemory(xOut, zOut) || sharesMemory(yOut, zOut)) {
    return refuse("Cannot reuse source image as target image.");
  }
  if (z.GetWidth() != x.GetWidth() || (z.GetHeight() != x.GetHeight() && x.GetHeight() != 1)) {
    return refuse("X and Z input must be of the same size.");
  }
  if (y.size() != static_cast<std::size_t>(z.GetHeight())) {
    return refuse("Y vector must be as long as X and Z are high.");
  }
  const cmnalg::Matrix<double> transform = getAlignmentTransform(model, aligned);
  if (transform.IsEmpty()) return refuse("Invalid pose matrix.");
  for (cmnalg::ImageOf<float>* target : {&xOut, &zOut, &yOut}) {
    if (!target->Create(z.GetWidth(), z.GetHeight(), cmnalg::Image::s_defaultImageAllocator)) {
      return false;
    }
    target->HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  }
  return basic::applyAlignment(x, y, z, transform, xOut, yOut, zOut);
}

}  // namespace datafusion::planex
