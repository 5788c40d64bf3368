#pragma once

#include <optional>
#include <string>

namespace base {

/// The text of a regular file, as far as its first NUL at least; nothing for a null path and what
/// cannot be read. Reading in pieces keeps a huge file of zeros from asking for huge memory.
std::optional<std::string> readTextFile(const char* path);

/// Writes a text under a hidden name beside `path`, then gives it that name, so that a reader sees
/// the old file or the whole new one. What stands at `path` must be a regular file, or nothing: a
/// link is not followed. @return false where that or the writing fails; the old file is untouched
/// then, and no other is left
bool replaceTextFile(const char* path, const std::string& text);

}  // namespace base
