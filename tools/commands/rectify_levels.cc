#include <planex/processing/point_grid.h>
#include <planex/processing/world_heights.h>
#include <planex/scan/rectified_rows.h>
#include <planex/scan/row_resampling.h>
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

/// Rows of the map, and what is made of them beside other blocks.
class HeightRows final : public scan::RectifiedRows {
 public:
  HeightRows(const MapSource& source, const scan::Rectification& rectification, int fill)
      : RectifiedRows(source.scan, source.intensities, rectification),
        width_(rectification.grid.width),
        fill_(fill) {}

  void process() override {
    RectifiedRows::process();
    if (fill_ > 0) fillHoles();
  }

  /// The levels, and how their cells came to them, see datafusion::planex::fillHoles().
  const std::uint16_t* levels() const { return fill_ > 0 ? filled_.data() : heights(); }
  const std::uint8_t* mask() const { return mask_.data(); }

 private:
  void fillHoles() {
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
    mask_.resize(cellCount());
    filled_.resize(cellCount());
    world_.resize(cellCount());
    datafusion::planex::toWorldHeights(heights(), cellCount(), {}, kNone, world_.data());
    const auto width = static_cast<std::size_t>(width_);
    for (std::size_t cell = 0; cell < cellCount(); cell += width) {
      datafusion::planex::fillHoles(width_, fill_, &world_[cell], &mask_[cell]);
    }
    std::transform(world_.begin(), world_.end(), filled_.begin(), [](float level) {
      return std::isnan(level) ? std::uint16_t{0} : static_cast<std::uint16_t>(level);
    });
  }

  const int width_, fill_;
  std::vector<float> world_;
  std::vector<std::uint16_t> filled_;
  std::vector<std::uint8_t> mask_;
};

/// Puts rows of the scan into the rows of the map.
class LevelMap {
 public:
  LevelMap(const RectifyOptions& options, const scan::RowResampling& resampling, int rows,
           int width, MapFiles& files)
      : options_(options),
        resampling_(resampling),
        rows_(rows),
        width_(width),
        files_(files),
        empty_(static_cast<std::size_t>(width)) {}

  /// Writes the rows of the map that show rows of the block, and empty ones before them.
  void write(const HeightRows& block) {
    const int end = block.first() + block.count();
    while (next_ < rows_ && resampling_.sourceOf(next_) < end) {
      const int source = resampling_.sourceOf(next_);
      int count = 1;  // of rows that follow each other in the map and in the block
      while (source >= 0 && source + count < end && next_ + count < rows_ &&
             resampling_.sourceOf(next_ + count) == source + count) {
        ++count;
      }
      writeRows(source < 0 ? nullptr : &block, source - block.first(), count);
    }
  }

 private:
  /// Rows from `offset` on of a block; of none, empty ones.
  void writeRows(const HeightRows* block, int offset, int count) {
    const std::ptrdiff_t skipped = std::ptrdiff_t{offset} * width_;
    const std::ptrdiff_t cells = std::ptrdiff_t{count} * width_;
    const std::uint16_t* levels = block == nullptr ? empty_.data() : block->levels() + skipped;
    files_.writeHeights(count, {levels}, levels, cells - std::count(levels, levels + cells, 0));
    const auto* none = reinterpret_cast<const std::uint8_t*>(empty_.data());
    std::size_t image = 0;
    for (std::size_t i = 0; i < options_.intensities.size(); ++i) {
      files_.writeImage(image++, count, block == nullptr ? none : block->intensity(i) + skipped);
    }
    if (options_.fill > 0) {
      files_.writeImage(image, count, block == nullptr ? none : block->mask() + skipped);
    }
    next_ += count;
  }

  const RectifyOptions& options_;
  const scan::RowResampling& resampling_;
  const int rows_, width_;
  MapFiles& files_;
  const std::vector<std::uint16_t> empty_;
  int next_ = 0;
};

}  // namespace

MapOutcome rectifyLevels(const RectifyOptions& options, const Context& context,
                         const MapSource& source, io::WorkerPool& pool) {
  const std::int64_t width = source.scan.range.shape().width;
  const scan::RowResampling resampling(source.y, source.rows);
  scan::Rectification rectification{
      heightGrid(options, static_cast<int>(width), source.bounds.x, source.bounds.z),
      {source.bounds.lateralSpacing, options.splat.value_or(1)},
      source.mode};
  rectification.grid.height = source.rows.count();
  io::RasterDescription heights;
  heights.layers = {"height"};
  heights.sample = io::SampleType::kUint16;
  heights.values = rectification.grid.levels;
  heights.missing = 0;
  MapFiles files(options, context, source, rectification.grid, resampling.line(), heights, pool);
  for (std::size_t i = 0; i < options.intensities.size(); ++i) {
    files.addImage(intensitySuffix(options, i), "rectified intensity", io::SampleType::kUint8);
  }
  if (options.fill > 0) files.addImage("mask", "mask of heights", io::SampleType::kUint8);

  LevelMap map(options, resampling, rectification.grid.height, rectification.grid.width, files);
  MapOutcome outcome;
  outcome.grid = rectification.grid;
  outcome.rowsLeftOut = resampling.leftOut();
  outcome.emptyRows = resampling.emptyRows();
  scan::streamRows<HeightRows>(
      pool, source.rows,
      [&] { return std::make_unique<HeightRows>(source, rectification, options.fill); },
      [&](const HeightRows& block) {
        map.write(block);
        outcome.measured += block.measured();
        outcome.outside += block.outside();
        outcome.share.include(block.share());
        source.progress.advance(block.count() * width);
      });
  files.finish();
  outcome.filled = files.filled();
  return outcome;
}

}  // namespace planex::tools
