#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Bytes as text in the standard alphabet of RFC 4648, section 4, with padding.
namespace etl::base64 {

/// @return the characters that `size` bytes take, a multiple of four
constexpr std::size_t encodedSize(std::size_t size) { return (size / 3 + (size % 3 != 0)) * 4; }

/// Appends the text of `size` bytes. Texts of pieces may be joined when all pieces but the last
/// have a multiple of three bytes.
void appendEncoded(const unsigned char* bytes, std::size_t size, std::string& text);

/// Length of what `text` stands for, from its length and padding alone.
///
/// @return false when no base64 text has that length
bool decodedSize(std::string_view text, std::size_t& size);

/// Writes the bytes that `text` stands for, decodedSize of them.
///
/// @return false for a text of wrong length, a character outside the alphabet (white space
///         included), padding elsewhere than at the end, or unused bits that are not zero; the
///         bytes then have any value
bool decode(std::string_view text, unsigned char* bytes);

}  // namespace etl::base64
