#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "planex/infra/export.h"

namespace planex::io {

/// A file that appears under its name when it is complete, and not before.
///
///     OutputFile file("height.png", context.force);
///     file.write(bytes, size);          // or writers that take stream() or temporaryPath()
///     file.commit();
///
/// The bytes go to a file without a name, so that nothing is left of it however the program ends.
/// commit() gives it its name in one step. To replace a file it needs a hidden name in the same
/// folder first, .height.png.planex-XXXXXX, for a moment; on file systems without such files it has
/// that name from the start, and the destructor and the signals that end a program remove it. Every
/// failure is a Failure with the name of the file. Threads may write files of their own.
class PLANEX_EXPORT OutputFile {
 public:
  /// @param path  a name that no file has, unless `force` is set, which replaces a regular file, or
  ///              a symbolic link and not what is behind it; what else exists (folders, devices) is
  ///              refused, and a file that another OutputFile writes. The permissions of a replaced
  ///              file are kept where it had the owner and group that the new one has
  OutputFile(const std::string& path, bool force);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// The name that the file is to have, as it was given.
  const std::string& path() const { return path_; }
  /// A path by which this process may open it until commit().
  const std::string& temporaryPath() const { return writingPath_; }
  /// Where to write, binary, positioned at the start; readable too. Closed by commit().
  std::FILE* stream() const { return stream_; }

  /// @{
  /// Appends bytes at the position of the stream.
  void write(const void* data, std::size_t size);
  void write(std::string_view text) { write(text.data(), text.size()); }
  /// @}

  /// Writes over bytes from `offset` on, which are there, and goes back to the end.
  void overwrite(std::int64_t offset, const void* data, std::size_t size);

  /// How many bytes were written. Not after commit().
  std::int64_t size() const;

  /// Flushes, closes and names. Refuses a name that was taken meanwhile, unless forced.
  void commit();

 private:
  void open();
  int makeNamed();
  void close();
  bool link();
  bool rename();
  void discard();

  std::string path_;
  std::string temporary_;  // hidden; empty while the file has no name
  std::string writingPath_;
  std::FILE* stream_ = nullptr;
  int descriptor_ = -1;  // of a file without a name, once the stream is closed
  int place_ = -1;       // in the list of files that a signal removes
  bool force_;
};

/// A Failure where the name of an output leads, also through links, to one of the inputs. "-" is
/// standard output or input; inputs that do not exist are no matter.
PLANEX_EXPORT void requireNoInput(const std::string& output,
                                  const std::vector<std::string>& inputs);

/// Has SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGPIPE and exit() remove the unfinished files before they
/// end the process, and files that pass a limit fail as on a full disk. Called once, before the
/// first OutputFile.
PLANEX_EXPORT void removeUnfinishedFilesOnSignals();

}  // namespace planex::io
