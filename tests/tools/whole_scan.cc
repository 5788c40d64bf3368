// What the command must give, without blocks and files of its own: a small scan through single
// calls of the library, classes and C interface, written as plain arrays.
//
//     whole_scan <model.json> <range.pgm> <intensity.pgm> <folder> <mode>
//
// writes x.f32, z.f32 (calibrated), xa.f32, ya.f32, za.f32 (aligned), levels.u16 and heights.f32
// (rectified) and grey.u8. Both images have 16 bits. The sensor region and the Y of the rows are
// fixed; the tests of the command ask for the same.
#include <planex/api/planex.h>
#include <planex/foundation/image_of.h>
#include <planex/infra/json_deserializer.h>
#include <planex/model/calibration_model.h>
#include <planex/processing/image_alignment.h>
#include <planex/processing/image_calibration.h>
#include <planex/processing/rectification.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using namespace datafusion::planex;

constexpr SensorTraits kTraits = {16, 8, 1.0 / 16, 160, 2544, 704};
constexpr double kYScale = 0.5;
constexpr double kYOffset = 3;

void require(bool good, const char* what) {
  if (good) return;
  std::cerr << "whole_scan: failed: " << what << "\n";
  std::exit(1);
}

ImageOf<std::uint16_t> readPgm(const char* path) {
  std::ifstream file(path, std::ios::binary);
  std::string kind;
  int width = 0, height = 0, maximum = 0;
  file >> kind >> width >> height >> maximum;
  file.get();
  ImageOf<std::uint16_t> image(width, height, Image::s_defaultImageAllocator);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int high = file.get();
      image.Pix(x, y) = static_cast<std::uint16_t>(high << 8 | file.get());
    }
  }
  require(kind == "P5" && maximum == 65535 && file.good(), path);
  return image;
}

CalibrationModel readModel(const char* path) {
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  CalibrationModel model;
  base::JsonVisitingDeSerializer reader(text.c_str(), false);
  require(reader.DeserializeIntoExistingObject(model), path);
  return model;
}

template <typename T>
void write(const std::string& path, const T* values, std::size_t count) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(values),
             static_cast<std::streamsize>(count * sizeof(T)));
  require(file.good(), path.c_str());
}

template <typename T>
void write(const std::string& path, const ImageOf<T>& image) {
  write(path, image.GetRowPtr(0), image.GetRawBufferSize() / sizeof(T));
}

struct Interface {
  std::uint32_t model = 0, filter = 0;
  WorldRangeTraits world{};
  SplatSettings splat{};
  RangeTransform transform{};
  std::vector<float> heights;
  std::vector<std::uint8_t> grey;
};

/// The numbers of the two mode lists differ for highest and lowest.
std::uint32_t interfaceMode(int mode) {
  return mode == 1 ? 2U : mode == 2 ? 1U : static_cast<std::uint32_t>(mode);
}

/// Bounds and height map of the C interface.
Interface runInterface(const char* modelPath, const ImageOf<float>& x, const ImageOf<float>& z,
                       const ImageOf<std::uint16_t>& intensity, int mode) {
  Interface c;
  const ImageSize size = {static_cast<std::uint16_t>(x.GetWidth()),
                          static_cast<std::uint16_t>(x.GetHeight())};
  const std::size_t cells = std::size_t{size.width} * size.height;
  const std::uint32_t format = PLANEX_PIXEL_FORMAT_MONO16;
  c.heights.resize(cells);
  c.grey.resize(cells);
  const void* inputs[] = {intensity.GetData()};
  void* outputs[] = {c.grey.data()};
  require(createModelFromFilePath(modelPath, &c.model), "createModelFromFilePath");
  require(calculateCalibrationBounds(c.model, kTraits, size, &c.world, &c.splat), "bounds");
  require(createRectificationFilter(interfaceMode(mode), c.world, size, 1, &format, c.splat, NAN,
                                    &c.filter),
          "createRectificationFilter");
  require(rectify(c.filter, x.GetRowPtr(0), z.GetRowPtr(0), inputs, c.heights.data(), outputs),
          "rectify");
  c.transform = rangeTraitsToTransform(c.world);
  return c;
}

/// The levels of the height map, by the class-level call.
ImageOf<std::uint16_t> rectifyLevels(const Interface& c, const ImageOf<float>& x,
                                     const ImageOf<float>& z, ImageOf<std::uint8_t>& reduced,
                                     int mode) {
  ImageOf<std::uint16_t> levels(x.GetWidth(), x.GetHeight(), Image::s_defaultImageAllocator);
  ImageOf<std::uint8_t> grey(x.GetWidth(), x.GetHeight(), Image::s_defaultImageAllocator);
  levels.PixelSize = {c.transform.scaleX, 1, c.transform.scaleZ};
  levels.Origin = {c.transform.originX, 0, c.transform.originZ};
  levels.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  require(toRectified(x, z, reduced, {c.splat.splatA, c.splat.splatB}, c.splat.splatC,
                      static_cast<RectificationMode>(mode), levels, grey, true),
          "toRectified");
  return levels;
}

ImageOf<std::uint8_t> reduce(const ImageOf<std::uint16_t>& image) {
  ImageOf<std::uint8_t> out(image.GetWidth(), image.GetHeight(), Image::s_defaultImageAllocator);
  double min = 65535, max = 0;
  for (int y = 0; y < image.GetHeight(); ++y) {
    for (int x = 0; x < image.GetWidth(); ++x) {
      min = std::fmin(min, image.Pix(x, y));
      max = std::fmax(max, image.Pix(x, y));
    }
  }
  for (int y = 0; y < image.GetHeight(); ++y) {
    for (int x = 0; x < image.GetWidth(); ++x) {
      const double value = std::round((image.Pix(x, y) - min) * 255 / (max - min));
      out.Pix(x, y) = static_cast<std::uint8_t>(value);
    }
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  require(argc == 6, "five arguments");
  const CalibrationModel model = readModel(argv[1]);
  ImageOf<std::uint16_t> range = readPgm(argv[2]);
  const ImageOf<std::uint16_t> intensity = readPgm(argv[3]);
  const std::string folder = std::string(argv[4]) + "/";
  const int mode = std::atoi(argv[5]);  // NOLINT(cert-err34-c): the tests pass digits

  range.PixelSize = {kTraits.scaleX, 1, kTraits.scaleZ};
  range.Origin = {kTraits.originX, 0, kTraits.originZ};
  ImageOf<float> x, z, xa, ya, za;
  require(applyCalibration(model, false, range, x, z, RunMode::Default), "applyCalibration");
  etl::Vector<double> y;
  for (int row = 0; row < range.GetHeight(); ++row) y.push_back(kYScale * row + kYOffset);
  require(applyAlignment(model, false, x, y, z, xa, ya, za, RunMode::Default), "applyAlignment");

  const Interface c = runInterface(argv[1], x, z, intensity, mode);
  ImageOf<std::uint8_t> reduced = reduce(intensity);
  write(folder + "x.f32", x);
  write(folder + "z.f32", z);
  write(folder + "xa.f32", xa);
  write(folder + "ya.f32", ya);
  write(folder + "za.f32", za);
  write(folder + "levels.u16", rectifyLevels(c, x, z, reduced, mode));
  write(folder + "heights.f32", c.heights.data(), c.heights.size());
  write(folder + "grey.u8", c.grey.data(), c.grey.size());
  return 0;
}
