#include <fmt/format.h>
#include <planex/io/json.h>
#include <planex/io/model_file.h>
#include <planex/scan/world_bounds.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "tools/cli/scan_options.h"
#include "tools/commands/commands.h"

namespace planex::tools {
namespace {

constexpr int kMostColumns = 1 << 24;

struct BoundsOptions {
  std::string model, image;
  scan::SensorSettings sensor;
  int columns = 0;
  bool json = false;
};

/// World coordinates of the columns and levels of the height map that fills the bounds.
struct Transform {
  double scaleX, originX, scaleZ, originZ;
};

Transform transformOf(const scan::WorldBounds& bounds, int columns) {
  const scan::ValueTransform levels = scan::valueTransformOf(bounds.zMin, bounds.zMax);
  return {(bounds.xMax - bounds.xMin) / (columns - 1), bounds.xMin, levels.scale, levels.origin};
}

/// The columns of an image that covers the region.
int columnsOf(const SensorTraits& traits) {
  const double columns = std::ceil(traits.width / std::abs(traits.scaleX));
  return static_cast<int>(std::clamp(columns, 2.0, double{kMostColumns}));
}

std::string jsonText(const scan::WorldBounds& bounds, const Transform& transform, int columns,
                     const SensorTraits& traits, const std::string& unit) {
  io::JsonText root;
  root.add("unit", unit);
  const io::JsonObject sensor = root.addObject("sensor");
  sensor.add("scaleX", traits.scaleX);
  sensor.add("originX", traits.originX);
  sensor.add("scaleZ", traits.scaleZ);
  sensor.add("originZ", traits.originZ);
  sensor.add("width", traits.width);
  sensor.add("height", traits.height);
  const io::JsonObject world = root.addObject("bounds");
  world.add("xMin", bounds.xMin);
  world.add("xMax", bounds.xMax);
  world.add("xCount", columns);
  world.add("zMin", bounds.zMin);
  world.add("zMax", bounds.zMax);
  world.add("zLevels", 65536.0);
  const io::JsonObject splat = root.addObject("splat");
  splat.add("splatA", bounds.splat.splatA);
  splat.add("splatB", bounds.splat.splatB);
  splat.add("splatC", bounds.splat.splatC);
  const io::JsonObject value = root.addObject("transform");
  value.add("scaleX", transform.scaleX);
  value.add("originX", transform.originX);
  value.add("scaleZ", transform.scaleZ);
  value.add("originZ", transform.originZ);
  return root.print();
}

std::string plainText(const scan::WorldBounds& bounds, const Transform& transform, int columns,
                      const std::string& unit) {
  return fmt::format(
      "X          {:.6g} to {:.6g} {}\n"
      "Z          {:.6g} to {:.6g} {}\n"
      "spacing    {:.6g} Z {:+.6g} {}, of neighbouring columns (splat settings)\n"
      "columns    X = {:.9g} column {:+.9g} {}, for {} columns\n"
      "levels     Z = {:.9g} level {:+.9g} {}, for levels 1 to 65535\n",
      bounds.xMin, bounds.xMax, unit, bounds.zMin, bounds.zMax, unit, bounds.splat.splatA,
      bounds.splat.splatB, unit, transform.scaleX, transform.originX, unit, columns,
      transform.scaleZ, transform.originZ, unit);
}

void runBounds(const BoundsOptions& options, const Context& context) {
  const datafusion::planex::CalibrationModel model = io::loadModel(options.model);
  const SensorTraits traits =
      scan::resolveSensor(options.sensor, options.image, model, options.model);
  const int columns = options.columns > 0 ? options.columns : columnsOf(traits);
  const scan::WorldBounds bounds = scan::worldBounds(model, traits, columns, options.model);
  const Transform transform = transformOf(bounds, columns);
  const std::string text = options.json ? jsonText(bounds, transform, columns, traits, context.unit)
                                        : plainText(bounds, transform, columns, context.unit);
  std::fputs(text.c_str(), stdout);
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
