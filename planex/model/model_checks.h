#pragma once

#include "planex/infra/refusal.h"
#include "planex/model/calibration_model.h"

namespace datafusion::planex {

/// @{
/// One warning, on the logger of mappings and image functions, or on that of the model. @return
/// false
inline bool refuse(const char* reason) { return base::refuse("Image.Calibration.Planex", reason); }
inline bool refuseToChange(const char* reason) {
  return base::refuse("Image.Planex.Model", reason);
}
/// @}

// Whether the parts of a model that came from a document have a shape that mappings can use. The
// fields are public, so every user asks; each has its own text for a refusal.

/// 3 x 3, without padding.
inline bool homographyUsable(const CalibrationModel& model) {
  const cmnalg::Matrix<double>& h = model.Homography;
  return h.Width() == 3 && h.Height() == 3 && h.Pitch() == 3;
}

/// Four columns, without padding, and three or four rows.
inline bool poseUsable(const CalibrationModel& model) {
  const cmnalg::Matrix<double>& p = model.Pose;
  return p.Width() == 4 && p.Pitch() == 4 && (p.Height() == 3 || p.Height() == 4);
}

/// Empty, or at least six coefficients.
inline bool sheetCurveUsable(const CalibrationModel& model) {
  return model.SheetCurve.empty() || model.SheetCurve.size() >= 6;
}

}  // namespace datafusion::planex
