#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/json.h>
#include <planex/io/model_file.h>
#include <planex/io/number_text.h>
#include <planex/io/raster_writer.h>
#include <planex/processing/world_heights.h>
#include <planex/scan/rectified_rows.h>
#include <planex/scan/row_resampling.h>
#include <planex/scan/row_stream.h>
#include <planex/scan/sensor.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "planex/report/height_picture.h"
#include "tools/cli/made.h"
#include "tools/cli/picture_options.h"
#include "tools/cli/progress.h"
#include "tools/cli/scan_options.h"
#include "tools/cli/warnings.h"
#include "tools/commands/commands.h"

namespace planex::tools {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::HeightGrid;
using datafusion::planex::RectificationMode;
using report::ColorMap;
using report::HeightPicture;

constexpr int kMostColumns = 1 << 20;
constexpr int kMostIntensities = 8;
constexpr int kLevels = 65536;

const std::map<std::string, RectificationMode> kModes = {
    {"mean", RectificationMode::MEAN},           {"lowest", RectificationMode::LOWEST},
    {"highest", RectificationMode::HIGHEST},     {"darkest", RectificationMode::DARKEST},
    {"brightest", RectificationMode::BRIGHTEST},
};

struct RectifyOptions {
  std::string model, range, output, preview, colors = "viridis", mode = "mean", xRange, zRange;
  std::vector<std::string> intensities;
  int columns = 0;
  std::optional<double> pixelSize, noData;
  bool floating = false, shade = false;
  scan::SensorSettings sensor;
  scan::RowSettings y;
  RowOptions rows;
  std::optional<io::Compression> compression;
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
  if (!options.preview.empty()) pictureFormat("--preview", options.preview);
  if (png && options.compression) throw CLI::ValidationError("--compress", "needs an output .tif");
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

scan::Rectification rectificationOf(const RectifyOptions& options, const scan::RangeScan& source) {
  const int imageColumns = source.range.shape().width;
  auto [x, z, spacing] = source.bounds();
  narrow("--x-range", options.xRange, x.min, x.max);
  narrow("--z-range", options.zRange, z.min, z.max);
  const double width = x.max - x.min;
  const double height = z.max - z.min;
  if (!(width > 0 && height > 0 && std::isfinite(width) && std::isfinite(height))) {
    throw io::Failure(options.model,
                      "the sensor region has no extent in the world; see planex check");
  }
  scan::Rectification result{{}, {spacing}, checkedMode(options)};
  datafusion::planex::HeightGrid& grid = result.grid;
  grid.levels = datafusion::planex::levelAxis(z.min, z.max, kLevels);
  if (!options.pixelSize) {
    grid.width = options.columns > 0 ? options.columns : std::max(imageColumns, 2);
    grid.x = datafusion::planex::sampleAxis(x.min, x.max, grid.width);
    return result;
  }
  const double columns = std::ceil(width / *options.pixelSize);
  if (!(*options.pixelSize > 0 && columns <= kMostColumns)) {
    throw CLI::ValidationError("--pixel-size", "must be above 0 and give at most " +
                                                   std::to_string(kMostColumns) + " columns");
  }
  grid.width = static_cast<int>(columns);
  grid.x = {*options.pixelSize, x.min};
  return result;
}

/// "height.png" becomes "height_intensity.png", or "height_intensity2.png" for the second of more.
std::string intensityPath(const RectifyOptions& options, std::size_t i) {
  const std::string ending = options.output.substr(options.output.find_last_of('.'));
  const std::string stem = options.output.substr(0, options.output.size() - ending.size());
  const std::string number = options.intensities.size() > 1 ? std::to_string(i + 1) : std::string();
  return stem + "_intensity" + number + ending;
}

float noData(const RectifyOptions& options) {
  return static_cast<float>(options.noData.value_or(std::numeric_limits<double>::quiet_NaN()));
}

/// Rows of the map, and what is made of them beside other blocks.
class HeightRows final : public scan::RectifiedRows {
 public:
  HeightRows(const scan::RangeScan& source, const scan::IntensityImages& intensities,
             const scan::Rectification& rectification, const RectifyOptions& options)
      : RectifiedRows(source, intensities, rectification),
        levels_(rectification.grid.levels),
        floating_(options.floating),
        missing_(noData(options)) {}

  void process() override {
    RectifiedRows::process();
    const auto cells = static_cast<std::ptrdiff_t>(cellCount());
    filled_ = cells - std::count(heights(), heights() + cells, 0);
    if (!floating_) return;
    world_.resize(cellCount());
    toWorldHeights(heights(), cellCount(), levels_, missing_, world_.data());
  }

  /// What goes into the file.
  const void* samples() const {
    return floating_ ? static_cast<const void*>(world_.data()) : heights();
  }
  std::int64_t filled() const { return filled_; }

 private:
  const io::Axis levels_;
  const bool floating_;
  const float missing_;
  std::vector<float> world_;
  std::int64_t filled_ = 0;
};

void requireNoInputs(const RectifyOptions& options, const scan::YPositions& y) {
  std::vector<std::string> inputs = options.intensities;
  inputs.insert(inputs.end(), {options.model, options.range, options.range + ".json",
                               options.sensor.sidecar, y.file()});
  std::vector<std::string> outputs = {options.output, options.output + ".json", options.preview};
  for (std::size_t i = 0; i < options.intensities.size(); ++i) {
    outputs.insert(outputs.end(), {intensityPath(options, i), intensityPath(options, i) + ".json"});
  }
  for (const std::string& output : outputs) io::requireNoInput(output, inputs);
}

/// One output raster with its sidecar.
struct Layer {
  Layer(io::RasterFormat format, const std::string& path, const Context& context,
        const io::RasterDescription& description_, const io::RasterEncoding& encoding)
      : description(description_),
        content(description.layers.front() == "height" ? "height map" : "rectified intensity"),
        emptyRow(description.rowBytes()),
        file(path, context.force),
        sidecar(path + ".json", context.force),
        writer(io::RasterWriter::create(format, file, description, encoding)) {
    if (description.sample != io::SampleType::kFloat32) return;
    const auto missing = static_cast<float>(*description.missing);
    for (std::size_t i = 0; i < emptyRow.size(); i += sizeof missing) {
      std::memcpy(emptyRow.data() + i, &missing, sizeof missing);
    }
  }

  /// Rows from `offset` on of what a block holds.
  void write(int offset, int count, const void* samples) {
    const std::size_t skipped = static_cast<std::size_t>(offset) * description.rowBytes();
    writer->writeRows(count, {static_cast<const char*>(samples) + skipped});
  }
  void writeEmptyRow() { writer->writeRows(1, {emptyRow.data()}); }

  void commit() {
    file.commit();
    sidecar.commit();
  }

  const io::RasterDescription description;
  const char* const content;
  std::vector<char> emptyRow;
  io::OutputFile file, sidecar;
  std::unique_ptr<io::RasterWriter> writer;
};

/// What a rectification is made from.
struct MapSource {
  ModelSource model;
  const scan::RangeScan& scan;
  const scan::Rectification& rectification;
  const scan::IntensityImages& intensities;
  const scan::YPositions& y;
};

/// Everything that comes out of a rectification, row by row.
class HeightMapWriter {
 public:
  HeightMapWriter(const RectifyOptions& options, const Context& context, const MapSource& source,
                  const scan::RowBlocks& rows, io::WorkerPool& pool)
      : options_(options),
        context_(context),
        source_(source),
        grid_(source.rectification.grid),
        rows_(rows),
        resampling_(source.y, rows) {
    const io::RasterFormat format = checkedFormat(options);
    const io::RasterEncoding encoding{options.compression.value_or(io::Compression::kNone), &pool};
    raster_.width = grid_.width;
    raster_.height = rows.count();
    raster_.columns = grid_.x;
    raster_.rows = resampling_.line();
    raster_.unit = context.unit;
    if (!source.y.isKnown()) raster_.rowUnit = "rows";
    layers_.push_back(
        std::make_unique<Layer>(format, options.output, context, heightDescription(), encoding));
    for (std::size_t i = 0; i < options.intensities.size(); ++i) {
      layers_.push_back(std::make_unique<Layer>(format, intensityPath(options, i), context,
                                                intensityDescription(), encoding));
    }
    if (options.preview.empty()) return;
    previewFile_ = std::make_unique<io::OutputFile>(options.preview, context.force);
    preview_ = std::make_unique<HeightPicture>(report::MapGrid{grid_.width, rows.count(), grid_.x,
                                                               *raster_.rows, grid_.levels,
                                                               source.y.isKnown(), context.unit});
    emptyLevels_.resize(static_cast<std::size_t>(grid_.width));
  }

  /// Writes the rows of the map that show rows of the block, and empty ones before them.
  void write(const HeightRows& rows) {
    const int end = rows.first() + rows.count();
    while (nextRow_ < rows_.count() && resampling_.sourceOf(nextRow_) < end) {
      const int source = resampling_.sourceOf(nextRow_);
      if (source < 0) {
        writeEmptyRow();
        continue;
      }
      int count = 1;  // of rows that follow each other in the map and in the block
      while (source + count < end && nextRow_ + count < rows_.count() &&
             resampling_.sourceOf(nextRow_ + count) == source + count) {
        ++count;
      }
      writeRows(rows, source - rows.first(), count);
    }
    share_.include(rows.share());
  }

  void finish() {
    for (const auto& layer : layers_) layer->writer->finish();
    if (preview_ != nullptr) {
      previewFile_->write(preview_->draw({ColorMap::find(options_.colors), options_.shade},
                                         pictureFormat("--preview", options_.preview)));
    }
    for (const auto& layer : layers_) layer->sidecar.write(describeInJson(*layer));
    for (const auto& layer : layers_) layer->commit();
    if (previewFile_ != nullptr) previewFile_->commit();
  }

  void warn() const { warnOfMap(options_.output, grid_, share_, filled_); }

  void printSummary() const {
    const double cells = static_cast<double>(grid_.width) * rows_.count();
    std::fputs(fmt::format("{}: {} rows of {} columns, {:.6g} {} apart, height steps of {:.6g} {}, "
                           "{:.1f} % filled\n",
                           io::inOneLine(options_.output), rows_.count(), grid_.width,
                           grid_.x.scale, context_.unit, grid_.levels.scale, context_.unit,
                           100 * static_cast<double>(filled_) / cells)
                   .c_str(),
               stdout);
  }

  /// Tells on standard error of rows that the positions have left out and empty.
  void warnOfUnevenRows() const {
    if (resampling_.leftOut() == 0 && resampling_.emptyRows() == 0) return;
    std::fprintf(stderr,
                 "planex: %s: Y is uneven: %d rows of the image are not in the map, and %d rows of "
                 "the map are empty\n",
                 io::inOneLine(source_.y.file()).c_str(), resampling_.leftOut(),
                 resampling_.emptyRows());
  }

 private:
  void writeEmptyRow() {
    for (const auto& layer : layers_) layer->writeEmptyRow();
    if (preview_ != nullptr) preview_->addRows(1, emptyLevels_.data());
    ++nextRow_;
  }

  void writeRows(const HeightRows& rows, int offset, int count) {
    layers_.front()->write(offset, count, rows.samples());
    for (std::size_t i = 1; i < layers_.size(); ++i) {
      layers_[i]->write(offset, count, rows.intensity(i - 1));
    }
    const std::uint16_t* levels =
        rows.heights() + static_cast<std::ptrdiff_t>(offset) * grid_.width;
    if (preview_ != nullptr) preview_->addRows(count, levels);
    const std::ptrdiff_t cells = static_cast<std::ptrdiff_t>(count) * grid_.width;
    filled_ +=
        count == rows.count() ? rows.filled() : cells - std::count(levels, levels + cells, 0);
    nextRow_ += count;
  }

  io::RasterDescription heightDescription() const {
    io::RasterDescription raster = raster_;
    raster.layers = {"height"};
    raster.sample = options_.floating ? io::SampleType::kFloat32 : io::SampleType::kUint16;
    raster.values = options_.floating ? io::Axis{} : grid_.levels;
    raster.missing = options_.floating ? noData(options_) : 0;
    return raster;
  }

  io::RasterDescription intensityDescription() const {
    io::RasterDescription raster = raster_;
    raster.layers = {"intensity"};
    raster.sample = io::SampleType::kUint8;
    return raster;
  }

  std::string describeInJson(const Layer& layer) const {
    const io::RasterDescription& raster = layer.description;
    OutputSidecar sidecar(layer.sidecar.path(), layer.content, context_);
    const io::JsonText& json = sidecar.root();
    json.add("unit", context_.unit);
    json.add("columns", grid_.width);
    json.add("rows", rows_.count());
    json.add("firstRow", rows_.first);
    const io::JsonObject transform = json.addObject("transform");
    transform.add("scaleX", grid_.x.scale);
    transform.add("originX", grid_.x.origin);
    transform.add("scaleY", raster.rows->scale);
    transform.add("originY", raster.rows->origin);
    transform.add("unitY", raster.rowUnit.empty() ? raster.unit : raster.rowUnit);
    if (raster.values) {
      transform.add("scaleZ", raster.values->scale);
      transform.add("originZ", raster.values->origin);
    }
    if (raster.missing && std::isnan(*raster.missing)) {
      json.add("missing", "NaN");
    } else if (raster.missing) {
      json.add("missing", *raster.missing);
    }
    json.add("mode", options_.mode);
    json.add("model", options_.model);
    json.add("range", options_.range);
    json.addList("intensities", nullptr, 0);
    for (std::size_t i = 1; i < layers_.size(); ++i) {
      const io::JsonObject pair = json.appendTo("intensities");
      pair.add("source", options_.intensities[i - 1]);
      pair.add("rectified", layers_[i]->file.path());
    }
    addMade(sidecar);
    return sidecar.print();
  }

  void addMade(OutputSidecar& sidecar) const {
    const io::JsonObject& made = sidecar.addMade(source_.model);
    sidecar.addScan(source_.scan.region, source_.y);
    const io::JsonObject splat = made.addObject("splat");
    splat.add("splatA", source_.rectification.splat.lateralSpacing.x);
    splat.add("splatB", source_.rectification.splat.lateralSpacing.y);
    splat.add("splatC", source_.rectification.splat.size);
    const io::JsonObject levels = made.addObject("levels");
    levels.add("scaleZ", grid_.levels.scale);
    levels.add("originZ", grid_.levels.origin);
    made.addList("intensityLimits", nullptr, 0);
    for (const auto& intensity : source_.intensities) {
      const io::JsonObject limits = made.appendTo("intensityLimits");
      limits.add("least", intensity->isBytes() ? 0 : intensity->limits().min);
      limits.add("greatest", intensity->isBytes() ? 255 : intensity->limits().max);
    }
    for (const auto& layer : layers_) {
      sidecar.addOutput(layer->content, layer->file.path(), layer->file.size());
    }
    if (previewFile_ != nullptr) {
      sidecar.addOutput("picture of the height map", options_.preview, previewFile_->size());
    }
  }

  const RectifyOptions& options_;
  const Context& context_;
  const MapSource& source_;
  const HeightGrid grid_;
  const scan::RowBlocks rows_;
  const scan::RowResampling resampling_;
  io::RasterDescription raster_;                // what all rasters have in common
  std::vector<std::unique_ptr<Layer>> layers_;  // heights, then intensities
  std::unique_ptr<io::OutputFile> previewFile_;
  std::unique_ptr<HeightPicture> preview_;
  std::vector<std::uint16_t> emptyLevels_;
  int nextRow_ = 0;
  std::int64_t filled_ = 0;
  scan::MapShare share_;
};

void runRectify(const RectifyOptions& options, const Context& context) {
  checkedFormat(options);
  checkedMode(options);
  applyThreads(context);
  ModelSource document{options.model, {}};
  const CalibrationModel model = io::loadModel(options.model, document.sha256);
  const auto range = io::ImageReader::open(options.range);
  const scan::ScanSidecar beside = scan::readScanSidecar(options.sensor.sidecar, options.range);
  const scan::ResolvedSensor region =
      scan::resolveSensor(options.sensor, beside, model, options.model, range->shape().type);
  const scan::YPositions y = scan::resolveY(options.y, beside, range->shape().height);
  const scan::RangeScan source(model, options.model, *range, region);
  const std::int64_t width = range->shape().width;
  const scan::Rectification rectification = rectificationOf(options, source);
  const scan::RowBlocks rows = resolveRows(options.rows, range->shape(), rectification.grid.width);
  scan::IntensityImages intensities;
  for (const std::string& path : options.intensities) {
    intensities.push_back(std::make_unique<scan::IntensityImage>(path, *range));
  }

  requireNoInputs(options, y);
  io::WorkerPool pool(workerCount(context));
  const MapSource made{document, source, rectification, intensities, y};
  HeightMapWriter writer(options, context, made, rows, pool);
  for (const auto& intensity : intensities) {
    Progress progress(context, "reading intensities", range->shape().height * width, "points");
    intensity->findLimits(rows.block, [&](std::int64_t pixels) { progress.advance(pixels); });
  }
  Progress progress(context, "rectifying", rows.count() * width, "points");
  std::int64_t measured = 0, outside = 0;
  scan::streamRows<HeightRows>(
      pool, rows,
      [&] { return std::make_unique<HeightRows>(source, intensities, rectification, options); },
      [&](const HeightRows& block) {
        writer.write(block);
        measured += block.measured();
        outside += block.outside();
        progress.advance(block.count() * width);
      });
  writer.finish();
  tellOfReplacedMembers(options.sensor, options.y, beside);
  warnOfCountedRows(y, false, options.range, context);
  writer.warnOfUnevenRows();
  warnOfSensor(source, region);
  warnOfValues(measured, outside, options.range);
  writer.warn();
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
      "bits in whole rows.\n\n"
      "Examples:\n"
      "  planex rectify model.json range.png -o height.png --preview preview.png\n"
      "  planex rectify model.json range.tif --intensity grey.tif --mode brightest -o height.tif\n"
      "  planex rectify model.json range.pgm --pixel-size 0.05 --y-scale 0.1 --float -o "
      "height.tif");
  command->callback([options, &context] { runRectify(*options, context); });
}

}  // namespace planex::tools
