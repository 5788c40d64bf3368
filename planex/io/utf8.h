#pragma once

#include <string>
#include <string_view>

#include "planex/infra/export.h"

namespace planex::io {

/// The text with a question mark for every byte that is not part of a well-formed UTF-8 sequence
/// (Unicode, table 3-7). Names of files are any bytes; JSON and XML are UTF-8.
PLANEX_EXPORT std::string asUtf8(std::string_view text);

/// The same without loss: "\xE4" for such a byte, and "\\" for a backslash.
PLANEX_EXPORT std::string escapedUtf8(std::string_view text);

/// The bytes that escapedUtf8() was given. Other texts give bytes, too.
PLANEX_EXPORT std::string unescapedUtf8(std::string_view text);

}  // namespace planex::io
