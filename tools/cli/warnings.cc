#include "tools/cli/warnings.h"

#include <fmt/format.h>
#include <planex/io/failure.h>

#include <cstdio>

namespace planex::tools {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::SensorRegion;

void warnOfExtent(const std::string& modelName, const scan::SensorExtent& extent, int sensorSize,
                  const char* what, const char* options) {
  if (extent.beyond == 0) return;
  warn(modelName,
       fmt::format("the sensor region has {0} {1} to {2}, {3} of them beyond the {4} {0} "
                   "of the sensor; check {5}",
                   what, extent.first, extent.last, extent.beyond, sensorSize, options));
}

void warnOfColumns(const scan::RangeScan& source) {
  const int width = source.range.shape().width;
  const int behind = source.firstColumn + source.columnsInside;
  if (source.columnsInside == width) return;
  std::string which;
  if (source.firstColumn > 0) which = fmt::format("0 to {}", source.firstColumn - 1);
  if (behind < width) {
    which += fmt::format("{}{} to {}", which.empty() ? "" : " and ", behind, width - 1);
  }
  warn(source.range.path(),
       fmt::format("{} of its {} columns, {}, lie beyond the {} columns of the sensor; check "
                   "--scale-x and --origin-x",
                   width - source.columnsInside, width, which, source.model.SensorSize.x));
}

}  // namespace

void warn(const std::string& file, const std::string& text) {
  std::fputs(
      fmt::format("planex: {}: {}\n", io::inOneLine(io::Failure::nameOf(file)), text).c_str(),
      stderr);
}

void warnOfRegion(const CalibrationModel& model, const std::string& modelName,
                  const SensorRegion& region) {
  warnOfExtent(modelName, scan::columnsOf(model, region), model.SensorSize.x, "columns",
               "--origin-x and --sensor-width");
  warnOfExtent(modelName, scan::rowsOf(model, region), model.SensorSize.y, "rows",
               "--origin-z and --sensor-height");
}

void warnOfSensor(const scan::RangeScan& source, const scan::ResolvedSensor& region) {
  warnOfScale(region, source.range);
  warnOfRegion(source.model, source.modelName, region);
  warnOfColumns(source);
}

void warnOfScale(const scan::ResolvedSensor& region, const io::ImageReader& range) {
  const cmnalg::ImageType type = range.shape().type;
  if (region.scaleZStated || type == cmnalg::IMAGE_TYPE_UINT16) return;
  const char* const text =
      type == cmnalg::IMAGE_TYPE_UINT8
          ? "has 8 bits and no scale: values are taken as whole rows of the sensor"
      : type == cmnalg::IMAGE_TYPE_FLOAT32
          ? "has floats and no scale: values are taken as rows of the sensor"
          : "has 32 bits and no scale: values are taken as sixteenths of a row of the sensor";
  warn(range.path(), std::string(text) + "; give --scale-z");
}

void warnOfValues(std::int64_t measured, std::int64_t outside, const std::string& range) {
  if (measured == 0) warn(range, "nothing was measured in these rows: all values are 0");
  if (outside == 0) return;
  warn(range,
       fmt::format("{} values lie outside the sensor; check --scale-z and --origin-z", outside));
}

void warnOfMap(const std::string& map, const datafusion::planex::HeightGrid& grid,
               const scan::MapShare& share, std::int64_t filled) {
  if (share.points == 0) return;  // nothing was measured
  const std::string x = fmt::format("X {:.6g} to {:.6g}", grid.x.origin,
                                    grid.x.origin + (grid.width - 1) * grid.x.scale);
  const std::string z = fmt::format("Z {:.6g} to {:.6g}", grid.levels.origin + grid.levels.scale,
                                    grid.levels.origin + 65535 * grid.levels.scale);
  if (filled == 0) {
    const bool missed = share.inColumns == share.outsideLevels;
    warn(map, missed
                  ? fmt::format("no cell is filled: none of {} points lies in {} and {}; check "
                                "--x-range, --z-range and the sensor region",
                                share.points, x, z)
                  : fmt::format("no cell is filled, though points lie in {} and {}; check --mode "
                                "and --intensity",
                                x, z));
    return;
  }
  if (share.outsideLevels * 1000 <= share.inColumns) return;
  warn(map, fmt::format("{:.1f} % of the points in {} lie outside {} and are not in the map",
                        100.0 * static_cast<double>(share.outsideLevels) /
                            static_cast<double>(share.inColumns),
                        x, z));
}

}  // namespace planex::tools
