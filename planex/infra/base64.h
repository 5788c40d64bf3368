#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Bytes as text in the standard alphabet of RFC 4648, section 4, with padding.
namespace etl::base64 {

/// Appends the text of bytes that come in pieces.
class Encoder {
 public:
  explicit Encoder(std::string& text) : text_(text) {}

  void Append(const unsigned char* bytes, std::size_t size);
  /// Writes what is left, with padding; nothing may be appended after it.
  void Finish();

 private:
  std::string& text_;
  unsigned char rest_[3] = {};  // bytes that do not fill a group yet
  std::size_t restSize_ = 0;
};

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
