#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "planex/io/failure.h"
#include "planex/io/raster_formats.h"
#include "planex/io/tiff_file.h"

namespace planex::io {
namespace {

constexpr std::size_t kStripBytes = 262144;

enum Tag : std::uint32_t {
  kModelTransformation = 34264,
  kGdalMetadata = 42112,
  kGdalNoData = 42113,
};

/// Tags that libtiff does not know by itself.
void declareTags(TIFF* tiff) {
  static char names[][24] = {"ModelTransformation", "GDALMetadata", "GDALNoData"};
  static const TIFFFieldInfo fields[] = {
      {kModelTransformation, -1, -1, TIFF_DOUBLE, FIELD_CUSTOM, 1, 1, names[0]},
      {kGdalMetadata, -1, -1, TIFF_ASCII, FIELD_CUSTOM, 1, 0, names[1]},
      {kGdalNoData, -1, -1, TIFF_ASCII, FIELD_CUSTOM, 1, 0, names[2]},
  };
  TIFFMergeFieldInfo(tiff, fields, sizeof fields / sizeof fields[0]);
}

/// From the upper left corners of cells to the world, as a GeoTIFF has it: row-major, 4 x 4. The
/// axes of a raster go through the centres. Y grows with the rows, which the simpler pair of tags,
/// pixel scale and tie point, cannot say.
void setGrid(TIFF* tiff, const Axis& columns, const Axis& rows) {
  const double matrix[4][4] = {{columns.scale, 0, 0, columns.origin - 0.5 * columns.scale},
                               {0, rows.scale, 0, rows.origin - 0.5 * rows.scale},
                               {0, 0, 1, 0},
                               {0, 0, 0, 1}};
  TIFFSetField(tiff, kModelTransformation, 16, &matrix[0][0]);
}

/// Whether 32-bit offsets do not reach the end of a TIFF with so many bytes of samples, in so many
/// strips: then it is a BigTIFF.
bool needsBigTiff(std::uint64_t sampleBytes, std::uint64_t strips) {
  constexpr std::uint64_t kLargestOffset = 0xFFFFFFFF;
  constexpr std::uint64_t kHeader = 65536;  // far more than all other tags need
  return sampleBytes + strips * 16 + kHeader > kLargestOffset;
}

/// Layers in planes of their own, each in strips of a fixed number of rows.
class TiffWriter final : public RasterWriter {
 public:
  TiffWriter(const OutputFile& file, const RasterDescription& raster)
      : name_(file.path()),
        rowBytes_(raster.rowBytes()),
        height_(raster.height),
        rowsPerStrip_(static_cast<int>(std::max<std::size_t>(1, kStripBytes / rowBytes_))),
        stripsPerLayer_((raster.height - 1) / rowsPerStrip_ + 1),
        strips_(raster.layers.size()),
        file_(file.temporaryPath(), isBig(raster) ? "w8" : "w") {
    if (file_.get() == nullptr) fail();
    for (auto& strip : strips_) strip.resize(static_cast<std::size_t>(rowsPerStrip_) * rowBytes_);
    declareTags(file_.get());
    describeSamples(raster);
    describeMeaning(raster);
  }

  void writeRows(int count, const std::vector<const void*>& layers) override {
    for (int i = 0; i < count; ++i) {
      const std::size_t target = static_cast<std::size_t>(row_ % rowsPerStrip_) * rowBytes_;
      const std::size_t source = static_cast<std::size_t>(i) * rowBytes_;
      for (std::size_t layer = 0; layer < strips_.size(); ++layer) {
        std::memcpy(strips_[layer].data() + target,
                    static_cast<const char*>(layers[layer]) + source, rowBytes_);
      }
      ++row_;
      if (row_ % rowsPerStrip_ == 0 || row_ == height_) flush();
    }
  }

  void finish() override {
    if (TIFFFlush(file_.get()) != 1) fail();
    file_.close();
    if (!file_.error().empty()) fail();
  }

 private:
  bool isBig(const RasterDescription& raster) const {
    const std::uint64_t layers = raster.layers.size();
    return needsBigTiff(layers * static_cast<std::uint64_t>(height_) * rowBytes_,
                        layers * static_cast<std::uint64_t>(stripsPerLayer_));
  }

  [[noreturn]] void fail() const {
    throw Failure(name_,
                  "cannot be written (" + file_.error() + "); check the folder and the disk");
  }

  void describeSamples(const RasterDescription& raster) {
    TIFF* tiff = file_.get();
    const bool floating = raster.sample == SampleType::kFloat32;
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(raster.width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(raster.height));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, static_cast<int>(8 * bytesOf(raster.sample)));
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, floating ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, static_cast<int>(raster.layers.size()));
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(rowsPerStrip_));
    if (raster.layers.size() > 1) {
      const std::vector<std::uint16_t> extra(raster.layers.size() - 1, EXTRASAMPLE_UNSPECIFIED);
      TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, static_cast<int>(extra.size()), extra.data());
    }
  }

  void describeMeaning(const RasterDescription& raster) {
    TIFF* tiff = file_.get();
    if (raster.columns && raster.rows) setGrid(tiff, *raster.columns, *raster.rows);
    TIFFSetField(tiff, kGdalMetadata, describeInGdalXml(raster).c_str());
    if (raster.missing) {
      TIFFSetField(tiff, kGdalNoData, fmt::format("{}", *raster.missing).c_str());
    }
    if (!file_.error().empty()) fail();
  }

  /// Writes the strips that row_ has completed.
  void flush() {
    const int rows = (row_ - 1) % rowsPerStrip_ + 1;
    const int index = (row_ - 1) / rowsPerStrip_;
    for (std::size_t layer = 0; layer < strips_.size(); ++layer) {
      const auto strip = static_cast<std::uint32_t>(
          layer * static_cast<std::size_t>(stripsPerLayer_) + static_cast<std::size_t>(index));
      const auto bytes = static_cast<tmsize_t>(static_cast<std::size_t>(rows) * rowBytes_);
      if (TIFFWriteEncodedStrip(file_.get(), strip, strips_[layer].data(), bytes) != bytes) fail();
    }
  }

  const std::string name_;
  const std::size_t rowBytes_;
  const int height_, rowsPerStrip_, stripsPerLayer_;
  std::vector<std::vector<char>> strips_;  // the unfinished one of each layer
  int row_ = 0;
  TiffFile file_;
};

}  // namespace

std::unique_ptr<RasterWriter> createTiff(OutputFile& file, const RasterDescription& description) {
  return std::make_unique<TiffWriter>(file, description);
}

}  // namespace planex::io
