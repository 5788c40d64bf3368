// The kinds of image files behind ImageReader::open.
#pragma once

#include <memory>
#include <string>

#include "planex/io/image_reader.h"

namespace planex::io {

/// @{
/// Open a file whose first bytes say that it is of that kind.
std::unique_ptr<ImageReader> openPng(const std::string& path);
std::unique_ptr<ImageReader> openTiff(const std::string& path, Samples samples);
std::unique_ptr<ImageReader> openPgm(const std::string& path);
std::unique_ptr<ImageReader> openNpy(const std::string& path, Samples samples);
/// @}

}  // namespace planex::io
