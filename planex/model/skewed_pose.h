#pragma once

#include "planex/foundation/matrix.h"
#include "planex/model/calibration_model.h"

namespace datafusion::planex {

/// The pose with the skew of the scan direction folded in: the 4 x 4 matrix E. With P the pose,
/// (kx, ky, kz) the skew, a = -kx / ky and b = -kz / ky:
///
///     E[r][0] = (P[r][0] + a P[r][1]) nx,  E[r][1] = P[r][1],
///     E[r][2] = (P[r][2] + b P[r][1]) nz,  E[r][3] = P[r][3]      for r = 0, 1, 2
///     E[3]    = (0, 0, 0, P[3][3])
///
///     XZ_IN_LIGHT_PLANE      nx = 1 / sqrt(1 + a^2),  nz = 1 / sqrt(1 + b^2)
///     Z_NOT_IN_LIGHT_PLANE   nx = 1 / sqrt(1 + a^2),  nz = 1
///     otherwise              nx = nz = 1
///
/// @param model its pose must be usable (poseUsable); a pose of three rows has (0, 0, 0, 1) as its
///              fourth. A skew without Y gives infinities or NaN.
cmnalg::Matrix<double> skewedPose(const CalibrationModel& model);

/// The part of E that acts in the laser plane: its rows and columns 0, 2 and 3.
cmnalg::Matrix<double> inPlaneAlignment(const cmnalg::Matrix<double>& skewedPose);

}  // namespace datafusion::planex
