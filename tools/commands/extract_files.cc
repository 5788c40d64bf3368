#include "tools/commands/extract_files.h"

#include <planex/io/output_file.h>

#include <CLI/CLI.hpp>
#include <utility>

namespace planex::tools {

using Image = const cmnalg::Image& (*)(const scan::ExtractedFrames& block);

/// A file with a value of every point.
struct ExtractFiles::Layer {
  Layer(const std::string& path, const char* name, Image from, const Context& context,
        io::RasterDescription description, const io::RasterEncoding& encoding)
      : content(name), image(from), file(path, context.force) {
    description.layers = {name};
    writer = io::RasterWriter::create(*io::rasterFormatOf(path), file, description, encoding);
  }

  const char* content;
  Image image;
  io::OutputFile file;
  std::unique_ptr<io::RasterWriter> writer;
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
  const bool bytes = frame.type == cmnalg::IMAGE_TYPE_UINT8;
  const auto add = [&](const std::string& path, const char* name, io::SampleType sample,
                       Image image) {
    if (path.empty()) return;
    io::RasterDescription description;
    description.width = frame.width;
    description.height = rows;
    description.sample = sample;
    description.missing = 0;
    layers_.push_back(std::make_unique<Layer>(path, name, image, context, description, encoding));
  };
  using Block = scan::ExtractedFrames;
  add(names.range, "range", io::SampleType::kUint16,
      [](const Block& block) -> const cmnalg::Image& { return block.range(); });
  add(names.intensity, "intensity", bytes ? io::SampleType::kUint8 : io::SampleType::kUint16,
      [](const Block& block) -> const cmnalg::Image& { return block.intensity(); });
  add(names.widths, "line width", io::SampleType::kUint16,
      [](const Block& block) -> const cmnalg::Image& { return block.width(); });
  add(names.quality, "quality", io::SampleType::kUint8,
      [](const Block& block) -> const cmnalg::Image& { return block.quality(); });
  add(names.deviation, "standard deviation", io::SampleType::kUint16,
      [](const Block& block) -> const cmnalg::Image& { return block.deviation(); });
}

ExtractFiles::~ExtractFiles() = default;

void ExtractFiles::write(const scan::ExtractedFrames& block) {
  for (const auto& layer : layers_) {
    layer->writer->writeRows(block.count(), {layer->image(block).GetData()});
  }
}

void ExtractFiles::finish(OutputSidecar& sidecar) {
  for (const auto& layer : layers_) {
    layer->writer->finish();
    sidecar.addOutput(layer->content, layer->file.path(), layer->file.size());
  }
}

void ExtractFiles::commit() {
  for (const auto& layer : layers_) layer->file.commit();
}

}  // namespace planex::tools
