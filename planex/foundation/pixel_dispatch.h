#pragma once

#include <cstdint>

#include "planex/foundation/pixel_type.h"

namespace cmnalg {

/// Stands for the type T as a function argument.
template <typename T>
struct TypeTag {
  using type = T;
};

/// Calls `body(TypeTag<T>())` with the pixel type of an image that can hold measured data (the
/// unsigned integers and the floating types): once per call of an algorithm, never per pixel.
/// @return what the body returns; false for any other type, without a call
template <typename Body>
bool dispatchMeasuredType(ImageType type, Body&& body) {
  switch (type) {
    case IMAGE_TYPE_UINT8:
      return body(TypeTag<std::uint8_t>());
    case IMAGE_TYPE_UINT16:
      return body(TypeTag<std::uint16_t>());
    case IMAGE_TYPE_UINT32:
      return body(TypeTag<std::uint32_t>());
    case IMAGE_TYPE_UINT64:
      return body(TypeTag<std::uint64_t>());
    case IMAGE_TYPE_FLOAT32:
      return body(TypeTag<float>());
    case IMAGE_TYPE_FLOAT64:
      return body(TypeTag<double>());
    default:
      return false;
  }
}

/// Calls `body(TypeTag<T>())` with the type of the pixels, RGB24 included; an invalid
/// type gives no call.
template <typename Body>
void dispatchPixelType(ImageType type, Body&& body) {
  switch (type) {
    case IMAGE_TYPE_INT8:
      return body(TypeTag<std::int8_t>());
    case IMAGE_TYPE_INT16:
      return body(TypeTag<std::int16_t>());
    case IMAGE_TYPE_INT32:
      return body(TypeTag<std::int32_t>());
    case IMAGE_TYPE_INT64:
      return body(TypeTag<std::int64_t>());
    case IMAGE_TYPE_RGB24:
      return body(TypeTag<PixelRGB>());
    default:
      dispatchMeasuredType(type, [&](auto tag) {
        body(tag);
        return true;
      });
  }
}

}  // namespace cmnalg
