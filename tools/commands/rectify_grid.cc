#include <planex/io/failure.h>
#include <planex/processing/image_alignment.h>
#include <planex/scan/gridded_rows.h>
#include <planex/scan/row_stream.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "tools/commands/rectify_files.h"

namespace planex::tools {
namespace {

using cmnalg::math::Interval;
using scan::GridRows;

/// The coordinate X, Y or Z of the map as a sum over those of calibrated points.
struct Coordinate {
  double x, y, z, offset;

  /// Over a box of calibrated points.
  Interval over(const Interval& xs, const Interval& ys, const Interval& zs) const {
    Interval all;
    for (const double px : {xs.min, xs.max}) {
      for (const double py : {ys.min, ys.max}) {
        for (const double pz : {zs.min, zs.max}) all.Include(x * px + y * py + z * pz + offset);
      }
    }
    return all;
  }
};

/// The way from calibrated coordinates to those of the map.
struct Frame {
  Coordinate x, y, z;
};

Frame frameOf(const RectifyOptions& options, const MapSource& source) {
  if (!options.aligned) return {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
  if (!source.y.isKnown()) {
    throw CLI::ValidationError("--aligned",
                               "needs the distance of rows: give --y-scale or --y-file");
  }
  const auto pose = getAlignmentTransform(source.scan.model, false);
  if (pose.IsEmpty()) throw io::Failure(options.model, "has no usable pose; see planex check");
  const auto coordinate = [&](int i) {
    return Coordinate{pose[i][0], pose[i][1], pose[i][2], pose[i][3]};
  };
  return {coordinate(0), coordinate(1), coordinate(2)};
}

Interval positionsOf(const MapSource& source) {
  Interval positions;
  for (int row = source.rows.first; row < source.rows.end; ++row) {
    positions.Include(source.y.at(row));
  }
  return positions;
}

/// Lays rows over Y: as far apart as profiles are on average, unless options say otherwise, in the
/// order of the scan.
void layRows(const RectifyOptions& options, const MapSource& source, const Frame& frame,
             scan::Gridding& gridding) {
  constexpr int kMostRows = 1 << 24;
  const int profiles = source.rows.count();
  const double first = source.y.at(source.rows.first), last = source.y.at(source.rows.end - 1);
  Interval y = frame.y.over(source.bounds.x, positionsOf(source), source.bounds.z);
  narrow("--y-range", options.yRange, y);
  const double apart = profiles > 1 ? std::abs(frame.y.y * (last - first)) / (profiles - 1) : 0;
  const double step = options.rowSize.value_or(apart > 0 ? apart : 1);
  const double rows = std::round((y.max - y.min) / step) + 1;
  if (!(rows <= kMostRows)) {
    throw CLI::ValidationError("--row-size", "gives more than " + std::to_string(kMostRows) +
                                                 " rows; name a larger one, or a --y-range");
  }
  const bool rises = frame.y.y * (last - first) >= 0;
  gridding.placement.y = {rises ? step : -step, rises ? y.min : y.max};
  gridding.placement.height = static_cast<int>(rows);
  Interval across = frame.y.over(source.bounds.x, {0, 0}, source.bounds.z);
  scan::layRows(source.rows, source.y, frame.y.y, across, gridding);
}

/// What is written of the cells.
class GridWriter {
 public:
  GridWriter(const RectifyOptions& options, const datafusion::planex::HeightGrid& grid,
             const scan::Gridding& gridding, MapFiles& files)
      : options_(options),
        grid_(grid),
        residuals_(gridding.layers.residual ? 1 : 0),
        wide_(gridding.wideIntensities),
        files_(files),
        missing_(
            static_cast<float>(options.noData.value_or(std::numeric_limits<double>::quiet_NaN()))) {
  }

  void write(const GridRows& rows) {
    findLevels(rows);
    std::vector<const void*> layers;
    if (options_.floating) {
      floats_.clear();
      addLayer(rows.height);
      if (options_.hasLayer("count")) addLayer(rows.count);
      if (options_.hasLayer("spread")) addLayer(rows.spread);
      if (options_.hasLayer("sigma")) addLayer(rows.deviation);
      if (residuals_ > 0) addLayer(rows.channels.front());
      for (std::size_t i = residuals_; i < rows.channels.size(); ++i) {
        if (options_.hasLayer("intensity")) addLayer(rows.channels[i]);
      }
      for (const auto& layer : floats_) layers.push_back(layer.data());
    } else {
      layers.push_back(levels_.data());
    }
    files_.writeHeights(rows.rows, layers, levels_.data(), filled_);
    writeImages(rows);
  }

 private:
  void addLayer(const std::vector<float>& values) {
    floats_.push_back(values);
    if (std::isnan(missing_)) return;
    for (float& value : floats_.back()) value = std::isnan(value) ? missing_ : value;
  }

  /// Levels of the heights; of those beyond the levels, the nearest one.
  void findLevels(const GridRows& rows) {
    const auto [scale, origin] = grid_.levels;
    levels_.resize(rows.height.size());
    filled_ = 0;
    for (std::size_t i = 0; i < rows.height.size(); ++i) {
      const bool missing = std::isnan(rows.height[i]);
      const double level = (static_cast<double>(rows.height[i]) - origin) / scale;
      const double within = std::fmin(std::fmax(level, 1), 65535);
      levels_[i] = static_cast<std::uint16_t>(missing ? 0 : within);
      filled_ += missing ? 0 : 1;
    }
  }

  template <typename Sample>
  void writeIntensity(std::size_t image, const GridRows& rows, const std::vector<float>& values,
                      std::vector<Sample>& samples) {
    samples.resize(values.size());
    std::transform(values.begin(), values.end(), samples.begin(),
                   [](float value) { return static_cast<Sample>(std::lround(value)); });
    files_.writeImage(image, rows.rows, samples.data());
  }

  void writeImages(const GridRows& rows) {
    std::size_t image = 0;
    for (std::size_t i = residuals_; i < rows.channels.size(); ++i) {
      if (options_.hasLayer("intensity")) break;
      if (wide_) {
        writeIntensity(image++, rows, rows.channels[i], words_);
      } else {
        writeIntensity(image++, rows, rows.channels[i], bytes_);
      }
    }
    if (options_.fill > 0) files_.writeImage(image, rows.rows, rows.mask.data());
  }

  const RectifyOptions& options_;
  const datafusion::planex::HeightGrid& grid_;
  const std::size_t residuals_;
  const bool wide_;
  MapFiles& files_;
  const float missing_;
  std::vector<std::uint16_t> levels_, words_;
  std::vector<std::uint8_t> bytes_;
  std::vector<std::vector<float>> floats_;
  std::int64_t filled_ = 0;
};

/// The raster of the heights with its layers.
io::RasterDescription describeHeights(const RectifyOptions& options,
                                      const datafusion::planex::HeightGrid& grid) {
  io::RasterDescription heights;
  heights.layers = {"height"};
  if (!options.floating) {
    heights.sample = io::SampleType::kUint16;
    heights.values = grid.levels;
    heights.missing = 0;
    return heights;
  }
  for (const char* layer : {"count", "spread", "sigma", "residual"}) {
    if (options.hasLayer(layer)) heights.layers.emplace_back(layer);
  }

  for (std::size_t i = 0; i < options.intensities.size() && options.hasLayer("intensity"); ++i) {
    heights.layers.push_back(intensitySuffix(options, i));
  }
  heights.sample = io::SampleType::kFloat32;
  heights.values = io::Axis{};
  heights.missing = options.noData.value_or(std::numeric_limits<double>::quiet_NaN());
  return heights;
}

scan::Gridding griddingOf(const RectifyOptions& options, const MapSource& source,
                          const Frame& frame, datafusion::planex::HeightGrid& grid) {
  const Interval y = positionsOf(source);
  const Interval x = frame.x.over(source.bounds.x, y, source.bounds.z);
  const Interval z = frame.z.over(source.bounds.x, y, source.bounds.z);
  grid = heightGrid(options, source.scan.range.shape().width, x, z);

  scan::Gridding gridding;
  gridding.mode = source.mode;
  gridding.layers = {options.hasLayer("count"), options.hasLayer("spread"),
                     options.hasLayer("sigma"), options.hasLayer("residual"), options.fill};
  gridding.aligned = options.aligned;
  gridding.wideIntensities = options.intensityDepth == 16;
  if (gridding.layers.residual) {
    gridding.residuals = scan::ResidualMap::of(source.scan.model);
    if (!gridding.residuals) {
      throw io::Failure(options.model,
                        "has no calibrated region whose residuals a layer could tell");
    }
  }
  datafusion::planex::PointPlacement& placement = gridding.placement;
  placement.width = grid.width;
  placement.x = grid.x;
  placement.splat = {source.bounds.lateralSpacing, options.splat.value_or(1)};
  placement.splatScale = std::abs(frame.x.x);
  if (!options.floating || !options.zRange.empty()) {
    // Levels 1 to 65535, and what is nearest to them.
    placement.z = {grid.levels.origin + grid.levels.scale,
                   grid.levels.origin + 65535 * grid.levels.scale};
  }
  const auto line = source.y.line();
  if (line && !options.aligned && options.yRange.empty() && !options.rowSize) {
    placement.height = 1;
    placement.y = {line->scale, line->scale * source.rows.first + line->origin};
    grid.height = source.rows.count();
  } else {
    layRows(options, source, frame, gridding);
    grid.height = placement.height;
  }
  return gridding;
}

}  // namespace

MapOutcome rectifyGrid(const RectifyOptions& options, const Context& context,
                       const MapSource& source, io::WorkerPool& pool) {
  datafusion::planex::HeightGrid grid;
  const scan::Gridding gridding = griddingOf(options, source, frameOf(options, source), grid);
  MapFiles files(options, context, source, grid, gridding.placement.y,
                 describeHeights(options, grid), pool);
  const auto sample = gridding.wideIntensities ? io::SampleType::kUint16 : io::SampleType::kUint8;
  for (std::size_t i = 0; i < options.intensities.size() && !options.hasLayer("intensity"); ++i) {
    files.addImage(intensitySuffix(options, i), "rectified intensity", sample);
  }
  if (options.fill > 0) files.addImage("mask", "mask of heights", io::SampleType::kUint8);

  const std::int64_t width = source.scan.range.shape().width;
  GridWriter writer(options, grid, gridding, files);
  scan::GridMap map(gridding, source.intensities.size());
  const auto sink = [&](const GridRows& rows) { writer.write(rows); };
  MapOutcome outcome;
  scan::streamRows<scan::GriddedRows>(
      pool, source.rows,
      [&] {
        return std::make_unique<scan::GriddedRows>(source.scan, source.y, source.intensities,
                                                   gridding);
      },
      [&](const scan::GriddedRows& block) {
        map.add(block, sink);
        outcome.measured += block.measured();
        outcome.outside += block.outside();
        source.progress.advance(block.count() * width);
      });
  map.finish(sink);
  files.finish();
  outcome.grid = grid;
  outcome.share = map.share();
  outcome.filled = files.filled();
  return outcome;
}

}  // namespace planex::tools
