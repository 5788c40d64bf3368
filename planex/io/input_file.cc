#include "planex/io/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "planex/io/failure.h"

namespace planex::io {

InputFile::InputFile(const std::string& path) : path_(path) {
  // A pipe without a writer must not be waited for: it is refused below.
  descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor_ < 0) {
    throw Failure(path + ": cannot be opened (" + std::strerror(errno) +
                  "); check the name and the permissions");
  }
  struct stat status = {};
  if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(descriptor_);
    throw Failure(path + ": is not a regular file; give the name of a file on disk");
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
