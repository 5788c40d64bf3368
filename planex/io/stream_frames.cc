#include <algorithm>
#include <array>

#include "planex/infra/byte_order.h"
#include "planex/io/byte_stream.h"
#include "planex/io/failure.h"
#include "planex/io/frame_files.h"
#include "planex/io/pgm_header.h"
#include "planex/io/pixel_packing.h"

namespace planex::io {
namespace {

[[noreturn]] void refuseCut(const std::string& path, std::uint64_t present, std::uint64_t needed) {
  throw Failure(path, "is cut off after " + std::to_string(present) + " of " +
                          std::to_string(needed) +
                          " bytes of its pixels; fetch it again from where it was made");
}

constexpr char kNoPipedImage[] =
    "is no binary PGM image, the one kind that is read from there beside raw frames; name a file "
    "for other kinds";

/// Binary portable greymaps, one behind the other.
class PgmFrames final : public FrameFile {
 public:
  explicit PgmFrames(const std::string& path) : path_(path), stream_(path) {
    // A file with one image is the common case in folders.
    if (next() && stream_.left() == bytes()) count_ = 1;
  }

  std::optional<std::int64_t> count() const override { return count_; }

  std::optional<ImageShape> next() override {
    if (header_.bytes == 0) {
      if (stream_.isAtEnd()) return std::nullopt;
      header_ = readPgmHeader([this] { return stream_.next(); });
      if (header_.bytes == 0) {
        throw Failure(path_, path_ == "-" && isFirst_ ? kNoPipedImage : kBadPgmHeader);
      }
      isFirst_ = false;
      requireFrame(path_, header_.width, header_.height, cmnalg::bytesPerPixel(header_.type()));
      const auto left = stream_.left();
      if (left && *left < bytes()) refuseCut(path_, *left, bytes());
    }
    return ImageShape{static_cast<int>(header_.width), static_cast<int>(header_.height),
                      header_.type()};
  }

  bool isReady() const override { return stream_.isReady(); }

  void read(void* frame) override {
    const std::size_t got = stream_.read(frame, bytes());
    if (got < bytes()) refuseCut(path_, got, bytes());
    if (!takePgmValues(header_, header_.width * header_.height, frame)) {
      throw Failure(path_, "holds a value above its announced maximum of " +
                               std::to_string(header_.maximum) +
                               "; fetch it again from where it was made");
    }
    header_ = {};
  }

  std::int64_t skip(std::int64_t frames) override {
    std::int64_t skipped = 0;
    for (; skipped < frames && next(); ++skipped) {
      const std::uint64_t got = stream_.skip(bytes());
      if (got < bytes()) refuseCut(path_, got, bytes());
      header_ = {};
    }
    return skipped;
  }

 private:
  std::size_t bytes() const {
    return header_.width * header_.height * cmnalg::bytesPerPixel(header_.type());
  }

  const std::string path_;
  ByteStream stream_;
  bool isFirst_ = true;
  PgmHeader header_;  // of the next frame; not valid before it is read
  std::optional<std::int64_t> count_;
};

/// How many bits a packing stores of each pixel, and how many of them are its value.
struct Bits {
  unsigned stored, used;
};

Bits bitsOf(RawFrames::Packing packing) {
  switch (packing) {
    case RawFrames::Packing::kMono8:
      return {8, 8};
    case RawFrames::Packing::kMono10:
      return {16, 10};
    case RawFrames::Packing::kMono12:
      return {16, 12};
    case RawFrames::Packing::kMono16:
      return {16, 16};
    case RawFrames::Packing::kMono10p:
      return {10, 10};
    case RawFrames::Packing::kMono12p:
      break;
  }
  return {12, 12};
}

/// Frames without headings.
class RawFile final : public FrameFile {
 public:
  RawFile(const std::string& path, const RawFrames& layout)
      : path_(path),
        stream_(path),
        bits_(bitsOf(layout.packing)),
        shape_{layout.width, layout.height,
               bits_.used == 8 ? cmnalg::IMAGE_TYPE_UINT8 : cmnalg::IMAGE_TYPE_UINT16} {
    requireFrame(path, static_cast<std::uint64_t>(std::max(layout.width, 0)),
                 static_cast<std::uint64_t>(std::max(layout.height, 0)),
                 cmnalg::bytesPerPixel(shape_.type));
    pixels_ = static_cast<std::size_t>(shape_.width) * static_cast<std::size_t>(shape_.height);
    bytes_ = (pixels_ * bits_.stored + 7) / 8;
    if (const auto left = stream_.left()) {
      if (*left % bytes_ != 0) {
        throw Failure(path, "holds " + std::to_string(*left) +
                                " bytes, which are no whole number of frames of " +
                                std::to_string(bytes_) + "; check the size and format of frames");
      }
      count_ = static_cast<std::int64_t>(*left / bytes_);
    }
  }

  std::optional<std::int64_t> count() const override { return count_; }

  std::optional<ImageShape> next() override {
    if (stream_.isAtEnd()) return std::nullopt;
    return shape_;
  }

  bool isReady() const override { return stream_.isReady(); }

  void read(void* frame) override {
    if (bits_.stored % 8 != 0) return readPacked(static_cast<std::uint16_t*>(frame));
    readBytes(frame, bytes_, 0);
    base::swapLittle(frame, pixels_, bits_.stored / 8);
    if (bits_.used % 8 != 0) checkValues(static_cast<const std::uint16_t*>(frame));
  }

  std::int64_t skip(std::int64_t frames) override {
    if (count_) {  // as many as there are, so that no product overflows
      frames = std::min(frames, static_cast<std::int64_t>(*stream_.left() / bytes_));
      stream_.skip(static_cast<std::uint64_t>(frames) * bytes_);
      return frames;
    }
    std::int64_t skipped = 0;
    for (; skipped < frames && !stream_.isAtEnd(); ++skipped) {
      const std::uint64_t got = stream_.skip(bytes_);
      if (got < bytes_) refuseCut(path_, got, bytes_);
    }
    return skipped;
  }

 private:
  void readBytes(void* bytes, std::size_t count, std::size_t before) {
    const std::size_t got = stream_.read(bytes, count);
    if (got < count) refuseCut(path_, before + got, bytes_);
  }

  void readPacked(std::uint16_t* pixels) {
    std::array<char, 7680> piece;  // whole groups of four pixels, of 10 as of 12 bits
    const std::size_t most = piece.size() * 8 / bits_.stored;
    std::size_t before = 0;
    for (std::size_t left = pixels_; left > 0;) {
      const std::size_t count = std::min(left, most);
      const std::size_t bytes = (count * bits_.stored + 7) / 8;
      readBytes(piece.data(), bytes, before);
      unpackPixels(static_cast<int>(bits_.stored), piece.data(), count, pixels);
      before += bytes;
      pixels += count;
      left -= count;
    }
  }

  /// Larger values tell that the bits lie elsewhere than was said.
  void checkValues(const std::uint16_t* values) const {
    unsigned found = 0;
#pragma omp simd reduction(| : found)
    for (std::size_t i = 0; i < pixels_; ++i) found |= values[i];
    if (found >> bits_.used == 0) return;
    throw Failure(path_, "holds values of more than the " + std::to_string(bits_.used) +
                             " bits that were said; check the format of frames");
  }

  const std::string path_;
  ByteStream stream_;
  const Bits bits_;
  const ImageShape shape_;
  std::size_t pixels_ = 0, bytes_ = 0;
  std::optional<std::int64_t> count_;
};

}  // namespace

int RawFrames::bits() const { return static_cast<int>(bitsOf(packing).used); }

std::unique_ptr<FrameFile> openPgmFrames(const std::string& path) {
  return std::make_unique<PgmFrames>(path);
}

std::unique_ptr<FrameFile> openRawFrames(const std::string& path, const RawFrames& layout) {
  return std::make_unique<RawFile>(path, layout);
}

}  // namespace planex::io
