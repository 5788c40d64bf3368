#include "planex/io/pgm_header.h"

#include <algorithm>

#include "planex/infra/byte_order.h"

namespace planex::io {
namespace {

constexpr std::size_t kMaximumHeader = 65536;  // comments included

class HeaderScanner {
 public:
  explicit HeaderScanner(const std::function<int()>& next) : next_(next) {}

  bool begins(char signature) {
    advance();
    return byte_ == signature;
  }

  /// The next number; 0, which none of them may be, for what is none or too large.
  std::uint64_t number() {
    for (; isBlank() || byte_ == '#'; advance()) {
      if (byte_ != '#') continue;
      while (byte_ >= 0 && byte_ != '\n') advance();
    }
    std::uint64_t value = 0;
    for (; byte_ >= '0' && byte_ <= '9'; advance()) {
      value = value * 10 + static_cast<std::uint64_t>(byte_ - '0');
      if (value > 0xFFFFFFFFU) return 0;
    }
    return value;
  }

  bool isBlank() const {
    return byte_ == ' ' || byte_ == '\t' || byte_ == '\n' || byte_ == '\r' || byte_ == '\v' ||
           byte_ == '\f';
  }
  void advance() {
    byte_ = taken_ < kMaximumHeader ? next_() : -1;
    ++taken_;
  }
  std::size_t taken() const { return taken_; }

 private:
  const std::function<int()>& next_;
  int byte_ = -1;
  std::size_t taken_ = 0;
};

}  // namespace

PgmHeader readPgmHeader(const std::function<int()>& next) {
  HeaderScanner scanner(next);
  if (!scanner.begins('P') || !scanner.begins('5')) return {};
  scanner.advance();
  PgmHeader header;
  header.width = scanner.number();
  header.height = scanner.number();
  const std::uint64_t maximum = scanner.number();
  // A single blank ends the heading.
  if (header.width == 0 || header.height == 0 || maximum == 0 || maximum > 65535 ||
      !scanner.isBlank()) {
    return {};
  }
  header.maximum = static_cast<std::uint16_t>(maximum);
  header.bytes = scanner.taken();
  return header;
}

bool takePgmValues(const PgmHeader& header, std::size_t count, void* values) {
  int largest = 0;
  if (header.type() == cmnalg::IMAGE_TYPE_UINT8) {
    const auto* const bytes = static_cast<const std::uint8_t*>(values);
#pragma omp simd reduction(max : largest)
    for (std::size_t i = 0; i < count; ++i) largest = std::max<int>(largest, bytes[i]);
  } else {
    auto* const words = static_cast<std::uint16_t*>(values);
#pragma omp simd reduction(max : largest)
    for (std::size_t i = 0; i < count; ++i) {
      if (!base::kIsBigEndian) words[i] = static_cast<std::uint16_t>(words[i] >> 8 | words[i] << 8);
      largest = std::max<int>(largest, words[i]);
    }
  }
  return largest <= header.maximum;
}

}  // namespace planex::io
