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

int TiffFile::onError(TIFF* /*tiff*/, void* self, const char* /*module*/, const char* format,
                      va_list args) {
  std::string& error = static_cast<TiffFile*>(self)->error_;
  std::array<char, 256> text{};
  std::vsnprintf(text.data(), text.size(), format, args);
  if (error.empty()) error = text.data();
  return 1;  // handled: nothing is printed
}

int TiffFile::onWarning(TIFF* /*tiff*/, void* /*self*/, const char* /*module*/,
                        const char* /*format*/, va_list /*args*/) {
  return 1;  // most are about tags that are not looked at
}

}  // namespace planex::io
