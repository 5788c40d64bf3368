#pragma once

#include <vector>

#include "planex/infra/export.h"
#include "planex/io/document_check.h"
#include "planex/model/calibration_model.h"

namespace planex::io {

/// Checks what the numbers of a model mean together:
///
///   - the lens centre was set;
///   - the lens polynomial keeps all places of the sensor in order, and so does the sheet curve;
///   - the homography can be inverted, and no place of the sensor is on or behind its horizon,
///     where w = h6 x + h7 y + h8 is 0;
///   - of a grid of some 4000 places on the sensor, all come back to where they were, to a pixel,
///     when they are mapped to the laser plane and back;
///   - the skew has a part along the scan; the pose is a similarity that can be inverted;
///   - the calibrated region has either no images or five of one size and place, with counts that
///     are not negative and residuals that are finite, the largest not below the mean.
///
/// Order and horizon are decided by bounds, so that no place is left out, however small. Where they
/// are too close to a fault to be decided, that is a fault. The work is bounded, whatever the
/// model.
///
/// Of an uncalibrated model only skew, pose and region are looked at.
///
/// @param model  as read from a document without a fault of form
/// @return all faults, each with the path of its member
PLANEX_EXPORT std::vector<Fault> checkModel(const datafusion::planex::CalibrationModel& model);

}  // namespace planex::io
