#pragma once

#include <string>

namespace planex::estimation {

/// What printf writes, at most 499 characters, with a decimal point whatever the locale is.
__attribute__((format(printf, 1, 2))) std::string plainFormat(const char* pattern, ...);

}  // namespace planex::estimation
