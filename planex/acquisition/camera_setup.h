#pragma once

#include "planex/acquisition/camera_features.h"
#include "planex/acquisition/camera_frames.h"

namespace planex::acquisition {

/// Sets a camera as the settings say.
/// @return the features that were set
std::vector<FeatureValue> setUp(ArvCamera* camera, const CameraFeatures& features,
                                const CameraSettings& settings);

/// Where frames lie on the sensor, as the camera is set: pixel i of an axis is the one at
///
///     b d (offset + i) + (b - 1) / 2
///
/// for b pixels binned and one taken of d; counted from the other end where the axis is mirrored.
datafusion::planex::SensorRegion sensorRegion(const CameraFeatures& features);

/// Whether a camera sends ranges. A Failure where it has made lengths of them itself, to which the
/// model of a camera does not apply.
bool sendsRanges(const CameraFeatures& features);

/// The same as sensorRegion() for ranges: rows of the sensor = scaleZ value + originZ.
datafusion::planex::SensorRegion rangeRegion(const CameraFeatures& features);

/// What stands for no measurement among ranges, if anything does.
std::optional<int> invalidRange(const CameraFeatures& features);

}  // namespace planex::acquisition
