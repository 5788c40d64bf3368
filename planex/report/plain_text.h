#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "planex/report/canvas.h"

namespace planex::report {

/// The text as one line of UTF-8 that only shows: bytes that are no UTF-8, control characters, line
/// ends and what changes the direction of a text become question marks, and only the first 256
/// bytes count. Names and units come from files and command lines and may hold anything.
std::string plainText(std::string_view text);

/// The same of as many as `most` bytes, with an ellipsis behind what was cut.
std::string plainLine(std::string_view text, std::size_t most = 2048);

/// The text, or its beginning and an ellipsis, in at most `width` pixels.
std::string fitted(std::string_view text, double width, const TextStyle& style = {});

/// The text in lines of at most `width` pixels, cut between words, but not before
/// a percent sign, and within those that are wider.
/// @param indent  pixels that the first line has less
std::vector<std::string> wrapped(std::string_view text, double width, const TextStyle& style = {},
                                 double indent = 0);

}  // namespace planex::report
