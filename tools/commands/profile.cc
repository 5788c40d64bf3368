#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/model_file.h>
#include <planex/io/output_file.h>
#include <planex/io/raster.h>
#include <planex/io/text_output.h>
#include <planex/scan/height_map.h>
#include <planex/scan/profile.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "planex/report/profile_plot.h"
#include "tools/cli/made.h"
#include "tools/cli/picture_options.h"
#include "tools/cli/scan_options.h"
#include "tools/cli/warnings.h"
#include "tools/commands/commands.h"

namespace planex::tools {
namespace {

struct ProfileOptions {
  std::string model, range, output, intensity;
  std::optional<int> row;
  std::optional<double> at;
  bool dropMissing = false;
  scan::SensorSettings sensor;
  scan::RowSettings y;
};

/// A profile with what is to be said of it.
struct Found {
  scan::Profile profile;
  int row = 0;
  double y = 0;
  std::string unit, yUnit;
  std::string yFile;                                    // with positions of rows
  std::function<void(OutputSidecar& sidecar)> addMade;  // begins what tells how it was made
};

bool isFile(const ProfileOptions& options) {
  return !options.output.empty() && options.output != "-";
}

bool isPicture(const ProfileOptions& options) {
  return isFile(options) && io::endingOf(options.output) != ".csv";
}

void checkOptions(const ProfileOptions& options) {
  if (!options.row && !options.at) throw CLI::RequiredError("--row or --at");
  if (!isPicture(options)) return;
  if (!report::pictureFormatOf(options.output)) {
    throw CLI::ValidationError("--output",
                               "'" + options.output + "' ends neither in .csv, .png nor .svg");
  }
  if (!options.intensity.empty() || options.dropMissing) {
    throw CLI::ValidationError(options.dropMissing ? "--drop-missing" : "--intensity",
                               "needs an output .csv");
  }
}

/// The row that is asked for.
int rowOf(const ProfileOptions& options, const scan::YPositions& y, int rows) {
  if (options.row) {
    if (*options.row < rows) return *options.row;
    throw CLI::ValidationError(
        "--row", fmt::format("{} is none of the rows 0 to {}", *options.row, rows - 1));
  }
  const int row = nearestRow(y, rows, *options.at);
  if (row >= 0) return row;
  throw CLI::ValidationError("--at",
                             fmt::format("no row is near {:.6g}; the first one has Y {:.6g}, "
                                         "the last one {:.6g}",
                                         *options.at, y.at(0), y.at(rows - 1)));
}

/// The Y of a row; 0 where all that is left of scale and origin is what rounding left of them.
double placeOf(int row, const scan::YPositions& y) {
  const double at = y.at(row);
  return std::abs(at) < 1e-12 * std::abs(y.at(0)) ? 0 : at;
}

Found profileOfMap(const ProfileOptions& options) {
  scan::HeightMap map(options.model);
  const scan::YPositions y(map.y());
  const int row = rowOf(options, y, map.rows());
  return {readProfile(map, row),
          row,
          placeOf(row, y),
          map.unit(),
          map.yUnit(),
          {},
          [](OutputSidecar& sidecar) { sidecar.addMade({}); }};
}

Found profileOfScan(const ProfileOptions& options, const Context& context) {
  ModelSource document{options.model, {}};
  const auto model = io::loadModel(options.model, document.sha256);
  const auto range = io::ImageReader::open(options.range, io::Samples::kRanges);
  std::optional<scan::IntensityImage> intensity;
  if (!options.intensity.empty()) intensity.emplace(options.intensity, *range);
  const scan::ScanSidecar beside = scan::readScanSidecar(options.sensor.sidecar, options.range);
  const scan::ResolvedSensor region =
      scan::resolveSensor(options.sensor, beside, model, options.model, range->shape().type);
  const scan::RangeScan source(model, options.model, *range, region);
  const scan::YPositions y = scan::resolveY(options.y, beside, range->shape().height);
  const int row = rowOf(options, y, range->shape().height);
  tellOfReplacedMembers(options.sensor, options.y, beside);
  if (options.at) warnOfCountedRows(y, false, options.range, context);
  warnOfSensor(source, region);
  return {readProfile(source, intensity ? &*intensity : nullptr, row),
          row,
          placeOf(row, y),
          context.unit,
          y.isKnown() ? context.unit : "rows",
          y.file(),
          [document, region, y](OutputSidecar& sidecar) {
            sidecar.addMade(document);
            sidecar.addScan(region, y);
          }};
}

/// What a CSV file is, and how it was made.
std::string describeInJson(const ProfileOptions& options, const Context& context,
                           const Found& found, std::int64_t bytes) {
  OutputSidecar sidecar(options.output + ".json", "profile", context);
  const io::JsonText& json = sidecar.root();
  json.add("unit", found.unit);
  json.add("row", found.row);
  json.add("y", found.y);
  json.add("unitY", found.yUnit);
  json.add(options.range.empty() ? "map" : "range",
           options.range.empty() ? options.model : options.range);
  if (!options.intensity.empty()) json.add("intensity", options.intensity);
  found.addMade(sidecar);
  sidecar.addOutput("profile", options.output, bytes);
  return sidecar.print();
}

void writeCsv(const ProfileOptions& options, const Context& context, const Found& found) {
  io::TextOutput out(options.output, context.force);
  std::optional<io::OutputFile> sidecar;
  if (isFile(options)) sidecar.emplace(options.output + ".json", context.force);
  out.write(found.profile.toCsv(options.dropMissing));
  if (sidecar) sidecar->write(describeInJson(options, context, found, out.size()));
  out.commit();
  if (sidecar) sidecar->commit();
}

void write(const ProfileOptions& options, const Context& context, const Found& found) {
  const std::string& source = options.range.empty() ? options.model : options.range;
  for (const std::string& path : {options.output, options.output + ".json"}) {
    if (!isFile(options)) break;
    io::requireNoInput(path, {options.model, options.range, source + ".json",
                              options.sensor.sidecar, options.intensity, found.yFile});
  }
  if (!isPicture(options)) return writeCsv(options, context, found);
  if (found.profile.measured == 0) {
    throw io::Failure(source,
                      fmt::format("nothing was measured in row {}; choose another row", found.row));
  }
  io::OutputFile file(options.output, context.force);
  file.write(drawProfile(found.profile,
                         fmt::format("Row {} of {}, Y = {:.6g} {}", found.row,
                                     io::Failure::nameOf(source), found.y, found.yUnit),
                         found.unit, pictureFormat("--output", options.output)));
  file.commit();
}

void runProfile(const ProfileOptions& options, const Context& context) {
  checkOptions(options);
  requireOneStandardInput(
      {options.model, options.range, options.sensor.sidecar, options.y.positions});
  const Found found =
      options.range.empty() ? profileOfMap(options) : profileOfScan(options, context);
  write(options, context, found);
  if (!options.range.empty()) {
    warnOfValues(found.profile.measured, found.profile.outside, options.range);
  }
  if (!options.at || context.quiet) return;
  std::fputs(fmt::format("planex: row {}, Y {:.6g} {}, is the nearest to {:.6g}\n", found.row,
                         found.y, found.yUnit, *options.at)
                 .c_str(),
             stderr);
}

}  // namespace

void addProfileCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<ProfileOptions>();
  CLI::App* command =
      app.add_subcommand("profile", "Write or draw one row of a scan, calibrated, or of a map");
  command
      ->add_option("MODEL", options->model,
                   "Model document; without RANGE a height map, with HEIGHT.json beside it")
      ->required();
  CLI::Option* range = command->add_option(
      "RANGE", options->range, "Range image: PNG, TIFF, PGM or NPY; - is standard input");
  CLI::Option* row = command->add_option("--row", options->row, "Row, counted from 0")
                         ->check(CLI::Range(0, std::numeric_limits<int>::max()))
                         ->type_name("N");
  addNumberOption(*command, "--at", options->at, "The row whose Y is the nearest to this")
      ->excludes(row);
  command
      ->add_option("-o,--output", options->output,
                   "File: .csv, or the profile drawn as .png or .svg [CSV on standard output]")
      ->type_name("PROFILE");
  command->add_option("--intensity", options->intensity, "Image with the intensity of every point")
      ->type_name("IMAGE")
      ->needs(range);
  command->add_flag("--drop-missing", options->dropMissing,
                    "Leave out what was not measured; else its fields are empty");
  addYOptions(*command, options->y);
  addSensorOptions(*command, options->sensor);
  addUnitOption(*command, context);
  for (CLI::Option* option : command->get_options()) {  // a map says all that itself
    const std::string& name = option->get_name();
    if (option->get_group() == "Sensor" || name.rfind("--y-", 0) == 0 || name == "--unit") {
      option->needs(range);
    }
  }
  addForceOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "Examples:\n"
      "  planex profile model.json range.png --row 120 > profile.csv\n"
      "  planex profile model.json range.png --at 12.5 --y-scale 0.1 -o profile.png\n"
      "  planex profile height.tif --at 12.5 -o profile.svg");
  command->callback([options, &context] { runProfile(*options, context); });
}

}  // namespace planex::tools
