#pragma once

#include "planex/foundation/matrix.h"
#include "planex/infra/export.h"

namespace datafusion::planex {

/// The camera matrix ((focal, 0, cx), (0, focal, cy), (0, 0, 1)), all in pixels.
///
/// @param K receives it, 3 x 3; untouched on failure
/// @return false with a warning on "Image.Calibration.Planex": "Invalid lens center coordinate."
///         when cx or cy is negative, then "Invalid focal length." when focal is
PLANEX_EXPORT bool getK(const double& focal, const double& cx, const double& cy,
                        cmnalg::Matrix<double>& K);

}  // namespace datafusion::planex
