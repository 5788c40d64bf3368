// A laser-line triangulation camera in plain numbers: what its model document says, and where in
// the laser sheet a sensor position lies. Nothing here uses the library: a scan simulated with
// these formulas is an independent test of it.
//
// Coordinates in millimetres: X along the laser line, Y along the scan, Z up; the laser sheet is
// the plane Y = 0, and the object moves through it.
#pragma once

#include <array>
#include <string>

namespace example {

struct Vec3 {
  double x, y, z;
};

/// A point in the laser sheet.
struct SheetPoint {
  double x, z;
};

struct SimulatedCamera {
  int sensorWidth, sensorHeight;     ///< pixels
  double focalLength;                ///< pixels
  std::array<double, 2> lensCenter;  ///< sensor column and row
  std::array<double, 7> lens;        ///< radial (3), tangential (2), Scheimpflug (2)
  std::array<double, 9> homography;  ///< sheet from undistorted sensor, row-major
  std::array<double, 6> sheetCurve;  ///< how the sheet departs from a plane
  std::array<double, 3> skew;        ///< direction of the scan
  std::array<double, 16> pose;       ///< aligned from calibrated, row-major
  Vec3 position;                     ///< centre of projection
  Vec3 laser;                        ///< where the laser fan starts

  /// The point of the laser sheet that is seen at sensor column u, row v.
  SheetPoint sheetFromSensor(double u, double v) const;
};

/// A 2560 x 1024 camera some 300 mm away, looking at the sheet under 31 degrees.
SimulatedCamera makeCamera();

/// Writes the camera as a model document; false when the file cannot be written.
bool writeModel(const SimulatedCamera& camera, const std::string& path);

}  // namespace example
