// From a range image to aligned points and a height map: class_level <model document>
#include <planex/model/model_file.h>
#include <planex/model/point_mapping.h>
#include <planex/model/world_bounds.h>
#include <planex/processing/image_alignment.h>
#include <planex/processing/image_calibration.h>
#include <planex/processing/rectification.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

using namespace datafusion::planex;
using cmnalg::ImageOf;

static void check(bool good, const char* step) {
  if (good) return;
  std::fprintf(stderr, "class_level: %s failed\n", step);
  std::exit(1);  // a base::LogHandler on base::Logger::GetRoot() hears why
}

int main(int argc, char** argv) {
  constexpr int kProfiles = 100;
  constexpr double kSpacing = 0.1;  // mm between profiles
  CalibrationModel model;
  check(readModel(argc > 1 ? argv[1] : "model.json", model), "reading the model");
  const int width = model.SensorSize.x;

  // The camera's image: the row of the laser line in sixteenths, over the whole sensor.
  ImageOf<std::uint16_t> range(width, kProfiles, cmnalg::Image::s_defaultImageAllocator);
  range.SetAll(16 * 512);
  range.PixelSize.z = 1.0 / 16;

  // Into the laser plane, and through pose and skew into space.
  ImageOf<float> x, z, xAligned, yAligned, zAligned;
  check(applyCalibration(model, false, range, x, z, RunMode::Default), "calibration");
  etl::Vector<double> y;
  for (int profile = 0; profile < kProfiles; ++profile) y.push_back(profile * kSpacing);
  check(applyAlignment(model, false, x, y, z, xAligned, yAligned, zAligned, RunMode::Default),
        "alignment");

  // One sample of the image the other way: sensor column, profile, sensor row.
  cmnalg::Vec<3, double> point{width / 2.0, 50, 512};
  check(mapPoints(model, &point, &point, 1, CoordinateSystem::Pixel, CoordinateSystem::Aligned, 0.0,
                  kSpacing),
        "mapping");
  const double off = std::hypot(point.x - double{xAligned.Pix(width / 2, 50)},
                                point.y - double{yAligned.Pix(width / 2, 50)},
                                point.z - double{zAligned.Pix(width / 2, 50)});
  std::printf("X %.3f mm, Y %.3f mm, Z %.3f mm\n", point.x, point.y, point.z);
  check(off < 1e-4, "agreement of image and point");

  // The height map: as many columns as the image has, heights from those that the sensor sees.
  const SensorRegion region{1, 0, 1.0 / 16, 0, width, model.SensorSize.y};
  WorldBounds bounds;
  check(calculateWorldBounds(model, region, width, bounds) == WorldBoundsResult::Calculated,
        "bounds");
  const HeightGrid grid{width, kProfiles, sampleAxis(bounds.x.min, bounds.x.max, width),
                        levelAxis(bounds.z.min, bounds.z.max, 65536)};
  ImageOf<float> heights(width, kProfiles, cmnalg::Image::s_defaultImageAllocator);
  check(toRectifiedWorld(x, z, {bounds.lateralSpacing, 1.0}, RectificationMode::MEAN, grid, NAN,
                         heights),
        "rectification");
  std::printf("middle of the map: X %.3f mm, Z %.3f mm\n", grid.x.scale * width / 2 + grid.x.origin,
              double{heights.Pix(width / 2, 50)});
  return 0;
}
