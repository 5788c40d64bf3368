#include "planex/api/registries.h"

#include <new>

namespace tavik::planex {
namespace {

/// A registry that needs no memory until it holds something, and is never destroyed.
template <typename T>
HandleRegistry<T>& makeRegistry(const char* tooManyMessage, const char* unknownMessage) {
  alignas(HandleRegistry<T>) static unsigned char memory[sizeof(HandleRegistry<T>)];
  return *new (memory) HandleRegistry<T>(tooManyMessage, unknownMessage);
}

}  // namespace

using datafusion::planex::CalibrationModel;

HandleRegistry<CalibrationModel>& models() {
  static auto& registry = makeRegistry<CalibrationModel>(
      "Too many models created, destroy unused models by calling destroyModel()",
      "The provided model handle does not map to a previously created model");
  return registry;
}

HandleRegistry<CalibrationFilter>& calibrationFilters() {
  static auto& registry = makeRegistry<CalibrationFilter>(
      "Too many calibration filters created, destroy unused calibrationFilters by calling "
      "destroyCalibrationFilter()",
      "The provided calibration filter handle does not map to a previously created filter");
  return registry;
}

HandleRegistry<AlignmentFilter>& alignmentFilters() {
  static auto& registry = makeRegistry<AlignmentFilter>(
      "Too many alignment filters created, destroy unused alignmentFilters by calling "
      "destroyAlignmentFilter()",
      "The provided alignment filter handle does not map to a previously created filter");
  return registry;
}

HandleRegistry<RectificationFilter>& rectificationFilters() {
  static auto& registry = makeRegistry<RectificationFilter>(
      "Too many rectification filters created, destroy unused rectificationFilters by calling "
      "destroyRectificationFilter()",
      "The provided rectification filter handle does not map to a previously created filter");
  return registry;
}

}  // namespace tavik::planex
