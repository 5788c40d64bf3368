// What the command must give, without blocks and files of its own: a small scan through single
// calls of the library, written as plain arrays.
//
//     whole_scan <model.json> <range.pgm> <intensity.pgm> <folder>
//
// writes x.f32, z.f32 (calibrated), xa.f32, ya.f32, za.f32 (aligned) and for each mode, as mean,
// mean_levels.u16, mean_heights.f32 and mean_grey.u8 (rectified). Both images have 16 bits. The
// sensor region and the Y of the rows are fixed; the tests of the command ask for the same.
#include <planex/foundation/image_of.h>
#include <planex/io/image_reader.h>
#include <planex/io/model_file.h>
#include <planex/model/world_bounds.h>
#include <planex/processing/height_grid.h>
#include <planex/processing/image_alignment.h>
#include <planex/processing/image_calibration.h>
#include <planex/processing/intensity_reduction.h>
#include <planex/processing/rectification.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using namespace datafusion::planex;

constexpr const char* kModes[] = {"mean", "lowest", "highest", "darkest", "brightest"};
constexpr SensorRegion kRegion = {16, 8, 1.0 / 16, 160, 2544, 704};

void require(bool good) {
  if (!good) std::exit(1);
}

ImageOf<std::uint16_t> read(const char* path) {
  const auto file = planex::io::ImageReader::open(path);
  ImageOf<std::uint16_t> image(file->shape().width, file->shape().height,
                               Image::s_defaultImageAllocator);
  file->readRows(0, file->shape().height, image.GetRowPtr(0));
  image.PixelSize = {kRegion.scaleX, 1, kRegion.scaleZ};
  image.Origin = {kRegion.originX, 0, kRegion.originZ};
  return image;
}

template <typename T>
void write(const std::string& path, const ImageOf<T>& image) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(image.GetRowPtr(0)),
             static_cast<std::streamsize>(image.GetRawBufferSize()));
  require(file.good());
}

}  // namespace

int main(int argc, char** argv) {
  require(argc == 5);
  const CalibrationModel model = planex::io::loadModel(argv[1]);
  const ImageOf<std::uint16_t> range = read(argv[2]), intensity = read(argv[3]);
  const std::string folder = std::string(argv[4]) + "/";
  const int width = range.GetWidth(), height = range.GetHeight();

  ImageOf<float> x, z, xa, ya, za, heights(width, height, Image::s_defaultImageAllocator);
  require(applyCalibration(model, false, range, x, z, RunMode::Default));
  etl::Vector<double> y;
  for (int row = 0; row < height; ++row) y.push_back(0.5 * row + 3);
  require(applyAlignment(model, false, x, y, z, xa, ya, za, RunMode::Default));

  WorldBounds bounds;
  require(calculateWorldBounds(model, kRegion, width, bounds) == WorldBoundsResult::Calculated);
  const HeightGrid grid{width, height, sampleAxis(bounds.x.min, bounds.x.max, width),
                        levelAxis(bounds.z.min, bounds.z.max, 65536)};
  ImageOf<std::uint8_t> reduced(width, height, Image::s_defaultImageAllocator), grey = reduced;
  const std::uint16_t* values = intensity.GetRowPtr(0);
  const auto count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  reduceIntensities(values, count, findIntensityLimits(values, count), reduced.GetRowPtr(0));
  ImageOf<std::uint16_t> levels(width, height, Image::s_defaultImageAllocator);
  levels.PixelSize = {grid.x.scale, 1, grid.levels.scale};
  levels.Origin = {grid.x.origin, 0, grid.levels.origin};
  levels.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  write(folder + "x.f32", x);
  write(folder + "z.f32", z);
  write(folder + "xa.f32", xa);
  write(folder + "ya.f32", ya);
  write(folder + "za.f32", za);
  const SplatShape splat = {bounds.lateralSpacing, 1};
  for (int i = 0; i < 5; ++i) {
    const auto mode = static_cast<RectificationMode>(i);
    require(toRectified(x, z, reduced, splat.lateralSpacing, splat.size, mode, levels, grey, true));
    require(toRectifiedWorld(x, z, reduced, splat, mode, grid, NAN, &heights, grey));
    const std::string name = folder + kModes[i];
    write(name + "_levels.u16", levels);
    write(name + "_heights.f32", heights);
    write(name + "_grey.u8", grey);
  }
  return 0;
}
