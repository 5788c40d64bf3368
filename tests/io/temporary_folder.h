#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace test {

/// A folder for the files of a test.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = ::testing::TempDir() + "planexXXXXXX";
    if (mkdtemp(name.data()) == nullptr) std::abort();
    path_ = name + "/";
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string Path(const std::string& name) const { return path_ + name; }

  /// Makes a file, and the folder that its name begins with. @return its path
  std::string Write(const std::string& name, const std::string& bytes) const {
    std::filesystem::create_directories(std::filesystem::path(Path(name)).parent_path());
    std::ofstream(Path(name), std::ios::binary) << bytes;
    return Path(name);
  }

  std::string Read(const std::string& name) const {
    std::ifstream file(Path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::string path_;
};

}  // namespace test
