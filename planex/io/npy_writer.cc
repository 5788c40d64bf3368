#include <fmt/format.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "planex/infra/byte_order.h"
#include "planex/io/raster_formats.h"

namespace planex::io {
namespace {

const char* typeOf(SampleType sample) {
  return sample == SampleType::kUint8 ? "|u1" : sample == SampleType::kUint16 ? "<u2" : "<f4";
}

/// The samples of a cell lie together.
class NpyWriter final : public RasterWriter {
 public:
  NpyWriter(OutputFile& file, const RasterDescription& raster)
      : file_(file), raster_(raster), rows_(file) {
    file.write(header(raster.height));
  }

  void writeRows(int count, const std::vector<const void*>& layers) override {
    rows_.add(count);
    const std::size_t bytes = bytesOf(raster_.sample);
    const std::size_t cells = static_cast<std::size_t>(count) * raster_.rowBytes() / bytes;
    cells_.resize(cells * bytes * layers.size());
    char* out = cells_.data();
    for (std::size_t i = 0; i < cells; ++i) {
      for (const void* layer : layers) {
        std::memcpy(out, static_cast<const char*>(layer) + i * bytes, bytes);
        out += bytes;
      }
    }
    base::swapLittle(cells_.data(), cells * layers.size(), bytes);
    file_.write(cells_.data(), cells_.size());
  }

  /// The header is padded to 128 bytes whatever the height is.
  void finish() override {
    rows_.requireSome();
    if (raster_.height > 0) return;
    const std::string complete = header(rows_.get());
    file_.overwrite(0, complete.data(), complete.size());
  }

 private:
  std::string header(int rows) const {
    const std::size_t layers = raster_.layers.size();
    return npyHeader(typeOf(raster_.sample),
                     layers == 1 ? fmt::format("({}, {})", rows, raster_.width)
                                 : fmt::format("({}, {}, {})", rows, raster_.width, layers));
  }

  OutputFile& file_;
  const RasterDescription raster_;
  RowCount rows_;
  std::vector<char> cells_;
};

}  // namespace

/// The format's description, a Python dictionary, ends on a multiple of 64 bytes.
std::string npyHeader(const std::string& type, const std::string& shape) {
  std::string dictionary =
      fmt::format("{{'descr': '{}', 'fortran_order': False, 'shape': {}, }}", type, shape);
  const std::size_t begin = 10;  // signature, version and length
  dictionary.append(63 - (begin + dictionary.size()) % 64, ' ');
  dictionary += '\n';
  std::string header("\x93NUMPY\x01\x00", 8);
  header += static_cast<char>(dictionary.size() & 0xFF);
  header += static_cast<char>(dictionary.size() >> 8);
  return header + dictionary;
}

std::unique_ptr<RasterWriter> createNpy(OutputFile& file, const RasterDescription& description) {
  return std::make_unique<NpyWriter>(file, description);
}

}  // namespace planex::io
