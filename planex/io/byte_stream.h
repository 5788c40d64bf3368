#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "planex/io/input_file.h"

namespace planex::io {

/// The bytes of a file, or of standard input as they come, once from the first to the last.
///
/// Throws a Failure that names the file when it cannot be opened or read, or is, unlike standard
/// input, no regular file.
class ByteStream {
 public:
  explicit ByteStream(const std::string& path);

  /// How many bytes there are to the end, where that is a file's.
  std::optional<std::uint64_t> left() const;
  /// Whether read() would not wait for the next byte.
  bool isReady() const;
  /// The next byte, or -1 at the end.
  int next();
  /// Whether there is no next byte.
  bool isAtEnd();
  /// Reads up to `count` bytes. @return how many there were before the end
  std::size_t read(void* bytes, std::size_t count);
  /// Passes over up to `count` bytes. @return how many there were before the end
  std::uint64_t skip(std::uint64_t count);

 private:
  std::size_t readSome(void* bytes, std::size_t count) const;

  const std::string path_;
  std::unique_ptr<InputFile> file_;  // none where it is standard input
  int descriptor_;
  bool isFile_;
  std::vector<char> buffer_;
  std::size_t position_ = 0, filled_ = 0;
};

}  // namespace planex::io
