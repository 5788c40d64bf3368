#include "tools/commands/rectify_files.h"

#include <planex/io/json.h>
#include <planex/scan/height_map.h>

#include <limits>
#include <utility>

#include "tools/cli/picture_options.h"

namespace planex::tools {

using report::ColorMap;
using report::HeightPicture;

/// One output raster with its sidecar.
struct MapFiles::Layer {
  Layer(const std::string& path, const char* what, const Context& context,
        const io::RasterDescription& raster, const io::RasterEncoding& encoding)
      : description(raster),
        content(what),
        file(path, context.force),
        sidecar(path + ".json", context.force),
        writer(io::RasterWriter::create(*io::rasterFormatOf(path), file, description, encoding)) {}

  void commit() {
    file.commit();
    sidecar.commit();
  }

  const io::RasterDescription description;
  const char* const content;
  io::OutputFile file, sidecar;
  std::unique_ptr<io::RasterWriter> writer;
};

std::string besidePath(const std::string& path, const std::string& suffix) {
  const std::size_t dot = path.find_last_of('.');
  return path.substr(0, dot) + '_' + suffix + path.substr(dot);
}

std::string intensitySuffix(const RectifyOptions& options, std::size_t i) {
  return "intensity" + (options.intensities.size() > 1 ? std::to_string(i + 1) : std::string());
}

MapFiles::MapFiles(const RectifyOptions& options, const Context& context, const MapSource& source,
                   const datafusion::planex::HeightGrid& grid, const io::Axis& y,
                   io::RasterDescription heights, io::WorkerPool& pool)
    : options_(options), context_(context), source_(source), grid_(grid), pool_(pool) {
  raster_.width = grid.width;
  raster_.height = grid.height;
  raster_.columns = grid.x;
  raster_.rows = y;
  raster_.unit = context.unit;
  if (!source.y.isKnown()) raster_.rowUnit = "rows";
  io::RasterDescription raster = raster_;
  raster.layers = std::move(heights.layers);
  raster.sample = heights.sample;
  raster.values = heights.values;
  raster.missing = heights.missing;
  open(options.output, "height map", raster);
  if (source.uncertainty != nullptr) {
    cells_ = std::make_unique<CellUncertainty>(options, source, grid, y);
    raster.layers = {"uncertainty of Z", "uncertainty of X"};
    raster.sample = io::SampleType::kFloat32;
    raster.values = io::Axis{};
    raster.missing = std::numeric_limits<double>::quiet_NaN();
    open(options.uncertainty, "uncertainty of a height map", raster);
  }
  if (options.preview.empty()) return;
  previewFile_ = std::make_unique<io::OutputFile>(options.preview, context.force);
  preview_ = std::make_unique<HeightPicture>(report::MapGrid{
      grid.width, grid.height, grid.x, y, grid.levels, source.y.isKnown(), context.unit});
}

MapFiles::~MapFiles() = default;

void MapFiles::open(const std::string& path, const char* content,
                    const io::RasterDescription& raster) {
  const io::RasterEncoding encoding{options_.compression.value_or(io::Compression::kNone), &pool_};
  layers_.push_back(std::make_unique<Layer>(path, content, context_, raster, encoding));
}

void MapFiles::addImage(const std::string& suffix, const char* content, io::SampleType sample) {
  io::RasterDescription raster = raster_;
  raster.layers = {suffix};
  raster.sample = sample;
  open(besidePath(options_.output, suffix), content, raster);
}

void MapFiles::writeHeights(int count, const std::vector<const void*>& layers,
                            const std::uint16_t* levels, std::int64_t filled) {
  layers_.front()->writer->writeRows(count, layers);
  if (cells_ != nullptr) {
    const auto* const heights =
        options_.floating ? static_cast<const float*>(layers.front()) : nullptr;
    const UncertaintyLayers& uncertainty = cells_->next(count, levels, heights);
    layers_[1]->writer->writeRows(count, {uncertainty.z.data(), uncertainty.x.data()});
  }
  if (preview_ != nullptr) preview_->addRows(count, levels);
  filled_ += filled;
}

void MapFiles::writeImage(std::size_t image, int count, const void* samples) {
  layers_[image + (cells_ == nullptr ? 1 : 2)]->writer->writeRows(count, {samples});
}

void MapFiles::finish() {
  for (const auto& layer : layers_) layer->writer->finish();
  if (preview_ != nullptr) {
    previewFile_->write(preview_->draw({ColorMap::find(options_.colors), options_.shade},
                                       pictureFormat("--preview", options_.preview)));
  }
  for (const auto& layer : layers_) layer->sidecar.write(describeInJson(*layer));
  for (const auto& layer : layers_) layer->commit();
  if (previewFile_ != nullptr) previewFile_->commit();
}

std::string MapFiles::describeInJson(const Layer& layer) const {
  OutputSidecar sidecar(layer.sidecar.path(), layer.content, context_);
  const io::JsonText& json = sidecar.root();
  scan::describeMap(json, layer.description, options_.aligned, source_.rows.first);
  json.add("mode", options_.mode);
  json.add("model", options_.model);
  json.add("range", options_.range);
  json.addList("intensities", nullptr, 0);
  for (std::size_t i = 0; i < options_.intensities.size(); ++i) {
    const io::JsonObject pair = json.appendTo("intensities");
    pair.add("source", options_.intensities[i]);
    pair.add("rectified", options_.hasLayer("intensity")
                              ? options_.output
                              : besidePath(options_.output, intensitySuffix(options_, i)));
  }
  addMade(sidecar);
  return sidecar.print();
}

void MapFiles::addMade(OutputSidecar& sidecar) const {
  const io::JsonObject& made = sidecar.addMade(source_.model);
  sidecar.addScan(source_.scan.region, source_.y);
  const io::JsonObject splat = made.addObject("splat");
  splat.add("splatA", source_.bounds.lateralSpacing.x);
  splat.add("splatB", source_.bounds.lateralSpacing.y);
  splat.add("splatC", options_.splat.value_or(1));
  if (!options_.floating) {
    const io::JsonObject levels = made.addObject("levels");
    levels.add("scaleZ", grid_.levels.scale);
    levels.add("originZ", grid_.levels.origin);
  }
  made.add("holesUpTo", options_.fill);
  if (options_.rowNoise) made.add("rowNoise", *options_.rowNoise);
  made.addList("intensityLimits", nullptr, 0);
  for (const auto& intensity : source_.intensities) {
    if (options_.intensityDepth == 16) break;  // they are as they were
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

}  // namespace planex::tools
