#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "planex/foundation/pixel_type.h"

namespace planex::io {

/// The heading of a binary portable greymap (P5), a text, which comments may interrupt.
struct PgmHeader {
  std::uint64_t width = 0;    ///< columns
  std::uint64_t height = 0;   ///< rows
  std::uint16_t maximum = 0;  ///< of the values
  std::size_t bytes = 0;      ///< of the heading; 0: it is not valid

  cmnalg::ImageType type() const {
    return maximum < 256 ? cmnalg::IMAGE_TYPE_UINT8 : cmnalg::IMAGE_TYPE_UINT16;
  }
};

/// What is said of a heading that is not valid.
constexpr char kBadPgmHeader[] =
    "has no valid PGM header; save it again as a binary PGM of 8 or 16 bits";

/// @param next gives the bytes, from the first on, and a negative number behind the last
PgmHeader readPgmHeader(const std::function<int()>& next);

/// Brings the values of a greymap into the order of the host: of two bytes the high one comes
/// first.
/// @return whether none is above the announced maximum
bool takePgmValues(const PgmHeader& header, std::size_t count, void* values);

}  // namespace planex::io
