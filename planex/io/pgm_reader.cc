#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

#include "planex/io/image_formats.h"
#include "planex/io/input_file.h"

namespace planex::io {
namespace {

constexpr std::size_t kMaximumHeader = 65536;  // comments included

/// The numbers of a portable greymap's header, which comments may interrupt.
class HeaderScanner {
 public:
  explicit HeaderScanner(const std::vector<char>& bytes) : bytes_(bytes) {}

  /// The next number; 0, which none of them may be, for what is none or too large.
  std::uint64_t number() {
    skipBlanks();
    std::uint64_t value = 0;
    for (; position_ < bytes_.size() && isDigit(bytes_[position_]); ++position_) {
      value = value * 10 + static_cast<std::uint64_t>(bytes_[position_] - '0');
      if (value > 0xFFFFFFFFU) return 0;
    }
    return value;
  }

  /// Past the single blank that ends the header; 0 where there is none.
  std::size_t end() const {
    return position_ < bytes_.size() && isBlank(bytes_[position_]) ? position_ + 1 : 0;
  }

 private:
  static bool isDigit(char c) { return c >= '0' && c <= '9'; }
  static bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
  }

  void skipBlanks() {
    while (position_ < bytes_.size() && (isBlank(bytes_[position_]) || bytes_[position_] == '#')) {
      if (bytes_[position_] == '#') {
        while (position_ < bytes_.size() && bytes_[position_] != '\n') ++position_;
      } else {
        ++position_;
      }
    }
  }

  const std::vector<char>& bytes_;
  std::size_t position_ = 2;  // past the signature
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "values are swapped");

/// Binary portable greymap: a text header, then rows; numbers of two bytes have the high one first.
class PgmReader final : public ImageReader {
 public:
  explicit PgmReader(const std::string& path) : ImageReader(path), file_(path) {
    std::vector<char> bytes(std::min<std::uint64_t>(kMaximumHeader, file_.size()));
    bytes.resize(file_.readAt(0, bytes.data(), bytes.size()));
    HeaderScanner scanner(bytes);
    const std::uint64_t width = scanner.number();
    const std::uint64_t height = scanner.number();
    const std::uint64_t maximum = scanner.number();
    begin_ = scanner.end();
    if (begin_ == 0 || width == 0 || height == 0 || maximum == 0 || maximum > 65535) {
      refuse("has no valid PGM header; save it again as a binary PGM of 8 or 16 bits");
    }
    maximum_ = static_cast<std::uint16_t>(maximum);
    announce(width, height, maximum < 256 ? cmnalg::IMAGE_TYPE_UINT8 : cmnalg::IMAGE_TYPE_UINT16);
    checkSize();
  }

 private:
  void checkSize() const {
    // Neither factor exceeds 31 bits.
    const std::uint64_t needed = shape().rowBytes() * static_cast<std::uint64_t>(shape().height);
    const std::uint64_t present = file_.size() - begin_;
    if (present == needed) return;
    refuse("holds " + std::to_string(present) + " bytes of pixels where its header announces " +
           std::to_string(needed) + "; fetch it again from where it was made");
  }

  void readNextRow(void* row) override { readNextRows(1, row); }

  void readNextRows(int count, void* rows) override {
    const std::size_t bytes = shape().rowBytes();
    const std::uint64_t offset = begin_ + static_cast<std::uint64_t>(row_) * bytes;
    const std::size_t present =
        file_.readAt(offset, rows, static_cast<std::size_t>(count) * bytes) / bytes;
    for (int i = 0; i < count; ++i) {
      if (static_cast<std::size_t>(i) >= present) refuseRow(row_, "end of file");
      takeRow(static_cast<char*>(rows) + static_cast<std::size_t>(i) * bytes);
    }
  }

  /// Checks a row, and brings its values into the order of the host.
  void takeRow(void* row) {
    const bool inRange = shape().type == cmnalg::IMAGE_TYPE_UINT8
                             ? checkValues(static_cast<const std::uint8_t*>(row))
                             : orderValues(static_cast<std::uint16_t*>(row));
    if (!inRange) refuseRow(row_, "a value above the announced maximum");
    ++row_;
  }

  bool checkValues(const std::uint8_t* row) const {
    return *std::max_element(row, row + shape().width) <= maximum_;
  }

  /// Turns the bytes of each value into host order.
  bool orderValues(std::uint16_t* row) const {
    int largest = 0;
#pragma omp simd reduction(max : largest)
    for (int i = 0; i < shape().width; ++i) {
      row[i] = static_cast<std::uint16_t>(row[i] >> 8 | row[i] << 8);
      largest = std::max<int>(largest, row[i]);
    }
    return largest <= maximum_;
  }

  void rewind() override { row_ = 0; }
  void skipRows(int count) override { row_ += count; }

  InputFile file_;
  std::size_t begin_ = 0;
  std::uint16_t maximum_ = 0;
  int row_ = 0;
};

}  // namespace

std::unique_ptr<ImageReader> openPgm(const std::string& path) {
  return std::make_unique<PgmReader>(path);
}

}  // namespace planex::io
