#pragma once

#include <planex/scan/rectified_rows.h>
#include <planex/scan/sensor.h>

#include <cstdint>
#include <string>

namespace planex::tools {

// What a result rests on that may not be meant: a line with the figure on standard error, and no
// failure. It is told behind the results, with --quiet, too.

/// Tells something of a file.
void warn(const std::string& file, const std::string& text);

/// Tells of the columns and rows of a region that the sensor does not have, if there are any.
void warnOfRegion(const datafusion::planex::CalibrationModel& model, const std::string& modelName,
                  const datafusion::planex::SensorRegion& region);

/// Tells of a scale that was taken for want of a statement, of a region and of columns of the image
/// that lie beside the sensor.
void warnOfSensor(const scan::RangeScan& source, const scan::ResolvedSensor& region);

/// Tells of a scale of values of other than 16 bits that was taken for want of a statement.
void warnOfScale(const scan::ResolvedSensor& region, const io::ImageReader& range);

/// Tells of `count` values outside the sensor, if there are any, and of an image without any value.
void warnOfValues(std::int64_t measured, std::int64_t outside, const std::string& range);

/// Tells of a map without a filled cell, and of one that leaves out more than a thousandth of the
/// points in its columns.
void warnOfMap(const std::string& map, const datafusion::planex::HeightGrid& grid,
               const scan::MapShare& share, std::int64_t filled);

}  // namespace planex::tools
