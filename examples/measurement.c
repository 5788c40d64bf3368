#include "measurement.h"

#include <math.h>
#include <string.h>

/* The cells of a region: columns and rows from begin to before end. */
typedef struct Window {
  int xBegin, xEnd, yBegin, yEnd;
} Window;

typedef struct Sums {
  double n, z, zz;
} Sums;

typedef struct Circle {
  double x, z, radius;
} Circle;

static bool readRegion(FILE* file, Region* r) {
  return fscanf(file, "%lf %lf %lf %lf", &r->xMin, &r->xMax, &r->yMin, &r->yMax) == 4;
}

bool readFeature(FILE* file, Feature* feature) {
  memset(feature, 0, sizeof *feature);
  if (fscanf(file, "%15s %47s %lf", feature->kind, feature->name, &feature->truth) != 3) {
    return false;
  }
  if (!readRegion(file, &feature->a)) return false;
  if (strcmp(feature->kind, "step") == 0) return readRegion(file, &feature->b);
  return strcmp(feature->kind, "radius") == 0 || strcmp(feature->kind, "center") == 0;
}

/* The first index whose coordinate is not below the limit. */
static int indexAt(double limit, double origin, double scale, int count) {
  const double index = ceil((limit - origin) / scale);
  return (int)fmin(fmax(index, 0), count);
}

static Window windowOf(const HeightMap* map, const Region* r) {
  const RangeTransform* t = &map->transform;
  Window w;
  w.xBegin = indexAt(r->xMin, t->originX, t->scaleX, map->width);
  w.xEnd = indexAt(r->xMax, t->originX, t->scaleX, map->width);
  w.yBegin = indexAt(r->yMin, t->originY, t->scaleY, map->height);
  w.yEnd = indexAt(r->yMax, t->originY, t->scaleY, map->height);
  return w;
}

static double heightAt(const HeightMap* map, int column, int row) {
  return map->z[(size_t)row * (size_t)map->width + (size_t)column];
}

static Sums sumsOf(const HeightMap* map, const Region* region) {
  const Window w = windowOf(map, region);
  Sums s = {0, 0, 0};
  int column, row;
  for (row = w.yBegin; row < w.yEnd; ++row) {
    for (column = w.xBegin; column < w.xEnd; ++column) {
      const double z = heightAt(map, column, row);
      if (isnan(z)) continue;
      s.n += 1;
      s.z += z;
      s.zz += z * z;
    }
  }
  return s;
}

/* Adds an equation row . solution = row[3] to normal equations of three unknowns. */
static void addEquation(double normal[3][4], const double row[4]) {
  int i, k;
  for (i = 0; i < 3; ++i) {
    for (k = 0; k < 4; ++k) normal[i][k] += row[i] * row[k];
  }
}

/* Elimination; the solution replaces the right-hand sides. */
static void solve(double m[3][4]) {
  int pivot, i, k;
  for (pivot = 0; pivot < 3; ++pivot) {
    for (k = 3; k >= pivot; --k) m[pivot][k] /= m[pivot][pivot];
    for (i = 0; i < 3; ++i) {
      if (i == pivot) continue;
      for (k = 3; k >= pivot; --k) m[i][k] -= m[i][pivot] * m[pivot][k];
    }
  }
}

/* The cylinder along Y with the least squared distances, by Gauss-Newton steps from a circle as
   wide as the region. */
static Circle fitCylinder(const HeightMap* map, const Region* region) {
  const Window w = windowOf(map, region);
  const Sums sums = sumsOf(map, region);
  Circle c = {0.5 * (region->xMin + region->xMax), 0, 0.5 * (region->xMax - region->xMin)};
  int round, column, row;
  c.z = sums.z / sums.n - c.radius;
  for (round = 0; round < 20; ++round) {
    double normal[3][4] = {{0}};
    for (row = w.yBegin; row < w.yEnd; ++row) {
      for (column = w.xBegin; column < w.xEnd; ++column) {
        const double dx = column * map->transform.scaleX + map->transform.originX - c.x;
        const double dz = heightAt(map, column, row) - c.z;
        const double distance = sqrt(dx * dx + dz * dz);
        const double equation[4] = {dx / distance, dz / distance, 1, distance - c.radius};
        if (!isnan(dz)) addEquation(normal, equation);
      }
    }
    solve(normal);
    c.x += normal[0][3];
    c.z += normal[1][3];
    c.radius += normal[2][3];
  }
  return c;
}

double measure(const HeightMap* map, const Feature* feature) {
  Sums a, b;
  if (strcmp(feature->kind, "radius") == 0) return fitCylinder(map, &feature->a).radius;
  if (strcmp(feature->kind, "center") == 0) return fitCylinder(map, &feature->a).x;
  a = sumsOf(map, &feature->a);
  b = sumsOf(map, &feature->b);
  return a.z / a.n - b.z / b.n;
}

/* Where one point stands for a cell: the mode prefers points by their noise. How much varies with
   the points per cell, which differ a little between heights. */
static double explainedStep(const HeightMap* map, const Feature* feature,
                            const ErrorSources* sources) {
  const double n = sources->mean ? map->transform.scaleX / sources->pointSpacing : 1;
  const double a = n * sumsOf(map, &feature->a).n;
  const double b = n * sumsOf(map, &feature->b).n;
  const double preference = sources->mean ? 0 : 0.25 * sources->pointNoise;
  return 3 * sources->pointNoise * sqrt(1 / a + 1 / b) + preference;
}

/* An arc of +-t tells the radius from the height of the center only by its curvature: deviations
   across the arc count 1 / sqrt(1 - mean(cos)^2 / mean(cos^2)) times. They count 1 /
   sqrt(mean(sin^2)) times in the center's X. On the flanks, where a cell is steep, it matters that
   its points need not lie around the middle of the column. */
static double explainedCylinder(const HeightMap* map, const Feature* feature,
                                const ErrorSources* sources) {
  const bool center = strcmp(feature->kind, "center") == 0;
  const Circle c = fitCylinder(map, &feature->a);
  const double width = feature->a.xMax - feature->a.xMin;
  const double t = asin(0.5 * width / c.radius);
  const double meanCos = sin(t) / t;
  const double meanCos2 = 0.5 + sin(2 * t) / (4 * t);
  const double gain = 1 / sqrt(center ? 1 - meanCos2 : 1 - meanCos * meanCos / meanCos2);
  const double columns = width / map->transform.scaleX;
  const double noise = sources->pointNoise / sqrt(sumsOf(map, &feature->a).n);
  const double offCenter = sources->pointSpacing / sqrt(12) * sqrt(1 - meanCos2) / sqrt(columns);
  /* Any point of a cell may stand for it; for the center the two flanks cancel. */
  const double preference = sources->mean ? 0 : map->transform.scaleX * (center ? 0.1 : 1);
  return 3 * gain * (noise + offCenter) + preference;
}

double explainedDeviation(const HeightMap* map, const Feature* feature,
                          const ErrorSources* sources) {
  const bool step = strcmp(feature->kind, "step") == 0;
  const double deviation =
      step ? explainedStep(map, feature, sources) : explainedCylinder(map, feature, sources);
  return deviation + map->transform.scaleZ;
}

double roughness(const HeightMap* map, const Region* region) {
  const Sums s = sumsOf(map, region);
  return sqrt(s.zz / s.n - s.z / s.n * (s.z / s.n));
}
