#pragma once

#include <string>
#include <vector>

#include "planex/foundation/vec.h"
#include "planex/infra/export.h"

namespace planex::io {

/// The section of a target, as its file describes it.
struct MeasuredTarget {
  std::vector<cmnalg::Vec<2, double>> profile;  ///< corners, X and Z
  double tolerance = 0;                         ///< standard uncertainty of a corner
  double scaleTolerance = 0;                    ///< of the whole, relative
  double margin = 0.5;                          ///< what is left out beside a corner
};

/// Reads a target:
///
///     {"profile": [[0, 0], [5, 4], [10, 0]], "tolerance": 0.003, "scaleTolerance": 1e-5,
///      "margin": 0.5}
///
/// A Failure names the member that is missing or wrong. What the numbers mean is not checked.
PLANEX_EXPORT MeasuredTarget readMeasuredTarget(const std::string& path);

}  // namespace planex::io
