#pragma once

#include "planex/api/planex.h"
#include "planex/api/points.h"

namespace test {

/// Empties the registries of the C interface.
inline void destroyAll() {
  destroyAllModels();
  destroyAllCalibrationFilters();
  destroyAllAlignmentFilters();
  destroyAllRectificationFilters();
}

}  // namespace test
