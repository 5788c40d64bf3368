// Every property with the stored inputs and with inputs from fixed seeds, for each instruction set
// that the processor has and with one thread or three.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/instruction_sets.h"
#include "tests/support/stored_inputs.h"

namespace test {
namespace {

constexpr unsigned kSeeds = 1000;

/// Random bytes, or a stored input with a few bytes changed and its end cut or doubled.
Input randomInput(unsigned seed, const std::vector<Input>& stored) {
  std::mt19937 random(seed);
  Input input;
  if (seed % 2 == 0 || stored.empty()) {
    input.resize(1 + random() % 1024);
    for (auto& byte : input) byte = static_cast<std::uint8_t>(random());
    return input;
  }
  input = stored[random() % stored.size()];
  if (input.empty()) return input;
  for (unsigned changes = random() % 4; changes > 0; --changes) {
    input[random() % input.size()] = static_cast<std::uint8_t>(random());
  }
  if (random() % 4 == 0) input.resize(1 + random() % input.size());
  if (random() % 4 == 0) input.insert(input.end(), input.begin(), input.end());
  return input;
}

class Properties : public ::testing::TestWithParam<Property> {};

TEST_P(Properties, Hold) {
  const std::vector<Input> stored = storedInputs(GetParam());
  EXPECT_FALSE(stored.empty());
  forEachInstructionSet([&](auto) {
    for (const int threads : {1, 3}) {
      useThreads(threads);
      for (const Input& input : stored) run(GetParam(), input);
    }
    for (unsigned seed = 0; seed < kSeeds; ++seed) {
      useThreads(seed % 3 == 0 ? 3 : 1);
      run(GetParam(), randomInput(seed, stored));
    }
  });
}

INSTANTIATE_TEST_SUITE_P(, Properties, ::testing::ValuesIn(properties()),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace test
