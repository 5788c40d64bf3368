#include "simulated_scene.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace example {
namespace {

constexpr double kStepHeights[] = {2, 5, 10, 15, 20};
constexpr double kStepLength = 14;                   // along Y
constexpr Block kFirstStep = {-48, -18, 72, 86, 2};  // the others follow towards smaller Y
constexpr Cylinder kCylinder = {40, 8, 12, 88};
constexpr Block kGroovedBlock = {-6, 18, 12, 88, 8};
constexpr double kGroove[] = {3, 9};  // X
constexpr double kGrooveDepth = 5;

/// The part of a straight line, 0 < t, inside something; empty when end <= begin.
struct Span {
  double begin, end;
  bool beyondStart() const { return end > begin && end > 1e-9; }
};

Span common(Span a, Span b) { return {std::max(a.begin, b.begin), std::min(a.end, b.end)}; }

/// Where p + t d lies between two limits.
Span between(double p, double d, double low, double high) {
  if (d == 0) return p > low && p < high ? Span{-HUGE_VAL, HUGE_VAL} : Span{0, -1};
  const double a = (low - p) / d;
  const double b = (high - p) / d;
  return {std::min(a, b), std::max(a, b)};
}

/// Where the line lies inside a circle around the origin of the (x, z) plane.
Span insideCircle(double x, double z, double dx, double dz, double radius) {
  const double a = dx * dx + dz * dz;
  const double b = x * dx + z * dz;
  const double root = b * b - a * (x * x + z * z - radius * radius);
  if (root <= 0) return {0, -1};
  return {(-b - std::sqrt(root)) / a, (-b + std::sqrt(root)) / a};
}

/// Marks printed on the plate: a strip of squares, and discs too black for the camera.
double plateReflectance(double x, double y) {
  if (y > 91 && y < 99 && std::abs(x) < 48) {
    const bool odd = (static_cast<int>((x + 48) / 4) + static_cast<int>((y - 91) / 4)) % 2 != 0;
    return odd ? 0.2 : 0.8;
  }
  for (const double radius : {2.0, 3.0, 4.0}) {
    const double dx = x + 12;
    const double dy = y - (12.5 * radius + 12.5);
    if (dx * dx + dy * dy < radius * radius) return 0.015;
  }
  return 0.5;
}

}  // namespace

Surface Scene::surfaceAt(double x, double y) const {
  Surface top = {0, 0};
  for (const Block& b : blocks) {
    if (x >= b.xMin && x < b.xMax && y >= b.yMin && y < b.yMax && b.height > top.z) {
      top = {b.height, 0.75};
    }
  }
  for (const Cylinder& c : cylinders) {
    const double dx = x - c.x;
    if (std::abs(dx) >= c.radius || y <= c.yMin || y >= c.yMax) continue;
    const double z = c.radius + std::sqrt(c.radius * c.radius - dx * dx);
    if (z > top.z) top = {z, 0.95};
  }
  if (top.z == 0) top.reflectance = plateReflectance(x, y);
  return top;
}

double Scene::facing(double x, double y, const Vec3& laser) const {
  const double z = surfaceAt(x, y).z;
  Vec3 normal = {0, 0, 1};
  for (const Cylinder& c : cylinders) {
    if (std::abs(x - c.x) < c.radius && y > c.yMin && y < c.yMax) {
      normal = {(x - c.x) / c.radius, 0, (z - c.radius) / c.radius};
    }
  }
  const double dx = laser.x - x;
  const double dz = laser.z - z;
  return std::max(0.0, (normal.x * dx + normal.z * dz) / std::sqrt(dx * dx + dz * dz));
}

bool Scene::visible(const Vec3& point, const Vec3& eye) const {
  // The line starts a little above the surface, so that the surface does not hide itself.
  const Vec3 p = {point.x, point.y, point.z + 1e-3};
  const Vec3 d = {eye.x - p.x, eye.y - p.y, eye.z - p.z};
  for (const Block& b : blocks) {
    const Span inside =
        common(between(p.x, d.x, b.xMin, b.xMax), between(p.y, d.y, b.yMin, b.yMax));
    if (common(inside, between(p.z, d.z, 0, b.height)).beyondStart()) return false;
  }
  for (const Cylinder& c : cylinders) {
    const Span inside = insideCircle(p.x - c.x, p.z - c.radius, d.x, d.z, c.radius);
    if (common(inside, between(p.y, d.y, c.yMin, c.yMax)).beyondStart()) return false;
  }
  return true;
}

Scene makeScene() {
  Scene scene;
  Block step = kFirstStep;
  for (const double height : kStepHeights) {
    step.height = height;
    scene.blocks.push_back(step);
    step.yMin -= kStepLength;
    step.yMax -= kStepLength;
  }
  const Block& g = kGroovedBlock;
  scene.blocks.push_back({g.xMin, kGroove[0], g.yMin, g.yMax, g.height});
  scene.blocks.push_back({kGroove[0], kGroove[1], g.yMin, g.yMax, g.height - kGrooveDepth});
  scene.blocks.push_back({kGroove[1], g.xMax, g.yMin, g.yMax, g.height});
  scene.cylinders.push_back(kCylinder);
  return scene;
}

double brightnessAt(const SimulatedCamera& camera, const Scene& scene, const Vec3& p) {
  const Vec3 eye = {camera.position.x, camera.position.y + p.y, camera.position.z};
  const Vec3 laser = {camera.laser.x, camera.laser.y + p.y, camera.laser.z};
  if (!scene.visible(p, eye) || !scene.visible(p, laser)) return 0;
  return 255 * scene.surfaceAt(p.x, p.y).reflectance * scene.facing(p.x, p.y, laser);
}

bool writeTruth(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  const char* const plate = "21 28 20 80";
  double yMin = kFirstStep.yMin;
  for (const double height : kStepHeights) {  // 2 mm off the edges
    std::fprintf(file, "step step_%g_mm %g %g %g %g %g %s\n", height, height, kFirstStep.xMin + 2,
                 kFirstStep.xMax - 2, yMin + 2, yMin + kStepLength - 2, plate);
    yMin -= kStepLength;
  }
  const Block& g = kGroovedBlock;
  std::fprintf(file, "step block_height %g %g %g %g %g %s\n", g.height, g.xMin + 2, kGroove[0] - 2,
               g.yMin + 2, g.yMax - 2, plate);
  std::fprintf(file, "step groove_depth %g %g %g %g %g %g %g %g %g\n", kGrooveDepth, g.xMin + 2,
               kGroove[0] - 2, g.yMin + 2, g.yMax - 2, kGroove[0] + 2, kGroove[1] - 1, g.yMin + 15,
               g.yMax - 2);
  const Cylinder& c = kCylinder;
  const double flank = 0.7 * c.radius;  // up to 45 degrees to both sides
  for (const char* const kind : {"radius", "center"}) {
    std::fprintf(file, "%s cylinder_%s %g %g %g %g %g\n", kind, kind,
                 kind[0] == 'r' ? c.radius : c.x, c.x - flank, c.x + flank, c.yMin + 2, c.yMax - 2);
  }
  return std::fclose(file) == 0;
}

}  // namespace example
