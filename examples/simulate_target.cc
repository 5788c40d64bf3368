// Simulates what a camera needs that has no model yet: scans of a machined target.
//
//     simulate_target <folder>
//
// writes saw0.pgm ... saw7.pgm, each with .json beside it that says what part of the sensor it
// shows: scans of a bar with a sawtooth that stands still, at four heights, level and tilted, in
// places that nobody has measured. saw.json describes the bar as its maker would; the corners of
// the bar itself lie some micrometres off. The camera is that of simulate_scan, whose model is
// written nowhere here. The same numbers come out on every machine.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "scan_simulation.h"
#include "simulated_camera.h"

namespace {

using example::ColumnSight;
using example::Random;
using example::SensorRows;
using example::SheetPoint;
using example::SimulatedCamera;

constexpr int kTeeth = 11;           // 176 mm: the field, and what tilt and shift need
constexpr double kPitch = 16;        // mm
constexpr double kDepth = 6.7;       // flanks of 40 degrees
constexpr double kTolerance = 3e-3;  // standard deviation of a corner, in X and in Z
constexpr double kMargin = 0.5;      // beside corners, which are round
constexpr int kProfiles = 20;
constexpr double kDropouts = 0.01;  // share of the pixels in which no line is found

/// Where the bar stands: the place of its middle, and its slope by the tangent of half the angle.
struct Pose {
  double x, z, halfTilt;
};
constexpr double kTilt = 0.07;  // 8 degrees
constexpr Pose kPoses[] = {{1.3, -36, 0}, {-2.1, -36, kTilt}, {0.4, -11, 0}, {2.6, -11, -kTilt},
                           {-1.7, 13, 0}, {0.9, 13, kTilt},   {-0.6, 36, 0}, {1.8, 36, -kTilt}};

/// Corners from left to right, the material below.
std::vector<SheetPoint> describedBar() {
  std::vector<SheetPoint> corners;
  for (int i = 0; i <= 2 * kTeeth; ++i) {
    corners.push_back({(i - kTeeth) * 0.5 * kPitch, i % 2 == 0 ? 0 : kDepth});
  }
  return corners;
}

std::vector<SheetPoint> machined(std::vector<SheetPoint> corners, Random& random) {
  for (SheetPoint& corner : corners) {
    corner.x += kTolerance * random.normal();
    corner.z += kTolerance * random.normal();
  }
  return corners;
}

/// How high a place in the laser sheet lies above the bar, in the bar's own direction of Z.
double heightAbove(const SheetPoint& p, const std::vector<SheetPoint>& bar, const Pose& pose) {
  const double t = pose.halfTilt;
  const double cosine = (1 - t * t) / (1 + t * t);
  const double sine = 2 * t / (1 + t * t);
  const double x = cosine * (p.x - pose.x) + sine * (p.z - pose.z);
  const double z = cosine * (p.z - pose.z) - sine * (p.x - pose.x);
  for (size_t i = 0; i + 1 < bar.size(); ++i) {
    const SheetPoint& a = bar[i];
    const SheetPoint& b = bar[i + 1];
    if (x >= a.x && x < b.x) return z - (a.z + (b.z - a.z) * (x - a.x) / (b.x - a.x));
  }
  return HUGE_VAL;  // beside the bar
}

std::vector<uint16_t> simulate(const SimulatedCamera& camera, const std::vector<SheetPoint>& bar,
                               const Pose& pose, Random& random) {
  const SensorRows all = {0, camera.sensorHeight};
  const auto width = static_cast<size_t>(camera.sensorWidth);
  std::vector<uint16_t> range(width * kProfiles);
  for (size_t column = 0; column < width; ++column) {
    const std::optional<double> row =
        ColumnSight(camera, static_cast<int>(column), all).findRow([&](const SheetPoint& p) {
          return heightAbove(p, bar, pose);
        });
    for (size_t profile = 0; profile < kProfiles; ++profile) {
      const double noise = example::kRowNoise * random.normal();
      const bool isFound = random.uniform() >= kDropouts;
      if (row && isFound) range[profile * width + column] = example::rangeValue(*row + noise, all);
    }
  }
  return range;
}

bool writeDescription(const std::string& path, const std::vector<SheetPoint>& corners) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  std::fputs("{\"profile\": [", file);
  const char* before = "";
  for (const SheetPoint& corner : corners) {
    std::fprintf(file, "%s[%g, %g]", before, corner.x, corner.z);
    before = ", ";
  }
  std::fprintf(file, "],\n \"tolerance\": %g, \"margin\": %g}\n", kTolerance, kMargin);
  return std::fclose(file) == 0;
}

bool writeAll(const std::string& folder) {
  const SimulatedCamera camera = example::makeCamera();
  const std::vector<SheetPoint> described = describedBar();
  if (!writeDescription(folder + "saw.json", described)) return false;
  Random random(8);
  const std::vector<SheetPoint> bar = machined(described, random);
  int number = 0;
  for (const Pose& pose : kPoses) {
    const std::string path = folder + "saw" + std::to_string(number++) + ".pgm";
    const std::vector<uint16_t> range = simulate(camera, bar, pose, random);
    if (!example::writePgm(path, camera.sensorWidth, range) ||
        !example::writeSidecar(path + ".json", camera, {0, camera.sensorHeight}, 0)) {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <folder>\n", argv[0]);
    return 2;
  }
  if (!writeAll(std::string(argv[1]) + "/")) {
    std::fprintf(stderr, "simulate_target: cannot write to %s\n", argv[1]);
    return 1;
  }
  std::printf("simulated %zu scans of a sawtooth at rest in %s\n", std::size(kPoses), argv[1]);
  return 0;
}
