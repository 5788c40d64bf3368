#include "planex/io/byte_stream.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "planex/io/failure.h"

namespace planex::io {
namespace {

constexpr std::size_t kBuffer = 65536;

}  // namespace

ByteStream::ByteStream(const std::string& path)
    : path_(path),
      file_(path == "-" ? nullptr : std::make_unique<InputFile>(path)),
      descriptor_(file_ == nullptr ? STDIN_FILENO : file_->descriptor()),
      buffer_(kBuffer) {
  struct stat status = {};
  isFile_ = ::fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
}

std::optional<std::uint64_t> ByteStream::left() const {
  struct stat status = {};
  if (!isFile_ || ::fstat(descriptor_, &status) != 0) return std::nullopt;
  const off_t position = ::lseek(descriptor_, 0, SEEK_CUR);
  return filled_ - position_ +
         static_cast<std::uint64_t>(std::max(status.st_size - position, off_t{0}));
}

bool ByteStream::isReady() const {
  struct pollfd ready = {descriptor_, POLLIN, 0};
  return position_ < filled_ || ::poll(&ready, 1, 0) > 0;
}

int ByteStream::next() { return isAtEnd() ? -1 : static_cast<unsigned char>(buffer_[position_++]); }

bool ByteStream::isAtEnd() {
  if (position_ == filled_) {
    position_ = 0;
    filled_ = 0;
    filled_ = readSome(buffer_.data(), buffer_.size());
  }
  return filled_ == 0;
}

std::size_t ByteStream::read(void* bytes, std::size_t count) {
  char* const out = static_cast<char*>(bytes);
  std::size_t done = 0;
  while (done < count) {
    std::size_t got = 0;
    if (position_ == filled_ && count - done >= buffer_.size()) {
      got = readSome(out + done, count - done);
    } else if (!isAtEnd()) {
      got = std::min(count - done, filled_ - position_);
      std::memcpy(out + done, buffer_.data() + position_, got);
      position_ += got;
    }
    if (got == 0) break;
    done += got;
  }
  return done;
}

std::uint64_t ByteStream::skip(std::uint64_t count) {
  if (const auto left = this->left()) {
    const std::uint64_t most = std::min(count, *left);
    const std::uint64_t held = std::min<std::uint64_t>(most, filled_ - position_);
    position_ += held;
    ::lseek(descriptor_, static_cast<off_t>(most - held), SEEK_CUR);
    return most;
  }
  std::uint64_t done = 0;
  while (done < count && !isAtEnd()) {
    const std::uint64_t held = std::min<std::uint64_t>(count - done, filled_ - position_);
    position_ += held;
    done += held;
  }
  return done;
}

std::size_t ByteStream::readSome(void* bytes, std::size_t count) const {
  for (;;) {
    const ssize_t got = ::read(descriptor_, bytes, count);
    if (got >= 0) return static_cast<std::size_t>(got);
    if (errno == EINTR) continue;
    throw Failure(path_, std::string("cannot be read (") + std::strerror(errno) +
                             "); check where it comes from");
  }
}

}  // namespace planex::io
