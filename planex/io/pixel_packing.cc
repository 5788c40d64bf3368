#include "planex/io/pixel_packing.h"

#include <cstring>

#include "planex/infra/byte_order.h"

namespace planex::io {
namespace {

/// How far up the pixels of a word lie, in the order of their addresses.
constexpr unsigned kPlace[] = {base::kIsBigEndian ? 48 : 0, base::kIsBigEndian ? 32 : 16,
                               base::kIsBigEndian ? 16 : 32, base::kIsBigEndian ? 0 : 48};

template <unsigned kBits>
void unpack(const unsigned char* bytes, std::size_t count, std::uint16_t* pixels) {
  constexpr std::uint64_t kMask = (1U << kBits) - 1;
  const unsigned char* const end = bytes + (count * kBits + 7) / 8;
  // Four pixels lie in the first bytes of a word.
  std::size_t i = 0;
  for (; count - i >= 4 && end - bytes >= 8; i += 4, bytes += kBits / 2) {
    const auto packed = base::loadLittle<std::uint64_t>(bytes);
    const std::uint64_t four =
        (packed & kMask) << kPlace[0] | (packed >> kBits & kMask) << kPlace[1] |
        (packed >> 2 * kBits & kMask) << kPlace[2] | (packed >> 3 * kBits & kMask) << kPlace[3];
    std::memcpy(pixels + i, &four, sizeof four);
  }
  std::uint64_t held = 0;
  for (unsigned have = 0; i < count; ++i, held >>= kBits, have -= kBits) {
    for (; have < kBits; have += 8) held |= std::uint64_t{*bytes++} << have;
    pixels[i] = static_cast<std::uint16_t>(held & kMask);
  }
}

struct FormatName {
  const char* name;
  int bits;
};
constexpr FormatName kFormats[] = {{"Mono8", 8},   {"Mono10", 10},  {"Mono12", 12},
                                   {"Mono16", 16}, {"Mono10p", 10}, {"Mono12p", 12}};

}  // namespace

std::optional<int> usedBits(std::string_view pixelFormat) {
  for (const FormatName& format : kFormats) {
    if (pixelFormat == format.name) return format.bits;
  }
  return std::nullopt;
}

void unpackPixels(int bits, const void* packed, std::size_t count, std::uint16_t* pixels) {
  const auto* const bytes = static_cast<const unsigned char*>(packed);
  if (bits == 10) {
    unpack<10>(bytes, count, pixels);
  } else {
    unpack<12>(bytes, count, pixels);
  }
}

}  // namespace planex::io
