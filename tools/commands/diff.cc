#include <fmt/format.h>
#include <planex/foundation/vec.h>
#include <planex/infra/containers.h>
#include <planex/io/failure.h>
#include <planex/io/json.h>
#include <planex/io/library_warnings.h>
#include <planex/io/model_file.h>
#include <planex/model/coordinate_system.h>
#include <planex/model/model_difference.h>
#include <planex/model/point_mapping.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "tools/cli/progress.h"
#include "tools/commands/commands.h"

namespace planex::tools {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using datafusion::planex::ModelDifference;

struct DiffOptions {
  std::string a, b;
  int step = 0;
  bool aligned = false, json = false;
  std::optional<double> tolerance;
};

/// A Failure for a model that maps nothing.
void requireMapping(const CalibrationModel& model, const std::string& file,
                    CoordinateSystem system) {
  etl::Vector<cmnalg::Vec<2, double>> point(1);
  if (!datafusion::planex::mapPoints<double>(model, point, point, CoordinateSystem::Pixel,
                                             system)) {
    io::failWithLibraryWarnings(file, "cannot be mapped with", "see: planex check " + file);
  }
}

ModelDifference compare(const CalibrationModel& a, const CalibrationModel& b, int step,
                        const DiffOptions& options, const Context& context) {
  const auto system = options.aligned ? CoordinateSystem::Aligned : CoordinateSystem::Calibrated;
  requireMapping(a, options.a, system);
  requireMapping(b, options.b, system);
  const auto placesOf = [step](std::int64_t size) { return (size + step - 2) / step + 1; };
  Progress progress(context, "comparing", placesOf(a.SensorSize.x) * placesOf(a.SensorSize.y),
                    "points");
  ModelDifference difference;
  if (!compareModels(a, b, system, step, difference,
                     [&](std::int64_t pixels) { progress.advance(pixels); })) {
    io::failWithLibraryWarnings(options.b, "cannot be compared", "see: planex check " + options.b);
  }
  return difference;
}

std::string plainText(const ModelDifference& d, const std::string& unit) {
  std::string text = fmt::format("compared           {} pixels of the sensor\n", d.points);
  if (d.unmatched > 0) {
    text +=
        fmt::format("not comparable     {} pixels, which only one model can map\n", d.unmatched);
  }
  if (d.points == 0) return text;
  return text +
         fmt::format(
             "largest            {:.6g} {} at column {}, row {}: X {:.6g} {} ({:+.3g}), Z {:.6g} "
             "{} ({:+.3g})\n"
             "rms                {:.6g} {}\n",
             d.largest, unit, d.pixel.x, d.pixel.y, d.worldA.x, unit, d.worldB.x - d.worldA.x,
             d.worldA.y, unit, d.worldB.y - d.worldA.y, d.rms, unit);
}

std::string jsonText(const ModelDifference& d, const std::string& unit, int step) {
  io::JsonText root;
  root.add("unit", unit);
  root.add("step", step);
  root.add("points", static_cast<double>(d.points));
  root.add("notComparable", static_cast<double>(d.unmatched));
  root.add("rms", d.rms);
  const io::JsonObject largest = root.addObject("largest");
  largest.add("distance", d.largest);
  largest.add("column", d.pixel.x);
  largest.add("row", d.pixel.y);
  largest.add("xA", d.worldA.x);
  largest.add("zA", d.worldA.y);
  largest.add("xB", d.worldB.x);
  largest.add("zB", d.worldB.y);
  return root.print();
}

void runDiff(const DiffOptions& options, const Context& context) {
  if (options.a == "-" && options.b == "-") {
    throw CLI::ValidationError("B", "both models cannot be standard input");
  }
  const CalibrationModel a = io::loadModel(options.a);
  const CalibrationModel b = io::loadModel(options.b);
  if (a.SensorSize != b.SensorSize) {
    throw io::Failure(options.b,
                      fmt::format("has a sensor of {} x {}, the other model of {} x {}; "
                                  "compare models of one sensor",
                                  b.SensorSize.x, b.SensorSize.y, a.SensorSize.x, a.SensorSize.y));
  }
  if (a.SensorSize.x < 1 || a.SensorSize.y < 1) {
    throw io::Failure(options.a, "has a sensor without size; see: planex check " + options.a);
  }
  const int step =
      options.step > 0 ? options.step : datafusion::planex::differenceStep(a.SensorSize);
  const ModelDifference difference = compare(a, b, step, options, context);
  const std::string text =
      options.json ? jsonText(difference, context.unit, step) : plainText(difference, context.unit);
  std::fputs(text.c_str(), stdout);
  const bool equal =
      difference.unmatched == 0 && difference.largest <= options.tolerance.value_or(0);
  if (options.tolerance && !equal) {
    throw io::Failure(
        options.b, fmt::format("differs from {} by more than {} {}; see where above",
                               io::Failure::nameOf(options.a), *options.tolerance, context.unit));
  }
}

}  // namespace

void addDiffCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<DiffOptions>();
  CLI::App* command =
      app.add_subcommand("diff", "Tell how far two models differ over the sensor, and where");
  command->add_option("A", options->a, "Model document; - is standard input")->required();
  command->add_option("B", options->b, "Model document to compare")->required();
  command->add_flag("--aligned", options->aligned, "Compare behind the pose, in the aligned plane");
  command
      ->add_option("--step", options->step,
                   "Compare every N-th column and row; by default all, of large sensors 4 million")
      ->check(CLI::Range(1, 65535))
      ->type_name("N");
  addNumberOption(*command, "--tolerance", options->tolerance,
                  "Exit with status 1 when the largest difference is above this");
  command->add_flag("--json", options->json, "Print JSON");
  addUnitOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "Examples:\n"
      "  planex diff before.json after.json\n"
      "  planex diff before.json after.json --aligned --json\n"
      "  planex diff reference.json model.json --tolerance 0.01");
  command->callback([options, &context] { runDiff(*options, context); });
}

}  // namespace planex::tools
