#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "planex/infra/byte_order.h"
#include "planex/io/image_formats.h"
#include "planex/io/input_file.h"
#include "planex/io/npy_header.h"

namespace planex::io {
namespace {

/// A NumPy array of two axes, rows and columns, or of three whose last one is layers.
class NpyReader final : public ImageReader {
 public:
  NpyReader(const std::string& path, Samples samples, std::size_t layer)
      : ImageReader(path), layer_(layer), file_(path), header_(readNpyHeader(file_, path)) {
    const cmnalg::ImageType type = typeOf(samples);
    const std::vector<std::uint64_t>& shape = header_.shape;
    if (!header_.isRowMajor) {
      refuse("has its columns one behind the other (Fortran order); save it in C order");
    }
    if (shape.size() != 2 && !(shape.size() == 3 && samples == Samples::kHeights)) {
      refuse("has " + std::to_string(shape.size()) + " axes; save an array of rows x columns");
    }
    announce(shape[1], shape[0], type);
    if (shape.size() == 3) layers_ = shape[2];
    if (layers_ < 1 || storedRowBytes() > kMaximumRow) {
      refuse("has " + std::to_string(layers_) + " layers, none or too many; save fewer");
    }
    if (layer_ >= layers_) refuse("has no layer " + std::to_string(layer_) + "; name another one");
    // Less than 2^31 rows of at most 2^27 bytes.
    const auto rows = static_cast<std::uint64_t>(this->shape().height);
    requireNpyBytes(file_, path, header_, storedRowBytes() * rows);
  }

 private:
  static constexpr std::size_t kMaximumRow = std::size_t{128} << 20;  // bytes of all layers

  cmnalg::ImageType typeOf(Samples samples) const {
    const std::string& kind = header_.type;
    if (kind == "u1") return cmnalg::IMAGE_TYPE_UINT8;
    if (kind == "u2") return cmnalg::IMAGE_TYPE_UINT16;
    if (kind == "u4" && samples == Samples::kRanges) return cmnalg::IMAGE_TYPE_UINT32;
    if (kind == "f4" && samples != Samples::kIntensities) return cmnalg::IMAGE_TYPE_FLOAT32;
    refuse("has values of type '" + header_.typeName.substr(0, 8) +
           "'; convert it to 8 or 16 bits without sign (u1, u2)");
  }

  std::size_t storedRowBytes() const { return layers_ * shape().rowBytes(); }

  void readNextRow(void* row) override { readNextRows(1, row); }

  void readNextRows(int count, void* rows) override {
    if (layers_ == 1) {
      readStored(row_, count, rows);
    } else {
      stored_.resize(storedRowBytes());
      for (int i = 0; i < count; ++i) {
        readStored(row_ + i, 1, stored_.data());
        takeLayer(static_cast<char*>(rows) + static_cast<std::size_t>(i) * shape().rowBytes());
      }
    }
    row_ += count;
    if (header_.isSwapped) swap(static_cast<char*>(rows), static_cast<std::size_t>(count));
  }

  void readStored(int first, int count, void* rows) const {
    const std::size_t bytes = storedRowBytes();
    const std::size_t wanted = static_cast<std::size_t>(count) * bytes;
    const std::size_t got =
        file_.readAt(header_.begin + static_cast<std::uint64_t>(first) * bytes, rows, wanted);
    if (got != wanted) refuseRow(first + static_cast<std::int64_t>(got / bytes), "end of file");
  }

  void takeLayer(char* row) const {
    const std::size_t bytes = cmnalg::bytesPerPixel(shape().type);
    for (std::size_t i = 0; i < static_cast<std::size_t>(shape().width); ++i) {
      std::memcpy(row + i * bytes, stored_.data() + (i * layers_ + layer_) * bytes, bytes);
    }
  }

  /// Brings values into the order of the host.
  void swap(char* rows, std::size_t count) const {
    const std::size_t bytes = cmnalg::bytesPerPixel(shape().type);
    base::reverseBytes(rows, count * static_cast<std::size_t>(shape().width), bytes);
  }

  void rewind() override { row_ = 0; }
  void skipRows(int count) override { row_ += count; }

  const std::size_t layer_;  // that is read
  InputFile file_;
  NpyHeader header_;
  std::uint64_t layers_ = 1;
  std::vector<char> stored_;  // a row of several layers
  int row_ = 0;
};

}  // namespace

std::unique_ptr<ImageReader> openNpy(const std::string& path, Samples samples, std::size_t layer) {
  return std::make_unique<NpyReader>(path, samples, layer);
}

}  // namespace planex::io
