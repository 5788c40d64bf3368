#pragma once

#include <planex/io/output_file.h>
#include <planex/io/raster_writer.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "planex/report/height_picture.h"
#include "tools/commands/cell_uncertainty.h"
#include "tools/commands/rectify_options.h"

namespace planex::tools {

/// The files of a map: the heights, images that go with them, a sidecar for each, and a picture.
class MapFiles {
 public:
  /// @param grid   the cells, as high as the map
  /// @param heights  of the raster of heights: layers, type, missing value
  MapFiles(const RectifyOptions& options, const Context& context, const MapSource& source,
           const datafusion::planex::HeightGrid& grid, const io::Axis& y,
           io::RasterDescription heights, io::WorkerPool& pool);
  ~MapFiles();
  MapFiles(const MapFiles&) = delete;
  MapFiles& operator=(const MapFiles&) = delete;

  /// Adds a raster of one layer beside the heights: HEIGHT_suffix.
  void addImage(const std::string& suffix, const char* content, io::SampleType sample);

  /// Appends rows of the heights.
  /// @param levels of the first layer, for the picture
  /// @param filled cells of them that hold a height
  void writeHeights(int count, const std::vector<const void*>& layers, const std::uint16_t* levels,
                    std::int64_t filled);
  /// Appends rows of an image, in the order of addImage().
  void writeImage(std::size_t image, int count, const void* samples);

  /// Completes all files.
  void finish();

  /// Cells that hold a height, of all that were written.
  std::int64_t filled() const { return filled_; }

 private:
  struct Layer;
  void open(const std::string& path, const char* content, const io::RasterDescription& raster);
  std::string describeInJson(const Layer& layer) const;
  void addMade(OutputSidecar& sidecar) const;

  const RectifyOptions& options_;
  const Context& context_;
  const MapSource& source_;
  const datafusion::planex::HeightGrid grid_;
  io::WorkerPool& pool_;
  io::RasterDescription raster_;                // what all rasters have in common
  std::vector<std::unique_ptr<Layer>> layers_;  // heights, uncertainties if wanted, then images
  std::unique_ptr<CellUncertainty> cells_;      // where they are wanted
  std::unique_ptr<io::OutputFile> previewFile_;
  std::unique_ptr<report::HeightPicture> preview_;
  std::int64_t filled_ = 0;
};

/// "height.png" becomes "height_intensity.png".
std::string besidePath(const std::string& path, const std::string& suffix);
/// The suffix of intensity i: "intensity", or "intensity2" for the second of more.
std::string intensitySuffix(const RectifyOptions& options, std::size_t i);

}  // namespace planex::tools
