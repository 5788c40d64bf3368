#pragma once

#include <string>
#include <string_view>

namespace planex_tools {

/// The text with a question mark for every byte that is not part of a well-formed UTF-8 sequence
/// (Unicode, table 3-7). Names of files are any bytes; JSON and XML are UTF-8.
std::string asUtf8(std::string_view text);

}  // namespace planex_tools
