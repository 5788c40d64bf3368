#include "planex/io/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <new>
#include <random>
#include <system_error>

#include "planex/io/failure.h"

namespace planex::io {
namespace {

/// Names that a signal handler may read at any time: `named` is set after and cleared before a
/// change of `name`.
struct UnfinishedFile {
  std::atomic<bool> named{false};
  std::array<char, PATH_MAX> name{};
  bool used = false;
  std::string target;  // the name that it is to have
};
std::array<UnfinishedFile, 16> unfinishedFiles;
std::mutex placesLock;  // guards what signal handlers do not read: `used` and `target`

static_assert(std::atomic<bool>::is_always_lock_free, "read in signal handlers");

/// While it lives no signal comes between the naming of a file and its remembering.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t before_;
};

void rememberName(int place, const std::string& name) {
  if (place < 0) return;
  UnfinishedFile& file = unfinishedFiles[static_cast<std::size_t>(place)];
  if (name.size() >= file.name.size()) return;
  std::memcpy(file.name.data(), name.c_str(), name.size() + 1);
  file.named = true;
}

void forgetName(int place) {
  if (place >= 0) unfinishedFiles[static_cast<std::size_t>(place)].named = false;
}

extern "C" void removeUnfinishedFiles() {
  for (const UnfinishedFile& file : unfinishedFiles) {
    if (file.named) unlink(file.name.data());
  }
}

extern "C" void removeUnfinishedFilesOn(int signal) {
  removeUnfinishedFiles();
  std::signal(signal, SIG_DFL);
  raise(signal);
}

namespace fs = std::filesystem;

fs::path folderOf(const fs::path& file) {
  return file.has_parent_path() ? file.parent_path() : ".";
}

[[noreturn]] void refuseToCreate(const std::string& path, int error) {
  throw Failure(path, std::string("cannot be created (") + std::strerror(error) +
                          "); check the folder and its permissions");
}

/// Whether `path` may become the name of a file: it is free, or force replaces what has it.
void requireReplaceable(const std::string& path, bool force) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return;
    refuseToCreate(path, errno);
  }
  if (!force) {
    throw Failure(path, S_ISLNK(status.st_mode)
                            ? "is a symbolic link; choose another name or replace it, not the file "
                              "behind it, with --force"
                            : "exists; choose another name or overwrite it with --force");
  }
  if (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) return;
  throw Failure(path, "is not a regular file; choose another name");
}

/// Whether an unfinished file is to have that name.
bool isBeingWritten(const std::string& target) {
  return std::any_of(unfinishedFiles.begin(), unfinishedFiles.end(), [&](const auto& file) {
    std::error_code error;
    return file.used && fs::path(file.target).filename() == fs::path(target).filename() &&
           fs::equivalent(folderOf(file.target), folderOf(target), error);
  });
}

/// @return a free place in the list, or -1. A Failure for a name that another file is to have
int placeFor(std::string target) {
  const std::lock_guard<std::mutex> lock(placesLock);
  if (isBeingWritten(target)) {
    throw Failure(target, "is the name of two outputs; give each its own");
  }
  for (std::size_t i = 0; i < unfinishedFiles.size(); ++i) {
    UnfinishedFile& file = unfinishedFiles[i];
    if (file.used) continue;
    file.target.swap(target);
    file.used = true;
    return static_cast<int>(i);
  }
  return -1;
}

void leavePlace(int place) {
  if (place < 0) return;
  const std::lock_guard<std::mutex> lock(placesLock);
  unfinishedFiles[static_cast<std::size_t>(place)].used = false;
}

/// A hidden name beside `path` that says whose it is, for mkstemp; a long one is cut between
/// letters.
std::string temporaryNameOf(const std::string& path) {
  static constexpr char kEnding[] = ".planex-XXXXXX";
  const std::size_t begin = path.rfind('/') + 1;
  std::size_t size = std::min(path.size() - begin, NAME_MAX - sizeof kEnding);
  while (size > 0 && begin + size < path.size() && (path[begin + size] & 0xC0) == 0x80) --size;
  return path.substr(0, begin) + "." + path.substr(begin, size) + kEnding;
}

constexpr int kNameAttempts = 100;

/// Other letters for the X of a temporary name.
void drawEnding(std::string& name) {
  static constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  for (std::size_t i = name.size() - 6; i < name.size(); ++i) {
    name[i] = kLetters[random() % (sizeof kLetters - 1)];
  }
}

std::string pathOf(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

/// A file without a name, which nothing leaves behind; -1 where the file system has none, or there
/// is no /proc to name it by.
int openUnnamed(const std::string& path) {
  const int descriptor =
      ::open(folderOf(path).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (descriptor < 0 || access(pathOf(descriptor).c_str(), F_OK) == 0) return descriptor;
  ::close(descriptor);
  return -1;
}

/// The mask of the process. To ask for it by umask() would change it for all threads a moment.
mode_t currentMask() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, 6, "Umask:") != 0) continue;
    return static_cast<mode_t>(std::strtoul(line.c_str() + 6, nullptr, 8));
  }
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

/// Both kinds are made as files that only their owner may read. The permissions of a file that is
/// replaced go on only where they mean the same people; bits beyond permissions, as set-user-ID,
/// never do.
void givePermissions(int descriptor, const std::string& target) {
  struct stat own, old;
  mode_t mode = 0;
  if (lstat(target.c_str(), &old) == 0 && S_ISREG(old.st_mode) && fstat(descriptor, &own) == 0 &&
      own.st_uid == old.st_uid && own.st_gid == old.st_gid) {
    mode = old.st_mode & 0777;
  } else {
    mode = 0666 & ~currentMask();
  }
  fchmod(descriptor, mode);
}

std::string reason() { return std::strerror(errno); }

}  // namespace

OutputFile::OutputFile(const std::string& path, bool force) : path_(path), force_(force) {
  requireReplaceable(path_, force);
  place_ = placeFor(path_);
  try {
    open();
  } catch (...) {
    discard();
    throw;
  }
}

void OutputFile::open() {
  int descriptor = openUnnamed(path_);
  if (descriptor >= 0) {
    writingPath_ = pathOf(descriptor);
  } else {
    descriptor = makeNamed();
    writingPath_ = temporary_;
  }
  givePermissions(descriptor, path_);
  stream_ = fdopen(descriptor, "w+b");
  if (stream_ != nullptr) return;
  ::close(descriptor);
  throw std::bad_alloc();
}

int OutputFile::makeNamed() {
  std::string name = temporaryNameOf(path_);
  const BlockedSignals blocked;
  const int descriptor = mkstemp(name.data());
  if (descriptor < 0) refuseToCreate(path_, errno);
  temporary_.swap(name);
  rememberName(place_, temporary_);
  return descriptor;
}

OutputFile::~OutputFile() { discard(); }

void OutputFile::discard() {
  if (stream_ != nullptr) std::fclose(stream_);
  if (descriptor_ >= 0) ::close(descriptor_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
  forgetName(place_);
  leavePlace(place_);
}

void OutputFile::write(const void* data, std::size_t size) {
  if (size > 0 && std::fwrite(data, 1, size, stream_) != size) {
    throw Failure(path_, "cannot be written (" + reason() + "); check the space on the disk");
  }
}

void OutputFile::overwrite(std::int64_t offset, const void* data, std::size_t size) {
  const bool found = fseeko(stream_, offset, SEEK_SET) == 0;
  if (found) write(data, size);
  if (!found || fseeko(stream_, 0, SEEK_END) != 0) {
    throw Failure(path_, "cannot be written (" + reason() + "); check the space on the disk");
  }
}

std::int64_t OutputFile::size() const {
  struct stat status;
  if (std::fflush(stream_) == 0 && fstat(fileno(stream_), &status) == 0) return status.st_size;
  throw Failure(path_, "cannot be written (" + reason() + "); check the space on the disk");
}

void OutputFile::close() {
  // A file without a name lives as long as a descriptor of it.
  if (temporary_.empty()) descriptor_ = fcntl(fileno(stream_), F_DUPFD_CLOEXEC, 0);
  const bool kept = !temporary_.empty() || descriptor_ >= 0;
  std::FILE* stream = stream_;
  stream_ = nullptr;
  const bool good = kept && std::ferror(stream) == 0;
  const std::string failed = reason();
  if (std::fclose(stream) != 0 || !good) {
    throw Failure(path_, "cannot be written (" + (good ? reason() : failed) +
                             "); check the space on the disk");
  }
}

/// Gives a file without a name its own, or where that is taken and may be replaced, a hidden one.
bool OutputFile::link() {
  const std::string from = pathOf(descriptor_);
  const auto linkTo = [&](const std::string& name) {
    return linkat(AT_FDCWD, from.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
  };
  if (linkTo(path_)) return true;
  if (errno != EEXIST || !force_) return false;
  std::string name = temporaryNameOf(path_);
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    drawEnding(name);
    const BlockedSignals blocked;
    if (linkTo(name)) {
      temporary_.swap(name);
      rememberName(place_, temporary_);
      return true;
    }
    if (errno != EEXIST) return false;
  }
  return false;
}

/// Without force the name must still be free; file systems that cannot promise it are asked first.
bool OutputFile::rename() {
  if (renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(),
                force_ ? 0U : static_cast<unsigned>(RENAME_NOREPLACE)) != 0) {
    if (errno != EINVAL || access(path_.c_str(), F_OK) == 0) return false;
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) return false;
  }
  forgetName(place_);
  temporary_.clear();
  return true;
}

void OutputFile::commit() {
  close();
  const bool named = (descriptor_ < 0 || link()) && (temporary_.empty() || rename());
  if (!named) {
    throw Failure(path_, "cannot be given its name (" + reason() +
                             "); choose another name or overwrite it with --force");
  }
}

void requireNoInput(const std::string& output, const std::vector<std::string>& inputs) {
  struct stat out, in;
  const bool printed = output == "-";
  const int none = printed ? fstat(STDOUT_FILENO, &out) : stat(output.c_str(), &out);
  if (none != 0 || !S_ISREG(out.st_mode)) return;
  for (const std::string& input : inputs) {
    const int failed = input == "-" ? fstat(STDIN_FILENO, &in) : stat(input.c_str(), &in);
    if (failed == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino) {
      throw Failure((printed ? "standard output" : output) + ": is " + Failure::nameOf(input) +
                    ", an input; choose another name");
    }
  }
}

void removeUnfinishedFilesOnSignals() {
  std::atexit(removeUnfinishedFiles);
  std::signal(SIGXFSZ, SIG_IGN);
  for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGPIPE}) {
    struct sigaction action = {};
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = removeUnfinishedFilesOn;
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace planex::io
