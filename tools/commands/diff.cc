#include <fmt/format.h>
#include <planex/foundation/vec.h>
#include <planex/infra/containers.h>
#include <planex/io/failure.h>
#include <planex/io/json.h>
#include <planex/io/library_warnings.h>
#include <planex/io/model_file.h>
#include <planex/model/coordinate_system.h>
#include <planex/model/point_mapping.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstddef>
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
using Point = cmnalg::Vec<2, double>;
using PointList = etl::Vector<Point>;

constexpr double kMostPoints = 1 << 22;  // compared without --step
constexpr std::int64_t kBlock = 65536;   // points mapped at a time

struct DiffOptions {
  std::string a, b;
  int step = 0;
  bool aligned = false, json = false;
  std::optional<double> tolerance;
};

/// How two models differ over pixels of the sensor, in the length unit.
struct Difference {
  std::int64_t points = 0;     // that both models map to finite places
  std::int64_t unmatched = 0;  // that only one does
  double squares = 0;
  double largest = 0;
  Point pixel, worldA, worldB;  // where it is largest

  double rms() const { return std::sqrt(squares / static_cast<double>(points)); }

  void include(const Point& at, const Point& a, const Point& b) {
    const bool finiteA = std::isfinite(a.x) && std::isfinite(a.y);
    const bool finiteB = std::isfinite(b.x) && std::isfinite(b.y);
    if (finiteA != finiteB) ++unmatched;
    if (!finiteA || !finiteB) return;
    const double distance = std::hypot(b.x - a.x, b.y - a.y);
    squares += distance * distance;
    if (points++ > 0 && !(distance > largest)) return;
    largest = distance;
    pixel = at;
    worldA = a;
    worldB = b;
  }
};

/// Maps some pixels of a row.
PointList mapped(const CalibrationModel& model, const std::string& file, const PointList& pixels,
                 bool aligned) {
  PointList points;
  if (!datafusion::planex::mapPoints<double>(
          model, pixels, points, CoordinateSystem::Pixel,
          aligned ? CoordinateSystem::Aligned : CoordinateSystem::Calibrated)) {
    io::failWithLibraryWarnings(file, "cannot be mapped with", "see: planex check " + file);
  }
  return points;
}

/// The places 0, step, 2 step, ... and the last one of a side of the sensor.
struct Places {
  std::int64_t last, step;

  Places(int size, int step_) : last(size - 1), step(step_) {}
  std::int64_t count() const { return (last + step - 1) / step + 1; }
  double at(std::int64_t i) const { return static_cast<double>(std::min(i * step, last)); }
};

int stepFor(const DiffOptions& options, const cmnalg::Vec<2, std::int32_t>& sensor) {
  if (options.step > 0) return options.step;
  const double pixels = static_cast<double>(sensor.x) * sensor.y;
  const double longest = std::max(sensor.x, sensor.y);  // of sensors that are but a line
  return static_cast<int>(
      std::ceil(std::max(std::sqrt(pixels / kMostPoints), longest / kMostPoints)));
}

Difference compare(const CalibrationModel& a, const CalibrationModel& b, int step,
                   const DiffOptions& options, const Context& context) {
  const Places columns(a.SensorSize.x, step), rows(a.SensorSize.y, step);
  Progress progress(context, "comparing", columns.count() * rows.count(), "points");
  Difference difference;
  PointList pixels;
  for (std::int64_t row = 0; row < rows.count(); ++row) {
    for (std::int64_t column = 0; column < columns.count();) {
      pixels.clear();
      const std::int64_t end = std::min(column + kBlock, columns.count());
      for (; column < end; ++column) pixels.push_back({columns.at(column), rows.at(row)});
      const PointList worldA = mapped(a, options.a, pixels, options.aligned);
      const PointList worldB = mapped(b, options.b, pixels, options.aligned);
      for (std::size_t i = 0; i < pixels.size(); ++i) {
        difference.include(pixels[i], worldA[i], worldB[i]);
      }
      progress.advance(static_cast<std::int64_t>(pixels.size()));
    }
  }
  return difference;
}

std::string plainText(const Difference& d, const std::string& unit) {
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
             d.worldA.y, unit, d.worldB.y - d.worldA.y, d.rms(), unit);
}

std::string jsonText(const Difference& d, const std::string& unit, int step) {
  io::JsonText root;
  root.add("unit", unit);
  root.add("step", step);
  root.add("points", static_cast<double>(d.points));
  root.add("notComparable", static_cast<double>(d.unmatched));
  root.add("rms", d.rms());
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
  const int step = stepFor(options, a.SensorSize);
  const Difference difference = compare(a, b, step, options, context);
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
