#include "planex/model/skewed_pose.h"

#include <cmath>

namespace datafusion::planex {

cmnalg::Matrix<double> skewedPose(const CalibrationModel& model) {
  const double a = -model.Skew.x / model.Skew.y;
  const double b = -model.Skew.z / model.Skew.y;
  const SkewMode mode = model.SkewMode;
  const bool xInPlane =
      mode == SkewMode::XZ_IN_LIGHT_PLANE || mode == SkewMode::Z_NOT_IN_LIGHT_PLANE;
  const double nx = xInPlane ? 1.0 / std::sqrt(1.0 + a * a) : 1.0;
  const double nz = mode == SkewMode::XZ_IN_LIGHT_PLANE ? 1.0 / std::sqrt(1.0 + b * b) : 1.0;

  const cmnalg::Matrix<double>& pose = model.Pose;
  auto skewed = cmnalg::Matrix<double>::Identity(4, 4);
  for (int r = 0; r < 3; ++r) {
    skewed[r][0] = (pose[r][0] + a * pose[r][1]) * nx;
    skewed[r][1] = pose[r][1];
    skewed[r][2] = (pose[r][2] + b * pose[r][1]) * nz;
    skewed[r][3] = pose[r][3];
  }
  if (pose.Height() > 3) skewed[3][3] = pose[3][3];
  return skewed;
}

cmnalg::Matrix<double> inPlaneAlignment(const cmnalg::Matrix<double>& skewedPose) {
  constexpr int kInPlane[] = {0, 2, 3};
  auto alignment = cmnalg::Matrix<double>::Identity(3, 3);
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) alignment[r][c] = skewedPose[kInPlane[r]][kInPlane[c]];
  }
  return alignment;
}

}  // namespace datafusion::planex
