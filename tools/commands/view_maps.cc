#include "tools/commands/view_maps.h"

#include <fmt/format.h>
#include <planex/io/cloud_reader.h>
#include <planex/io/failure.h>
#include <planex/io/image_reader.h>
#include <planex/io/model_file.h>
#include <planex/scan/height_map.h>
#include <planex/scan/rectified_rows.h>
#include <planex/scan/row_resampling.h>
#include <planex/scan/row_stream.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>

#include "planex/report/plain_text.h"
#include "tools/cli/scan_options.h"
#include "tools/cli/warnings.h"
#include "tools/commands/rectify_options.h"

namespace planex::tools {
namespace {

using report::CellBlocks;
using report::plainText;
using report::ViewLayer;
using report::ViewMap;

constexpr int kRowsAtOnce = 64;
constexpr std::size_t kPointsAtOnce = 65536;
constexpr float kNone = std::numeric_limits<float>::quiet_NaN();

std::string nameOf(const std::string& path) { return path.substr(path.find_last_of('/') + 1); }

std::string sizeText(int columns, int rows) {
  return fmt::format("{} columns \u00d7 {} rows", columns, rows);
}

/// A map whose cells are blocks of those of a file.
class BlockedMap {
 public:
  /// @param x, y of the cells of the file
  BlockedMap(int columns, int rows, const io::Axis& x, const io::Axis& y, std::int64_t mostCells)
      : columns_(columns), rows_(rows), factor_(CellBlocks::factorFor(columns, rows, mostCells)) {
    map.columns = CellBlocks::blocksOf(columns, factor_);
    map.rows = CellBlocks::blocksOf(rows, factor_);
    map.x = ofBlocks(x);
    map.y = ofBlocks(y);
  }

  /// Blocks that take the numbers of a layer.
  CellBlocks blocks() const { return {columns_, rows_, factor_}; }

  void add(CellBlocks& blocks, const std::string& name, const std::string& unit,
           const io::Axis& meaning) {
    ViewLayer layer = ViewLayer::of(blocks.take(), meaning);
    if (!map.layers.empty() && layer.filled() == 0) return;
    layer.name = name;
    layer.unit = unit;
    if (name.rfind("intensity", 0) == 0) layer.colors = "gray";
    map.layers.push_back(std::move(layer));
  }

  /// Tells of the file and of what the page has of it.
  void tell(const std::string& content) {
    map.facts.emplace_back("In the file", sizeText(columns_, rows_) + ", " + content);
    const std::string shown =
        factor_ == 1 ? "all cells"
                     : fmt::format(
                           "{}, each of them that of {} \u00d7 {} which is the farthest from "
                           "their mean",
                           sizeText(map.columns, map.rows), factor_, factor_);
    const ViewLayer& heights = map.layers.front();
    const double cells = static_cast<double>(map.columns) * map.rows;
    map.facts.emplace_back(
        "In this page",
        fmt::format("{}, in {} resolutions; {:.1f} % with a height, in steps of {:.6g} {}", shown,
                    report::ViewTiles::levelsOf(map.columns, map.rows),
                    100 * static_cast<double>(heights.filled()) / cells, heights.values.scale,
                    map.unit));
  }

  ViewMap map;

 private:
  /// Places of blocks: of the middle of each.
  io::Axis ofBlocks(const io::Axis& cells) const {
    return {cells.scale * factor_, cells.origin + cells.scale * (factor_ - 1) / 2};
  }

  const int columns_, rows_, factor_;
};

/// A further image of the cells of a map, without numbers where there is no height.
template <typename Read>
void addLayer(BlockedMap& map, scan::HeightMap& heights, const std::string& name,
              const std::string& unit, const Read& read) {
  const auto columns = static_cast<std::size_t>(heights.columns());
  std::vector<float> height(kRowsAtOnce * columns), values(kRowsAtOnce * columns);
  CellBlocks blocks = map.blocks();
  for (int row = 0; row < heights.rows(); row += kRowsAtOnce) {
    const int count = std::min(kRowsAtOnce, heights.rows() - row);
    heights.readRows(row, count, height.data());
    read(row, count, values.data());
    for (std::size_t i = 0; i < height.size(); ++i) {
      if (std::isnan(height[i])) values[i] = kNone;
    }
    blocks.addRows(count, values.data());
  }
  map.add(blocks, name, unit, {1, 0});
}

void addCompanion(BlockedMap& map, scan::HeightMap& heights, const std::string& suffix) {
  const auto image = heights.openCompanion(suffix);
  if (image == nullptr) return;
  const bool isBytes = image->shape().type == cmnalg::IMAGE_TYPE_UINT8;
  std::vector<std::uint8_t> bytes;
  std::vector<std::uint16_t> words;
  addLayer(map, heights, suffix, "", [&](int row, int count, float* values) {
    const std::size_t cells = static_cast<std::size_t>(count) * heights.columns();
    bytes.resize(cells);
    words.resize(cells);
    image->readRows(row, count, isBytes ? static_cast<void*>(bytes.data()) : words.data());
    if (isBytes) std::copy(bytes.begin(), bytes.end(), words.begin());
    std::copy(words.begin(), words.end(), values);
  });
}

/// Puts rectified rows of a scan into the rows of a map, empty ones between them.
class ScanLayers {
 public:
  /// @param rows, columns of the map
  ScanLayers(BlockedMap& map, const scan::RowResampling& resampling, int rows, int columns,
             bool hasIntensity)
      : map_(map),
        resampling_(resampling),
        rows_(rows),
        hasIntensity_(hasIntensity),
        heights_(map.blocks()),
        greys_(map.blocks()),
        height_(static_cast<std::size_t>(columns)),
        grey_(static_cast<std::size_t>(columns)) {}

  /// Takes the rows of the map up to the last one that shows a row of the block.
  void take(const scan::RectifiedRows& block) {
    const int end = block.first() + block.count();
    while (next_ < rows_ && resampling_.sourceOf(next_) < end) {
      const int from = resampling_.sourceOf(next_);
      takeRow(from < 0 ? nullptr : &block, from - block.first());
    }
  }

  void finish(const io::Axis& levels) {
    while (next_ < rows_) takeRow(nullptr, 0);
    map_.add(heights_, "height", map_.map.unit, levels);
    if (hasIntensity_) map_.add(greys_, "intensity", "", {1, 0});
  }

 private:
  /// @param row of the block; of none an empty one
  void takeRow(const scan::RectifiedRows* block, int row) {
    std::fill(height_.begin(), height_.end(), kNone);
    std::fill(grey_.begin(), grey_.end(), kNone);
    const std::size_t first = block == nullptr ? 0 : static_cast<std::size_t>(row) * height_.size();
    for (std::size_t i = 0; block != nullptr && i < height_.size(); ++i) {
      const std::uint16_t level = block->heights()[first + i];
      if (level == 0) continue;
      height_[i] = level;
      if (hasIntensity_) grey_[i] = block->intensity(0)[first + i];
    }
    heights_.addRows(1, height_.data());
    greys_.addRows(1, grey_.data());
    ++next_;
  }

  BlockedMap& map_;
  const scan::RowResampling& resampling_;
  const int rows_;
  const bool hasIntensity_;
  CellBlocks heights_, greys_;
  std::vector<float> height_, grey_;
  int next_ = 0;
};

}  // namespace

ViewMap viewOfMap(const std::string& path, const ViewOptions& options) {
  scan::HeightMap file(path);
  BlockedMap blocked(file.columns(), file.rows(), file.x(), file.y(), options.cells);
  blocked.map.name = nameOf(path);
  blocked.map.unit = plainText(file.unit());
  blocked.map.yUnit = plainText(file.yUnit());
  CellBlocks blocks = blocked.blocks();
  std::vector<float> values(static_cast<std::size_t>(kRowsAtOnce) * file.columns());
  for (int row = 0; row < file.rows(); row += kRowsAtOnce) {
    const int count = std::min(kRowsAtOnce, file.rows() - row);
    file.readRows(row, count, values.data());
    blocks.addRows(count, values.data());
  }
  blocked.add(blocks, "height", blocked.map.unit, file.z());
  if (blocked.map.layers.front().filled() == 0) {
    throw io::Failure(path, "has no cell with a height; see why with planex calibrate");
  }
  for (std::size_t i = 1; i < file.layers().size(); ++i) {
    scan::HeightMap layer(path, i);
    const std::string& name = file.layers()[i];
    const bool isLength = name == "spread" || name == "sigma" || name == "residual";
    addLayer(blocked, file, name, isLength ? blocked.map.unit : "",
             [&](int row, int count, float* to) { layer.readRows(row, count, to); });
  }
  addCompanion(blocked, file, "intensity");
  for (int i = 1; i <= 8; ++i) addCompanion(blocked, file, "intensity" + std::to_string(i));
  addCompanion(blocked, file, "mask");
  blocked.tell(file.type() == cmnalg::IMAGE_TYPE_FLOAT32 ? "heights as floats"
                                                         : "heights in levels");
  return std::move(blocked.map);
}

ViewMap viewOfCloud(const std::string& path, const Context& context) {
  io::CloudReader reader(path);
  std::vector<io::CloudPoint> points;
  const auto isThere = [](const io::CloudPoint& p) {
    return std::isfinite(static_cast<float>(p.x)) && std::isfinite(static_cast<float>(p.y)) &&
           std::isfinite(static_cast<float>(p.z));
  };
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  std::array<double, 2> least = {kInfinity, kInfinity}, most = {-kInfinity, -kInfinity};
  std::int64_t count = 0;
  while (reader.read(kPointsAtOnce, points)) {
    for (const io::CloudPoint& p : points) {
      if (!isThere(p)) continue;
      least = {std::min(least[0], p.x), std::min(least[1], p.y)};
      most = {std::max(most[0], p.x), std::max(most[1], p.y)};
      ++count;
    }
  }
  if (count == 0) throw io::Failure(path, "holds no point that is a number; give another cloud");
  report::CloudCells cells(count, least, most);
  reader.rewind();
  while (reader.read(kPointsAtOnce, points)) {
    for (const io::CloudPoint& p : points) {
      if (isThere(p)) cells.add(p.x, p.y, p.z, p.intensity);
    }
  }
  ViewMap map;
  map.name = nameOf(path);
  map.unit = plainText(reader.unit().empty() ? context.unit : reader.unit());
  map.yUnit = reader.yUnit().empty() ? map.unit : plainText(reader.yUnit());
  map.columns = cells.columns();
  map.rows = cells.rows();
  map.x = cells.x();
  map.y = cells.y();
  const auto add = [&](const char* name, const std::string& unit,
                       const std::vector<float>& numbers) {
    map.layers.push_back(ViewLayer::of(numbers, {1, 0}));
    map.layers.back().name = name;
    map.layers.back().unit = unit;
  };
  add("height", map.unit, cells.highest());
  add("lowest height", map.unit, cells.lowest());
  add("count", "", cells.counts());
  if (reader.hasIntensity()) {
    add("intensity", "", cells.intensities());
    map.layers.back().colors = "gray";
  }
  map.points = cells.points();
  map.facts = {
      {"In the file",
       fmt::format("a cloud of {} points, {} of them measured", reader.count(), count)},
      {"In this page",
       fmt::format("{} points: {}; from above the highest point of each cell, {} cells {:.6g} {} "
                   "wide, heights in steps of {:.6g} {}",
                   map.points.size() / 3,
                   count == static_cast<std::int64_t>(map.points.size() / 3)
                       ? "all of them"
                       : "the lowest and the highest of each cell",
                   sizeText(map.columns, map.rows), map.x.scale, map.unit,
                   map.layers.front().values.scale, map.unit)}};
  return map;
}

ViewMap viewOfScan(const std::string& modelName, const std::string& path,
                   const ViewOptions& options, const Context& context) {
  const auto model = io::loadModel(modelName);
  const auto range = io::ImageReader::open(path, io::Samples::kRanges);
  const scan::ScanSidecar beside = scan::readScanSidecar(options.sensor.sidecar, path);
  const scan::ResolvedSensor region =
      scan::resolveSensor(options.sensor, beside, model, modelName, range->shape().type);
  const int width = range->shape().width;
  const scan::YPositions y = scan::resolveY(options.y, beside, range->shape().height);
  const scan::RangeScan source(model, modelName, *range, region);
  const auto bounds = source.bounds();
  RectifyOptions standard;
  standard.model = modelName;
  scan::Rectification rectification{heightGrid(standard, width, bounds.x, bounds.z),
                                    {bounds.lateralSpacing, 1},
                                    datafusion::planex::RectificationMode::MEAN};
  const scan::RowBlocks rows = resolveRows({}, range->shape(), rectification.grid.width);
  rectification.grid.height = rows.count();
  scan::IntensityImages intensities;
  if (!options.intensity.empty()) {
    intensities.push_back(std::make_unique<scan::IntensityImage>(options.intensity, *range));
    intensities.front()->findLimits(rows.block, [](std::int64_t) {});
  }
  const scan::RowResampling resampling(y, rows);
  BlockedMap blocked(rectification.grid.width, rows.count(), rectification.grid.x,
                     resampling.line(), options.cells);
  blocked.map.name = nameOf(path);
  blocked.map.unit = plainText(context.unit);
  blocked.map.yUnit = y.isKnown() ? blocked.map.unit : "rows";

  ScanLayers layers(blocked, resampling, rows.count(), rectification.grid.width,
                    !intensities.empty());
  std::int64_t measured = 0, outside = 0;
  io::WorkerPool pool(workerCount(context));
  Progress progress(context, "rectifying", std::int64_t{rows.count()} * width, "points");
  scan::streamRows<scan::RectifiedRows>(
      pool, rows,
      [&] { return std::make_unique<scan::RectifiedRows>(source, intensities, rectification); },
      [&](const scan::RectifiedRows& block) {
        layers.take(block);
        measured += block.measured();
        outside += block.outside();
        progress.advance(std::int64_t{block.count()} * width);
      });
  layers.finish(rectification.grid.levels);
  if (blocked.map.layers.front().filled() == 0) {
    throw io::Failure(path, "gives no height with this model; see why with planex calibrate");
  }
  blocked.tell("rectified from a range image of " + sizeText(width, range->shape().height) +
               " with the model " + plainText(nameOf(modelName)));
  tellOfReplacedMembers(options.sensor, options.y, beside);
  warnOfCountedRows(y, false, path, context);
  warnOfSensor(source, region);
  warnOfValues(measured, outside, path);
  return std::move(blocked.map);
}

}  // namespace planex::tools
