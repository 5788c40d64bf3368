#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/property.h"

namespace test {

using Input = std::vector<std::uint8_t>;

/// The inputs that are stored for a property, the same order everywhere.
inline std::vector<Input> storedInputs(const Property& property) {
  std::vector<std::filesystem::path> files;
  const std::string folder = std::string(PLANEX_FUZZ_CORPUS "/") + property.name;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  std::vector<Input> inputs;
  for (const auto& path : files) {
    std::ifstream file(path, std::ios::binary);
    inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return inputs;
}

inline void run(const Property& property, const Input& input) {
  ByteSource source(input.data(), input.size());
  property.check(source);
}

}  // namespace test
