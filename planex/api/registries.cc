#include "planex/api/registries.h"

namespace tavik::planex {

using datafusion::planex::CalibrationModel;

HandleRegistry<CalibrationModel>& models() {
  static auto& registry = *new HandleRegistry<CalibrationModel>(
      "Too many models created, destroy unused models by calling destroyModel()",
      "The provided model handle does not map to a previously created model");
  return registry;
}

HandleRegistry<CalibrationFilter>& calibrationFilters() {
  static auto& registry = *new HandleRegistry<CalibrationFilter>(
      "Too many calibration filters created, destroy unused calibrationFilters by calling "
      "destroyCalibrationFilter()",
      "The provided calibration filter handle does not map to a previously created filter");
  return registry;
}

HandleRegistry<RectificationFilter>& rectificationFilters() {
  static auto& registry = *new HandleRegistry<RectificationFilter>(
      "Too many rectification filters created, destroy unused rectificationFilters by calling "
      "destroyRectificationFilter()",
      "The provided rectification filter handle does not map to a previously created filter");
  return registry;
}

}  // namespace tavik::planex
