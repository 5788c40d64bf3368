#pragma once

#include "planex/foundation/image.h"
#include "planex/foundation/image_of.h"
#include "planex/foundation/matrix.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"
#include "planex/processing/run_mode.h"

namespace datafusion::planex {

/// Turns a range image into world X and Z: normalisation, lens polynomial, projection onto the
/// laser plane and sheet curve (the formulas stand at basic::applyCalibrationBlock).
///
/// The range image's PixelSize and Origin say where its samples lie on the sensor: component 0
/// for columns, 2 for stored values, in sensor pixels.
///
/// @param model   the camera; its state is not tested
/// @param aligned map on into the aligned plane; has an effect in the four aligned states only
/// @param range   UINT8, UINT16, UINT32, UINT64, FLOAT32 or FLOAT64; 0 in an integer image, and
///                what is not above 0 in a floating one, is no measurement
/// @param x, z    FLOAT32 targets, created anew in the size of the range image unless their
///                buffers have its byte size already; NaN where nothing was measured. They become
///                MissingData images and take PixelSize.y and Origin.y of the range image;
///                components 0 and 2 stay as they were
/// @param mode    odd: double precision
/// @return false with one warning on "Image.Calibration.Planex" and untouched targets: "Invalid
///         lens center matrix." (a coordinate not above 0), "Invalid focal length." (not above
///         0; NaN passes in both), "Invalid perspective matrix." (not 3 x 3), "Invalid sheet
///         curve." (one to five entries), "Invalid pose matrix." (an alignment that would use a
///         pose of other than 4 columns and 3 or 4 rows), "Cannot reuse source image as target
///         image." (images that share memory). False without a message for a range type that
///         holds no measurements; the targets are then created but not filled.
///
/// Different images may be calibrated on different threads at once.
PLANEX_EXPORT bool applyCalibration(const CalibrationModel& model, bool aligned,
                                    const cmnalg::Image& range, cmnalg::ImageOf<float>& x,
                                    cmnalg::ImageOf<float>& z, RunMode mode);

/// The 3 x 3 projection from the undistorted sensor plane, in focal lengths, that a calibration
/// uses: the homography H, or A H for an aligned calibration in one of the four aligned states,
/// A being the part of the skew-corrected pose that acts in the laser plane.
///
/// @return an empty matrix when the homography, or a pose that is needed, has no usable shape
PLANEX_EXPORT cmnalg::Matrix<double> getCalibrationTransform(const CalibrationModel& model,
                                                             bool aligned);

}  // namespace datafusion::planex
