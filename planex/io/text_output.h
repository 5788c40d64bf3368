#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "planex/infra/export.h"
#include "planex/io/output_file.h"

namespace planex::io {

/// Standard output, or a file that appears when all of it was written.
class PLANEX_EXPORT TextOutput {
 public:
  /// @param path  "" and "-": standard output
  TextOutput(const std::string& path, bool force);
  /// Appends a text; a Failure where it does not arrive.
  void write(std::string_view text);
  /// How many bytes were written to the file.
  std::int64_t size() const { return file_ == nullptr ? 0 : file_->size(); }
  /// Gives the file its name.
  void commit();

 private:
  std::unique_ptr<OutputFile> file_;
};

}  // namespace planex::io
