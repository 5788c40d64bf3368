#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "planex/infra/export.h"

namespace planex::io {

/// What a file is known again by.
struct FileIdentity {
  std::uint64_t bytes = 0;  ///< its size
  std::string sha256;       ///< of what it holds, in hexadecimal digits
};

/// Reads a whole file; a Failure for one that is no regular file or cannot be read.
PLANEX_EXPORT FileIdentity identityOf(const std::string& path);

/// The SHA-256 of a text in hexadecimal digits.
std::string sha256Of(std::string_view text);

}  // namespace planex::io
