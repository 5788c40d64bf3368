#pragma once

#include <vector>

#include "planex/foundation/vec.h"
#include "planex/infra/export.h"
#include "planex/io/image_reader.h"
#include "planex/model/sensor_region.h"

namespace planex::scan {

/// The profile of something that stood still while a scan was taken.
struct RestingProfile {
  std::vector<cmnalg::Vec<2, double>> pixels;  ///< sensor column and row
  double drift = 0;  ///< sensor rows by which the later half of the scan lies above the first
};

/// The median of each column of a range image over its rows, of at most 256 of them spread over the
/// image; of those columns in which half of the values are there. Places off the sensor are left
/// out.
/// @param size of the sensor, columns and rows
PLANEX_EXPORT RestingProfile readRestingProfile(io::ImageReader& image,
                                                const datafusion::planex::SensorRegion& region,
                                                cmnalg::Vec<2, int> size);

}  // namespace planex::scan
