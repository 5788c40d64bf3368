#include "planex/acquisition/pixel_unpacking.h"

#include <cstdint>
#include <cstring>
#include <map>

#include "planex/infra/byte_order.h"
#include "planex/io/pixel_packing.h"

namespace planex::acquisition {

std::optional<PixelFormat> PixelFormat::named(const std::string& name) {
  static const std::map<std::string, int> kBits = {
      {"Mono8", 8},    {"Mono10", 16},  {"Mono12", 16},     {"Mono16", 16},
      {"Mono10p", 10}, {"Mono12p", 12}, {"Coord3D_C16", 16}};
  const auto found = kBits.find(name);
  if (found == kBits.end()) return std::nullopt;
  return PixelFormat{found->second,
                     found->second == 8 ? cmnalg::IMAGE_TYPE_UINT8 : cmnalg::IMAGE_TYPE_UINT16};
}

void unpack(const PixelFormat& format, const void* packed, std::size_t count, void* pixels) {
  if (format.bits % 8 == 0) {
    std::memcpy(pixels, packed, format.bytes(count));
    base::swapLittle(pixels, count, static_cast<std::size_t>(format.bits) / 8);
    return;
  }
  io::unpackPixels(format.bits, packed, count, static_cast<std::uint16_t*>(pixels));
}

}  // namespace planex::acquisition
