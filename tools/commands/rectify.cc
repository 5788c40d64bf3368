#include <fmt/format.h>
#include <planex/version.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/commands/commands.h"
#include "tools/images/height_preview.h"
#include "tools/images/raster_writer.h"
#include "tools/images/rectified_rows.h"
#include "tools/support/failure.h"
#include "tools/support/json.h"
#include "tools/support/model_file.h"
#include "tools/support/progress.h"
#include "tools/support/row_options.h"
#include "tools/support/world_bounds.h"
#include "tools/support/y_positions.h"

namespace planex_tools {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::RectificationMode;

constexpr int kMostColumns = 1 << 20;
constexpr int kMostIntensities = 8;

const std::map<std::string, RectificationMode> kModes = {
    {"mean", RectificationMode::MEAN},           {"lowest", RectificationMode::LOWEST},
    {"highest", RectificationMode::HIGHEST},     {"darkest", RectificationMode::DARKEST},
    {"brightest", RectificationMode::BRIGHTEST},
};

struct RectifyOptions {
  std::string model, range, output, preview, mode = "mean", xRange, zRange;
  std::vector<std::string> intensities;
  int columns = 0;
  std::optional<double> pixelSize, noData;
  bool floating = false;
  SensorOptions sensor;
  YOptions y;
  RowOptions rows;
};

RasterFormat checkedFormat(const RectifyOptions& options) {
  const std::string ending = endingOf(options.output);
  const bool png = ending == ".png";
  if (!png && ending != ".tif" && ending != ".tiff") {
    throw CLI::ValidationError("--output",
                               "'" + options.output + "' ends neither in .png nor in .tif");
  }
  if (options.preview == options.output) {
    throw CLI::ValidationError("--preview", "needs another name than the height map");
  }
  if (!options.preview.empty() && endingOf(options.preview) != ".png") {
    throw CLI::ValidationError("--preview", "'" + options.preview + "' does not end in .png");
  }
  if (png && options.floating) throw CLI::ValidationError("--float", "needs an output .tif");
  if (options.noData && !options.floating) {
    throw CLI::ValidationError("--nodata", "needs --float; 0 is no height in 16 bits");
  }
  if (options.noData && std::abs(*options.noData) > std::numeric_limits<float>::max()) {
    throw CLI::ValidationError("--nodata", "has no float");
  }
  return png ? RasterFormat::kPng : RasterFormat::kTiff;
}

RectificationMode checkedMode(const RectifyOptions& options) {
  const RectificationMode mode = kModes.at(options.mode);
  const bool byIntensity =
      mode == RectificationMode::DARKEST || mode == RectificationMode::BRIGHTEST;
  if (byIntensity && options.intensities.empty()) {
    throw CLI::ValidationError("--mode", options.mode + " needs an --intensity to choose by");
  }
  return mode;
}

/// Replaces min and max by those of an option A:B, where it is given.
void narrow(const char* name, const std::string& text, double& min, double& max) {
  if (text.empty()) return;
  const std::size_t colon = text.find(':');
  const std::optional<double> a = parseNumber(text.substr(0, colon));
  const std::optional<double> b =
      colon == std::string::npos ? std::nullopt : parseNumber(text.substr(colon + 1));
  if (!a || !b || *a >= *b) {
    throw CLI::ValidationError(name, "'" + text + "' is not A:B with numbers A below B");
  }
  min = *a;
  max = *b;
}

HeightGrid gridOf(const RectifyOptions& options, const CalibrationModel& model,
                  const SensorTraits& traits, int imageColumns) {
  WorldBounds bounds = worldBounds(model, traits, imageColumns, options.model);
  narrow("--x-range", options.xRange, bounds.xMin, bounds.xMax);
  narrow("--z-range", options.zRange, bounds.zMin, bounds.zMax);
  const double width = bounds.xMax - bounds.xMin;
  const double height = bounds.zMax - bounds.zMin;
  if (!(width > 0 && height > 0 && std::isfinite(width) && std::isfinite(height))) {
    throw Failure(options.model, "the sensor region has no extent in the world; see planex check");
  }
  HeightGrid grid{};
  const ValueTransform values = valueTransformOf(bounds.zMin, bounds.zMax);
  grid.values = {values.scale, values.origin};
  grid.splat = bounds.splat;
  if (!options.pixelSize) {
    grid.columns = options.columns > 0 ? options.columns : std::max(imageColumns, 2);
    grid.x = {width / (grid.columns - 1), bounds.xMin};
    return grid;
  }
  const double columns = std::ceil(width / *options.pixelSize);
  if (!(*options.pixelSize > 0 && columns <= kMostColumns)) {
    throw CLI::ValidationError("--pixel-size", "must be above 0 and give at most " +
                                                   std::to_string(kMostColumns) + " columns");
  }
  grid.columns = static_cast<int>(columns);
  grid.x = {*options.pixelSize, bounds.xMin};
  return grid;
}

/// "height.png" becomes "height_intensity.png", or "height_intensity2.png" for the second of more.
std::string intensityPath(const RectifyOptions& options, std::size_t i) {
  const std::string ending = options.output.substr(options.output.find_last_of('.'));
  const std::string stem = options.output.substr(0, options.output.size() - ending.size());
  const std::string number = options.intensities.size() > 1 ? std::to_string(i + 1) : std::string();
  return stem + "_intensity" + number + ending;
}

/// One output raster.
struct Layer {
  Layer(RasterFormat format, const std::string& path, const Context& context,
        const RasterDescription& description)
      : file(path, context.force), writer(RasterWriter::create(format, file, description)) {}

  void finish() {
    writer->finish();
    file.commit();
  }

  OutputFile file;
  std::unique_ptr<RasterWriter> writer;
};

/// Everything that comes out of a rectification, row by row.
class HeightMapWriter {
 public:
  HeightMapWriter(const RectifyOptions& options, const Context& context, const HeightGrid& grid,
                  const Axis& y, const RowBlocks& rows)
      : options_(options), context_(context), grid_(grid), rows_(rows) {
    const RasterFormat format = checkedFormat(options);
    raster_.width = grid.columns;
    raster_.height = rows.count();
    raster_.columns = grid.x;
    raster_.rows = Axis{y.scale, y.scale * rows.first + y.origin};
    raster_.unit = context.unit;
    heights_ = std::make_unique<Layer>(format, options.output, context, heightDescription());
    for (std::size_t i = 0; i < options.intensities.size(); ++i) {
      intensities_.push_back(std::make_unique<Layer>(format, intensityPath(options, i), context,
                                                     intensityDescription()));
    }
    sidecar_ = std::make_unique<OutputFile>(options.output + ".json", context.force);
    if (options.preview.empty()) return;
    previewFile_ = std::make_unique<OutputFile>(options.preview, context.force);
    preview_ = std::make_unique<HeightPreview>(grid.columns, rows.count(), grid.x, *raster_.rows,
                                               !options.y.scale.has_value());
  }

  void write(const RectifiedRows& rows, int count) {
    const std::size_t cells =
        static_cast<std::size_t>(count) * static_cast<std::size_t>(grid_.columns);
    const std::uint16_t* heights = rows.heights();
    filled_ += static_cast<std::int64_t>(cells) - std::count(heights, heights + cells, 0);
    if (options_.floating) {
      heights_->writer->writeRows(count, {worldHeights(heights, cells)});
    } else {
      heights_->writer->writeRows(count, {heights});
    }
    for (std::size_t i = 0; i < intensities_.size(); ++i) {
      intensities_[i]->writer->writeRows(count, {rows.intensity(i)});
    }
    if (preview_ != nullptr) preview_->addRows(count, heights);
  }

  void finish() {
    sidecar_->write(describeInJson());
    if (preview_ != nullptr) preview_->write(*previewFile_, grid_.values, context_.unit);
    heights_->finish();
    for (const auto& intensity : intensities_) intensity->finish();
    sidecar_->commit();
    if (previewFile_ != nullptr) previewFile_->commit();
  }

  void printSummary() const {
    const double cells = static_cast<double>(grid_.columns) * rows_.count();
    std::fputs(
        fmt::format("{}: {} rows of {} columns, {:.6g} {} apart, height steps of {:.6g} {}, "
                    "{:.1f} % filled\n",
                    options_.output, rows_.count(), grid_.columns, grid_.x.scale, context_.unit,
                    grid_.values.scale, context_.unit, 100 * static_cast<double>(filled_) / cells)
            .c_str(),
        stdout);
  }

 private:
  double noData() const {
    return options_.noData.value_or(std::numeric_limits<double>::quiet_NaN());
  }

  RasterDescription heightDescription() const {
    RasterDescription raster = raster_;
    raster.layers = {"height"};
    raster.sample = options_.floating ? SampleType::kFloat32 : SampleType::kUint16;
    raster.values = options_.floating ? Axis{} : grid_.values;
    raster.missing = options_.floating ? static_cast<float>(noData()) : 0;
    return raster;
  }

  RasterDescription intensityDescription() const {
    RasterDescription raster = raster_;
    raster.layers = {"intensity"};
    raster.sample = SampleType::kUint8;
    return raster;
  }

  /// In float, as the C interface gives them.
  const float* worldHeights(const std::uint16_t* heights, std::size_t cells) {
    const auto scale = static_cast<float>(grid_.values.scale);
    const auto origin = static_cast<float>(grid_.values.origin);
    const auto missing = static_cast<float>(noData());
    world_.resize(cells);
    for (std::size_t i = 0; i < cells; ++i) {
      world_[i] =
          heights[i] == 0 ? missing : std::fma(static_cast<float>(heights[i]), scale, origin);
    }
    return world_.data();
  }

  std::string describeInJson() const {
    const RasterDescription heights = heightDescription();
    const Json json(cJSON_CreateObject());
    add(json.get(), "generator", "planex " PLANEX_VERSION_STRING);
    add(json.get(), "content", "height map");
    add(json.get(), "unit", context_.unit);
    add(json.get(), "columns", static_cast<double>(grid_.columns));
    add(json.get(), "rows", static_cast<double>(rows_.count()));
    add(json.get(), "firstRow", static_cast<double>(rows_.first));
    cJSON* transform = addObject(json.get(), "transform");
    add(transform, "scaleX", grid_.x.scale);
    add(transform, "originX", grid_.x.origin);
    add(transform, "scaleY", heights.rows->scale);
    add(transform, "originY", heights.rows->origin);
    add(transform, "scaleZ", heights.values->scale);
    add(transform, "originZ", heights.values->origin);
    if (std::isnan(*heights.missing)) {
      add(json.get(), "missing", "NaN");
    } else {
      add(json.get(), "missing", *heights.missing);
    }
    add(json.get(), "mode", options_.mode);
    add(json.get(), "model", options_.model);
    add(json.get(), "range", options_.range);
    cJSON* files = cJSON_AddArrayToObject(json.get(), "intensities");
    for (std::size_t i = 0; i < intensities_.size(); ++i) {
      cJSON* pair = cJSON_CreateObject();
      cJSON_AddItemToArray(files, pair);
      add(pair, "source", options_.intensities[i]);
      add(pair, "rectified", intensities_[i]->file.path());
    }
    return printJson(*json);
  }

  const RectifyOptions& options_;
  const Context& context_;
  const HeightGrid grid_;
  const RowBlocks rows_;
  RasterDescription raster_;  // what all rasters have in common
  std::unique_ptr<Layer> heights_;
  std::vector<std::unique_ptr<Layer>> intensities_;
  std::unique_ptr<OutputFile> sidecar_, previewFile_;
  std::unique_ptr<HeightPreview> preview_;
  std::vector<float> world_;
  std::int64_t filled_ = 0;
};

void runRectify(const RectifyOptions& options, const Context& context) {
  checkedFormat(options);
  const RectificationMode mode = checkedMode(options);
  applyThreads(context);
  const CalibrationModel model = loadModel(options.model);
  const auto range = ImageReader::open(options.range);
  const RowBlocks rows = resolveRows(options.rows, range->shape());
  const SensorTraits traits = resolveSensor(options.sensor, options.range, model, options.model);
  CalibratedRows points(model, options.model, *range, traits);
  const HeightGrid grid = gridOf(options, model, traits, range->shape().width);
  std::vector<std::unique_ptr<IntensityRows>> intensities;
  for (const std::string& path : options.intensities) {
    intensities.push_back(std::make_unique<IntensityRows>(path, *range));
  }

  const Axis y{options.y.scale.value_or(1), options.y.offset.value_or(0)};
  HeightMapWriter writer(options, context, grid, y, rows);
  for (const auto& intensity : intensities) intensity->findLimits(context, rows.block);
  RectifiedRows rectified(points, intensities, grid, mode);
  const std::int64_t width = range->shape().width;
  Progress progress(context, "rectifying", rows.count() * width, "points");
  rows.forEach([&](int first, int count) {
    rectified.load(first, count);
    writer.write(rectified, count);
    progress.advance(count * width);
  });
  writer.finish();
  warnOfValuesOutside(points, options.range);
  if (!context.quiet) writer.printSummary();
}

}  // namespace

void addRectifyCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<RectifyOptions>();
  CLI::App* command = app.add_subcommand("rectify", "Turn a range image into a height map");
  command->add_option("MODEL", options->model, "Model document")->required();
  command->add_option("RANGE", options->range, "Range image: PNG, TIFF or PGM of 8 or 16 bits")
      ->required();
  command
      ->add_option("-o,--output", options->output,
                   "Height map: .png or .tif of 16 bits; HEIGHT.json describes it")
      ->required()
      ->type_name("HEIGHT");
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
  command->add_flag("--float", options->floating, "Write float32 heights in the unit, as a .tif");
  addNumberOption(*command, "--nodata", options->noData, "With --float: no height [NaN]");
  command->add_option("--preview", options->preview, "Picture in false colours")->type_name("PNG");
  addYOptions(*command, options->y, false);
  addRowOptions(*command, options->rows);
  addSensorOptions(*command, options->sensor);
  addUnitOption(*command, context);
  addThreadsOption(*command, context);
  addForceOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "Without options the image shows the full sensor, in sixteenths of a pixel.\n\n"
      "Examples:\n"
      "  planex rectify model.json range.png -o height.png --preview preview.png\n"
      "  planex rectify model.json range.tif --intensity grey.tif --mode brightest -o height.tif\n"
      "  planex rectify model.json range.pgm --pixel-size 0.05 --y-scale 0.1 --float -o "
      "height.tif");
  command->callback([options, &context] { runRectify(*options, context); });
}

}  // namespace planex_tools
