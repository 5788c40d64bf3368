#include <png.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "planex/infra/byte_order.h"
#include "planex/io/image_formats.h"
#include "planex/io/input_file.h"

namespace planex::io {
namespace {

/// Compressed rows are at most this many times smaller than what they stand for (deflate's limit
/// is 1032).
constexpr std::uint64_t kMaximumRatio = 1040;

/// Bytes of an interlaced image, which is held as a whole.
constexpr std::uint64_t kMaximumInterlaced = std::uint64_t{1} << 28;

/// Bytes that are held of a chunk that is no part of the rows.
constexpr png_alloc_size_t kMaximumChunk = 1 << 20;

/// One pass through a PNG with libpng, which leaves by longjmp where something is wrong. So every
/// function that calls it has setjmp and no object that wants destroying; errors are false and a
/// text.
class PngPass {
 public:
  explicit PngPass(const InputFile& file) : file_(file) {}
  ~PngPass() { png_destroy_read_struct(&png_, &info_, nullptr); }
  PngPass(const PngPass&) = delete;
  PngPass& operator=(const PngPass&) = delete;

  bool begin() {
    png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, onError, onWarning);
    if (png_ == nullptr) return false;
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    info_ = png_create_info_struct(png_);
    if (info_ == nullptr) return false;
    png_set_read_fn(png_, this, readBytes);
    png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
    png_set_chunk_malloc_max(png_, kMaximumChunk);
    png_read_info(png_, info_);
    // PNG has the high byte first.
    if (!base::kIsBigEndian && png_get_bit_depth(png_, info_) == 16) png_set_swap(png_);
    return true;
  }

  /// All rows of an interlaced image, whose passes fill in what those before left out.
  bool readAll(char* rows, std::size_t rowBytes) {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    const int passes = png_set_interlace_handling(png_);
    for (int pass = 0; pass < passes; ++pass) {
      for (std::uint64_t row = 0; row < height(); ++row) {
        png_read_row(png_, reinterpret_cast<png_bytep>(rows + row * rowBytes), nullptr);
      }
    }
    png_read_end(png_, nullptr);
    return true;
  }

  bool readRow(void* row) {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_read_row(png_, static_cast<png_bytep>(row), nullptr);
    return true;
  }

  /// Past the last row: the check sums of the rows and what follows them.
  bool end() {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_read_end(png_, nullptr);
    return true;
  }

  std::uint64_t width() const { return png_get_image_width(png_, info_); }
  std::uint64_t height() const { return png_get_image_height(png_, info_); }
  int bits() const { return png_get_bit_depth(png_, info_); }
  int colorType() const { return png_get_color_type(png_, info_); }
  /// Whether a value that is not 0 is marked as no value.
  bool marksValue() const {
    png_color_16p marked = nullptr;
    return png_get_tRNS(png_, info_, nullptr, nullptr, &marked) != 0 && marked != nullptr &&
           marked->gray != 0;
  }
  bool interlaced() const { return png_get_interlace_type(png_, info_) != PNG_INTERLACE_NONE; }
  const char* error() const { return error_.data(); }

 private:
  static PngPass& of(png_structp png) { return *static_cast<PngPass*>(png_get_error_ptr(png)); }

  [[noreturn]] static void onError(png_structp png, png_const_charp text) {
    std::snprintf(of(png).error_.data(), of(png).error_.size(), "%s", text);
    png_longjmp(png, 1);
  }

  /// What libpng only warns of concerns chunks that are not looked at, or rows with a wrong check
  /// sum at the end, which are damaged.
  static void onWarning(png_structp png, png_const_charp text) {
    if (std::strstr(text, "ADLER32") != nullptr || std::strstr(text, "IDAT") != nullptr) {
      onError(png, text);
    }
  }

  static void readBytes(png_structp png, png_bytep bytes, std::size_t count) {
    PngPass& pass = *static_cast<PngPass*>(png_get_io_ptr(png));
    if (pass.fill(bytes, count)) return;
    png_error(png, "end of file");
  }

  bool fill(unsigned char* bytes, std::size_t count) {
    while (count > 0) {
      if (position_ == filled_) {
        offset_ += filled_;
        position_ = 0;
        filled_ = file_.readAt(offset_, buffer_.data(), buffer_.size());
        if (filled_ == 0) return false;
      }
      const std::size_t part = std::min(count, filled_ - position_);
      std::memcpy(bytes, buffer_.data() + position_, part);
      position_ += part;
      bytes += part;
      count -= part;
    }
    return true;
  }

  const InputFile& file_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  std::array<char, 128> error_{"out of memory"};
  std::array<unsigned char, 65536> buffer_;
  std::uint64_t offset_ = 0;  // in the file, of the buffer
  std::size_t position_ = 0, filled_ = 0;
};

class PngReader final : public ImageReader {
 public:
  explicit PngReader(const std::string& path) : ImageReader(path), file_(path) {
    beginPass();
    const int bits = pass_->bits();
    checkValues(bits);
    announce(pass_->width(), pass_->height(),
             bits == 8 ? cmnalg::IMAGE_TYPE_UINT8 : cmnalg::IMAGE_TYPE_UINT16);
    // Neither factor exceeds 31 bits.
    const std::uint64_t bytes = shape().rowBytes() * static_cast<std::uint64_t>(shape().height);
    if (bytes / kMaximumRatio > file_.size()) {
      refuse(
          "announces more pixels than a file of its size can hold; fetch it again from where it "
          "was made");
    }
    interlaced_ = pass_->interlaced();
    if (interlaced_ && bytes > kMaximumInterlaced) {
      refuse("is interlaced and too large to be held in memory; save it without interlacing");
    }
  }

 private:
  /// The values in the file must be the numbers that are meant.
  void checkValues(int bits) const {
    static constexpr char kGreyscale[] = "; convert it to greyscale of 8 or 16 bits";
    const int type = pass_->colorType();
    if (type == PNG_COLOR_TYPE_PALETTE) {
      refuse(std::string("holds indices of a palette") + kGreyscale);
    }
    if ((type & PNG_COLOR_MASK_COLOR) != 0) refuse(std::string("has colours (RGB)") + kGreyscale);
    if (type != PNG_COLOR_TYPE_GRAY) {
      refuse(std::string("has transparency beside its values") + kGreyscale);
    }
    if (bits < 8) refuse("has " + std::to_string(bits) + " bits a value" + kGreyscale);
    if (pass_->marksValue()) {
      refuse("marks a value other than 0 as transparent (tRNS); save missing values as 0");
    }
  }

  void beginPass() {
    pass_.reset();
    pass_ = std::make_unique<PngPass>(file_);
    row_ = 0;
    if (!pass_->begin()) {
      refuse(std::string("is a damaged PNG (") + pass_->error() +
             "); fetch it again from where it was made");
    }
  }

  void readInterlacedRow(void* row) {
    const std::size_t bytes = shape().rowBytes();
    if (image_.empty()) {
      std::vector<char> image(bytes * static_cast<std::size_t>(shape().height));
      if (!pass_->readAll(image.data(), bytes)) refuseRow(row_, pass_->error());
      image_.swap(image);
    }
    std::memcpy(row, image_.data() + static_cast<std::size_t>(row_++) * bytes, bytes);
  }

  void readNextRow(void* row) override {
    if (interlaced_) return readInterlacedRow(row);
    if (!pass_->readRow(row)) refuseRow(row_, pass_->error());
    if (++row_ == shape().height && !pass_->end()) refuseRow(row_ - 1, pass_->error());
  }

  void rewind() override {
    if (interlaced_) {
      row_ = 0;
    } else if (row_ > 0) {
      beginPass();
    }
  }

  InputFile file_;
  std::unique_ptr<PngPass> pass_;
  bool interlaced_ = false;
  std::vector<char> image_;  // where it is interlaced
  int row_ = 0;
};

}  // namespace

std::unique_ptr<ImageReader> openPng(const std::string& path) {
  return std::make_unique<PngReader>(path);
}

}  // namespace planex::io
