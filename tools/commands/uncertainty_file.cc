#include "tools/commands/uncertainty_file.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <filesystem>
#include <limits>
#include <system_error>

namespace planex::tools {

void UncertaintyLayers::resize(std::size_t count) {
  for (std::vector<float>* layer : {&x, &z, &correlation}) {
    layer->assign(count, std::numeric_limits<float>::quiet_NaN());
  }
}

void UncertaintyLayers::set(std::size_t i, double xx, double xz, double zz) {
  x[i] = static_cast<float>(std::sqrt(xx));
  z[i] = static_cast<float>(std::sqrt(zz));
  correlation[i] = static_cast<float>(xz / std::sqrt(xx * zz));
}

void addUncertaintyOptions(CLI::App& command, std::string& path, std::optional<double>& rowNoise,
                           const char* description) {
  CLI::Option* option =
      command.add_option("--uncertainty", path, description)->type_name("FILE.tif");
  addNumberOption(command, "--row-noise", rowNoise,
                  "With --uncertainty: standard deviation of a measured row in pixels, which adds "
                  "to that of the model [what planex extract --deviation tells beside RANGE, or "
                  "0]",
                  {[](double value) { return value >= 0; }, "must be 0 or more"})
      ->type_name("PX")
      ->needs(option);
}

void requireUncertaintyName(const std::string& path) {
  if (io::rasterFormatOf(path) == io::RasterFormat::kTiff) return;
  throw CLI::ValidationError("--uncertainty", "must end in .tif or .tiff");
}

void requireOtherName(const char* option, const std::string& path, const std::string& output) {
  const auto name = [](const std::string& file) {
    std::error_code error;
    const auto whole =
        std::filesystem::weakly_canonical(std::filesystem::absolute(file, error), error);
    return error ? file : whole.string();
  };
  for (const std::string& other : {output, output + ".json"}) {
    if (name(path) == name(other) || name(path + ".json") == name(other)) {
      throw CLI::ValidationError(option, "needs another name than " + other);
    }
  }
}

UncertaintyFile::UncertaintyFile(const std::string& path, const Context& context)
    : file_(path, context.force), sidecar_(path + ".json", context.force) {
  requireUncertaintyName(path);
  raster_.sample = io::SampleType::kFloat32;
  raster_.layers = {"uncertainty of X", "uncertainty of Z", "correlation"};
  raster_.unit = context.unit;
}

void UncertaintyFile::begin(int width, int height, const io::RasterEncoding& encoding) {
  raster_.width = width;
  raster_.height = height;
  writer_ = io::RasterWriter::create(io::RasterFormat::kTiff, file_, raster_, encoding);
}

void UncertaintyFile::writeRows(int count, const UncertaintyLayers& layers) {
  writer_->writeRows(count, {layers.x.data(), layers.z.data(), layers.correlation.data()});
}

void UncertaintyFile::describe(const OutputSidecar& sidecar) const {
  sidecar.root().add("unit", raster_.unit);
  sidecar.root().addTexts("layers", raster_.layers);
}

void UncertaintyFile::finish(OutputSidecar& sidecar, const char* content) {
  writer_->finish();
  sidecar.addOutput(content, file_.path(), file_.size());
  sidecar_.write(sidecar.print());
}

void UncertaintyFile::commit() {
  file_.commit();
  sidecar_.commit();
}

}  // namespace planex::tools
