#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/json.h>
#include <planex/io/model_file.h>
#include <planex/io/number_text.h>
#include <planex/io/raster_writer.h>
#include <planex/scan/rectified_rows.h>
#include <planex/scan/world_bounds.h>
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

#include "tools/cli/progress.h"
#include "tools/cli/scan_options.h"
#include "tools/commands/commands.h"
#include "tools/images/height_preview.h"

namespace planex::tools {
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
  scan::SensorSettings sensor;
  YOptions y;
  RowOptions rows;
};

io::RasterFormat checkedFormat(const RectifyOptions& options) {
  const std::string ending = io::endingOf(options.output);
  const bool png = ending == ".png";
  if (!png && ending != ".tif" && ending != ".tiff") {
    throw CLI::ValidationError("--output",
                               "'" + options.output + "' ends neither in .png nor in .tif");
  }
  if (options.preview == options.output) {
    throw CLI::ValidationError("--preview", "needs another name than the height map");
  }
  if (!options.preview.empty() && io::endingOf(options.preview) != ".png") {
    throw CLI::ValidationError("--preview", "'" + options.preview + "' does not end in .png");
  }
  if (png && options.floating) throw CLI::ValidationError("--float", "needs an output .tif");
  if (options.noData && !options.floating) {
    throw CLI::ValidationError("--nodata", "needs --float; 0 is no height in 16 bits");
  }
  if (options.noData && std::abs(*options.noData) > std::numeric_limits<float>::max()) {
    throw CLI::ValidationError("--nodata", "has no float");
  }
  return png ? io::RasterFormat::kPng : io::RasterFormat::kTiff;
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
  const std::optional<double> a = io::parseNumber(text.substr(0, colon));
  const std::optional<double> b =
      colon == std::string::npos ? std::nullopt : io::parseNumber(text.substr(colon + 1));
  if (!a || !b || *a >= *b) {
    throw CLI::ValidationError(name, "'" + text + "' is not A:B with numbers A below B");
  }
  min = *a;
  max = *b;
}

scan::HeightGrid gridOf(const RectifyOptions& options, const CalibrationModel& model,
                        const SensorTraits& traits, int imageColumns) {
  scan::WorldBounds bounds = scan::worldBounds(model, traits, imageColumns, options.model);
  narrow("--x-range", options.xRange, bounds.xMin, bounds.xMax);
  narrow("--z-range", options.zRange, bounds.zMin, bounds.zMax);
  const double width = bounds.xMax - bounds.xMin;
  const double height = bounds.zMax - bounds.zMin;
  if (!(width > 0 && height > 0 && std::isfinite(width) && std::isfinite(height))) {
    throw io::Failure(options.model,
                      "the sensor region has no extent in the world; see planex check");
  }
  scan::HeightGrid grid{};
  const scan::ValueTransform values = scan::valueTransformOf(bounds.zMin, bounds.zMax);
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
  Layer(io::RasterFormat format, const std::string& path, const Context& context,
        const io::RasterDescription& description)
      : file(path, context.force), writer(io::RasterWriter::create(format, file, description)) {}

  void finish() {
    writer->finish();
    file.commit();
  }

  io::OutputFile file;
  std::unique_ptr<io::RasterWriter> writer;
};

/// Everything that comes out of a rectification, row by row.
class HeightMapWriter {
 public:
  HeightMapWriter(const RectifyOptions& options, const Context& context,
                  const scan::HeightGrid& grid, const io::Axis& y, const scan::RowBlocks& rows)
      : options_(options), context_(context), grid_(grid), rows_(rows) {
    const io::RasterFormat format = checkedFormat(options);
    raster_.width = grid.columns;
    raster_.height = rows.count();
    raster_.columns = grid.x;
    raster_.rows = io::Axis{y.scale, y.scale * rows.first + y.origin};
    raster_.unit = context.unit;
    heights_ = std::make_unique<Layer>(format, options.output, context, heightDescription());
    for (std::size_t i = 0; i < options.intensities.size(); ++i) {
      intensities_.push_back(std::make_unique<Layer>(format, intensityPath(options, i), context,
                                                     intensityDescription()));
    }
    sidecar_ = std::make_unique<io::OutputFile>(options.output + ".json", context.force);
    if (options.preview.empty()) return;
    previewFile_ = std::make_unique<io::OutputFile>(options.preview, context.force);
    preview_ = std::make_unique<HeightPreview>(grid.columns, rows.count(), grid.x, *raster_.rows,
                                               !options.y.scale.has_value());
  }

  void write(const scan::RectifiedRows& rows, int count) {
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

  io::RasterDescription heightDescription() const {
    io::RasterDescription raster = raster_;
    raster.layers = {"height"};
    raster.sample = options_.floating ? io::SampleType::kFloat32 : io::SampleType::kUint16;
    raster.values = options_.floating ? io::Axis{} : grid_.values;
    raster.missing = options_.floating ? static_cast<float>(noData()) : 0;
    return raster;
  }

  io::RasterDescription intensityDescription() const {
    io::RasterDescription raster = raster_;
    raster.layers = {"intensity"};
    raster.sample = io::SampleType::kUint8;
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
    const io::RasterDescription heights = heightDescription();
    io::JsonText json;
    json.add("generator", "planex " PLANEX_VERSION_STRING);
    json.add("content", "height map");
    json.add("unit", context_.unit);
    json.add("columns", grid_.columns);
    json.add("rows", rows_.count());
    json.add("firstRow", rows_.first);
    const io::JsonObject transform = json.addObject("transform");
    transform.add("scaleX", grid_.x.scale);
    transform.add("originX", grid_.x.origin);
    transform.add("scaleY", heights.rows->scale);
    transform.add("originY", heights.rows->origin);
    transform.add("scaleZ", heights.values->scale);
    transform.add("originZ", heights.values->origin);
    if (std::isnan(*heights.missing)) {
      json.add("missing", "NaN");
    } else {
      json.add("missing", *heights.missing);
    }
    json.add("mode", options_.mode);
    json.add("model", options_.model);
    json.add("range", options_.range);
    json.addList("intensities", nullptr, 0);
    for (std::size_t i = 0; i < intensities_.size(); ++i) {
      const io::JsonObject pair = json.appendTo("intensities");
      pair.add("source", options_.intensities[i]);
      pair.add("rectified", intensities_[i]->file.path());
    }
    return json.print();
  }

  const RectifyOptions& options_;
  const Context& context_;
  const scan::HeightGrid grid_;
  const scan::RowBlocks rows_;
  io::RasterDescription raster_;  // what all rasters have in common
  std::unique_ptr<Layer> heights_;
  std::vector<std::unique_ptr<Layer>> intensities_;
  std::unique_ptr<io::OutputFile> sidecar_, previewFile_;
  std::unique_ptr<HeightPreview> preview_;
  std::vector<float> world_;
  std::int64_t filled_ = 0;
};

void runRectify(const RectifyOptions& options, const Context& context) {
  checkedFormat(options);
  const RectificationMode mode = checkedMode(options);
  applyThreads(context);
  const CalibrationModel model = io::loadModel(options.model);
  const auto range = io::ImageReader::open(options.range);
  const scan::RowBlocks rows = resolveRows(options.rows, range->shape());
  const SensorTraits traits =
      scan::resolveSensor(options.sensor, options.range, model, options.model);
  scan::CalibratedRows points(model, options.model, *range, traits);
  const scan::HeightGrid grid = gridOf(options, model, traits, range->shape().width);
  std::vector<std::unique_ptr<scan::IntensityRows>> intensities;
  for (const std::string& path : options.intensities) {
    intensities.push_back(std::make_unique<scan::IntensityRows>(path, *range));
  }

  HeightMapWriter writer(options, context, grid, options.y.line(), rows);
  for (const auto& intensity : intensities) {
    const io::ImageShape& shape = range->shape();
    Progress progress(context, "reading intensities", std::int64_t{shape.height} * shape.width,
                      "points");
    intensity->findLimits(rows.block, [&](std::int64_t pixels) { progress.advance(pixels); });
  }
  scan::RectifiedRows rectified(points, intensities, grid, mode);
  const std::int64_t width = range->shape().width;
  Progress progress(context, "rectifying", rows.count() * width, "points");
  rows.forEach([&](int first, int count) {
    rectified.load(first, count);
    writer.write(rectified, count);
    progress.advance(count * width);
  });
  writer.finish();
  warnOfValuesOutside(points.outside(), options.range);
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

}  // namespace planex::tools
