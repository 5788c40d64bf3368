#include "tools/images/image_reader.h"

#include <array>
#include <cstring>
#include <limits>
#include <vector>

#include "tools/images/image_formats.h"
#include "tools/images/input_file.h"
#include "tools/support/failure.h"

namespace planex_tools {
namespace {

using Signature = std::array<unsigned char, 8>;

bool startsWith(const Signature& bytes, std::size_t count, const char* text, std::size_t length) {
  return count >= length && std::memcmp(bytes.data(), text, length) == 0;
}

}  // namespace

std::unique_ptr<ImageReader> ImageReader::open(const std::string& path) {
  Signature bytes{};
  const std::size_t count = InputFile(path).readAt(0, bytes.data(), bytes.size());
  const auto is = [&](const char* text, std::size_t length) {
    return startsWith(bytes, count, text, length);
  };
  if (is("\x89PNG\r\n\x1a\n", 8)) return openPng(path);
  if (is("II*\0", 4) || is("MM\0*", 4) || is("II+\0", 4) || is("MM\0+", 4)) return openTiff(path);
  if (is("P5", 2)) return openPgm(path);
  throw Failure(path + ": is not a PNG, TIFF or binary PGM image; convert it to one of these");
}

void ImageReader::announce(std::uint64_t width, std::uint64_t height, cmnalg::ImageType type) {
  if (width < 1 || height < 1) refuse("announces an image without pixels; save it again");
  if (width > kMaximumColumns) {
    refuse("announces " + std::to_string(width) + " columns, more than the " +
           std::to_string(kMaximumColumns) + " that are supported; check the file");
  }
  if (height > static_cast<std::uint64_t>(std::numeric_limits<int>::max())) {
    refuse("announces " + std::to_string(height) + " rows, too many; split the file");
  }
  shape_ = {static_cast<int>(width), static_cast<int>(height), type};
}

void ImageReader::refuse(const std::string& problem) const { throw Failure(path_, problem); }

void ImageReader::refuseRow(std::int64_t row, const std::string& reason) const {
  refuse("is damaged or cut off at row " + std::to_string(row) + " of " +
         std::to_string(shape_.height) + " (" + reason +
         "); fetch it again from where it was made");
}

void ImageReader::readRows(int first, int count, void* rows) {
  if (first < 0 || count < 0 || count > shape_.height - first) {
    refuse("has only " + std::to_string(shape_.height) + " rows; choose rows inside the image");
  }
  if (first < next_) {
    rewind();
    next_ = 0;
  }
  if (first > next_) skipRows(first - next_);
  next_ = first;
  for (int i = 0; i < count; ++i, ++next_) {
    readNextRow(static_cast<char*>(rows) + static_cast<std::size_t>(i) * shape_.rowBytes());
  }
}

void ImageReader::skipRows(int count) {
  std::vector<char> row(shape_.rowBytes());
  for (int i = 0; i < count; ++i) readNextRow(row.data());
}

}  // namespace planex_tools
