#pragma once

#include <string>
#include <string_view>

#include "planex/report/canvas.h"

namespace planex::report {

/// The text as one line of UTF-8 that only shows: bytes that are no UTF-8, control characters, line
/// ends and what changes the direction of a text become question marks, and only the first 256
/// bytes count. Names and units come from files and command lines and may hold anything.
std::string plainText(std::string_view text);

/// The text, or its beginning and an ellipsis, in at most `width` pixels.
std::string fitted(std::string_view text, double width, const TextStyle& style = {});

}  // namespace planex::report
