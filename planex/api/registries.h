#pragma once

#include <cstdint>

#include "planex/api/handle_registry.h"
#include "planex/api/records.h"
#include "planex/model/calibration_model.h"

namespace tavik::planex {

/// What createCalibrationFilter() was given. The model is looked up by its handle at every use.
struct CalibrationFilter {
  std::uint32_t modelHandle;
  SensorTraits sensorTraits;
  ImageSize imageSize;
  std::uint32_t pixelFormat;
};

/// What createAlignmentFilter() was given. The model is looked up by its handle at every use.
struct AlignmentFilter {
  std::uint32_t modelHandle;
  ImageSize imageSize;
};

/// What createRectificationFilter() was given.
struct RectificationFilter {
  SplatSettings splatSettings;
  std::uint32_t rectificationMode;
  WorldRangeTraits worldRangeTraits;
  ImageSize inputSize;
  std::uint64_t coRectifiedCount;
  const std::uint32_t* coRectifiedFormats;  ///< the caller's array, not a copy
  float missingDataValue;
};

// The registries of the process. They are made on first use and never destroyed, so that they
// stay usable while static objects of the caller are.
HandleRegistry<datafusion::planex::CalibrationModel>& models();
HandleRegistry<CalibrationFilter>& calibrationFilters();
HandleRegistry<AlignmentFilter>& alignmentFilters();
HandleRegistry<RectificationFilter>& rectificationFilters();

}  // namespace tavik::planex
