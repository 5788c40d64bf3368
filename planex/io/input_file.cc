#include "planex/io/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "planex/io/failure.h"

namespace planex::io {

namespace {

/// A descriptor of standard input that can be read at any place: its own where it is a file from
/// its start on, or a copy of it in a file without a name. Closed when the process ends.
class StandardInput {
 public:
  StandardInput() {
    try {
      open();
    } catch (...) {  // what was read is gone: a second attempt would begin in the middle
      failure_ = std::current_exception();
    }
  }

  int descriptor() const {
    if (failure_ != nullptr) std::rethrow_exception(failure_);
    return descriptor_;
  }

 private:
  void open() {
    struct stat status = {};
    if (::fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode) &&
        ::lseek(STDIN_FILENO, 0, SEEK_CUR) == 0) {
      return;
    }
    const char* const folder = std::getenv("TMPDIR");
    descriptor_ = ::open(folder != nullptr && *folder != 0 ? folder : "/tmp",
                         O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor_ < 0) keep(std::tmpfile());  // file systems that do without
    require(descriptor_ >= 0);
    copy();
  }

  static void require(bool good) {
    if (good) return;
    throw Failure("-", std::string("cannot be copied to a temporary file (") +
                           std::strerror(errno) + "); check the space in the folder TMPDIR");
  }

  void keep(std::FILE* file) {
    require(file != nullptr);
    descriptor_ = ::fcntl(::fileno(file), F_DUPFD_CLOEXEC, 0);
    std::fclose(file);
  }

  void copy() const {
    std::vector<char> piece(1 << 20);
    for (;;) {
      const ssize_t got = ::read(STDIN_FILENO, piece.data(), piece.size());
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) {
        throw Failure("-", std::string("cannot be read (") + std::strerror(errno) + ")");
      }
      if (got == 0) return;
      const bool isFirst = ::lseek(descriptor_, 0, SEEK_CUR) == 0;
      for (ssize_t done = 0; done < got;) {
        const ssize_t put =
            ::write(descriptor_, piece.data() + done, static_cast<std::size_t>(got - done));
        require(put >= 0 || errno == EINTR);
        if (put > 0) done += put;
      }
      // What is no image may never end; its begin is enough to refuse it.
      if (isFirst && !looksLikeImage({piece.data(), static_cast<std::size_t>(got)})) return;
    }
  }

  static bool looksLikeImage(std::string_view begin) {
    constexpr std::string_view kBegins[] = {"\x89PNG", "II", "MM", "P5", "\x93NUMPY"};
    return std::any_of(std::begin(kBegins), std::end(kBegins), [&](std::string_view known) {
      const std::size_t size = std::min(begin.size(), known.size());  // a pipe may give one byte
      return begin.substr(0, size) == known.substr(0, size);
    });
  }

  int descriptor_ = STDIN_FILENO;
  std::exception_ptr failure_;
};

/// One for all who read it.
int openFile(const std::string& path) {
  if (path == "-") {
    static const StandardInput input;
    return ::fcntl(input.descriptor(), F_DUPFD_CLOEXEC, 0);
  }
  // A pipe without a writer must not be waited for: it is refused below.
  return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

}  // namespace

InputFile::InputFile(const std::string& path)
    : path_(Failure::nameOf(path)), descriptor_(openFile(path)) {
  if (descriptor_ < 0) {
    throw Failure(path_ + ": cannot be opened (" + std::strerror(errno) +
                  "); check the name and the permissions");
  }
  struct stat status = {};
  if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(descriptor_);
    throw Failure(path_ + ": is not a regular file; give the name of a file on disk");
  }
  size_ = static_cast<std::uint64_t>(status.st_size);
}

InputFile::~InputFile() { ::close(descriptor_); }

std::size_t InputFile::readAt(std::uint64_t offset, void* bytes, std::size_t count) const {
  std::size_t done = 0;
  while (done < count && offset + done < size_) {
    const ssize_t got = ::pread(descriptor_, static_cast<char*>(bytes) + done, count - done,
                                static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      throw Failure(path_ + ": cannot be read (" + std::strerror(errno) + "); check the disk");
    }
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

}  // namespace planex::io
