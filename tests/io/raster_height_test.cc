// Rasters whose height is known only at their end.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "planex/io/failure.h"
#include "planex/io/raster_writer.h"
#include "tests/io/temporary_folder.h"

namespace {

namespace io = planex::io;

constexpr std::size_t kMostRows = 7;
constexpr int kWidth = 40000;  // three rows of 16 bits make a strip

/// What a file of `rows` rows holds, of which `step` are written at a time.
std::string fileOf(io::RasterFormat format, const io::RasterDescription& raster, int rows, int step,
                   const io::RasterEncoding& encoding) {
  const test::TemporaryFolder folder;
  static const std::vector<std::uint16_t> pixels = [] {
    std::vector<std::uint16_t> made(kMostRows * kWidth + 9);
    for (std::size_t i = 0; i < made.size(); ++i) made[i] = static_cast<std::uint16_t>(i * i / 64);
    return made;
  }();
  io::OutputFile file(folder.Path("raster"), false);
  const auto writer = io::RasterWriter::create(format, file, raster, encoding);
  for (int row = 0; row < rows; row += step) {
    std::vector<const void*> parts;
    for (std::size_t layer = 0; layer < raster.layers.size(); ++layer) {
      parts.push_back(&pixels[static_cast<std::size_t>(row) * kWidth + layer]);
    }
    writer->writeRows(std::min(step, rows - row), parts);
  }
  writer->finish();
  file.commit();
  return folder.Read("raster");
}

TEST(RasterHeight, NeedNotBeKnown) {
  io::WorkerPool pool(3);
  struct Case {
    io::RasterFormat format;
    io::Compression compression;
    std::vector<std::string> layers;
  };
  const Case cases[] = {{io::RasterFormat::kPng, io::Compression::kNone, {"range"}},
                        {io::RasterFormat::kNpy, io::Compression::kNone, {"range"}},
                        {io::RasterFormat::kNpy, io::Compression::kNone, {"x", "z"}},
                        {io::RasterFormat::kTiff, io::Compression::kNone, {"range"}},
                        {io::RasterFormat::kTiff, io::Compression::kDeflate, {"x", "z"}},
                        {io::RasterFormat::kTiff, io::Compression::kZstd, {"x", "y", "z"}}};
  for (const Case& row : cases) {
    io::RasterDescription raster;
    raster.width = kWidth;
    raster.sample = io::SampleType::kUint16;
    raster.layers = row.layers;
    raster.values = io::Axis{1.0 / 64, -3};
    raster.missing = 0;
    raster.unit = "mm";
    for (const int rows : {1, 6, 7}) {  // 6: the last strip is full
      io::RasterDescription known = raster;
      known.height = rows;
      const std::string wanted = fileOf(row.format, known, rows, rows, {row.compression});
      for (const int step : {1, 5}) {
        EXPECT_TRUE(fileOf(row.format, raster, rows, step, {row.compression, &pool}) == wanted)
            << static_cast<int>(row.format) << " " << row.layers.size() << " " << rows;
      }
    }
    EXPECT_THROW(fileOf(row.format, raster, 0, 1, {row.compression}), io::Failure);
  }
}

}  // namespace
