#pragma once

#include "planex/foundation/image.h"
#include "planex/foundation/image_of.h"
#include "planex/foundation/matrix.h"
#include "planex/infra/containers.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"
#include "planex/processing/run_mode.h"

namespace datafusion::planex {

/// Carries calibrated points through the model's skew-corrected pose into aligned X, Y and Z (the
/// formulas stand at basic::applyAlignmentBlock).
///
/// @param model   the camera; its state is not tested
/// @param aligned whether x and z come from a calibration with `aligned` true, in which the part
///                of the pose that acts in the laser plane has been applied already
/// @param x       calibrated X: as high as z, or one row that serves all rows
/// @param y       position along the scan, one value for each row of z
/// @param z       calibrated Z; decides what is missing
/// @param xOut, yOut, zOut  FLOAT32 targets in the size of z, created anew unless their buffers
///                have its byte size already; NaN where z is missing. They become MissingData
///                images; PixelSize and Origin stay as they were
/// @param mode    accepted, without effect
/// @return false with one warning on "Image.Calibration.Planex" and untouched targets: "Invalid
///         pose matrix." (other than 4 columns and 3 or 4 rows, or with `aligned` an in-plane part
///         that has no inverse), "Invalid skew vector." (|y| <= 1e-13, or x or z NaN), "Cannot
///         reuse source image as target image." (images that share memory), "X and Z input must
///         be of the same size.", "Y vector must be as long as X and Z are high.". False without
///         a message for types that hold no measurements; the targets are then created but not
///         filled.
///
/// Different images may be aligned on different threads at once.
PLANEX_EXPORT bool applyAlignment(const CalibrationModel& model, bool aligned,
                                  const cmnalg::Image& x, const etl::Vector<double>& y,
                                  const cmnalg::Image& z, cmnalg::ImageOf<float>& xOut,
                                  cmnalg::ImageOf<float>& yOut, cmnalg::ImageOf<float>& zOut,
                                  RunMode mode);

/// The 4 x 4 matrix that an alignment applies: the skew-corrected pose E, or, for data that were
/// calibrated with `aligned` true, E (E')^-1. E' is E with row 1 and column 1 of the identity: the
/// in-plane transform that getCalibrationTransform folds into the calibration.
///
/// Both ways give the same points up to float rounding where the calibration did apply E': in an
/// aligned state, with P[3][3] = 1 and without sheet curve. A sheet curve is corrected after the
/// in-plane transform in one case and before it in the other; in state CALIBRATED the calibration
/// leaves E' out, so data must then be aligned with `aligned` false; and P[3][3] divides in the
/// calibration but not here.
///
/// @return an empty matrix for a pose of other than 4 columns and 3 or 4 rows, and for an E' that
///         has no inverse
PLANEX_EXPORT cmnalg::Matrix<double> getAlignmentTransform(const CalibrationModel& model,
                                                           bool aligned);

}  // namespace datafusion::planex
