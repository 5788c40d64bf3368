#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "planex/io/image_formats.h"
#include "planex/io/input_file.h"

namespace planex::io {
namespace {

constexpr std::size_t kMaximumHeader = 65536;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "values are swapped");

/// The Python dictionary that describes an array: three members, in any order.
class NpyHeader {
 public:
  explicit NpyHeader(std::string text) : text_(std::move(text)) {}

  /// The text of a member between quotes; empty where there is none.
  std::string quoted(const char* name) const {
    const std::size_t begin = valueOf(name);
    if (begin == std::string::npos || !isQuote(text_[begin])) return {};
    const std::size_t end = text_.find(text_[begin], begin + 1);
    return end == std::string::npos ? std::string() : text_.substr(begin + 1, end - begin - 1);
  }

  bool isFalse(const char* name) const {
    const std::size_t begin = valueOf(name);
    return begin != std::string::npos && text_.compare(begin, 5, "False") == 0;
  }

  /// The numbers between parentheses; none where they are written wrongly or too large.
  std::vector<std::uint64_t> numbers(const char* name) const {
    std::size_t at = valueOf(name);
    if (at == std::string::npos || text_[at] != '(') return {};
    std::vector<std::uint64_t> numbers;
    for (at = past(at + 1); at < text_.size() && isDigit(text_[at]);) {
      std::uint64_t number = 0;
      for (; at < text_.size() && isDigit(text_[at]); ++at) {
        number = number * 10 + static_cast<std::uint64_t>(text_[at] - '0');
        if (number > 0xFFFFFFFFU) return {};
      }
      numbers.push_back(number);
      at = past(at);
      if (at < text_.size() && text_[at] == ',') at = past(at + 1);
    }
    if (at < text_.size() && text_[at] == ')') return numbers;
    return {};
  }

 private:
  static bool isQuote(char c) { return c == '\'' || c == '"'; }
  static bool isDigit(char c) { return c >= '0' && c <= '9'; }
  std::size_t past(std::size_t at) const {
    while (at < text_.size() && text_[at] == ' ') ++at;
    return at;
  }

  std::size_t valueOf(const std::string& name) const {
    for (const char* quote : {"'", "\""}) {
      const std::size_t found = text_.find(quote + name + quote);
      if (found == std::string::npos) continue;
      const std::size_t colon = past(found + name.size() + 2);
      if (colon >= text_.size() || text_[colon] != ':') continue;
      const std::size_t value = past(colon + 1);
      if (value < text_.size()) return value;
    }
    return std::string::npos;
  }

  std::string text_;
};

/// A NumPy array of two axes, rows and columns, or of three whose last one is layers.
class NpyReader final : public ImageReader {
 public:
  NpyReader(const std::string& path, Samples samples) : ImageReader(path), file_(path) {
    const NpyHeader header(readHeader());
    const cmnalg::ImageType type = typeOf(header.quoted("descr"), samples);
    const std::vector<std::uint64_t> shape = header.numbers("shape");
    if (!header.isFalse("fortran_order")) {
      refuse("has its columns one behind the other (Fortran order); save it in C order");
    }
    if (shape.size() != 2 && !(shape.size() == 3 && samples == Samples::kHeights)) {
      refuse("has " + std::to_string(shape.size()) + " axes; save an array of rows x columns");
    }
    announce(shape[1], shape[0], type);
    if (shape.size() == 3) layers_ = shape[2];
    if (layers_ < 1 || storedRowBytes() > kMaximumRow) {
      refuse("has " + std::to_string(layers_) + " layers, none or too many; save fewer");
    }
    checkSize();
  }

 private:
  static constexpr std::size_t kMaximumRow = std::size_t{128} << 20;  // bytes of all layers

  std::string readHeader() {
    std::array<unsigned char, 12> start{};
    const std::size_t count = file_.readAt(0, start.data(), start.size());
    const int version = start[6];
    const std::size_t lengthBytes = version == 1 ? 2 : 4;
    std::size_t length = 0;
    for (std::size_t i = lengthBytes; i-- > 0;) length = length << 8 | start[8 + i];
    begin_ = 8 + lengthBytes + length;
    std::string text;
    if (count == start.size() && version >= 1 && version <= 3 && length <= kMaximumHeader) {
      text.resize(length);
      text.resize(file_.readAt(8 + lengthBytes, text.data(), length));
    }
    if (text.empty() || text.size() < length) {
      refuse("has no valid NPY header; save it again with numpy.save");
    }
    return text;
  }

  cmnalg::ImageType typeOf(const std::string& name, Samples samples) {
    swapped_ = !name.empty() && name[0] == '>';
    const std::string kind = name.size() == 3 ? name.substr(1) : "";
    if (kind == "u1") return cmnalg::IMAGE_TYPE_UINT8;
    if (kind == "u2") return cmnalg::IMAGE_TYPE_UINT16;
    if (kind == "u4" && samples == Samples::kRanges) return cmnalg::IMAGE_TYPE_UINT32;
    if (kind == "f4" && samples != Samples::kIntensities) return cmnalg::IMAGE_TYPE_FLOAT32;
    refuse("has values of type '" + name.substr(0, 8) +
           "'; convert it to 8 or 16 bits without sign (u1, u2)");
  }

  void checkSize() const {
    // Less than 2^31 rows of at most 2^27 bytes.
    const std::uint64_t needed = storedRowBytes() * static_cast<std::uint64_t>(shape().height);
    const std::uint64_t present = file_.size() - std::min<std::uint64_t>(begin_, file_.size());
    if (present == needed) return;
    refuse("holds " + std::to_string(present) + " bytes of values where its header announces " +
           std::to_string(needed) + "; fetch it again from where it was made");
  }

  std::size_t storedRowBytes() const { return layers_ * shape().rowBytes(); }

  void readNextRow(void* row) override { readNextRows(1, row); }

  void readNextRows(int count, void* rows) override {
    if (layers_ == 1) {
      readStored(row_, count, rows);
    } else {
      stored_.resize(storedRowBytes());
      for (int i = 0; i < count; ++i) {
        readStored(row_ + i, 1, stored_.data());
        takeFirst(static_cast<char*>(rows) + static_cast<std::size_t>(i) * shape().rowBytes());
      }
    }
    row_ += count;
    if (swapped_) swap(static_cast<char*>(rows), static_cast<std::size_t>(count));
  }

  void readStored(int first, int count, void* rows) const {
    const std::size_t bytes = storedRowBytes();
    const std::size_t wanted = static_cast<std::size_t>(count) * bytes;
    const std::size_t got =
        file_.readAt(begin_ + static_cast<std::uint64_t>(first) * bytes, rows, wanted);
    if (got != wanted) refuseRow(first + static_cast<std::int64_t>(got / bytes), "end of file");
  }

  void takeFirst(char* row) const {
    const std::size_t bytes = cmnalg::bytesPerPixel(shape().type);
    for (std::size_t i = 0; i < static_cast<std::size_t>(shape().width); ++i) {
      std::memcpy(row + i * bytes, stored_.data() + i * layers_ * bytes, bytes);
    }
  }

  /// Brings values into the order of the host.
  void swap(char* rows, std::size_t count) const {
    const std::size_t bytes = cmnalg::bytesPerPixel(shape().type);
    if (bytes == 1) return;
    for (char* value = rows; value < rows + count * shape().rowBytes(); value += bytes) {
      std::reverse(value, value + bytes);
    }
  }

  void rewind() override { row_ = 0; }
  void skipRows(int count) override { row_ += count; }

  InputFile file_;
  std::uint64_t begin_ = 0, layers_ = 1;
  bool swapped_ = false;
  std::vector<char> stored_;  // a row of several layers
  int row_ = 0;
};

}  // namespace

std::unique_ptr<ImageReader> openNpy(const std::string& path, Samples samples) {
  return std::make_unique<NpyReader>(path, samples);
}

}  // namespace planex::io
