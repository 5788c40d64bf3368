#include "planex/io/frame_writer.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "planex/infra/byte_order.h"
#include "planex/io/failure.h"
#include "planex/io/raster.h"

namespace planex::io {
namespace {

/// Frames as files have them: values of two bytes with the lower first, or the higher.
class FileOrder {
 public:
  FileOrder(const ImageShape& shape, bool highFirst)
      : isOther_(highFirst != base::kIsBigEndian && shape.type == cmnalg::IMAGE_TYPE_UINT16) {}

  /// @return the bytes, until the next call or as long as they are those of the frames
  const char* of(const void* frames, std::size_t bytes) {
    const char* const source = static_cast<const char*>(frames);
    if (!isOther_) return source;
    swapped_.resize(bytes);
    for (std::size_t at = 0; at < bytes; at += 2) {
      swapped_[at] = source[at + 1];
      swapped_[at + 1] = source[at];
    }
    return swapped_.data();
  }

 private:
  const bool isOther_;
  std::vector<char> swapped_;
};

void requireFrames(const OutputFile& file, bool any) {
  if (!any) throw Failure(file.path(), "would hold no frames; check where they come from");
}

/// Frames without anything between them, values of two bytes the lower first.
class RawWriter final : public FrameWriter {
 public:
  RawWriter(OutputFile& file, const ImageShape& shape)
      : file_(file),
        frameBytes_(shape.rowBytes() * static_cast<std::size_t>(shape.height)),
        order_(shape, false) {}

  void write(int count, const void* frames) override {
    const std::size_t bytes = static_cast<std::size_t>(count) * frameBytes_;
    file_.write(order_.of(frames, bytes), bytes);
    any_ |= count > 0;
  }
  void finish() override { requireFrames(file_, any_); }

 private:
  OutputFile& file_;
  const std::size_t frameBytes_;
  FileOrder order_;
  bool any_ = false;
};

/// Binary portable greymaps, one behind the other.
class PgmWriter final : public FrameWriter {
 public:
  PgmWriter(OutputFile& file, const ImageShape& shape)
      : file_(file),
        heading_("P5\n" + std::to_string(shape.width) + " " + std::to_string(shape.height) +
                 (shape.type == cmnalg::IMAGE_TYPE_UINT16 ? "\n65535\n" : "\n255\n")),
        frameBytes_(shape.rowBytes() * static_cast<std::size_t>(shape.height)),
        order_(shape, true) {}

  void write(int count, const void* frames) override {
    const char* source = static_cast<const char*>(frames);
    for (int i = 0; i < count; ++i, source += frameBytes_) {
      file_.write(heading_);
      file_.write(order_.of(source, frameBytes_), frameBytes_);
      any_ = true;
    }
  }
  void finish() override { requireFrames(file_, any_); }

 private:
  OutputFile& file_;
  const std::string heading_;
  const std::size_t frameBytes_;
  FileOrder order_;
  bool any_ = false;
};

/// A BigTIFF of pages: each its tags, the place of the next ones, and its pixels as one strip. By
/// hand, because libtiff looks through all pages for the last one whenever it appends another.
class TiffPages final : public FrameWriter {
 public:
  TiffPages(OutputFile& file, const ImageShape& shape)
      : file_(file),
        shape_(shape),
        frameBytes_(shape.rowBytes() * static_cast<std::size_t>(shape.height)),
        order_(shape, false) {
    std::string header("II\x2B\0\x08\0\0\0", 8);  // little endian, places of 8 bytes
    append(header, kHeader, 8);
    file_.write(header);
  }

  void write(int count, const void* frames) override {
    const char* source = static_cast<const char*>(frames);
    for (int i = 0; i < count; ++i, source += frameBytes_) {
      const std::string tags = describe();
      file_.write(tags);
      file_.write(order_.of(source, frameBytes_), frameBytes_);
      file_.write(std::string_view("\0\0\0\0\0\0\0", padding()));
      page_ += tags.size() + frameBytes_ + padding();
    }
  }

  void finish() override {
    requireFrames(file_, page_ > kHeader);
    const std::uint64_t last = page_ - padding() - frameBytes_ - kPlaceBytes;
    const std::string none(kPlaceBytes, '\0');
    file_.overwrite(static_cast<std::int64_t>(last), none.data(), none.size());
  }

 private:
  static constexpr std::uint64_t kHeader = 16;
  static constexpr std::size_t kPlaceBytes = 8;
  static constexpr std::size_t kTags = 9, kTagBytes = 20;
  static constexpr std::size_t kTagsBytes = 8 + kTags * kTagBytes + kPlaceBytes;

  enum Type { kShort = 3, kLong = 4, kLong8 = 16 };

  static void append(std::string& out, std::uint64_t value, std::size_t bytes) {
    for (; bytes > 0; --bytes, value >>= 8) out += static_cast<char>(value & 0xFF);
  }

  static void appendTag(std::string& out, std::uint64_t tag, Type type, std::uint64_t value) {
    append(out, tag, 2);
    append(out, type, 2);
    append(out, 1, 8);  // one value
    append(out, value, 8);
  }

  /// Tags stand at places that are multiples of 8.
  std::size_t padding() const { return (8 - (kTagsBytes + frameBytes_) % 8) % 8; }

  std::string describe() const {
    std::string tags;
    append(tags, kTags, 8);
    appendTag(tags, 256, kLong, static_cast<std::uint64_t>(shape_.width));
    appendTag(tags, 257, kLong, static_cast<std::uint64_t>(shape_.height));
    appendTag(tags, 258, kShort, 8 * cmnalg::bytesPerPixel(shape_.type));
    appendTag(tags, 259, kShort, 1);  // not compressed
    appendTag(tags, 262, kShort, 1);  // black at 0
    appendTag(tags, 273, kLong8, page_ + kTagsBytes);
    appendTag(tags, 277, kShort, 1);                                         // values a pixel
    appendTag(tags, 278, kLong, static_cast<std::uint64_t>(shape_.height));  // rows of the strip
    appendTag(tags, 279, kLong8, frameBytes_);
    append(tags, page_ + kTagsBytes + frameBytes_ + padding(), kPlaceBytes);
    return tags;
  }

  OutputFile& file_;
  const ImageShape shape_;
  const std::size_t frameBytes_;
  FileOrder order_;
  std::uint64_t page_ = kHeader;  // where the next one is to begin
};

}  // namespace

std::optional<FrameFormat> frameFormatOf(const std::string& path) {
  const std::string ending = endingOf(path);
  if (ending == ".tif" || ending == ".tiff") return FrameFormat::kTiffPages;
  if (ending == ".pgm") return FrameFormat::kPgm;
  if (ending == ".raw") return FrameFormat::kRaw;
  return std::nullopt;
}

std::unique_ptr<FrameWriter> FrameWriter::create(FrameFormat format, OutputFile& file,
                                                 const ImageShape& shape) {
  switch (format) {
    case FrameFormat::kTiffPages:
      return std::make_unique<TiffPages>(file, shape);
    case FrameFormat::kPgm:
      return std::make_unique<PgmWriter>(file, shape);
    case FrameFormat::kRaw:
      break;
  }
  return std::make_unique<RawWriter>(file, shape);
}

}  // namespace planex::io
