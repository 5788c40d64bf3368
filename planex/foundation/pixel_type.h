#pragma once

#include <cstddef>
#include <cstdint>

#include "planex/infra/containers.h"
#include "planex/infra/export.h"

namespace cmnalg {

/// Type of the pixels of an image.
enum ImageType : std::int32_t {
  IMAGE_TYPE_UINT8 = 0,     ///< 8 bits, unsigned
  IMAGE_TYPE_UINT16 = 1,    ///< 16 bits, unsigned
  IMAGE_TYPE_UINT32 = 2,    ///< 32 bits, unsigned
  IMAGE_TYPE_UINT64 = 3,    ///< 64 bits, unsigned
  IMAGE_TYPE_INT8 = 4,      ///< 8 bits, signed
  IMAGE_TYPE_INT16 = 5,     ///< 16 bits, signed
  IMAGE_TYPE_INT32 = 6,     ///< 32 bits, signed
  IMAGE_TYPE_INT64 = 7,     ///< 64 bits, signed
  IMAGE_TYPE_FLOAT32 = 8,   ///< float
  IMAGE_TYPE_FLOAT64 = 9,   ///< double
  IMAGE_TYPE_RGB24 = 10,    ///< PixelRGB
  IMAGE_TYPE_INVALID = 11,  ///< no pixels
};

/// One RGB24 pixel, three bytes in this order.
struct PixelRGB {
  std::uint8_t r = 0;  ///< red
  std::uint8_t g = 0;  ///< green
  std::uint8_t b = 0;  ///< blue

  /// Whether all three are equal.
  friend constexpr bool operator==(const PixelRGB& left, const PixelRGB& right) {
    return left.r == right.r && left.g == right.g && left.b == right.b;
  }
};

/// The ImageType whose pixels are of type T.
template <typename T>
struct PixelTypeOf;
#define PLANEX_PIXEL_TYPE(T, TYPE)           \
  template <>                                \
  struct PixelTypeOf<T> {                    \
    static constexpr ImageType value = TYPE; \
  }
PLANEX_PIXEL_TYPE(std::uint8_t, IMAGE_TYPE_UINT8);
PLANEX_PIXEL_TYPE(std::uint16_t, IMAGE_TYPE_UINT16);
PLANEX_PIXEL_TYPE(std::uint32_t, IMAGE_TYPE_UINT32);
PLANEX_PIXEL_TYPE(std::uint64_t, IMAGE_TYPE_UINT64);
PLANEX_PIXEL_TYPE(std::int8_t, IMAGE_TYPE_INT8);
PLANEX_PIXEL_TYPE(std::int16_t, IMAGE_TYPE_INT16);
PLANEX_PIXEL_TYPE(std::int32_t, IMAGE_TYPE_INT32);
PLANEX_PIXEL_TYPE(std::int64_t, IMAGE_TYPE_INT64);
PLANEX_PIXEL_TYPE(float, IMAGE_TYPE_FLOAT32);
PLANEX_PIXEL_TYPE(double, IMAGE_TYPE_FLOAT64);
PLANEX_PIXEL_TYPE(PixelRGB, IMAGE_TYPE_RGB24);
#undef PLANEX_PIXEL_TYPE

/// @return bytes of one pixel; 0 for IMAGE_TYPE_INVALID and values that are no ImageType
PLANEX_EXPORT std::size_t bytesPerPixel(ImageType type);

/// @return the name in documents ("uint8" ... "RGB24"), "invalid" for any other value
PLANEX_EXPORT const char* serialisedTypeName(ImageType type);
/// @return the type of that name in documents, IMAGE_TYPE_INVALID when there is none
PLANEX_EXPORT ImageType typeFromSerialisedName(const etl::String& name);

/// @{
/// Type classes. The two floating types count as signed; values that are no ImageType, and
/// IMAGE_TYPE_INVALID, belong to no class but scalar, which is every type but RGB24.
constexpr bool isIntegerType(ImageType type) { return type >= 0 && type <= IMAGE_TYPE_INT64; }
constexpr bool isUnsignedType(ImageType type) { return type >= 0 && type <= IMAGE_TYPE_UINT64; }
constexpr bool isSignedType(ImageType type) {
  return type >= IMAGE_TYPE_INT8 && type <= IMAGE_TYPE_FLOAT64;
}
constexpr bool isFloatingType(ImageType type) {
  return type == IMAGE_TYPE_FLOAT32 || type == IMAGE_TYPE_FLOAT64;
}
constexpr bool isScalarType(ImageType type) { return type != IMAGE_TYPE_RGB24; }
/// @}

namespace impro {

/// Upper-case names, indexed by ImageType 0 to 10.
PLANEX_EXPORT extern const char* const IMAGE_TYPE_STRINGS[11];
/// @return the upper-case name, "INVALID" for any value outside 0 to 10
PLANEX_EXPORT const char* ImageTypeString(int type);
/// @return the first type, in enumeration order, whose upper-case name is found anywhere in the
///         text; 11 when none is. "INT8" is found in "UINT8", which stands before it.
PLANEX_EXPORT int typeStringToEnum(const etl::String& text);
/// @return 11: ten scalar types and RGB24
PLANEX_EXPORT int NrImageTypes();

}  // namespace impro
}  // namespace cmnalg
