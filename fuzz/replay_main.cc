// Feeds stored inputs to a fuzz target that is built without a fuzzer. Arguments are files and
// folders of files.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "fuzz/harness.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesIn(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

void replay(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot open " + path.string());
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  // A copy without spare room, so that reading past the end is seen.
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

int run(int argc, char** argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const fs::path& path : filesIn(argv[i])) {
      std::fprintf(stderr, "%s\n", path.c_str());
      replay(path);
      ++count;
    }
  }
  std::printf("%zu inputs\n", count);
  return count > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
