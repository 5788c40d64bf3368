#pragma once

#include <tiffio.h>

#include <cstdint>
#include <memory>
#include <string>

namespace planex::io {

struct CloseTiff {
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

/// A TIFF file of libtiff whose complaints are kept instead of printed.
class TiffFile {
 public:
  /// @param mode as for TIFFOpen
  /// get() is null when it cannot be opened.
  TiffFile(const std::string& path, const char* mode);
  ~TiffFile();
  TiffFile(const TiffFile&) = delete;
  TiffFile& operator=(const TiffFile&) = delete;

  TIFF* get() const { return tiff_.get(); }
  /// @{
  /// The first complaint of each kind, or "".
  const std::string& error() const { return error_; }
  const std::string& warning() const { return warning_; }
  /// @}
  /// Those while a file is opened are mostly about tags that are not looked at.
  void forgetWarning() { warning_.clear(); }
  void close() { tiff_.reset(); }

 private:
  static int keep(std::string& text, const char* format, va_list args);
  static int onError(TIFF* tiff, void* self, const char* module, const char* format, va_list args);
  static int onWarning(TIFF* tiff, void* self, const char* module, const char* format,
                       va_list args);

  std::string error_, warning_;
  std::unique_ptr<TIFF, CloseTiff> tiff_;  // closing may complain
};

}  // namespace planex::io
