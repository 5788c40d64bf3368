#include <fmt/format.h>
#include <planex/io/image_reader.h>
#include <planex/io/json.h>
#include <planex/io/model_file.h>
#include <planex/processing/height_grid.h>
#include <planex/scan/sensor.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "tools/cli/made.h"
#include "tools/cli/scan_options.h"
#include "tools/cli/warnings.h"
#include "tools/commands/commands.h"

namespace planex::tools {
namespace {

using datafusion::planex::HeightGrid;
using datafusion::planex::SensorRegion;
using datafusion::planex::WorldBounds;

constexpr int kMostColumns = 1 << 24;
constexpr int kLevels = 65536;

struct BoundsOptions {
  std::string model, image;
  scan::SensorSettings sensor;
  int columns = 0;
  bool json = false;
};

/// The height map that fills the bounds.
HeightGrid gridOf(const WorldBounds& bounds, int columns) {
  return {columns, 0, datafusion::planex::sampleAxis(bounds.x.min, bounds.x.max, columns),
          datafusion::planex::levelAxis(bounds.z.min, bounds.z.max, kLevels)};
}

/// The columns of an image that covers the region.
int columnsOf(const SensorRegion& region) {
  const double columns = std::ceil(region.width / std::abs(region.scaleX));
  return static_cast<int>(std::clamp(columns, 2.0, double{kMostColumns}));
}

std::string jsonText(const WorldBounds& bounds, const HeightGrid& grid, const SensorRegion& region,
                     const std::string& unit) {
  io::JsonText root;
  root.add("unit", unit);
  addSensor(root, region);
  const io::JsonObject world = root.addObject("bounds");
  world.add("xMin", bounds.x.min);
  world.add("xMax", bounds.x.max);
  world.add("xCount", grid.width);
  world.add("zMin", bounds.z.min);
  world.add("zMax", bounds.z.max);
  world.add("zLevels", kLevels);
  const io::JsonObject splat = root.addObject("splat");
  splat.add("splatA", bounds.lateralSpacing.x);
  splat.add("splatB", bounds.lateralSpacing.y);
  splat.add("splatC", 1.0);
  const io::JsonObject value = root.addObject("transform");
  value.add("scaleX", grid.x.scale);
  value.add("originX", grid.x.origin);
  value.add("scaleZ", grid.levels.scale);
  value.add("originZ", grid.levels.origin);
  return root.print();
}

std::string plainText(const WorldBounds& bounds, const HeightGrid& grid, const std::string& unit) {
  return fmt::format(
      "X          {:.6g} to {:.6g} {}\n"
      "Z          {:.6g} to {:.6g} {}\n"
      "spacing    {:.6g} Z {:+.6g} {}, of neighbouring columns (splat settings)\n"
      "columns    X = {:.9g} column {:+.9g} {}, for {} columns\n"
      "levels     Z = {:.9g} level {:+.9g} {}, for levels 1 to 65535\n",
      bounds.x.min, bounds.x.max, unit, bounds.z.min, bounds.z.max, unit, bounds.lateralSpacing.x,
      bounds.lateralSpacing.y, unit, grid.x.scale, grid.x.origin, unit, grid.width,
      grid.levels.scale, grid.levels.origin, unit);
}

void runBounds(const BoundsOptions& options, const Context& context) {
  requireOneStandardInput({options.model, options.image, options.sensor.sidecar});
  const datafusion::planex::CalibrationModel model = io::loadModel(options.model);
  std::unique_ptr<io::ImageReader> image;
  if (!options.image.empty()) image = io::ImageReader::open(options.image, io::Samples::kRanges);
  const scan::ScanSidecar beside = scan::readScanSidecar(options.sensor.sidecar, options.image);
  const scan::ResolvedSensor stated =
      scan::resolveSensor(options.sensor, beside, model, options.model,
                          image != nullptr ? image->shape().type : cmnalg::IMAGE_TYPE_UINT16);
  const SensorRegion region = scan::partOnSensor(model, stated, options.model);
  const int columns = options.columns > 0 ? options.columns : columnsOf(region);
  const WorldBounds bounds = scan::worldBounds(model, region, columns, options.model);
  const HeightGrid grid = gridOf(bounds, columns);
  const std::string text = options.json ? jsonText(bounds, grid, region, context.unit)
                                        : plainText(bounds, grid, context.unit);
  std::fputs(text.c_str(), stdout);
  tellOfReplacedMembers(options.sensor, {}, beside);
  if (image != nullptr) warnOfScale(stated, *image);
  warnOfRegion(model, options.model, stated);
}

}  // namespace

void addBoundsCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<BoundsOptions>();
  CLI::App* command = app.add_subcommand(
      "bounds",
      "Tell what part of the world a sensor region sees, and the height map that fills it");
  command->add_option("MODEL", options->model, "Model document; - is standard input")->required();
  command->add_option("IMAGE", options->image,
                      "Range image whose sidecar IMAGE.json has the sensor");
  command->add_option("--columns", options->columns, "Columns of the range image [width / scale x]")
      ->check(CLI::Range(2, kMostColumns))
      ->type_name("N");
  command->add_flag("--json", options->json, "Print JSON");
  addUnitOption(*command, context);
  addSensorOptions(*command, options->sensor);
  command->footer(
      "Examples:\n"
      "  planex bounds model.json\n"
      "  planex bounds model.json --origin-z 200 --sensor-height 400 --json\n"
      "  planex bounds model.json range.png --columns 1280");
  command->callback([options, &context] { runBounds(*options, context); });
}

}  // namespace planex::tools
