#include "simulated_camera.h"

#include <cmath>
#include <cstdio>

namespace example {
namespace {

double dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

Vec3 cross(Vec3 a, Vec3 b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

Vec3 unit(Vec3 a) {
  const double length = std::sqrt(dot(a, a));
  return {a.x / length, a.y / length, a.z / length};
}

/// Inverse of a 3 x 3 matrix of rows a, b, c, scaled so that its last entry is 1.
std::array<double, 9> scaledInverse(Vec3 a, Vec3 b, Vec3 c) {
  const Vec3 bc = cross(b, c);  // the columns of the adjugate
  const Vec3 ca = cross(c, a);
  const Vec3 ab = cross(a, b);
  const double s = ab.z;
  return {bc.x / s, ca.x / s, ab.x / s, bc.y / s, ca.y / s, ab.y / s, bc.z / s, ca.z / s, 1.0};
}

/// The homography from the ideal sensor of a camera at `position`, turned towards `target`, onto
/// the plane Y = 0. Sensor rows count upwards in the world; `right` is nearly the column direction.
std::array<double, 9> sheetHomography(Vec3 position, Vec3 target, Vec3 right) {
  const Vec3 axis = unit({target.x - position.x, target.y - position.y, target.z - position.z});
  const Vec3 row = unit(cross(axis, right));
  const Vec3 column = cross(row, axis);
  // A sheet point (X, 0, Z) appears at (column . p, row . p) / (axis . p), p = (X, 0, Z) -
  // position.
  return scaledInverse({column.x, column.z, -dot(column, position)},
                       {row.x, row.z, -dot(row, position)}, {axis.x, axis.z, -dot(axis, position)});
}

void writeNumbers(std::FILE* file, const double* values, size_t count) {
  std::fputc('[', file);
  for (size_t i = 0; i < count; ++i) std::fprintf(file, "%s%.17g", i == 0 ? "" : ", ", values[i]);
  std::fputc(']', file);
}

void writeMatrix(std::FILE* file, const char* name, const double* values, size_t size) {
  std::fprintf(file, "    \"%s\": [\n", name);
  for (size_t row = 0; row < size; ++row) {
    std::fputs("      ", file);
    writeNumbers(file, values + row * size, size);
    std::fputs(row + 1 < size ? ",\n" : "\n", file);
  }
  std::fputs("    ],\n", file);
}

}  // namespace

SheetPoint SimulatedCamera::sheetFromSensor(double u, double v) const {
  const double x = (u - lensCenter[0]) / focalLength;
  const double y = (v - lensCenter[1]) / focalLength;

  const double r2 = x * x + y * y;
  const double radial = 1 + lens[0] * r2 + lens[1] * r2 * r2 + lens[2] * r2 * r2 * r2;
  const double xi = x * radial + 2 * lens[3] * x * y + lens[4] * (r2 + 2 * x * x) + lens[5] * r2;
  const double yi = y * radial + lens[3] * (r2 + 2 * y * y) + 2 * lens[4] * x * y + lens[6] * r2;

  const auto& h = homography;
  const double w = h[6] * xi + h[7] * yi + h[8];
  const double sheetX = (h[0] * xi + h[1] * yi + h[2]) / w;
  const double sheetZ = (h[3] * xi + h[4] * yi + h[5]) / w;

  const auto& s = sheetCurve;
  const double d = (sheetX - s[0]) * (1 + s[1] * sheetZ);
  return {sheetX, sheetZ + s[2] + s[3] * d + s[4] * d * d + s[5] * d * d * d};
}

SimulatedCamera makeCamera() {
  SimulatedCamera camera{};
  camera.sensorWidth = 2560;
  camera.sensorHeight = 1024;
  camera.focalLength = 6400;
  camera.lensCenter = {1287.4, 519.2};
  camera.lens = {-0.14, 0.4, -6, 1.6e-3, -1.1e-3, 4e-3, -1.2e-2};
  camera.position = {2, 150, 260};
  camera.laser = {0, 0, 420};
  camera.homography = sheetHomography(camera.position, {0.4, 0, 12}, {1, 0.004, 0.006});
  camera.sheetCurve = {1.5, 2e-3, 0.02, 4e-4, -3e-5, 2e-7};
  camera.skew = {0.012, 1, -0.006};
  // A turn of 3-4-5 proportions about Z and a shift, as an alignment target would give.
  camera.pose = {0.8, -0.6, 0, 12.5, 0.6, 0.8, 0, -4, 0, 0, 1, 30, 0, 0, 0, 1};
  return camera;
}

bool writeModel(const SimulatedCamera& camera, const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  std::fputs("{\n  \"class\": \"Image.Planex.Model\",\n  \"data\": {\n", file);
  std::fputs("    \"FileVersion\": 2,\n", file);
  std::fputs("    \"CurrentState\": \"CALIBRATED_ALIGNED_3D\",\n", file);
  std::fputs("    \"SkewMode\": \"XZ_IN_LIGHT_PLANE\",\n", file);
  std::fputs("    \"CalibrationError\": 0.004,\n    \"CalibrationErrorMax\": 0.011,\n", file);
  std::fputs("    \"AlignmentError\": 0.008,\n    \"AlignmentErrorMax\": 0.02,\n", file);
  std::fprintf(file, "    \"FocalLength\": %.17g,\n", camera.focalLength);
  std::fprintf(file, "    \"SensorSize\": {\"x\": %d, \"y\": %d},\n", camera.sensorWidth,
               camera.sensorHeight);
  std::fprintf(file, "    \"LensCenter\": {\"x\": %.17g, \"y\": %.17g},\n", camera.lensCenter[0],
               camera.lensCenter[1]);
  std::fprintf(file, "    \"Skew\": {\"x\": %.17g, \"y\": %.17g, \"z\": %.17g},\n", camera.skew[0],
               camera.skew[1], camera.skew[2]);
  writeMatrix(file, "Homography", camera.homography.data(), 3);
  writeMatrix(file, "Pose", camera.pose.data(), 4);
  std::fputs("    \"LensCoefficients\": ", file);
  writeNumbers(file, camera.lens.data(), camera.lens.size());
  std::fputs(",\n    \"SheetCurve\": ", file);
  writeNumbers(file, camera.sheetCurve.data(), camera.sheetCurve.size());
  std::fputs(",\n    \"CalibratedRegion\": {\n", file);
  std::fputs("      \"PointCount\": null,\n", file);
  std::fputs("      \"AverageResidualX\": null,\n      \"AverageResidualZ\": null,\n", file);
  std::fputs("      \"MaximumResidualX\": null,\n      \"MaximumResidualZ\": null\n", file);
  std::fputs("    }\n  }\n}\n", file);
  return std::fclose(file) == 0;
}

}  // namespace example
