#pragma once

#include <string>
#include <string_view>

namespace planex::report {

/// Bytes as text in the alphabet of RFC 4648, section 4, with padding.
std::string base64(std::string_view bytes);

}  // namespace planex::report
