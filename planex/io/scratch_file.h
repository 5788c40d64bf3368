#pragma once

#include <cstddef>
#include <cstdio>

#include "planex/io/output_file.h"

namespace planex::io {

/// A file without a name that vanishes with the object, in the folder of an output: what is to go
/// into that has room there. Failures name the output.
class ScratchFile {
 public:
  /// @param output outlives the object
  explicit ScratchFile(const OutputFile& output);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  void write(const void* data, std::size_t size);
  /// Goes back to the start, to read.
  void rewind();
  void read(void* data, std::size_t size);

 private:
  void require(bool good, const char* what) const;

  const OutputFile& output_;
  std::FILE* stream_ = nullptr;
};

}  // namespace planex::io
