#include "tools/commands/extract_files.h"

#include <planex/io/raster_writer.h>

#include <CLI/CLI.hpp>
#include <utility>

#include "tools/cli/raster_file.h"

namespace planex::tools {

using LayerImage = const cmnalg::Image& (*)(const scan::ExtractedFrames& block);

struct ExtractFiles::Layer {
  template <typename... Arguments>
  explicit Layer(LayerImage from, Arguments&&... ofFile)
      : image(from), file(std::forward<Arguments>(ofFile)...) {}

  LayerImage image;
  RasterFile file;
};

void ExtractNames::check() const {
  const std::pair<const char*, const std::string&> files[] = {{"--output", range},
                                                              {"--intensity", intensity},
                                                              {"--widths", widths},
                                                              {"--quality", quality},
                                                              {"--deviation", deviation}};
  for (const auto& [option, path] : files) {
    if (path.empty()) continue;
    if (!io::rasterFormatOf(path)) {
      throw CLI::ValidationError(option, "'" + path + "' ends neither in .png, .tif nor .npy");
    }
    for (const auto& [other, taken] : files) {
      if (option != other && path == taken) {
        throw CLI::ValidationError(option, "'" + path + "' is the file of " + other + ", too");
      }
    }
  }
}

ExtractFiles::ExtractFiles(const ExtractNames& names, const Context& context,
                           const io::ImageShape& frame, int rows,
                           const io::RasterEncoding& encoding) {
  const auto add = [&](const std::string& path, const char* content, cmnalg::ImageType type,
                       LayerImage image) {
    if (path.empty()) return;
    layers_.push_back(
        std::make_unique<Layer>(image, path, content, frame.width, rows, type, context, encoding));
  };
  using Block = scan::ExtractedFrames;
  add(names.range, "range", cmnalg::IMAGE_TYPE_UINT16,
      [](const Block& block) -> const cmnalg::Image& { return block.range(); });
  add(names.intensity, "intensity", frame.type,
      [](const Block& block) -> const cmnalg::Image& { return block.intensity(); });
  add(names.widths, "line width", cmnalg::IMAGE_TYPE_UINT16,
      [](const Block& block) -> const cmnalg::Image& { return block.width(); });
  add(names.quality, "quality", cmnalg::IMAGE_TYPE_UINT8,
      [](const Block& block) -> const cmnalg::Image& { return block.quality(); });
  add(names.deviation, "standard deviation", cmnalg::IMAGE_TYPE_UINT16,
      [](const Block& block) -> const cmnalg::Image& { return block.deviation(); });
}

ExtractFiles::~ExtractFiles() = default;

void ExtractFiles::write(const scan::ExtractedFrames& block) {
  for (const auto& layer : layers_) {
    layer->file.writeRows(block.count(), layer->image(block).GetData());
  }
}

void ExtractFiles::finish(OutputSidecar& sidecar) {
  for (const auto& layer : layers_) layer->file.finish(sidecar);
}

void ExtractFiles::commit() {
  for (const auto& layer : layers_) layer->file.commit();
}

}  // namespace planex::tools
