#include "planex/io/scratch_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "planex/io/failure.h"

namespace planex::io {

ScratchFile::ScratchFile(const OutputFile& output) : output_(output) {
  const std::filesystem::path folder = std::filesystem::path(output.path()).parent_path();
  const int descriptor =
      open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (descriptor >= 0) {
    stream_ = fdopen(descriptor, "w+b");
    if (stream_ == nullptr) close(descriptor);
  } else {
    stream_ = std::tmpfile();  // file systems that do without: the folder of the system has names
  }
  require(stream_ != nullptr, "has no room for a file beside it");
}

ScratchFile::~ScratchFile() {
  if (stream_ != nullptr) std::fclose(stream_);
}

void ScratchFile::require(bool good, const char* what) const {
  if (good) return;
  throw Failure(output_.path(),
                std::string(what) + " (" + std::strerror(errno) + "); check the space on the disk");
}

void ScratchFile::write(const void* data, std::size_t size) {
  if (size == 0) return;  // of nothing there may be no address
  require(std::fwrite(data, 1, size, stream_) == size, "cannot be written");
}

void ScratchFile::rewind() {
  require(std::fflush(stream_) == 0 && fseeko(stream_, 0, SEEK_SET) == 0, "cannot be written");
}

void ScratchFile::read(void* data, std::size_t size) {
  if (size == 0) return;
  require(std::fread(data, 1, size, stream_) == size, "cannot be put together");
}

}  // namespace planex::io
