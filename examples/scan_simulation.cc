#include "scan_simulation.h"

#include <cmath>
#include <cstdio>

namespace example {
namespace {

/// Numbers of two bytes have the high byte first.
template <typename Pixel>
bool writeGreymap(const std::string& path, int width, const std::vector<Pixel>& pixels) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  const size_t height = pixels.size() / static_cast<size_t>(width);
  std::fprintf(file, "P5\n%d %zu\n%d\n", width, height, (1 << (8 * sizeof(Pixel))) - 1);
  for (const Pixel pixel : pixels) {
    if (sizeof(Pixel) > 1) std::fputc(pixel >> 8, file);
    std::fputc(pixel & 0xFF, file);
  }
  return std::fclose(file) == 0;
}

}  // namespace

double Random::normal() {
  double sum = 0;
  for (int i = 0; i < 3; ++i) {
    uint64_t bits = next();
    for (int k = 0; k < 4; ++k, bits >>= 16) sum += static_cast<double>(bits & 0xFFFF);
  }
  return (sum - 6 * 65535.0) / 65536.0;
}

double Random::uniform() { return static_cast<double>(next() >> 11) / 9007199254740992.0; }

/// SplitMix64. Source: Steele, Lea and Flood, Fast splittable pseudorandom number generators.
uint64_t Random::next() {
  uint64_t z = state_ += 0x9E3779B97F4A7C15;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
  return z ^ (z >> 31);
}

ColumnSight::ColumnSight(const SimulatedCamera& camera, int column, const SensorRows& rows)
    : camera_(camera), column_(column), highest_(rows.first + rows.count) {
  for (int row = highest_; row >= rows.first; row -= kSearchStep) {
    points_.push_back(camera.sheetFromSensor(column, row));
  }
}

uint16_t rangeValue(double row, const SensorRows& rows) {
  const double value = std::floor((row - rows.first) * kStepsPerRow + 0.5);
  const bool inside = value >= 1 && value < rows.count * kStepsPerRow;
  return inside ? static_cast<uint16_t>(value) : uint16_t{0};
}

bool writePgm(const std::string& path, int width, const std::vector<uint8_t>& pixels) {
  return writeGreymap(path, width, pixels);
}

bool writePgm(const std::string& path, int width, const std::vector<uint16_t>& pixels) {
  return writeGreymap(path, width, pixels);
}

bool writeSidecar(const std::string& path, const SimulatedCamera& camera, const SensorRows& rows,
                  double spacing) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  std::fprintf(file,
               "{\"sensor\": {\"scaleX\": 1, \"originX\": 0, \"scaleZ\": %.17g, \"originZ\": %d, "
               "\"width\": %d, \"height\": %d}",
               1 / kStepsPerRow, rows.first, camera.sensorWidth, rows.count);
  if (spacing > 0) std::fprintf(file, ",\n \"rows\": {\"scaleY\": %.17g, \"originY\": 0}", spacing);
  std::fputs("}\n", file);
  return std::fclose(file) == 0;
}

}  // namespace example
