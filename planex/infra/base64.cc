#include "planex/infra/base64.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "planex/infra/byte_order.h"

namespace etl::base64 {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::uint32_t kInvalid = 0xff000000U;  // no three bytes reach these bits

/// For every character its six bits, where they stand among the three bytes of a group; the first
/// byte is the lowest of the word.
using PlacedValues = std::array<std::uint32_t, 256>;

constexpr PlacedValues placedValues(int shift) {
  PlacedValues values{};
  for (auto& value : values) value = kInvalid;
  for (std::uint32_t i = 0; i < 64; ++i) {
    const std::uint32_t bits = i << shift;
    values[static_cast<unsigned char>(kAlphabet[i])] =
        bits >> 16 | (bits & 0xff00U) | (bits & 0xffU) << 16;
  }
  return values;
}

constexpr PlacedValues kFirst = placedValues(18);
constexpr PlacedValues kSecond = placedValues(12);
constexpr PlacedValues kThird = placedValues(6);
constexpr PlacedValues kFourth = placedValues(0);

[[gnu::always_inline]] inline std::uint32_t group(const char* text) {
  const auto c = base::loadLittle<std::uint32_t>(text);
  return kFirst[c & 0xff] | kSecond[c >> 8 & 0xff] | kThird[c >> 16 & 0xff] | kFourth[c >> 24];
}

/// The last group: one to three bytes.
bool decodeLast(const char* text, std::size_t size, unsigned char* bytes) {
  char filled[4];
  std::memcpy(filled, text, sizeof filled);
  for (std::size_t i = size + 1; i < 4; ++i) filled[i] = kAlphabet[0];  // in place of the padding
  const std::uint32_t bits = group(filled);
  if (bits >> (8 * size) != 0) return false;  // a bad character, or unused bits that are set
  unsigned char word[4];
  base::storeLittle(bits, word);
  std::memcpy(bytes, word, size);
  return true;
}

void encodeGroup(const unsigned char* bytes, char* text) {
  const std::uint32_t bits =
      std::uint32_t{bytes[0]} << 16 | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]};
  text[0] = kAlphabet[bits >> 18];
  text[1] = kAlphabet[bits >> 12 & 63];
  text[2] = kAlphabet[bits >> 6 & 63];
  text[3] = kAlphabet[bits & 63];
}

}  // namespace

void Encoder::Append(const unsigned char* bytes, std::size_t size) {
  while (restSize_ > 0 && size > 0) {
    rest_[restSize_++] = *bytes++;
    --size;
    if (restSize_ == 3) Finish();
  }
  const std::size_t start = text_.size();
  text_.resize(start + size / 3 * 4);
  char* out = text_.data() + start;
  for (; size >= 3; size -= 3, bytes += 3, out += 4) encodeGroup(bytes, out);
  if (size > 0) std::memcpy(rest_ + restSize_, bytes, size);
  restSize_ += size;
}

void Encoder::Finish() {
  if (restSize_ == 0) return;
  char group[4];
  std::memset(rest_ + restSize_, 0, 3 - restSize_);
  encodeGroup(rest_, group);
  std::memset(group + restSize_ + 1, '=', 3 - restSize_);
  text_.append(group, sizeof group);
  restSize_ = 0;
}

bool decodedSize(std::string_view text, std::size_t& size) {
  if (text.size() % 4 != 0) return false;
  size = text.size() / 4 * 3;
  if (text.empty() || text.back() != '=') return true;
  size -= text[text.size() - 2] == '=' ? 2 : 1;
  return true;
}

bool decode(std::string_view text, unsigned char* bytes) {
  std::size_t size = 0;
  if (!decodedSize(text, size)) return false;
  if (text.empty()) return true;
  const char* in = text.data();
  const char* const last = in + text.size() - 4;
  std::uint32_t seen = 0;
  for (; in != last; in += 4, bytes += 3) {
    const std::uint32_t bits = group(in);
    seen |= bits;
    base::storeLittle(bits, bytes);  // the fourth byte is the next group's first
  }
  return (seen & kInvalid) == 0 && decodeLast(in, size - (text.size() / 4 - 1) * 3, bytes);
}

}  // namespace etl::base64
