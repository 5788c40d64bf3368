// Simulates a scan: what a laser-line camera records of a known scene.
//
//     simulate_scan <folder>
//
// writes model.json (the camera), scan.txt (how the scan was taken), range.pgm (16 bit: the row of
// the laser line in sixteenths of a pixel, 0 where it was not found) with range.pgm.json (what part
// of the sensor it shows, and how far its rows are apart), intensity.pgm (8 bit) and truth.txt
// (what the object really measures). The same numbers come out on every machine.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "simulated_camera.h"
#include "simulated_scene.h"

namespace {

using example::Scene;
using example::SheetPoint;
using example::SimulatedCamera;
using example::Surface;
using example::Vec3;

constexpr int kProfiles = 1000;
constexpr double kProfileSpacing = 0.1;  // mm
constexpr int kFirstRow = 160;           // the region of the sensor that is read out
constexpr int kRegionRows = 704;
constexpr double kStepsPerRow = 16;
constexpr double kRowNoise = 0.1;        // standard deviation of the line position, pixels
constexpr double kIntensityNoise = 2.5;  // of 255
constexpr double kSpeckle = 0.04;        // share of the signal
constexpr double kThreshold = 10;        // weaker lines are not found
constexpr int kSearchStep = 16;          // rows

/// Random numbers that are the same with every compiler and library.
class Random {
 public:
  /// Nearly normal, mean 0, standard deviation 1: the sum of twelve uniform 16-bit numbers.
  double normal() {
    double sum = 0;
    for (int i = 0; i < 3; ++i) {
      uint64_t bits = next();
      for (int k = 0; k < 4; ++k, bits >>= 16) sum += static_cast<double>(bits & 0xFFFF);
    }
    return (sum - 6 * 65535.0) / 65536.0;
  }

 private:
  /// SplitMix64. Source: Steele, Lea and Flood, Fast splittable pseudorandom number generators.
  uint64_t next() {
    uint64_t z = state_ += 0x9E3779B97F4A7C15;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return z ^ (z >> 31);
  }

  uint64_t state_ = 20;
};

/// The line of sight of one sensor column, from the highest to the lowest row of the region.
class ColumnSight {
 public:
  ColumnSight(const SimulatedCamera& camera, int column) : camera_(camera), column_(column) {
    for (int row = kFirstRow + kRegionRows; row >= kFirstRow; row -= kSearchStep) {
      points_.push_back(camera.sheetFromSensor(column, row));
    }
  }

  /// The sensor row in which the laser on the scene is seen, by bisection on the forward mapping;
  /// nothing when it lies outside the region, or on an upright wall.
  std::optional<double> findRow(const Scene& scene, double y) const {
    for (size_t i = 0; i + 1 < points_.size(); ++i) {
      if (heightAbove(scene, points_[i + 1], y) > 0) continue;
      if (heightAbove(scene, points_[i], y) < 0) return {};
      double above = kFirstRow + kRegionRows - static_cast<double>(i) * kSearchStep;
      double below = above - kSearchStep;
      for (int round = 0; round < 30; ++round) {
        const double middle = 0.5 * (above + below);
        const bool isAbove = heightAbove(scene, camera_.sheetFromSensor(column_, middle), y) > 0;
        (isAbove ? above : below) = middle;
      }
      const double left = heightAbove(scene, camera_.sheetFromSensor(column_, above), y);
      return left < 1e-3 ? std::optional(above) : std::nullopt;
    }
    return {};
  }

 private:
  static double heightAbove(const Scene& scene, const SheetPoint& p, double y) {
    return p.z - scene.surfaceAt(p.x, y).z;
  }

  const SimulatedCamera& camera_;
  int column_;
  std::vector<SheetPoint> points_;
};

struct Scan {
  int width;
  std::vector<uint16_t> range;
  std::vector<uint8_t> intensity;
};

/// The brightness of the laser on the scene at p, as the camera sees it; 0 in the shadow.
double signalAt(const SimulatedCamera& camera, const Scene& scene, const Vec3& p) {
  // The camera and the laser stand still, the object moves: both are level with its Y.
  const Vec3 eye = {camera.position.x, camera.position.y + p.y, camera.position.z};
  const Vec3 laser = {camera.laser.x, camera.laser.y + p.y, camera.laser.z};
  if (!scene.visible(p, eye) || !scene.visible(p, laser)) return 0;
  return 255 * scene.surfaceAt(p.x, p.y).reflectance * scene.facing(p.x, p.y, laser);
}

uint16_t rangeValue(double row) {
  const double value = std::floor((row - kFirstRow) * kStepsPerRow + 0.5);
  const bool inside = value >= 1 && value < kRegionRows * kStepsPerRow;
  return inside ? static_cast<uint16_t>(value) : uint16_t{0};
}

uint8_t greyValue(double signal) {
  return static_cast<uint8_t>(signal < 0 ? 0 : signal > 255 ? 255 : signal + 0.5);
}

Scan simulate(const SimulatedCamera& camera, const Scene& scene) {
  Random random;
  const auto width = static_cast<size_t>(camera.sensorWidth);
  Scan scan = {camera.sensorWidth, std::vector<uint16_t>(width * kProfiles),
               std::vector<uint8_t>(width * kProfiles)};
  for (int column = 0; column < scan.width; ++column) {
    const ColumnSight sight(camera, column);
    for (int profile = 0; profile < kProfiles; ++profile) {
      const double y = profile * kProfileSpacing;
      double signal = 0;
      const std::optional<double> row = sight.findRow(scene, y);
      if (row) {
        const SheetPoint p = camera.sheetFromSensor(column, *row);
        signal = signalAt(camera, scene, {p.x, y, scene.surfaceAt(p.x, y).z});
      }
      const double speckle = kSpeckle * random.normal();
      const double intensityNoise = kIntensityNoise * random.normal();
      const double rowNoise = kRowNoise * random.normal();
      signal = signal * (1 + speckle) + intensityNoise;
      const size_t pixel = static_cast<size_t>(profile) * width + static_cast<size_t>(column);
      scan.intensity[pixel] = greyValue(signal);
      if (row && signal >= kThreshold) scan.range[pixel] = rangeValue(*row + rowNoise);
    }
  }
  return scan;
}

/// Portable greymap: numbers of two bytes have the high byte first.
template <typename Pixel>
bool writePgm(const std::string& path, int width, const std::vector<Pixel>& pixels) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  std::fprintf(file, "P5\n%d %d\n%d\n", width, kProfiles, (1 << (8 * sizeof(Pixel))) - 1);
  for (const Pixel pixel : pixels) {
    if (sizeof(Pixel) > 1) std::fputc(pixel >> 8, file);
    std::fputc(pixel & 0xFF, file);
  }
  return std::fclose(file) == 0;
}

bool writeScanDescription(const std::string& path, const SimulatedCamera& camera) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  std::fprintf(file, "column_step 1\ncolumn_origin 0\n");
  std::fprintf(file, "row_step %.17g\nrow_origin %d\n", 1 / kStepsPerRow, kFirstRow);
  std::fprintf(file, "region_width %d\nregion_height %d\n", camera.sensorWidth, kRegionRows);
  std::fprintf(file, "profile_spacing_mm %.17g\nrow_noise %.17g\n", kProfileSpacing, kRowNoise);
  return std::fclose(file) == 0;
}

/// The same for the command planex, which looks for it beside the range image.
bool writeSidecar(const std::string& path, const SimulatedCamera& camera) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  std::fprintf(file,
               "{\"sensor\": {\"scaleX\": 1, \"originX\": 0, \"scaleZ\": %.17g, \"originZ\": %d, "
               "\"width\": %d, \"height\": %d},\n \"rows\": {\"scaleY\": %.17g, \"originY\": 0}}\n",
               1 / kStepsPerRow, kFirstRow, camera.sensorWidth, kRegionRows, kProfileSpacing);
  return std::fclose(file) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <folder>\n", argv[0]);
    return 2;
  }
  const std::string folder = std::string(argv[1]) + "/";
  const SimulatedCamera camera = example::makeCamera();
  const Scene scene = example::makeScene();
  const Scan scan = simulate(camera, scene);
  if (!example::writeModel(camera, folder + "model.json") ||
      !example::writeTruth(folder + "truth.txt") ||
      !writeScanDescription(folder + "scan.txt", camera) ||
      !writeSidecar(folder + "range.pgm.json", camera) ||
      !writePgm(folder + "range.pgm", scan.width, scan.range) ||
      !writePgm(folder + "intensity.pgm", scan.width, scan.intensity)) {
    std::fprintf(stderr, "simulate_scan: cannot write to %s\n", argv[1]);
    return 1;
  }
  std::printf("simulated %d profiles of %d columns in %s\n", kProfiles, scan.width, argv[1]);
  return 0;
}
