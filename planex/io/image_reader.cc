#include "planex/io/image_reader.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

#include "planex/io/failure.h"
#include "planex/io/image_formats.h"
#include "planex/io/input_file.h"

namespace planex::io {
namespace {

using Opener = std::unique_ptr<ImageReader> (*)(const std::string& path, Samples samples,
                                                std::size_t layer);

/// A kind of file that holds integers only.
template <std::unique_ptr<ImageReader> (*kOpen)(const std::string& path)>
std::unique_ptr<ImageReader> integersOf(const std::string& path, Samples /*samples*/,
                                        std::size_t layer) {
  if (layer > 0) throw Failure(path, "has one layer; save all of them in a TIFF or NPY");
  return kOpen(path);
}

struct Signature {
  std::array<unsigned char, 8> bytes;
  std::size_t count;
  Opener open;
};

constexpr Signature kSignatures[] = {
    {{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'}, 8, integersOf<openPng>},
    {{'I', 'I', 42, 0}, 4, openTiff},  // little endian, and big
    {{'M', 'M', 0, 42}, 4, openTiff},
    {{'I', 'I', 43, 0}, 4, openTiff},  // 64-bit offsets
    {{'M', 'M', 0, 43}, 4, openTiff},
    {{'P', '5'}, 2, integersOf<openPgm>},
    {{0x93, 'N', 'U', 'M', 'P', 'Y'}, 6, openNpy},
};

std::unique_ptr<ImageReader> openAny(const std::string& path, Samples samples, std::size_t layer) {
  std::array<unsigned char, 8> bytes{};
  const std::size_t count = InputFile(path).readAt(0, bytes.data(), bytes.size());
  for (const Signature& signature : kSignatures) {
    if (count >= signature.count &&
        std::equal(bytes.begin(), bytes.begin() + signature.count, signature.bytes.begin())) {
      return signature.open(path, samples, layer);
    }
  }
  throw Failure(path, "is not a PNG, TIFF, binary PGM or NPY image; convert it to one of these");
}

}  // namespace

std::unique_ptr<ImageReader> ImageReader::open(const std::string& path, Samples samples) {
  return openAny(path, samples, 0);
}

std::unique_ptr<ImageReader> ImageReader::openLayer(const std::string& path, std::size_t layer) {
  return openAny(path, Samples::kHeights, layer);
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
  next_ = first + count;
  readNextRows(count, rows);
}

void ImageReader::readNextRows(int count, void* rows) {
  for (int i = 0; i < count; ++i) {
    readNextRow(static_cast<char*>(rows) + static_cast<std::size_t>(i) * shape_.rowBytes());
  }
}

void ImageReader::skipRows(int count) {
  std::vector<char> row(shape_.rowBytes());
  for (int i = 0; i < count; ++i) readNextRow(row.data());
}

}  // namespace planex::io
