#include "planex/infra/text_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace base {
namespace {

namespace fs = std::filesystem;

/// Opens a file that did not exist, hidden beside `path` and named after it.
int createBeside(const fs::path& path, fs::path& name) {
  constexpr int kMostTries = 1000;
  for (int i = 0; i < kMostTries; ++i) {
    // Names may have 255 bytes, of which the ending takes some.
    name = path.parent_path() / ('.' + path.filename().string().substr(0, 200) + ".planex-" +
                                 std::to_string(::getpid()) + '-' + std::to_string(i));
    const int file = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file >= 0 || errno != EEXIST) return file;
  }
  return -1;
}

bool writeAll(int file, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t size = ::write(file, text.data() + done, text.size() - done);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return false;
    done += static_cast<std::size_t>(size);
  }
  return ::fsync(file) == 0;
}

}  // namespace

std::optional<std::string> readTextFile(const char* path) {
  std::error_code error;
  if (path == nullptr || !fs::is_regular_file(path, error)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  if (!file.is_open()) return std::nullopt;
  std::string text;
  std::string piece(65536, '\0');  // not on the stack, which may be as large
  do {
    file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    const auto size = static_cast<std::size_t>(file.gcount());
    text.append(piece, 0, size);
    if (std::memchr(piece.data(), '\0', size) != nullptr) return text;
  } while (file.good());
  if (file.bad()) return std::nullopt;
  return text;
}

bool replaceTextFile(const char* path, const std::string& text) {
  std::error_code error;
  const fs::file_type type = fs::symlink_status(path, error).type();
  if (type != fs::file_type::not_found && type != fs::file_type::regular) return false;
  fs::path name;
  const int file = createBeside(path, name);
  if (file < 0) return false;
  const bool written = writeAll(file, text);
  if (::close(file) == 0 && written && std::rename(name.c_str(), path) == 0) return true;
  ::unlink(name.c_str());
  return false;
}

}  // namespace base
