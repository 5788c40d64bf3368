#include "planex/io/text_output.h"

#include <cstdio>

#include "planex/io/failure.h"

namespace planex::io {

TextOutput::TextOutput(const std::string& path, bool force) {
  if (!path.empty() && path != "-") file_ = std::make_unique<OutputFile>(path, force);
}

void TextOutput::write(std::string_view text) {
  if (file_ != nullptr) {
    file_->write(text);
  } else if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
    throw Failure("standard output", "cannot be written; check the space on the disk");
  }
}

void TextOutput::commit() {
  if (file_ != nullptr) file_->commit();
}

}  // namespace planex::io
