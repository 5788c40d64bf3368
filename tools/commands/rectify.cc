#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/model_file.h>
#include <planex/io/number_text.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/cli/batch.h"
#include "tools/cli/picture_options.h"
#include "tools/cli/progress.h"
#include "tools/cli/warnings.h"
#include "tools/commands/commands.h"
#include "tools/commands/rectify_files.h"
#include "tools/commands/uncertainty_file.h"

namespace planex::tools {
namespace {

using cmnalg::math::Interval;
using datafusion::planex::CalibrationModel;
using datafusion::planex::HeightGrid;
using datafusion::planex::RectificationMode;

constexpr int kMostColumns = 1 << 20;
constexpr int kMostIntensities = 8;
constexpr int kLevels = 65536;

const std::map<std::string, RectificationMode> kModes = {
    {"mean", RectificationMode::MEAN},           {"lowest", RectificationMode::LOWEST},
    {"highest", RectificationMode::HIGHEST},     {"darkest", RectificationMode::DARKEST},
    {"brightest", RectificationMode::BRIGHTEST},
};

const std::vector<std::string> kLayers = {"count", "spread", "sigma", "residual", "intensity"};

void require(bool holds, const char* option, const std::string& complaint) {
  if (!holds) throw CLI::ValidationError(option, complaint);
}

void checkOutputs(const RectifyOptions& options) {
  const auto format = io::rasterFormatOf(options.output);
  require(format.has_value(), "--output",
          "'" + options.output + "' ends neither in .png nor in .tif nor in .npy");
  require(options.preview != options.output, "--preview", "needs another name than the height map");
  if (!options.preview.empty()) pictureFormat("--preview", options.preview);
  require(!options.compression || format == io::RasterFormat::kTiff, "--compress",
          "needs an output .tif");
  const char* const needsFloat = "needs --float";
  require(!options.floating || format != io::RasterFormat::kPng, "--float",
          "needs an output .tif or .npy");
  require(!options.noData || options.floating, "--nodata",
          "needs --float; 0 is no height in 16 bits");
  require(!options.noData || std::abs(*options.noData) <= std::numeric_limits<float>::max(),
          "--nodata", "has no float");
  require(options.layers.empty() || options.floating, "--layers", needsFloat);
  if (!options.uncertainty.empty()) requireUncertaintyName(options.uncertainty);
  require(options.intensityDepth == 8 || options.isGridded(), "--intensity-depth",
          "of 16 needs --float or --aligned");
  require(options.isGridded() || options.yRange.empty(), "--y-range",
          "needs --float or --aligned; --rows takes rows of the image");
  require(options.isGridded() || !options.rowSize, "--row-size", "needs --float or --aligned");
  require(!options.hasLayer("intensity") || !options.intensities.empty(), "--layers",
          "intensity needs an --intensity");
}

void checkMode(const RectifyOptions& options) {
  const RectificationMode mode = kModes.at(options.mode);
  const bool byIntensity =
      mode == RectificationMode::DARKEST || mode == RectificationMode::BRIGHTEST;
  require(!byIntensity || !options.intensities.empty(), "--mode",
          options.mode + " needs an --intensity to choose by");
}

/// What is read for a map, of what its options tell.
std::vector<std::string> inputsOf(const RectifyOptions& options) {
  std::vector<std::string> inputs = options.intensities;
  inputs.insert(inputs.end(), {options.model, options.range, options.range + ".json",
                               options.sensor.sidecar, options.y.positions});
  return inputs;
}

std::vector<std::string> outputsOf(const RectifyOptions& options) {
  std::vector<std::string> rasters = {options.output};
  for (std::size_t i = 0; i < options.intensities.size(); ++i) {
    rasters.push_back(besidePath(options.output, intensitySuffix(options, i)));
  }
  if (options.fill > 0) rasters.push_back(besidePath(options.output, "mask"));
  if (!options.uncertainty.empty()) {
    for (const std::string& raster : rasters) {
      requireOtherName("--uncertainty", options.uncertainty, raster);
    }
    rasters.push_back(options.uncertainty);
  }
  std::vector<std::string> outputs;
  for (const std::string& raster : rasters)
    outputs.insert(outputs.end(), {raster, raster + ".json"});
  if (!options.preview.empty()) outputs.push_back(options.preview);
  return outputs;
}

/// A name of a file as good as any other one that leads to it, but for hard links.
std::string withoutLinks(std::string path) {
  if (path == "-") path = "/dev/stdin";
  std::error_code error;
  const auto name =
      std::filesystem::weakly_canonical(std::filesystem::absolute(path, error), error);
  return error ? path : name.string();
}

/// @param ofAll inputs of all scans, without links
void requireNoInputs(const RectifyOptions& options, const scan::YPositions& y,
                     const std::map<std::string, std::string>& ofAll) {
  std::vector<std::string> inputs = inputsOf(options);
  inputs.push_back(y.file());
  for (const std::string& output : outputsOf(options)) {
    io::requireNoInput(output, inputs);
    const auto same = ofAll.find(withoutLinks(output));
    if (same != ofAll.end()) io::requireNoInput(output, {same->second});
  }
}

}  // namespace

bool RectifyOptions::hasLayer(const char* name) const {
  return std::find(layers.begin(), layers.end(), name) != layers.end();
}

void narrow(const char* name, const std::string& text, Interval& limits) {
  if (text.empty()) return;
  const std::size_t colon = text.find(':');
  const std::optional<double> a = io::parseNumber(text.substr(0, colon));
  const std::optional<double> b =
      colon == std::string::npos ? std::nullopt : io::parseNumber(text.substr(colon + 1));
  if (!a || !b || *a >= *b) {
    throw CLI::ValidationError(name, "'" + text + "' is not A:B with numbers A below B");
  }
  limits = {*a, *b};
}

HeightGrid heightGrid(const RectifyOptions& options, int imageColumns, Interval x, Interval z) {
  narrow("--x-range", options.xRange, x);
  narrow("--z-range", options.zRange, z);
  const double width = x.max - x.min;
  const double height = z.max - z.min;
  if (!(width > 0 && height > 0 && std::isfinite(width) && std::isfinite(height))) {
    throw io::Failure(options.model,
                      "the sensor region has no extent in the world; see planex check");
  }
  HeightGrid grid;
  grid.levels = datafusion::planex::levelAxis(z.min, z.max, kLevels);
  if (!options.pixelSize) {
    grid.width = options.columns > 0 ? options.columns : std::max(imageColumns, 2);
    grid.x = datafusion::planex::sampleAxis(x.min, x.max, grid.width);
    return grid;
  }
  const double columns = std::ceil(width / *options.pixelSize);
  if (!(*options.pixelSize > 0 && columns <= kMostColumns)) {
    throw CLI::ValidationError("--pixel-size", "must be above 0 and give at most " +
                                                   std::to_string(kMostColumns) + " columns");
  }
  grid.width = static_cast<int>(columns);
  grid.x = {*options.pixelSize, x.min};
  return grid;
}

namespace {

/// What a scan has to do with others that are rectified beside it.
struct Together {
  io::WorkerPool& pool;
  Progress& progress;
  std::map<std::string, std::string> inputs;  ///< of all scans, by their names without links
};

/// Tells of rows that the positions have left out and empty.
void warnOfUnevenRows(const MapOutcome& outcome, const std::string& positions) {
  if (outcome.rowsLeftOut == 0 && outcome.emptyRows == 0) return;
  warn(positions,
       fmt::format("Y is uneven: {} rows of the image are not in the map, and {} rows of "
                   "the map are empty",
                   outcome.rowsLeftOut, outcome.emptyRows));
}

void printSummary(const RectifyOptions& options, const Context& context,
                  const MapOutcome& outcome) {
  const HeightGrid& grid = outcome.grid;
  const std::string heights =
      options.floating ? std::string("heights in floats")
                       : fmt::format("height steps of {:.6g} {}", grid.levels.scale, context.unit);
  const double cells = static_cast<double>(grid.width) * grid.height;
  std::fputs(fmt::format("{}: {} rows of {} columns, {:.6g} {} apart, {}, {:.1f} % filled\n",
                         io::inOneLine(options.output), grid.height, grid.width, grid.x.scale,
                         context.unit, heights, 100 * static_cast<double>(outcome.filled) / cells)
                 .c_str(),
             stdout);
}

void rectifyScan(RectifyOptions options, const Context& context, const Together& together) {
  ModelSource document{options.model, {}};
  std::string text;
  const CalibrationModel model = io::loadModel(options.model, document.sha256, text);
  const auto range = io::ImageReader::open(options.range, io::Samples::kRanges);
  const scan::ScanSidecar beside = scan::readScanSidecar(options.sensor.sidecar, options.range);
  std::unique_ptr<const PlaneUncertainty> uncertainty;
  if (!options.uncertainty.empty()) {
    if (!options.rowNoise) options.rowNoise = beside.rowNoise;
    uncertainty = requireUncertainty(text, options.model, options.rowNoise.value_or(0));
  }
  const scan::ResolvedSensor region =
      scan::resolveSensor(options.sensor, beside, model, options.model, range->shape().type);
  const scan::YPositions y = scan::resolveY(options.y, beside, range->shape().height);
  const scan::RangeScan source(model, options.model, *range, region);
  const int width = range->shape().width;
  const auto bounds = source.bounds();
  const int columns = heightGrid(options, width, bounds.x, bounds.z).width;
  const scan::RowBlocks rows = resolveRows(options.rows, range->shape(), columns);
  scan::IntensityImages intensities;
  for (const std::string& path : options.intensities) {
    intensities.push_back(std::make_unique<scan::IntensityImage>(path, *range));
  }

  requireNoInputs(options, y, together.inputs);
  for (const auto& intensity : intensities) {
    if (options.intensityDepth == 16) break;  // they stay as they are
    intensity->findLimits(rows.block,
                          [&](std::int64_t points) { together.progress.advance(points); });
  }
  const MapSource map{
      document,          source,           intensities, y, rows, bounds, kModes.at(options.mode),
      uncertainty.get(), together.progress};
  const auto rectify = options.isGridded() ? rectifyGrid : rectifyLevels;
  const MapOutcome outcome = rectify(options, context, map, together.pool);
  tellOfReplacedMembers(options.sensor, options.y, beside);
  warnOfCountedRows(y, false, options.range, context);
  warnOfUnevenRows(outcome, y.file());
  warnOfSensor(source, region);
  warnOfValues(outcome.measured, outcome.outside, options.range);
  warnOfMap(options.output, outcome.grid, outcome.share, outcome.filled);
  if (!context.quiet) printSummary(options, context, outcome);
}

/// The options of one of the range images.
RectifyOptions optionsFor(const RectifyOptions& all, const std::string& range) {
  RectifyOptions options = all;
  options.range = range;
  if (all.output.back() == '/') options.output += withStemOf("{}." + all.format, range);
  for (std::string& intensity : options.intensities) intensity = withStemOf(intensity, range);
  options.preview = withStemOf(all.preview, range);
  options.uncertainty = withStemOf(all.uncertainty, range);
  options.y.positions = withStemOf(all.y.positions, range);
  options.sensor.sidecar = withStemOf(all.sensor.sidecar, range);
  checkOutputs(options);
  checkMode(options);
  requireOneStandardInput(
      {options.model, options.range, options.sensor.sidecar, options.y.positions});
  return options;
}

/// Points that are to be read; none of an image that cannot be.
std::int64_t pointsOf(const RectifyOptions& options) {
  try {
    const io::ImageShape shape =
        io::ImageReader::open(options.range, io::Samples::kRanges)->shape();
    return std::int64_t{shape.width} * shape.height *
           (1 + static_cast<std::int64_t>(options.intensities.size()));
  } catch (const io::Failure&) {
    return 0;
  }
}

void runRectify(const RectifyOptions& options, const Context& context) {
  require(options.ranges.size() == 1 || options.output.back() == '/', "--output",
          "must be a folder, as OUTPUT/, for several range images");
  std::vector<RectifyOptions> scans;
  std::set<std::string> outputs;
  std::map<std::string, std::string> inputs;
  for (const std::string& range : options.ranges) {
    scans.push_back(optionsFor(options, range));
    const std::vector<std::string> some = outputsOf(scans.back());
    for (const std::string& output : some) {
      require(outputs.count(output) == 0, "--output", "gets two files of the name " + output);
    }
    outputs.insert(some.begin(), some.end());
    for (const std::string& input : inputsOf(scans.back())) {
      if (!input.empty()) inputs.emplace(withoutLinks(input), input);
    }
  }
  applyThreads(context);
  if (options.output.back() == '/') {
    std::error_code error;
    std::filesystem::create_directory(options.output, error);
    if (error) throw io::Failure(options.output, "cannot be made (" + error.message() + ")");
  }
  io::WorkerPool pool(workerCount(context));
  std::int64_t points = 0;
  for (const RectifyOptions& scan : scans) points += pointsOf(scan);
  Progress progress(context, "rectifying", points, "points");
  const Together together{pool, progress, std::move(inputs)};
  if (scans.size() == 1) return rectifyScan(scans.front(), context, together);
  forEachOf(options.ranges, options.jobs,
            [&](std::size_t i) { rectifyScan(scans[i], context, together); });
}

}  // namespace

void addRectifyCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<RectifyOptions>();
  CLI::App* command = app.add_subcommand("rectify", "Turn a range image into a height map");
  command->add_option("MODEL", options->model, "Model document")->required();
  command
      ->add_option("RANGE", options->ranges,
                   "Range images: PNG, TIFF, PGM or NPY; - is standard input")
      ->required();
  command
      ->add_option("-o,--output", options->output,
                   "Height map: .png, .tif or .npy; HEIGHT.json describes it. A folder, with / at "
                   "its end, takes the maps of several range images by their names; {} in other "
                   "options stands for the name, too")
      ->required()
      ->type_name("HEIGHT");
  command->add_option("--format", options->format, "Of maps in a folder: tif, png or npy")
      ->check(CLI::IsMember({"tif", "png", "npy"}))
      ->capture_default_str()
      ->type_name("ENDING");
  command->add_option("--jobs", options->jobs, "Range images at a time")
      ->check(CLI::Range(1, 1024))
      ->capture_default_str()
      ->type_name("N");
  command
      ->add_option("--intensity", options->intensities,
                   "Image to be rectified too, as HEIGHT_intensity; may be repeated")
      ->allow_extra_args(false)
      ->expected(1, kMostIntensities)
      ->type_name("IMAGE");
  command
      ->add_option("--mode", options->mode,
                   "What a cell that several points cover gets: mean, lowest, highest, darkest or "
                   "brightest; the last two choose by the last --intensity")
      ->check(CLI::IsMember(kModes))
      ->capture_default_str()
      ->type_name("MODE");
  CLI::Option* columns = command
                             ->add_option("--columns", options->columns,
                                          "Columns of the map [as many as the range image has]")
                             ->check(CLI::Range(2, kMostColumns))
                             ->type_name("N");
  addNumberOption(*command, "--pixel-size", options->pixelSize, "Distance of columns")
      ->excludes(columns);
  command->add_option("--x-range", options->xRange, "X from A to B [what the sensor region sees]")
      ->type_name("A:B");
  command->add_option("--z-range", options->zRange, "Heights from A to B [what the region sees]")
      ->type_name("A:B");
  command->add_option("--y-range", options->yRange, "With --float or --aligned: Y from A to B")
      ->type_name("A:B");
  addNumberOption(*command, "--row-size", options->rowSize,
                  "With --float or --aligned: distance of rows [as far as profiles are apart]",
                  {[](double value) { return value > 0; }, "must be above 0"});
  command->add_flag("--aligned", options->aligned,
                    "Map of the aligned system: points are carried through the pose of the model");
  command->add_flag("--float", options->floating,
                    "Heights as float32 in the unit, made from the points and never rounded to "
                    "levels, as .tif or .npy");
  command
      ->add_option(
          "--layers", options->layers,
          "With --float: more layers, with commas between: count (points in the cell), spread "
          "(greatest less smallest height), sigma (standard deviation of n - 1), residual (what "
          "the "
          "calibration of the model left over there), intensity")
      ->delimiter(',')
      ->check(CLI::IsMember(kLayers))
      ->type_name("LIST");
  addUncertaintyOptions(*command, options->uncertainty, options->rowNoise,
                        "Standard uncertainties of Z and of X of every cell that has a height, of "
                        "what the model states of itself (see planex estimate); FILE.json "
                        "describes it");
  command
      ->add_option("--intensity-depth", options->intensityDepth,
                   "With --float or --aligned: 16 keeps intensities of 16 bits as they are")
      ->check(CLI::IsMember({8, 16}))
      ->capture_default_str()
      ->type_name("BITS");
  addNumberOption(
      *command, "--splat", options->splat,
      "Width of a point, in distances of neighbouring ones [1]",
      {[](double value) { return value >= 0 && value <= 1e6; }, "must be a number from 0 to 1e6"});
  command
      ->add_option("--fill", options->fill,
                   "Interpolate holes of up to N cells in a row; HEIGHT_mask tells them: 0 no "
                   "height, 1 measured, 2 interpolated")
      ->check(CLI::Range(0, kMostColumns))
      ->type_name("N");
  addNumberOption(*command, "--nodata", options->noData, "With --float: no height [NaN]");
  CLI::Option* preview =
      command->add_option("--preview", options->preview, "Picture in colours: .png or .svg")
          ->type_name("PICTURE");
  addColorsOption(*command, options->colors)->needs(preview);
  command->add_flag("--shade", options->shade, "Shade the picture as if lit from the upper left")
      ->needs(preview);
  addYOptions(*command, options->y);
  addCompressOption(*command, options->compression);
  addRowOptions(*command, options->rows);
  addSensorOptions(*command, options->sensor);
  addUnitOption(*command, context);
  addThreadsOption(*command, context);
  addForceOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "Without options the image shows the full sensor, in sixteenths of a pixel; an image of 8 "
      "bits or of floats in rows.\n\n"
      "Examples:\n"
      "  planex rectify model.json range.png -o height.png --preview preview.png\n"
      "  planex rectify model.json range.tif --intensity grey.tif --mode brightest -o height.tif\n"
      "  planex rectify model.json range.pgm --pixel-size 0.05 --y-scale 0.1 --float -o "
      "height.tif\n"
      "  planex rectify model.json range.png --aligned --float --layers count,sigma -o height.tif\n"
      "  planex rectify model.json scans/*.png --preview maps/{}_view.png -o maps/");
  command->callback([options, &context] { runRectify(*options, context); });
}

}  // namespace planex::tools
