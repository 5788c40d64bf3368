#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "planex/io/input_file.h"

namespace planex::io {

/// What the header of an NPY file announces. Nothing in it is trusted, and no size checked.
struct NpyHeader {
  std::string typeName;              ///< as it stands: "<f4"
  std::string type;                  ///< without the byte order; empty if there are no two letters
  bool isSwapped = false;            ///< in the other byte order
  bool isRowMajor = false;           ///< the last axis runs fastest
  std::vector<std::uint64_t> shape;  ///< below 2^32 each; none where it is written wrongly
  std::uint64_t begin = 0;           ///< the byte at which values begin
};

/// A Failure names `path` where the file begins with no valid header.
NpyHeader readNpyHeader(const InputFile& file, const std::string& path);

/// Refuses a file that has not just as many bytes of values.
void requireNpyBytes(const InputFile& file, const std::string& path, const NpyHeader& header,
                     std::uint64_t needed);

}  // namespace planex::io
