// The object under the simulated camera: a plate with a step gauge, a cylinder and a grooved block,
// and printed marks. Millimetres; X along the laser line, Y along the scan, Z above the plate.
#pragma once

#include <string>
#include <vector>

#include "simulated_camera.h"

namespace example {

/// An upright block standing on the plate.
struct Block {
  double xMin, xMax, yMin, yMax, height;
};

/// A cylinder lying on the plate along Y.
struct Cylinder {
  double x, radius, yMin, yMax;
};

/// What a laser-line camera sees of a surface point.
struct Surface {
  double z;
  double reflectance;  ///< share of the laser light that comes back from a point lit squarely
};

struct Scene {
  std::vector<Block> blocks;
  std::vector<Cylinder> cylinders;

  /// The surface above (x, y).
  Surface surfaceAt(double x, double y) const;

  /// How squarely the laser lights the surface there: the cosine of its angle to the normal.
  double facing(double x, double y, const Vec3& laser) const;

  /// Whether nothing stands on the straight line from a surface point to the eye.
  bool visible(const Vec3& point, const Vec3& eye) const;
};

Scene makeScene();

/// The brightness of the laser on the scene at p, as the camera sees it, in levels of 255; 0 in the
/// shadow. The camera and the laser stand still, the object moves: both are level with its Y.
double brightnessAt(const SimulatedCamera& camera, const Scene& scene, const Vec3& p);

/// Writes what can be measured on makeScene(), one feature a line; false when it cannot be written.
///
///     step   <name> <true> <region A> <region B>   mean height of A less that of B
///     radius <name> <true> <region A>              radius of the cylinder in A
///     center <name> <true> <region A>              X of its center
///
/// A region is xMin xMax yMin yMax.
bool writeTruth(const std::string& path);

}  // namespace example
