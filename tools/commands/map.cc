#include <fmt/format.h>
#include <planex/foundation/box.h>
#include <planex/foundation/polyline.h>
#include <planex/foundation/rectangle.h>
#include <planex/foundation/vec.h>
#include <planex/infra/containers.h>
#include <planex/io/library_warnings.h>
#include <planex/io/model_file.h>
#include <planex/io/number_text.h>
#include <planex/io/output_file.h>
#include <planex/io/point_text.h>
#include <planex/io/text_output.h>
#include <planex/model/coordinate_system.h>
#include <planex/model/point_mapping.h>
#include <planex/model/shape_mapping.h>

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/made.h"
#include "tools/cli/warnings.h"
#include "tools/commands/commands.h"

namespace planex::tools {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using Point2 = cmnalg::Vec<2, double>;
using Point3 = cmnalg::Vec<3, double>;

constexpr std::size_t kBlock = 65536;  // points mapped at a time
constexpr std::size_t kTextPiece = 1 << 20;
constexpr int kMostSupersampling = 1000;  // of a box that gives six million points

struct MapOptions {
  std::string model, input = "-", output;
  CoordinateSystem from = CoordinateSystem::Pixel, to = CoordinateSystem::Calibrated;
  std::optional<double> yScale, yOffset;
  std::vector<double> rectangle, box;
  int supersampling = 20;
  bool points = false;
};

const std::map<std::string, CoordinateSystem> kSystems = {
    {"pixel", CoordinateSystem::Pixel},
    {"calibrated", CoordinateSystem::Calibrated},
    {"aligned", CoordinateSystem::Aligned}};

const io::CoordinateNames& namesOf(CoordinateSystem system) {
  return system == CoordinateSystem::Pixel ? io::kPixelNames : io::kWorldNames;
}

class Mapper {
 public:
  Mapper(const MapOptions& options, const CalibrationModel& model)
      : options_(options),
        model_(model),
        yScale_(options.yScale.value_or(1)),
        yOffset_(options.yOffset.value_or(0)) {}

  void map2(std::vector<io::TextPoint>& points) const {
    etl::Vector<Point2> list;
    for (const io::TextPoint& p : points) list.push_back({p[0], p[1]});
    require(datafusion::planex::mapPoints<double>(model_, list, list, options_.from, options_.to));
    for (std::size_t i = 0; i < list.size(); ++i) points[i] = {list[i].x, list[i].y, 0};
  }

  void map3(std::vector<io::TextPoint>& points) const {
    etl::Vector<Point3> list;
    for (const io::TextPoint& p : points) list.push_back({p[0], p[1], p[2]});
    require(datafusion::planex::mapPoints<double>(model_, list, list, options_.from, options_.to,
                                                  yOffset_, yScale_));
    for (std::size_t i = 0; i < list.size(); ++i) points[i] = {list[i].x, list[i].y, list[i].z};
  }

  std::vector<io::TextPoint> rectangle() const {
    const std::vector<double>& r = options_.rectangle;
    const cmnalg::shape::Rectangle shape{
        {(r[0] + r[2]) / 2, (r[1] + r[3]) / 2}, r[2] - r[0], r[3] - r[1], 0};
    cmnalg::shape::Polyline outline;
    require(
        mapRectangle(model_, shape, outline, options_.from, options_.to, options_.supersampling));
    std::vector<io::TextPoint> points;
    for (const Point2& p : outline.Points) points.push_back({p.x, p.y, 0});
    return points;
  }

  std::vector<io::TextPoint> box() const {
    const std::vector<double>& b = options_.box;
    const auto shape = cmnalg::shape3d::Box::FromCorners({b[0], b[1], b[2]}, {b[3], b[4], b[5]});
    etl::Vector<Point3> surface;
    require(mapBox(model_, shape, surface, options_.from, options_.to, yOffset_, yScale_,
                   options_.supersampling));
    std::vector<io::TextPoint> points;
    for (const Point3& p : surface) points.push_back({p.x, p.y, p.z});
    return points;
  }

 private:
  void require(bool mapped) const {
    if (!mapped) {
      io::failWithLibraryWarnings(options_.model, "cannot be mapped with",
                                  "see: planex check " + options_.model);
    }
  }

  const MapOptions& options_;
  const CalibrationModel& model_;
  const double yScale_, yOffset_;
};

/// Least and greatest coordinates as two points; NaN is left out.
std::vector<io::TextPoint> boundsOf(const std::vector<io::TextPoint>& points) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  io::TextPoint min{kInfinity, kInfinity, kInfinity}, max{-kInfinity, -kInfinity, -kInfinity};
  for (const io::TextPoint& point : points) {
    for (std::size_t i = 0; i < 3; ++i) {
      if (point[i] < min[i]) min[i] = point[i];
      if (point[i] > max[i]) max[i] = point[i];
    }
  }
  return {min, max};
}

/// Writes what append(text, i) appends for each of `count` points.
template <typename Append>
void writePoints(io::TextOutput& output, std::size_t count, const Append& append) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    append(text, i);
    if (text.size() < kTextPiece) continue;
    output.write(text);
    text.clear();
  }
  output.write(text);
}

/// @return the dimensions of the points
int mapShape(const MapOptions& options, const Mapper& mapper, io::TextOutput& output) {
  const int dimensions = options.box.empty() ? 2 : 3;
  const auto [x, y, z] = namesOf(options.to).names;
  output.write(dimensions == 2 ? fmt::format("{},{}\n", x, z) : fmt::format("{},{},{}\n", x, y, z));
  std::vector<io::TextPoint> points = dimensions == 2 ? mapper.rectangle() : mapper.box();
  if (!options.points) points = boundsOf(points);
  writePoints(output, points.size(), [&](std::string& text, std::size_t i) {
    io::appendPoint(text, points[i], dimensions);
  });
  return dimensions;
}

/// Tells of columns that were taken for want of names.
void warnOfColumns(const MapOptions& options, const io::PointReader& reader) {
  if (reader.hasHeading() || reader.columns() == reader.dimensions()) return;
  const auto [x, y, z] = namesOf(options.from).names;
  warn(options.input, fmt::format("has {} columns without names: the first are taken as {}, {} and "
                                  "{}; name those that are meant in the first line",
                                  reader.columns(), x, y, z));
}

/// @return the dimensions of the points
int mapText(const MapOptions& options, const Mapper& mapper, io::TextOutput& output) {
  io::PointReader reader(options.input, namesOf(options.from));
  std::vector<io::TextPoint> points;
  bool first = true;
  while (reader.read(kBlock, points)) {
    if (first) warnOfColumns(options, reader);
    if (first && reader.hasHeading()) output.write(reader.heading(namesOf(options.to)));
    first = false;
    if (reader.dimensions() == 2) {
      mapper.map2(points);
    } else {
      mapper.map3(points);
    }
    writePoints(output, points.size(),
                [&](std::string& text, std::size_t i) { reader.append(text, i, points[i]); });
  }
  if (first) {
    if (reader.hasHeading()) output.write(reader.heading(namesOf(options.to)));
    warn(options.input, "holds no points");
  }
  return reader.dimensions();
}

std::string describeInJson(const MapOptions& options, const Context& context,
                           const ModelSource& model, std::int64_t bytes) {
  OutputSidecar sidecar(options.output + ".json", "mapped points", context);
  sidecar.root().add("model", options.model);
  sidecar.root().add("points", options.input);
  sidecar.addMade(model);
  sidecar.addRows(scan::YPositions({options.yScale.value_or(1), options.yOffset.value_or(0)},
                                   options.yScale.has_value()));
  sidecar.addOutput("mapped points", options.output, bytes);
  return sidecar.print();
}

/// Tells on standard error that Y counts profiles, where it does.
void warnOfCountedProfiles(const MapOptions& options, int dimensions) {
  const bool usesPixels =
      (options.from == CoordinateSystem::Pixel) != (options.to == CoordinateSystem::Pixel);
  if (dimensions < 3 || !usesPixels || options.yScale) return;
  std::fputs("planex: Y counts profiles, because nothing tells their distance; give --y-scale\n",
             stderr);
}

void runMap(const MapOptions& options, const Context& context) {
  const bool shape = !options.rectangle.empty() || !options.box.empty();
  if (options.model == "-" && options.input == "-" && !shape) {
    throw CLI::ValidationError("MODEL", "model and points cannot both be standard input");
  }
  if (shape && options.input != "-") {
    throw CLI::ValidationError("POINTS", "cannot be given with --rectangle or --box");
  }
  if (!shape && options.points) {
    throw CLI::ValidationError("--points", "needs --rectangle or --box");
  }
  if (options.yScale && *options.yScale == 0) {
    throw CLI::ValidationError("--y-scale", "must not be 0");
  }
  ModelSource document{options.model, {}};
  const CalibrationModel model = io::loadModel(options.model, document.sha256);
  const Mapper mapper(options, model);
  const bool toFile = !options.output.empty() && options.output != "-";
  const std::string sidecarPath = options.output + ".json";
  io::requireNoInput(toFile ? options.output : "-", {options.model, options.input});
  if (toFile) io::requireNoInput(sidecarPath, {options.model, options.input});
  io::TextOutput output(options.output, context.force);
  std::optional<io::OutputFile> sidecar;
  if (toFile) sidecar.emplace(sidecarPath, context.force);
  const int dimensions =
      shape ? mapShape(options, mapper, output) : mapText(options, mapper, output);
  warnOfCountedProfiles(options, dimensions);
  if (sidecar) sidecar->write(describeInJson(options, context, document, output.size()));
  output.commit();
  if (sidecar) sidecar->commit();
}

CLI::Option* addListOption(CLI::App& command, const char* name, std::vector<double>& values,
                           std::size_t count, const char* type, const char* description) {
  const auto read = [&values, name, count](const std::string& text) {
    values = io::parseNumberList(text).value_or(std::vector<double>());
    if (values.size() == count) return;
    throw CLI::ValidationError(name, fmt::format("'{}' is no list of {} numbers", text, count));
  };
  return command.add_option_function<std::string>(name, read, description)->type_name(type);
}

void addSystemOption(CLI::App& command, const char* name, CoordinateSystem& system,
                     const char* description) {
  const auto read = [&system, name](const std::string& text) {
    const auto found = kSystems.find(text);
    if (found == kSystems.end()) {
      throw CLI::ValidationError(name, "'" + text + "' is none of pixel, calibrated, aligned");
    }
    system = found->second;
  };
  command.add_option_function<std::string>(name, read, description)
      ->required()
      ->type_name("pixel|calibrated|aligned");
}

}  // namespace

void addMapCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<MapOptions>();
  CLI::App* command =
      app.add_subcommand("map", "Map points, rectangles and boxes between coordinate systems");
  command->add_option("MODEL", options->model, "Model document")->required();
  command->add_option("POINTS", options->input,
                      "Text with a point in each line, its columns named in the first or in their "
                      "order; by default "
                      "standard input");
  addSystemOption(*command, "--from", options->from, "System of the points");
  addSystemOption(*command, "--to", options->to, "System to map them to");
  command->add_option("-o,--output", options->output, "CSV file; by default standard output")
      ->type_name("FILE");
  addNumberOption(*command, "--y-scale", options->yScale, "Distance of profiles, in 3D [1]");
  addNumberOption(*command, "--y-offset", options->yOffset, "Y of profile 0, in 3D [0]");
  CLI::Option* rectangle =
      addListOption(*command, "--rectangle", options->rectangle, 4, "X0,Z0,X1,Z1",
                    "Map this rectangle instead of points, and print its bounds");
  addListOption(*command, "--box", options->box, 6, "X0,Y0,Z0,X1,Y1,Z1",
                "Map this box instead of points, and print its bounds")
      ->excludes(rectangle);
  command
      ->add_option("--supersampling", options->supersampling,
                   "Points along each edge of a rectangle or box, because mapping bends edges")
      ->check(CLI::Range(0, kMostSupersampling))
      ->capture_default_str()
      ->type_name("N");
  command->add_flag("--points", options->points,
                    "Print the mapped points of the rectangle or box, not its bounds");
  addForceOption(*command, context);
  command->footer(
      "A point is column,row or X,Z in 2D; column,profile,row or X,Y,Z in 3D, where\n"
      "Y = profile * y-scale + y-offset. Commas or semicolons separate columns, or blanks and "
      "tabs\n"
      "where a line has neither. A heading, a first line without numbers, says which column is "
      "which:\n"
      "column or u, profile or p, row or v; X, Y, Z; in any order and case. Without one two "
      "columns\n"
      "are a point in 2D, and the first three of more one in 3D. Other columns stay as they are, "
      "in\n"
      "their place.\n\n"
      "Examples:\n"
      "  echo 1280,512 | planex map model.json --from pixel --to calibrated\n"
      "  planex map model.json points.csv --from aligned --to pixel --y-scale 0.1 -o pixels.csv\n"
      "  planex map model.json --from calibrated --to pixel --rectangle -10,0,10,20\n"
      "  planex map model.json --from aligned --to pixel --box 0,0,0,20,50,10 --y-scale 0.1");
  command->callback([options, &context] { runMap(*options, context); });
}

}  // namespace planex::tools
