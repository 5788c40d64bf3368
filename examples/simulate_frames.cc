// Simulates what a plain camera sees of a laser line: frames of the step gauge of simulate_scan.
//
//     simulate_frames <folder>
//
// writes frames.pgm (8 bit, one image behind the other: the part of the sensor of simulate_scan
// that sees the gauge, once every 0.25 mm) and frames.json (where that part lies, what makes the
// frames noisy, and how high the steps are). The laser line is a Gaussian, light is integrated over
// pixels, and the camera has shot noise, read noise and 255 levels. Speckle makes every pixel of
// the line brighter or darker; in some columns polish shows a weaker line below the true one; a
// strip of tape is too bright. The same numbers come out on every machine.
#include <algorithm>
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

using example::Block;
using example::ColumnSight;
using example::Random;
using example::Scene;
using example::SensorRows;
using example::SheetPoint;
using example::SimulatedCamera;

constexpr int kFrames = 300;
constexpr double kFirstY = 14, kSpacing = 0.25;  // mm
constexpr int kFirstColumn = 64, kColumns = 1024;
constexpr SensorRows kRows = {376, 256};
constexpr int kSteps = 5;  // the first blocks of the scene

constexpr double kLineSigma = 2;  // rows
constexpr double kExposure = 0.9;
constexpr double kBlack = 8;               // levels
constexpr double kElectronsPerLevel = 40;  // shot noise
constexpr double kReadNoise = 0.5;         // levels
constexpr int kSpeckleSquares = 18;        // independent normal numbers whose squares add up
constexpr uint64_t kSeed = 4;

/// A strip along Y in which light is multiplied.
struct Strip {
  double xMin, xMax, factor;
  bool holds(double x) const { return x > xMin && x < xMax; }
};
constexpr Strip kTape = {-40, -36, 2.5};
constexpr Strip kPolish = {-30, -25, 0.5};  // of the second line
constexpr double kSecondLine = -26;         // rows beside the first

/// exp(-t), t from 0 to some 50.
double decay(double t) {
  const double s = t / 256;
  double value = 1 - s * (1 - s / 2 * (1 - s / 3 * (1 - s / 4 * (1 - s / 5))));
  for (int i = 0; i < 8; ++i) value *= value;
  return value;
}

double gaussian(double rows) { return decay(rows * rows / (2 * kLineSigma * kLineSigma)); }

/// The light of a frame, in levels.
class Frame {
 public:
  Frame() : light_(static_cast<size_t>(kColumns) * kRows.count, 0.0) {}

  /// A line as high as `height` at a row of the frame.
  void addLine(int column, double row, double height, Random& random) {
    const int first = std::max(0, static_cast<int>(row - 4 * kLineSigma));
    const int end = std::min(kRows.count, static_cast<int>(row + 4 * kLineSigma) + 2);
    for (int i = first; i < end; ++i) {
      const double x = i - row;  // Simpson's rule over the pixel
      const double share = (gaussian(x - 0.5) + 4 * gaussian(x) + gaussian(x + 0.5)) / 6;
      light_[index(column, i)] += height * share * speckle(random);
    }
  }

  /// What the camera makes of it.
  std::vector<uint8_t> exposed(Random& random) const {
    std::vector<uint8_t> levels;
    levels.reserve(light_.size());
    for (const double light : light_) {
      const double variance = kReadNoise * kReadNoise + light / kElectronsPerLevel;
      const double level = kBlack + light + std::sqrt(variance) * random.normal();
      levels.push_back(static_cast<uint8_t>(std::clamp(level + 0.5, 0.0, 255.0)));
    }
    return levels;
  }

 private:
  static size_t index(int column, int row) {
    return static_cast<size_t>(row) * kColumns + static_cast<size_t>(column);
  }

  /// The sum of kSpeckleSquares / 2 speckle patterns in a pixel, of mean 1.
  static double speckle(Random& random) {
    double sum = 0;
    for (int i = 0; i < kSpeckleSquares; ++i) {
      const double amplitude = random.normal();
      sum += amplitude * amplitude;
    }
    return sum / kSpeckleSquares;
  }

  std::vector<double> light_;
};

std::vector<uint8_t> simulate(const SimulatedCamera& camera, const Scene& scene,
                              const std::vector<ColumnSight>& sights, double y, Random& random) {
  Frame frame;
  for (int column = 0; column < kColumns; ++column) {
    const std::optional<double> row = sights[static_cast<size_t>(column)].findRow(
        [&](const SheetPoint& p) { return p.z - scene.surfaceAt(p.x, y).z; });
    if (!row) continue;
    const double x = camera.sheetFromSensor(kFirstColumn + column, *row).x;
    const double light =
        kExposure * example::brightnessAt(camera, scene, {x, y, scene.surfaceAt(x, y).z});
    const double place = *row - kRows.first;
    frame.addLine(column, place, light * (kTape.holds(x) ? kTape.factor : 1), random);
    if (kPolish.holds(x)) {
      frame.addLine(column, place + kSecondLine, light * kPolish.factor, random);
    }
  }
  return frame.exposed(random);
}

bool writeFrames(const std::string& path, const SimulatedCamera& camera, const Scene& scene) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  std::vector<ColumnSight> sights;
  sights.reserve(kColumns);
  for (int column = 0; column < kColumns; ++column) {
    sights.emplace_back(camera, kFirstColumn + column, kRows);
  }
  Random random(kSeed);
  for (int i = 0; i < kFrames; ++i) {
    const std::vector<uint8_t> levels =
        simulate(camera, scene, sights, kFirstY + i * kSpacing, random);
    std::fprintf(file, "P5\n%d %d\n255\n", kColumns, kRows.count);
    std::fwrite(levels.data(), 1, levels.size(), file);
  }
  const bool isWritten = std::ferror(file) == 0;
  return std::fclose(file) == 0 && isWritten;
}

bool writeDescription(const std::string& path, const Scene& scene) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  std::fprintf(file, "{\"originX\": %d, \"originZ\": %d, \"scaleY\": %g, \"originY\": %g,\n",
               kFirstColumn, kRows.first, kSpacing, kFirstY);
  std::fprintf(file, " \"sigma\": %g, \"speckle\": %.4f, \"gain\": %g, \"readNoise\": %g,\n",
               kLineSigma, std::sqrt(2.0 / kSpeckleSquares), 1 / kElectronsPerLevel, kReadNoise);
  const Block& low = scene.blocks.front();
  const double reflectance = scene.surfaceAt(low.xMin, low.yMin).reflectance;
  std::fprintf(file, " \"levels\": %g,\n", 255 * kExposure * reflectance);  // of the line on steps
  std::fputs(" \"plate\": [-56, -51, 20, 80],\n \"steps\": [", file);       // beside the shadow
  for (size_t i = 0; i < kSteps; ++i) {                                     // 2 mm off the edges
    const Block& step = scene.blocks[i];
    std::fprintf(file, "%s\n  {\"height\": %g, \"region\": [%g, %g, %g, %g]}", i == 0 ? "" : ",",
                 step.height, step.xMin + 2, step.xMax - 2, step.yMin + 2, step.yMax - 2);
  }
  std::fputs("]}\n", file);
  return std::fclose(file) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <folder>\n", argv[0]);
    return 2;
  }
  const std::string folder = std::string(argv[1]) + "/";
  const Scene scene = example::makeScene();
  if (!writeFrames(folder + "frames.pgm", example::makeCamera(), scene) ||
      !writeDescription(folder + "frames.json", scene)) {
    std::fprintf(stderr, "simulate_frames: cannot write to %s\n", argv[1]);
    return 1;
  }
  std::printf(
      "simulated %d frames of %d x %d in %s: a line %.1f rows wide, speckle of contrast "
      "%.2f,\nsteps of",
      kFrames, kColumns, kRows.count, argv[1], 2.3548 * kLineSigma,
      std::sqrt(2.0 / kSpeckleSquares));
  for (size_t i = 0; i < kSteps; ++i) std::printf(" %g", scene.blocks[i].height);
  std::printf(" mm\n");
  return 0;
}
