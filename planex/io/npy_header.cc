#include "planex/io/npy_header.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <utility>

#include "planex/infra/byte_order.h"
#include "planex/io/failure.h"

namespace planex::io {
namespace {

constexpr std::size_t kMaximumHeader = 65536;

/// The Python dictionary that describes an array: three members, in any order.
class NpyDictionary {
 public:
  explicit NpyDictionary(std::string text) : text_(std::move(text)) {}

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

}  // namespace

NpyHeader readNpyHeader(const InputFile& file, const std::string& path) {
  std::array<unsigned char, 12> start{};
  const std::size_t count = file.readAt(0, start.data(), start.size());
  const int version = start[6];
  const std::size_t lengthBytes = version == 1 ? 2 : 4;
  std::size_t length = 0;
  for (std::size_t i = lengthBytes; i-- > 0;) length = length << 8 | start[8 + i];
  std::string text;
  if (count == start.size() && std::memcmp(start.data(), "\x93NUMPY", 6) == 0 && version >= 1 &&
      version <= 3 && length <= kMaximumHeader) {
    text.resize(length);
    text.resize(file.readAt(8 + lengthBytes, text.data(), length));
  }
  if (text.empty() || text.size() < length) {
    throw Failure(path, "has no valid NPY header; save it again with numpy.save");
  }
  const NpyDictionary dictionary(std::move(text));
  NpyHeader header;
  header.typeName = dictionary.quoted("descr");
  header.isSwapped = header.typeName.compare(0, 1, base::kIsBigEndian ? "<" : ">") == 0;
  if (header.typeName.size() == 3) header.type = header.typeName.substr(1);
  header.isRowMajor = dictionary.isFalse("fortran_order");
  header.shape = dictionary.numbers("shape");
  header.begin = 8 + lengthBytes + length;
  return header;
}

void requireNpyBytes(const InputFile& file, const std::string& path, const NpyHeader& header,
                     std::uint64_t needed) {
  const std::uint64_t present = file.size() - std::min(header.begin, file.size());
  if (present == needed) return;
  throw Failure(path, "holds " + std::to_string(present) +
                          " bytes of values where its header announces " + std::to_string(needed) +
                          "; fetch it again from where it was made");
}

}  // namespace planex::io
