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

#include "scan_simulation.h"
#include "simulated_camera.h"
#include "simulated_scene.h"

namespace {

using example::ColumnSight;
using example::kRowNoise;
using example::kStepsPerRow;
using example::Random;
using example::Scene;
using example::SensorRows;
using example::SheetPoint;
using example::SimulatedCamera;

constexpr int kProfiles = 1000;
constexpr double kProfileSpacing = 0.1;  // mm
constexpr SensorRows kRows = {160, 704};
constexpr double kIntensityNoise = 2.5;  // of 255
constexpr double kSpeckle = 0.04;        // share of the signal
constexpr double kThreshold = 10;        // weaker lines are not found
constexpr uint64_t kSeed = 20;

struct Scan {
  int width;
  std::vector<uint16_t> range;
  std::vector<uint8_t> intensity;
};

uint8_t greyValue(double signal) {
  return static_cast<uint8_t>(signal < 0 ? 0 : signal > 255 ? 255 : signal + 0.5);
}

Scan simulate(const SimulatedCamera& camera, const Scene& scene) {
  Random random(kSeed);
  const auto width = static_cast<size_t>(camera.sensorWidth);
  Scan scan = {camera.sensorWidth, std::vector<uint16_t>(width * kProfiles),
               std::vector<uint8_t>(width * kProfiles)};
  for (int column = 0; column < scan.width; ++column) {
    const ColumnSight sight(camera, column, kRows);
    for (int profile = 0; profile < kProfiles; ++profile) {
      const double y = profile * kProfileSpacing;
      double signal = 0;
      const std::optional<double> row =
          sight.findRow([&](const SheetPoint& p) { return p.z - scene.surfaceAt(p.x, y).z; });
      if (row) {
        const SheetPoint p = camera.sheetFromSensor(column, *row);
        signal = example::brightnessAt(camera, scene, {p.x, y, scene.surfaceAt(p.x, y).z});
      }
      const double speckle = kSpeckle * random.normal();
      const double intensityNoise = kIntensityNoise * random.normal();
      const double rowNoise = kRowNoise * random.normal();
      signal = signal * (1 + speckle) + intensityNoise;
      const size_t pixel = static_cast<size_t>(profile) * width + static_cast<size_t>(column);
      scan.intensity[pixel] = greyValue(signal);
      if (row && signal >= kThreshold)
        scan.range[pixel] = example::rangeValue(*row + rowNoise, kRows);
    }
  }
  return scan;
}

bool writeScanDescription(const std::string& path, const SimulatedCamera& camera) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  std::fprintf(file, "column_step 1\ncolumn_origin 0\n");
  std::fprintf(file, "row_step %.17g\nrow_origin %d\n", 1 / kStepsPerRow, kRows.first);
  std::fprintf(file, "region_width %d\nregion_height %d\n", camera.sensorWidth, kRows.count);
  std::fprintf(file, "profile_spacing_mm %.17g\nrow_noise %.17g\n", kProfileSpacing, kRowNoise);
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
      !example::writeSidecar(folder + "range.pgm.json", camera, kRows, kProfileSpacing) ||
      !example::writePgm(folder + "range.pgm", scan.width, scan.range) ||
      !example::writePgm(folder + "intensity.pgm", scan.width, scan.intensity)) {
    std::fprintf(stderr, "simulate_scan: cannot write to %s\n", argv[1]);
    return 1;
  }
  std::printf("simulated %d profiles of %d columns in %s\n", kProfiles, scan.width, argv[1]);
  return 0;
}
