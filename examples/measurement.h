/* Measures the features of a truth file on a height map and compares them with the truth. */
#ifndef PLANEX_EXAMPLES_MEASUREMENT_H_
#define PLANEX_EXAMPLES_MEASUREMENT_H_

#include <planex/api/planex.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>

typedef struct HeightMap {
  float* z;           /* mm; NaN where there is no point */
  uint8_t* intensity; /* as many pixels; 0 where there is no point */
  int width, height;
  RangeTransform transform; /* of columns, rows and range levels to mm */
} HeightMap;

typedef struct Region {
  double xMin, xMax, yMin, yMax; /* mm */
} Region;

/* A line of a truth file: a step from region b up to region a, or the radius or the center's X of a
   cylinder that lies in region a along Y. */
typedef struct Feature {
  char kind[16]; /* "step", "radius" or "center" */
  char name[48];
  double truth; /* mm */
  Region a, b;
} Feature;

/* What keeps a height map from the truth; lengths in mm. */
typedef struct ErrorSources {
  double pointNoise;   /* standard deviation of the height of one point */
  double pointSpacing; /* between neighbouring points of a profile */
  bool mean;           /* a cell is the mean of its points, not one of them */
} ErrorSources;

/* Reads the next feature; false at the end of the file or at a line it does not understand. */
bool readFeature(FILE* file, Feature* feature);

/* The measured value in mm; NaN when the region holds no points. */
double measure(const HeightMap* map, const Feature* feature);

/* How far measure() may be from the truth, in mm: three standard deviations of what the sources
   do, and one level for the truncation of heights. */
double explainedDeviation(const HeightMap* map, const Feature* feature,
                          const ErrorSources* sources);

/* Standard deviation of the heights in a level region, mm. */
double roughness(const HeightMap* map, const Region* region);

#endif
