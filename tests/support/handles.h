#pragma once

#include "planex/api/planex.h"

namespace test {

/// Empties the registries of the C interface.
inline void destroyAll() {
  destroyAllModels();
  destroyAllCalibrationFilters();
  destroyAllRectificationFilters();
}

}  // namespace test
