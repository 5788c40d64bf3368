#pragma once

#include <cstdint>
#include <string>

namespace planex::io {

/// A regular file that is read at any place.
///
/// Throws a Failure that names the file when it cannot be opened, is no regular file, or cannot be
/// read.
class InputFile {
 public:
  /// @param path "-" is standard input, which is copied to a temporary file where it is no file
  explicit InputFile(const std::string& path);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  std::uint64_t size() const { return size_; }
  int descriptor() const { return descriptor_; }

  /// Reads up to `count` bytes from `offset` on.
  /// @return how many there were before the end of the file
  std::size_t readAt(std::uint64_t offset, void* bytes, std::size_t count) const;

 private:
  std::string path_;
  int descriptor_ = -1;
  std::uint64_t size_ = 0;
};

}  // namespace planex::io
