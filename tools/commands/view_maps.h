// What the command `view` shows: maps and clouds, made from files.
#pragma once

#include <planex/scan/sensor.h>
#include <planex/scan/y_positions.h>

#include <cstdint>
#include <string>
#include <vector>

#include "planex/report/view_page.h"
#include "tools/cli/options.h"
#include "tools/cli/progress.h"

namespace planex::tools {

struct ViewOptions {
  std::vector<std::string> files;
  std::string output, intensity;
  std::int64_t cells = std::int64_t{1} << 25;  ///< of a map in the page at most
  scan::SensorSettings sensor;
  scan::RowSettings y;
};

/// Reads a height map with its other layers, and the images beside it that belong to it.
report::ViewMap viewOfMap(const std::string& path, const ViewOptions& options);

/// Reads a cloud, and thins it by cells where it is large.
report::ViewMap viewOfCloud(const std::string& path, const Context& context);

/// Makes a map of a range image as planex rectify does without options.
report::ViewMap viewOfScan(const std::string& model, const std::string& range,
                           const ViewOptions& options, const Context& context);

}  // namespace planex::tools
