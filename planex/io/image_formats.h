// The kinds of image files behind ImageReader::open.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "planex/io/image_reader.h"

namespace planex::io {

/// A file of images one behind the other, of which one is read.
class PagedImage : public ImageReader {
 public:
  /// How many there are; may be none.
  virtual std::size_t pages() const = 0;
  /// Makes a page the image that is read, with a shape of its own, and checks it.
  virtual void show(std::size_t page) = 0;

 protected:
  using ImageReader::ImageReader;
};

/// @{
/// Open a file whose first bytes say that it is of that kind.
/// @param layer of several, counted from 0
std::unique_ptr<ImageReader> openPng(const std::string& path);
std::unique_ptr<ImageReader> openTiff(const std::string& path, Samples samples, std::size_t layer);
std::unique_ptr<ImageReader> openPgm(const std::string& path);
std::unique_ptr<ImageReader> openNpy(const std::string& path, Samples samples, std::size_t layer);
/// @}

/// The pages of a TIFF that are images of their own, not smaller copies or masks of others. None is
/// shown yet.
std::unique_ptr<PagedImage> openTiffPages(const std::string& path);

}  // namespace planex::io
