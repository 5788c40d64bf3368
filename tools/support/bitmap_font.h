#pragma once

#include <array>
#include <cstdint>

namespace planex::tools {

/// One letter of 5 x 7 dots: a number per row from the top, its bit 16 the leftmost dot.
using Glyph = std::array<std::uint8_t, 7>;

/// @return the letter of a printable ASCII character or of the micro sign (U+00B5); a box for any
///         other
const Glyph& glyphOf(char32_t character);

}  // namespace planex::tools
