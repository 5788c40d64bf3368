#include "planex/io/tiff_file.h"

#include <array>
#include <cstdarg>
#include <cstdio>

namespace planex::io {

namespace {

constexpr tmsize_t kMaximumAllocation = tmsize_t{256} << 20;

}  // namespace

TiffFile::TiffFile(const std::string& path, const char* mode) {
  const std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> options(TIFFOpenOptionsAlloc(),
                                                                             TIFFOpenOptionsFree);
  if (options == nullptr) throw std::bad_alloc();
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), onError, this);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), onWarning, this);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kMaximumAllocation);
  tiff_.reset(TIFFOpenExt(path.c_str(), mode, options.get()));
}

TiffFile::~TiffFile() = default;

int TiffFile::keep(std::string& text, const char* format, va_list args) {
  std::array<char, 256> line{};
  std::vsnprintf(line.data(), line.size(), format, args);
  if (text.empty()) text = line.data();
  return 1;  // handled: nothing is printed
}

int TiffFile::onError(TIFF* /*tiff*/, void* self, const char* /*module*/, const char* format,
                      va_list args) {
  return keep(static_cast<TiffFile*>(self)->error_, format, args);
}

int TiffFile::onWarning(TIFF* /*tiff*/, void* self, const char* /*module*/, const char* format,
                        va_list args) {
  return keep(static_cast<TiffFile*>(self)->warning_, format, args);
}

}  // namespace planex::io
