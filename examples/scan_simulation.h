// What every simulated scan is made of: random numbers, the rows in which a camera sees the laser
// line on something, and files of range images. The same numbers come out on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulated_camera.h"

namespace example {

constexpr double kStepsPerRow = 16;  ///< of range values
constexpr double kRowNoise = 0.1;    ///< standard deviation of the line position, pixels

/// Random numbers that are the same with every compiler and library.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  /// Nearly normal, mean 0, standard deviation 1: the sum of twelve uniform 16-bit numbers.
  double normal();
  /// From 0 to less than 1.
  double uniform();

 private:
  uint64_t next();

  uint64_t state_;
};

/// The rows of the sensor that are read out.
struct SensorRows {
  int first, count;
};

/// The line of sight of one sensor column, from the highest to the lowest row.
class ColumnSight {
 public:
  ColumnSight(const SimulatedCamera& camera, int column, const SensorRows& rows);

  /// The sensor row in which the laser on a surface is seen, by bisection on the forward mapping;
  /// nothing when it lies outside the rows, or on an upright wall.
  ///
  /// @param heightAbove how high a SheetPoint lies above the surface, negative below
  template <typename HeightAbove>
  std::optional<double> findRow(const HeightAbove& heightAbove) const {
    for (size_t i = 0; i + 1 < points_.size(); ++i) {
      if (heightAbove(points_[i + 1]) > 0) continue;
      if (heightAbove(points_[i]) < 0) return {};
      double above = highest_ - static_cast<double>(i) * kSearchStep;
      double below = above - kSearchStep;
      for (int round = 0; round < 30; ++round) {
        const double middle = 0.5 * (above + below);
        const bool isAbove = heightAbove(camera_.sheetFromSensor(column_, middle)) > 0;
        (isAbove ? above : below) = middle;
      }
      const double left = heightAbove(camera_.sheetFromSensor(column_, above));
      return left < 1e-3 ? std::optional(above) : std::nullopt;
    }
    return {};
  }

 private:
  static constexpr int kSearchStep = 16;  // rows

  const SimulatedCamera& camera_;
  int column_, highest_;
  std::vector<SheetPoint> points_;
};

/// What the camera reports for a sensor row; 0 outside what is read out.
uint16_t rangeValue(double row, const SensorRows& rows);

/// Portable greymaps of 8 and of 16 bits; false when the file cannot be written.
bool writePgm(const std::string& path, int width, const std::vector<uint8_t>& pixels);
bool writePgm(const std::string& path, int width, const std::vector<uint16_t>& pixels);

/// What part of the sensor a range image shows, and how far its rows are apart, for the command
/// planex, which looks for it beside the image; false when the file cannot be written.
/// @param spacing in mm; 0 of something at rest, of which nothing is said
bool writeSidecar(const std::string& path, const SimulatedCamera& camera, const SensorRows& rows,
                  double spacing);

}  // namespace example
