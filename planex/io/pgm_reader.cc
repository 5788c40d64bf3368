#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "planex/io/image_formats.h"
#include "planex/io/input_file.h"
#include "planex/io/pgm_header.h"

namespace planex::io {
namespace {

/// Binary portable greymap: a text header, then rows; numbers of two bytes have the high one first.
class PgmReader final : public ImageReader {
 public:
  explicit PgmReader(const std::string& path) : ImageReader(path), file_(path) {
    std::vector<unsigned char> bytes(std::min<std::uint64_t>(65536, file_.size()));
    bytes.resize(file_.readAt(0, bytes.data(), bytes.size()));
    auto byte = bytes.begin();
    header_ = readPgmHeader([&] { return byte == bytes.end() ? -1 : *byte++; });
    if (header_.bytes == 0) refuse(kBadPgmHeader);
    announce(header_.width, header_.height, header_.type());
    checkSize();
  }

 private:
  void checkSize() const {
    // Neither factor exceeds 31 bits.
    const std::uint64_t needed = shape().rowBytes() * static_cast<std::uint64_t>(shape().height);
    const std::uint64_t present = file_.size() - header_.bytes;
    if (present == needed) return;
    refuse("holds " + std::to_string(present) + " bytes of pixels where its header announces " +
           std::to_string(needed) + "; fetch it again from where it was made");
  }

  void readNextRow(void* row) override { readNextRows(1, row); }

  void readNextRows(int count, void* rows) override {
    const std::size_t bytes = shape().rowBytes();
    const std::uint64_t offset = header_.bytes + static_cast<std::uint64_t>(row_) * bytes;
    const std::size_t present =
        file_.readAt(offset, rows, static_cast<std::size_t>(count) * bytes) / bytes;
    for (int i = 0; i < count; ++i) {
      if (static_cast<std::size_t>(i) >= present) refuseRow(row_, "end of file");
      takeRow(static_cast<char*>(rows) + static_cast<std::size_t>(i) * bytes);
    }
  }

  /// Checks a row, and brings its values into the order of the host.
  void takeRow(void* row) {
    if (!takePgmValues(header_, static_cast<std::size_t>(shape().width), row)) {
      refuseRow(row_, "a value above the announced maximum");
    }
    ++row_;
  }

  void rewind() override { row_ = 0; }
  void skipRows(int count) override { row_ += count; }

  InputFile file_;
  PgmHeader header_;
  int row_ = 0;
};

}  // namespace

std::unique_ptr<ImageReader> openPgm(const std::string& path) {
  return std::make_unique<PgmReader>(path);
}

}  // namespace planex::io
