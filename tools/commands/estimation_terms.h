#pragma once

#include <planex/estimation/map_uncertainty.h>

#include <string>

#include "planex/report/document.h"

namespace planex::tools {

/// A table of all terms: their values, how well they are known, and what those of the lens
/// and of the sheet do at the corners of the sensor, in pixels.
/// @param isPlane  whether the sheet was taken for a plane; then it has no terms
report::Table termTable(const estimation::MapUncertainty::Parts& parts,
                        cmnalg::Vec<2, int> sensorSize, const std::string& unit, bool isPlane);

}  // namespace planex::tools
