#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "planex/io/deflater.h"
#include "planex/io/raster_formats.h"

namespace planex::io {
namespace {

using Bytes = std::vector<char>;

constexpr std::size_t kStripBytes = 262144;
constexpr char kSubFilter = 1;  // differences to the pixel on the left

void append(Bytes& bytes, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<char>(value >> shift & 0xFF));
  }
}

const Bytef* unsignedBytes(const Bytes& bytes) {
  return reinterpret_cast<const Bytef*>(bytes.data());
}

/// Appends a chunk without its data, which endChunk() completes. @return where the chunk begins
std::size_t beginChunk(Bytes& bytes, const char* type) {
  const std::size_t begin = bytes.size();
  append(bytes, 0);
  bytes.insert(bytes.end(), type, type + 4);
  return begin;
}

void endChunk(Bytes& bytes, std::size_t begin) {
  Bytes length;
  append(length, static_cast<std::uint32_t>(bytes.size() - begin - 8));
  std::copy(length.begin(), length.end(), bytes.begin() + static_cast<std::ptrdiff_t>(begin));
  const auto size = static_cast<uInt>(bytes.size() - begin - 4);
  append(bytes, static_cast<std::uint32_t>(crc32(0, unsignedBytes(bytes) + begin + 4, size)));
}

void appendChunk(Bytes& bytes, const char* type, const Bytes& data) {
  const std::size_t begin = beginChunk(bytes, type);
  bytes.insert(bytes.end(), data.begin(), data.end());
  endChunk(bytes, begin);
}

/// Plain text chunks are Latin-1, international ones UTF-8.
void appendText(Bytes& bytes, const std::string& keyword, const std::string& value) {
  const bool ascii = std::all_of(value.begin(), value.end(), [](char c) { return c > 0; });
  Bytes data(keyword.begin(), keyword.end());
  data.insert(data.end(), ascii ? 1 : 5, 0);  // none compressed, no language, no translated keyword
  data.insert(data.end(), value.begin(), value.end());
  appendChunk(bytes, ascii ? "tEXt" : "iTXt", data);
}

/// Rows that are filtered and compressed for themselves, on any thread, into a chunk.
struct Strip {
  Bytes rows;  // as they came
  bool last = false;
  Bytes filtered, chunk;
  uLong checksum = 0;
  Deflater deflater{-15};  // the stream has one header and one check sum

  template <typename Sample>
  void filter(std::size_t rowBytes) {
    const std::size_t width = rowBytes / sizeof(Sample);
    filtered.resize(rows.size() / rowBytes * (rowBytes + 1));
    char* out = filtered.data();
    for (std::size_t row = 0; row < rows.size(); row += rowBytes) {
      const char* source = rows.data() + row;
      *out++ = kSubFilter;
      std::array<unsigned, sizeof(Sample)> left{};
      for (std::size_t i = 0; i < width; ++i, source += sizeof(Sample)) {
        Sample sample;
        std::memcpy(&sample, source, sizeof sample);
        for (std::size_t b = 0; b < sizeof(Sample); ++b) {  // the high byte comes first
          const unsigned byte = unsigned{sample} >> (8 * (sizeof(Sample) - 1 - b)) & 0xFF;
          *out++ = static_cast<char>(byte - left[b]);
          left[b] = byte;
        }
      }
    }
  }

  void compress(std::size_t rowBytes, SampleType type) {
    if (type == SampleType::kUint8) {
      filter<std::uint8_t>(rowBytes);
    } else {
      filter<std::uint16_t>(rowBytes);
    }
    checksum = adler32(1, unsignedBytes(filtered), static_cast<uInt>(filtered.size()));
    chunk.clear();
    const std::size_t begin = beginChunk(chunk, "IDAT");
    deflater.append(filtered, last, chunk);
    endChunk(chunk, begin);
  }
};

/// Strips of a fixed number of rows, compressed side by side, make one stream.
class PngWriter final : public RasterWriter {
 public:
  PngWriter(OutputFile& file, const RasterDescription& raster, WorkerPool* pool)
      : file_(file),
        rowBytes_(raster.rowBytes()),
        rowsPerStrip_(static_cast<int>(std::max<std::size_t>(1, kStripBytes / rowBytes_))),
        header_(headerOf(raster)),
        isHeightKnown_(raster.height > 0),
        rows_(file),
        strips_(static_cast<std::size_t>(OrderedWork::slotsFor(pool))),
        work_(pool, static_cast<int>(strips_.size()), [this, type = raster.sample](int slot) {
          strips_[static_cast<std::size_t>(slot)].compress(rowBytes_, type);
        }) {
    Bytes bytes{'\x89', 'P', 'N', 'G', '\r', '\n', '\x1A', '\n'};
    appendChunk(bytes, "IHDR", header_);
    for (const auto& [keyword, value] : describeInText(raster)) appendText(bytes, keyword, value);
    appendChunk(bytes, "IDAT", {0x78, 0x01});  // deflate with a window of 32 KiB, fast
    file_.write(bytes.data(), bytes.size());
  }

  void writeRows(int count, const std::vector<const void*>& layers) override {
    rows_.add(count);
    const char* rows = static_cast<const char*>(layers.front());
    while (count > 0) {
      if (strip_ == nullptr) beginStrip();
      const int begun = static_cast<int>(strip_->rows.size() / rowBytes_);
      const int part = std::min(count, rowsPerStrip_ - begun);
      if (part == 0) {  // full, and not the last one
        submitStrip(false);
        continue;
      }
      const std::size_t bytes = static_cast<std::size_t>(part) * rowBytes_;
      strip_->rows.insert(strip_->rows.end(), rows, rows + bytes);
      rows += bytes;
      count -= part;
    }
  }

  void finish() override {
    rows_.requireSome();
    submitStrip(true);
    while (!work_.isEmpty()) takeStrip();
    Bytes end, checksum;
    append(checksum, static_cast<std::uint32_t>(checksum_));
    appendChunk(end, "IDAT", checksum);
    appendChunk(end, "IEND", {});
    file_.write(end.data(), end.size());
    if (isHeightKnown_) return;
    Bytes height, complete;
    append(height, static_cast<std::uint32_t>(rows_.get()));
    std::copy(height.begin(), height.end(), header_.begin() + 4);
    appendChunk(complete, "IHDR", header_);
    file_.overwrite(kSignatureBytes, complete.data(), complete.size());
  }

 private:
  static constexpr std::int64_t kSignatureBytes = 8;

  static Bytes headerOf(const RasterDescription& raster) {
    Bytes header;
    append(header, static_cast<std::uint32_t>(raster.width));
    append(header, static_cast<std::uint32_t>(raster.height));
    const char bits = raster.sample == SampleType::kUint8 ? 8 : 16;
    header.insert(header.end(), {bits, 0, 0, 0, 0});  // greyscale, not interlaced
    return header;
  }

  void beginStrip() {
    if (work_.isFull()) takeStrip();
    strip_ = &strips_[static_cast<std::size_t>(work_.begin())];
    strip_->rows.clear();
  }

  void submitStrip(bool last) {
    strip_->last = last;
    strip_ = nullptr;
    work_.submit();
  }

  void takeStrip() {
    const Strip& strip = strips_[static_cast<std::size_t>(work_.take())];
    file_.write(strip.chunk.data(), strip.chunk.size());
    checksum_ =
        adler32_combine(checksum_, strip.checksum, static_cast<z_off_t>(strip.filtered.size()));
    work_.release();
  }

  OutputFile& file_;
  const std::size_t rowBytes_;
  const int rowsPerStrip_;
  Bytes header_;
  const bool isHeightKnown_;
  RowCount rows_;
  uLong checksum_ = 1;
  std::vector<Strip> strips_;
  Strip* strip_ = nullptr;  // the one that takes rows
  OrderedWork work_;        // goes before the strips
};

}  // namespace

std::unique_ptr<RasterWriter> createPng(OutputFile& file, const RasterDescription& description,
                                        const RasterEncoding& encoding) {
  return std::make_unique<PngWriter>(file, description, encoding.pool);
}

}  // namespace planex::io
