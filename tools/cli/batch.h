#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace planex::tools {

/// Runs body(i) for every name, on up to `jobs` threads. A Failure of one stops no other: it is
/// told on standard error when it happens.
///
/// A Failure names those that failed at the end.
void forEachOf(const std::vector<std::string>& names, int jobs,
               const std::function<void(std::size_t i)>& body);

/// A text with the name of a file, without folders and ending, in place of every "{}".
std::string withStemOf(std::string text, const std::string& file);

}  // namespace planex::tools
