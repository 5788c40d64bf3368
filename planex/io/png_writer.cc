#include <png.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "planex/io/failure.h"
#include "planex/io/raster_formats.h"

namespace planex::io {
namespace {

constexpr int kCompressionLevel = 4;  // half the time of the default for a few percent more bytes

/// The keywords and texts as libpng takes them; they must stay as long as the result is used.
std::vector<png_text> pngTexts(const std::vector<std::pair<std::string, std::string>>& pairs) {
  std::vector<png_text> texts;
  for (const auto& [keyword, value] : pairs) {
    const bool ascii = std::all_of(value.begin(), value.end(), [](char c) { return c > 0; });
    png_text text = {};
    // Plain text chunks are Latin-1, international ones UTF-8.
    text.compression = ascii ? PNG_TEXT_COMPRESSION_NONE : PNG_ITXT_COMPRESSION_NONE;
    text.key = const_cast<png_charp>(keyword.c_str());
    text.text = const_cast<png_charp>(value.c_str());
    texts.push_back(text);
  }
  return texts;
}

/// libpng leaves by longjmp where something is wrong; see PngPass of the reader.
class PngWriter final : public RasterWriter {
 public:
  PngWriter(OutputFile& file, const RasterDescription& raster)
      : file_(file), rowBytes_(raster.rowBytes()) {
    const auto pairs = describeInText(raster);
    const std::vector<png_text> texts = pngTexts(pairs);
    if (!begin(raster, texts.data(), static_cast<int>(texts.size()))) fail();
  }

  ~PngWriter() override { png_destroy_write_struct(&png_, &info_); }

  void writeRows(int count, const std::vector<const void*>& layers) override {
    const auto* rows = static_cast<const unsigned char*>(layers.front());
    for (int i = 0; i < count; ++i) {
      if (!writeRow(rows + static_cast<std::size_t>(i) * rowBytes_)) fail();
    }
  }

  void finish() override {
    if (!end()) fail();
  }

 private:
  [[noreturn]] void fail() const {
    const std::string reason = error_[0] != '\0' ? error_.data() : std::strerror(errno);
    throw Failure(file_.path(), "cannot be written (" + reason + "); check the space on the disk");
  }

  bool begin(const RasterDescription& raster, const png_text* texts, int textCount) {
    png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, this, onError, onWarning);
    if (png_ == nullptr) return false;
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    info_ = png_create_info_struct(png_);
    if (info_ == nullptr) return false;
    const int bits = raster.sample == SampleType::kUint8 ? 8 : 16;
    png_init_io(png_, file_.stream());
    png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_compression_level(png_, kCompressionLevel);
    png_set_IHDR(png_, info_, static_cast<png_uint_32>(raster.width),
                 static_cast<png_uint_32>(raster.height), bits, PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_text(png_, info_, texts, textCount);
    png_write_info(png_, info_);
    if (bits == 16) png_set_swap(png_);  // PNG has the high byte first
    return true;
  }

  bool writeRow(const unsigned char* row) {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_write_row(png_, row);
    return true;
  }

  bool end() {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_write_end(png_, nullptr);
    return true;
  }

  [[noreturn]] static void onError(png_structp png, png_const_charp text) {
    auto& error = static_cast<PngWriter*>(png_get_error_ptr(png))->error_;
    std::snprintf(error.data(), error.size(), "%s", text);
    png_longjmp(png, 1);
  }
  static void onWarning(png_structp /*png*/, png_const_charp /*text*/) {}

  OutputFile& file_;
  const std::size_t rowBytes_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  std::array<char, 128> error_{};
};

}  // namespace

std::unique_ptr<RasterWriter> createPng(OutputFile& file, const RasterDescription& description) {
  return std::make_unique<PngWriter>(file, description);
}

}  // namespace planex::io
