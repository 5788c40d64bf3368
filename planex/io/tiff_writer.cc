#include <fmt/format.h>
#include <zstd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "planex/infra/byte_order.h"
#include "planex/io/deflater.h"
#include "planex/io/failure.h"
#include "planex/io/raster_formats.h"
#include "planex/io/scratch_file.h"
#include "planex/io/tiff_file.h"

namespace planex::io {
namespace {

constexpr std::size_t kStripBytes = 262144;
constexpr int kZstdLevel = 1;

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

/// Differences to the sample on the left, from the right on.
template <typename Sample>
void subtractLeft(char* row, std::size_t count) {
  for (std::size_t i = count - 1; i > 0; --i) {
    Sample value[2];
    std::memcpy(value, row + (i - 1) * sizeof(Sample), sizeof value);
    value[1] = static_cast<Sample>(value[1] - value[0]);
    std::memcpy(row + i * sizeof(Sample), &value[1], sizeof(Sample));
  }
}

/// Differences of the bytes of floats, of which the highest come first, then the next ones.
void splitFloats(char* row, std::size_t count, std::vector<char>& scratch) {
  scratch.assign(row, row + 4 * count);
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t b = 0; b < 4; ++b) {
      row[b * count + i] = scratch[4 * i + (base::kIsBigEndian ? b : 3 - b)];
    }
  }
  subtractLeft<std::uint8_t>(row, 4 * count);
}

/// A strip of each layer, compressed on any thread.
struct Strip {
  std::vector<std::vector<char>> layers, compressed;
  std::vector<char> scratch;
  Deflater deflater{15};

  void predict(char* row, std::size_t width, SampleType type) {
    switch (type) {
      case SampleType::kUint8:
        return subtractLeft<std::uint8_t>(row, width);
      case SampleType::kUint16:
        return subtractLeft<std::uint16_t>(row, width);
      case SampleType::kFloat32:
        return splitFloats(row, width, scratch);
    }
  }

  /// Brings samples into the order of the file.
  static void order(std::vector<char>& rows, SampleType type) {
    base::swapLittle(rows.data(), rows.size() / bytesOf(type), bytesOf(type));
  }

  void compress(Compression compression, std::size_t width, SampleType type) {
    if (compression == Compression::kNone) {
      for (std::vector<char>& rows : layers) order(rows, type);
      return compressed.swap(layers);
    }
    for (std::size_t i = 0; i < layers.size(); ++i) {
      std::vector<char>& rows = layers[i];
      std::vector<char>& out = compressed[i];
      for (std::size_t row = 0; row < rows.size(); row += width * bytesOf(type)) {
        predict(rows.data() + row, width, type);
      }
      if (type != SampleType::kFloat32) order(rows, type);  // those are bytes by then
      out.clear();
      if (compression == Compression::kDeflate) {
        deflater.append(rows, true, out);
        continue;
      }
      out.resize(ZSTD_compressBound(rows.size()));
      const std::size_t size =
          ZSTD_compress(out.data(), out.size(), rows.data(), rows.size(), kZstdLevel);
      if (ZSTD_isError(size) != 0) throw std::bad_alloc();
      out.resize(size);
    }
  }
};

/// Layers in planes of their own, each in strips of a fixed number of rows.
class TiffWriter final : public RasterWriter {
 public:
  TiffWriter(const OutputFile& file, const RasterDescription& raster,
             const RasterEncoding& encoding)
      : output_(file),
        raster_(raster),
        compression_(encoding.compression),
        rowBytes_(raster.rowBytes()),
        rowsPerStrip_(static_cast<int>(std::max<std::size_t>(1, kStripBytes / rowBytes_))),
        rows_(file),
        strips_(static_cast<std::size_t>(OrderedWork::slotsFor(poolOf(encoding)))),
        work_(poolOf(encoding), static_cast<int>(strips_.size()), [this](int slot) {
          strips_[static_cast<std::size_t>(slot)].compress(
              compression_, static_cast<std::size_t>(raster_.width), raster_.sample);
        }) {
    for (Strip& strip : strips_) {
      strip.layers.resize(raster.layers.size());
      strip.compressed.resize(raster.layers.size());
    }
    if (raster.height > 0) {
      begin();
    } else {
      scratch_.emplace(file);
    }
  }

  void writeRows(int count, const std::vector<const void*>& layers) override {
    for (int done = 0; done < count;) {
      const int begun = rows_.get() % rowsPerStrip_;
      if (begun == 0) {
        submitStrip();
        beginStrip();
      }
      const int part = std::min(count - done, rowsPerStrip_ - begun);
      rows_.add(part);
      for (std::size_t layer = 0; layer < layers.size(); ++layer) {
        const char* source =
            static_cast<const char*>(layers[layer]) + static_cast<std::size_t>(done) * rowBytes_;
        std::vector<char>& rows = strip_->layers[layer];
        rows.insert(rows.end(), source, source + static_cast<std::size_t>(part) * rowBytes_);
      }
      done += part;
    }
  }

  void finish() override {
    rows_.requireSome();
    submitStrip();
    while (!work_.isEmpty()) takeStrip();
    if (scratch_) takeScratch();
    if (TIFFFlush(tiff()) != 1) fail();
    file_->close();
    if (!file_->error().empty()) fail();
  }

 private:
  /// What is only copied needs no workers.
  static WorkerPool* poolOf(const RasterEncoding& encoding) {
    return encoding.compression == Compression::kNone ? nullptr : encoding.pool;
  }

  TIFF* tiff() const { return file_->get(); }

  [[noreturn]] void fail() const {
    throw Failure(output_.path(),
                  "cannot be written (" + file_->error() + "); check the folder and the disk");
  }

  /// Opens the file and describes the raster, whose height is known.
  void begin() {
    stripsPerLayer_ = (raster_.height - 1) / rowsPerStrip_ + 1;
    const std::uint64_t layers = raster_.layers.size();
    const bool isBig = needsBigTiff(layers * static_cast<std::uint64_t>(raster_.height) * rowBytes_,
                                    layers * static_cast<std::uint64_t>(stripsPerLayer_));
    file_.emplace(output_.temporaryPath(), isBig ? "wl8" : "wl");
    if (tiff() == nullptr) fail();
    declareTags(tiff());
    describeSamples(raster_);
    describeCompression(raster_.sample, compression_);
    describeMeaning(raster_);
  }

  void describeSamples(const RasterDescription& raster) {
    TIFF* const tiff = this->tiff();
    const bool floating = raster.sample == SampleType::kFloat32;
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(raster.width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(raster.height));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, static_cast<int>(8 * bytesOf(raster.sample)));
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, floating ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, static_cast<int>(raster.layers.size()));
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(rowsPerStrip_));
    if (raster.layers.size() > 1) {
      const std::vector<std::uint16_t> extra(raster.layers.size() - 1, EXTRASAMPLE_UNSPECIFIED);
      TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, static_cast<int>(extra.size()), extra.data());
    }
  }

  void describeCompression(SampleType type, Compression compression) {
    const int scheme = compression == Compression::kNone      ? COMPRESSION_NONE
                       : compression == Compression::kDeflate ? COMPRESSION_ADOBE_DEFLATE
                                                              : COMPRESSION_ZSTD;
    if (TIFFSetField(tiff(), TIFFTAG_COMPRESSION, scheme) != 1) fail();
    if (compression == Compression::kNone) return;
    TIFFSetField(tiff(), TIFFTAG_PREDICTOR,
                 type == SampleType::kFloat32 ? PREDICTOR_FLOATINGPOINT : PREDICTOR_HORIZONTAL);
  }

  void describeMeaning(const RasterDescription& raster) {
    TIFF* const tiff = this->tiff();
    if (raster.columns && raster.rows) setGrid(tiff, *raster.columns, *raster.rows);
    TIFFSetField(tiff, kGdalMetadata, describeInGdalXml(raster).c_str());
    if (raster.missing) {
      TIFFSetField(tiff, kGdalNoData, fmt::format("{}", *raster.missing).c_str());
    }
    if (!file_->error().empty()) fail();
  }

  void beginStrip() {
    if (work_.isFull()) takeStrip();
    strip_ = &strips_[static_cast<std::size_t>(work_.begin())];
    for (auto& rows : strip_->layers) rows.clear();
  }

  void submitStrip() {
    if (strip_ != nullptr) work_.submit();
    strip_ = nullptr;
  }

  void takeStrip() {
    Strip& strip = strips_[static_cast<std::size_t>(work_.take())];
    for (std::size_t layer = 0; layer < strip.compressed.size(); ++layer) {
      std::vector<char>& data = strip.compressed[layer];
      if (scratch_) {
        sizes_.push_back(data.size());
        scratch_->write(data.data(), data.size());
      } else {
        writeStrip(layer, data);
      }
    }
    if (!scratch_) ++index_;
    work_.release();
  }

  /// Writes the strips that waited for the height, which decides on the kind of TIFF and on the
  /// numbers of strips.
  void takeScratch() {
    raster_.height = rows_.get();
    begin();
    scratch_->rewind();
    std::vector<char> data;
    std::size_t layer = 0;
    for (const std::size_t size : sizes_) {
      data.resize(size);
      scratch_->read(data.data(), size);
      writeStrip(layer, data);
      layer = (layer + 1) % raster_.layers.size();
      if (layer == 0) ++index_;
    }
  }

  void writeStrip(std::size_t layer, std::vector<char>& data) {
    const auto number = static_cast<std::uint32_t>(
        layer * static_cast<std::size_t>(stripsPerLayer_) + static_cast<std::size_t>(index_));
    const auto bytes = static_cast<tmsize_t>(data.size());
    if (TIFFWriteRawStrip(tiff(), number, data.data(), bytes) != bytes) fail();
  }

  const OutputFile& output_;
  RasterDescription raster_;
  const Compression compression_;
  const std::size_t rowBytes_;
  const int rowsPerStrip_;
  int stripsPerLayer_ = 0;
  RowCount rows_;
  std::optional<TiffFile> file_;
  std::optional<ScratchFile> scratch_;  // strips as they are to be, until the height is known
  std::vector<std::size_t> sizes_;      // of those
  int index_ = 0;                       // of the strip of each layer that is written next
  std::vector<Strip> strips_;
  Strip* strip_ = nullptr;  // the one that takes rows
  OrderedWork work_;        // goes before the strips
};

}  // namespace

std::unique_ptr<RasterWriter> createTiff(OutputFile& file, const RasterDescription& description,
                                         const RasterEncoding& encoding) {
  return std::make_unique<TiffWriter>(file, description, encoding);
}

}  // namespace planex::io
