#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/property.h"

namespace test {

using Input = std::vector<std::uint8_t>;

/// An input from its line of text, where \xNN is a byte.
inline Input inputOf(const std::string& line) {
  Input input;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const bool isCode = line[i] == '\\';
    input.push_back(static_cast<std::uint8_t>(isCode ? std::stoi(line.substr(i + 2, 2), nullptr, 16)
                                                     : line[i]));
    if (isCode) i += 3;
  }
  return input;
}

/// The inputs that are stored for a property, see fuzz/stored_inputs.py.
inline std::vector<Input> storedInputs(const Property& property) {
  std::ifstream file(std::string(PLANEX_FUZZ_CORPUS "/") + property.name + ".txt");
  std::vector<Input> inputs;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("# ", 0) != 0) inputs.push_back(inputOf(line));
  }
  return inputs;
}

inline void run(const Property& property, const Input& input) {
  ByteSource source(input.data(), input.size());
  property.check(source);
}

}  // namespace test
