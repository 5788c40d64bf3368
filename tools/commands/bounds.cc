#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "tools/commands/commands.h"
#include "tools/support/json.h"
#include "tools/support/model_file.h"
#include "tools/support/world_bounds.h"

namespace planex_tools {
namespace {

constexpr int kMostColumns = 1 << 24;

struct BoundsOptions {
  std::string model, image;
  SensorOptions sensor;
  int columns = 0;
  bool json = false;
};

/// World coordinates of the columns and levels of the height map that fills the bounds.
struct Transform {
  double scaleX, originX, scaleZ, originZ;
};

Transform transformOf(const WorldBounds& bounds, int columns) {
  const ValueTransform levels = valueTransformOf(bounds.zMin, bounds.zMax);
  return {(bounds.xMax - bounds.xMin) / (columns - 1), bounds.xMin, levels.scale, levels.origin};
}

/// The columns of an image that covers the region.
int columnsOf(const SensorTraits& traits) {
  const double columns = std::ceil(traits.width / std::abs(traits.scaleX));
  return static_cast<int>(std::clamp(columns, 2.0, double{kMostColumns}));
}

std::string jsonText(const WorldBounds& bounds, const Transform& transform, int columns,
                     const SensorTraits& traits, const std::string& unit) {
  const Json root(cJSON_CreateObject());
  add(root.get(), "unit", unit);
  cJSON* sensor = addObject(root.get(), "sensor");
  add(sensor, "scaleX", traits.scaleX);
  add(sensor, "originX", traits.originX);
  add(sensor, "scaleZ", traits.scaleZ);
  add(sensor, "originZ", traits.originZ);
  add(sensor, "width", static_cast<double>(traits.width));
  add(sensor, "height", static_cast<double>(traits.height));
  cJSON* world = addObject(root.get(), "bounds");
  add(world, "xMin", bounds.xMin);
  add(world, "xMax", bounds.xMax);
  add(world, "xCount", static_cast<double>(columns));
  add(world, "zMin", bounds.zMin);
  add(world, "zMax", bounds.zMax);
  add(world, "zLevels", 65536.0);
  cJSON* splat = addObject(root.get(), "splat");
  add(splat, "splatA", bounds.splat.splatA);
  add(splat, "splatB", bounds.splat.splatB);
  add(splat, "splatC", bounds.splat.splatC);
  cJSON* value = addObject(root.get(), "transform");
  add(value, "scaleX", transform.scaleX);
  add(value, "originX", transform.originX);
  add(value, "scaleZ", transform.scaleZ);
  add(value, "originZ", transform.originZ);
  return printJson(*root);
}

std::string plainText(const WorldBounds& bounds, const Transform& transform, int columns,
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
  const datafusion::planex::CalibrationModel model = loadModel(options.model);
  const SensorTraits traits = resolveSensor(options.sensor, options.image, model, options.model);
  const int columns = options.columns > 0 ? options.columns : columnsOf(traits);
  const WorldBounds bounds = worldBounds(model, traits, columns, options.model);
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

}  // namespace planex_tools
