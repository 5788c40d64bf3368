/* From a range image to a height map, through the C interface of planex alone.

       height_map <scan folder> <output folder> [mode]

   reads model.json, scan.txt, range.pgm, intensity.pgm and truth.txt (simulate_scan writes them),
   measures what truth.txt lists, and writes height.pgm and intensity_map.pgm. The mode is one of
   PLANEX_RECTIFICATION_...: 0 mean (the default), 1 highest, 2 lowest, 3 darkest, 4 brightest.
   Exits with 1 when a step fails or a measurement is further from the truth than noise and grid
   explain. */
/* clock_gettime; NOLINTNEXTLINE(bugprone-reserved-identifier): the name is POSIX's. */
#define _POSIX_C_SOURCE 199309L

#include <math.h>
#include <planex/api/planex.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "measurement.h"
#include "scan_files.h"

enum { kRepetitions = 5 };

/* Everything on the way from the scan to the height map, and what has to be given back. */
typedef struct Chain {
  const char* folder;
  uint32_t mode;
  Scan scan;
  uint32_t model, calibration, rectification; /* handles; 0 where there is none */
  float *x, *z;                               /* the calibrated points, mm; NaN where missing */
  size_t measured;                            /* how many of them there are */
  WorldRangeTraits grid;
  SplatSettings splat;
  uint32_t intensityFormat; /* the rectification filter keeps a pointer to it */
  double rowHeight;         /* mm in Z per sensor row, on average */
  HeightMap map;
} Chain;

static void printLog(const char* text) { fprintf(stderr, "planex: %s\n", text); }

static bool failed(const char* step) {
  fprintf(stderr, "height_map: failed: %s\n", step);
  return false;
}

static double milliseconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec * 1e3 + (double)now.tv_nsec * 1e-6;
}

static void printTime(const char* stage, double ms, double pixels) {
  printf("  %-27s %7.2f ms", stage, ms);
  if (pixels > 0) printf(" %6.0f Mpixel/s", pixels / ms * 1e-3);
  printf("\n");
}

static size_t pixelCount(const Chain* chain) {
  return (size_t)chain->scan.size.width * chain->scan.size.height;
}

static size_t cellCount(const Chain* chain) {
  return (size_t)chain->map.width * (size_t)chain->map.height;
}

static bool loadModel(Chain* chain) {
  char path[4096];
  const double start = milliseconds();
  snprintf(path, sizeof path, "%s/model.json", chain->folder);
  if (!createModelFromFilePath(path, &chain->model)) return failed("createModelFromFilePath");
  printTime("createModelFromFilePath", milliseconds() - start, 0);
  return true;
}

static bool calibrate(Chain* chain) {
  const Scan* scan = &chain->scan;
  double best = HUGE_VAL;
  int i;
  chain->x = malloc(pixelCount(chain) * sizeof(float));
  chain->z = malloc(pixelCount(chain) * sizeof(float));
  if (chain->x == NULL || chain->z == NULL) return failed("allocating X and Z");
  if (!createCalibrationFilter(chain->model, scan->traits, scan->size,
                               PLANEX_PIXEL_FORMAT_COORD3D_C16, &chain->calibration)) {
    return failed("createCalibrationFilter");
  }
  for (i = 0; i < kRepetitions; ++i) {
    const double start = milliseconds();
    if (!applyCalibration(chain->calibration, scan->range, chain->x, chain->z)) {
      return failed("applyCalibration");
    }
    best = fmin(best, milliseconds() - start);
  }
  printTime("applyCalibration", best, (double)pixelCount(chain));
  return true;
}

/* Narrows the grid to what was measured: whole millimetres in X and Z, columns as far apart as the
   profiles, so that pictures are true to scale. */
static bool narrowGrid(Chain* chain) {
  const double spacing = chain->scan.profileSpacing;
  WorldRangeTraits* grid = &chain->grid;
  double xMin = HUGE_VAL, xMax = -HUGE_VAL, zMin = HUGE_VAL, zMax = -HUGE_VAL;
  size_t i;
  for (i = 0; i < pixelCount(chain); ++i) {
    if (isnan(chain->z[i])) continue;
    ++chain->measured;
    xMin = fmin(xMin, chain->x[i]);
    xMax = fmax(xMax, chain->x[i]);
    zMin = fmin(zMin, chain->z[i]);
    zMax = fmax(zMax, chain->z[i]);
  }
  if (chain->measured == 0) return failed("looking for measured points");
  grid->xMin = floor(xMin);
  grid->xCount = (uint32_t)ceil((ceil(xMax) - grid->xMin) / spacing) + 1;
  grid->xMax = grid->xMin + (grid->xCount - 1) * spacing;
  grid->yMax = (grid->yCount - 1) * spacing; /* yMin is 0 */
  grid->zMin = floor(zMin);
  grid->zMax = ceil(zMax);
  return true;
}

static void printBox(const char* title, const WorldRangeTraits* box) {
  printf("%s X %.1f to %.1f mm, Z %.1f to %.1f mm\n", title, box->xMin, box->xMax, box->zMin,
         box->zMax);
}

static bool chooseGrid(Chain* chain) {
  const Scan* scan = &chain->scan;
  WorldRangeTraits whole;
  const double start = milliseconds();
  if (!calculateCalibrationBounds(chain->model, scan->traits, scan->size, &whole, &chain->splat)) {
    return failed("calculateCalibrationBounds");
  }
  printTime("calculateCalibrationBounds", milliseconds() - start, 0);
  chain->rowHeight = (whole.zMax - whole.zMin) / scan->traits.height;
  chain->grid = whole;
  if (!narrowGrid(chain)) return false;
  chain->map.width = (int)chain->grid.xCount;
  chain->map.height = (int)chain->grid.yCount;
  chain->map.transform = rangeTraitsToTransform(chain->grid);
  printBox("  the sensor region sees     ", &whole);
  printBox("  narrowed to the scan       ", &chain->grid);
  return true;
}

static bool rectifyScan(Chain* chain) {
  const void* inputs[1];
  void* outputs[1];
  double best = HUGE_VAL;
  int i;
  chain->map.z = malloc(cellCount(chain) * sizeof(float));
  chain->map.intensity = malloc(cellCount(chain));
  if (chain->map.z == NULL || chain->map.intensity == NULL) return failed("allocating the map");
  inputs[0] = chain->scan.intensity;
  outputs[0] = chain->map.intensity;
  chain->intensityFormat = PLANEX_PIXEL_FORMAT_MONO8;
  if (!createRectificationFilter(chain->mode, chain->grid, chain->scan.size, 1,
                                 &chain->intensityFormat, chain->splat, NAN,
                                 &chain->rectification)) {
    return failed("createRectificationFilter");
  }
  for (i = 0; i < kRepetitions; ++i) {
    const double start = milliseconds();
    if (!rectify(chain->rectification, chain->x, chain->z, inputs, chain->map.z, outputs)) {
      return failed("rectify");
    }
    best = fmin(best, milliseconds() - start);
  }
  printTime("rectify, with intensity", best, (double)pixelCount(chain));
  return true;
}

static void printCounts(const Chain* chain) {
  const double all = (double)pixelCount(chain), measured = (double)chain->measured;
  size_t i, filled = 0;
  for (i = 0; i < cellCount(chain); ++i) filled += isnan(chain->map.z[i]) ? 0 : 1;
  printf("\npoints: %.0f, measured %.0f (%.1f %%), dropped %.0f (%.1f %%: hidden or too dark)\n",
         all, measured, 100 * measured / all, all - measured, 100 - 100 * measured / all);
  printf("cells:  %d x %d of %g mm, rectified %zu (%.1f %%)\n", chain->map.width, chain->map.height,
         chain->map.transform.scaleX, filled, 100 * (double)filled / (double)cellCount(chain));
}

/* Prints measured beside true values; false when a deviation is not explained. */
static bool printMeasurements(const Chain* chain) {
  const HeightMap* map = &chain->map;
  const double row = hypot(chain->scan.rowNoise, chain->scan.traits.scaleZ / sqrt(12));
  ErrorSources sources;
  Feature feature;
  double plateRoughness = 0;
  int count = 0, off = 0;
  bool complete;
  FILE* file = openIn(chain->folder, "truth.txt", "r");
  if (file == NULL) return false;
  sources.pointNoise = row * chain->rowHeight;
  sources.pointSpacing = chain->splat.splatB;
  sources.mean = chain->mode == PLANEX_RECTIFICATION_MEAN;
  printf("\n%-18s %10s %13s %14s %14s\n", "", "true [mm]", "measured [mm]", "deviation [um]",
         "explained [um]");
  while (readFeature(file, &feature)) {
    const double measured = measure(map, &feature);
    const double deviation = measured - feature.truth;
    const double explained = explainedDeviation(map, &feature, &sources);
    const bool good = fabs(deviation) <= explained; /* false for NaN */
    printf("%-18s %10.3f %13.5f %+14.2f %11s%.2f%s\n", feature.name, feature.truth, measured,
           1e3 * deviation, "+-", 1e3 * explained, good ? "" : "  OFF");
    if (count++ == 0) plateRoughness = roughness(map, &feature.b);
    off += !good;
  }
  complete = count > 0 && feof(file) != 0;
  fclose(file);
  printf(
      "\nexplained: line noise of %.2f pixel (%.1f um in Z; %.1f um are left in a cell of the "
      "plate),\n",
      chain->scan.rowNoise, 1e3 * sources.pointNoise, 1e3 * plateRoughness);
  printf("range values in steps of %g pixel, heights in steps of %.2f um, and %s\n",
         chain->scan.traits.scaleZ, 1e3 * map->transform.scaleZ,
         sources.mean ? "the width of columns on the cylinder"
                      : "a mode that takes one point of a cell for all");
  if (!complete) return failed("reading truth.txt");
  return off == 0 || failed("a deviation that noise and grid do not explain");
}

/* Binary PGM: 8 bits, or 16 bits with the high byte first. */
static bool writePgm(const char* folder, const char* name, const HeightMap* map,
                     const uint8_t* bytes, int bytesPerCell) {
  const size_t count = (size_t)map->width * (size_t)map->height * (size_t)bytesPerCell;
  FILE* file = openIn(folder, name, "wb");
  bool written;
  if (file == NULL) return false;
  written = fprintf(file, "P5\n%d %d\n%d\n", map->width, map->height,
                    bytesPerCell == 1 ? 255 : 65535) > 0 &&
            fwrite(bytes, 1, count, file) == count;
  return (fclose(file) == 0 && written) || failed(name);
}

/* Heights as the 16-bit levels of the grid, 0 where there is none, and intensities. */
static bool writeMaps(const HeightMap* map, const char* folder) {
  const size_t count = (size_t)map->width * (size_t)map->height;
  uint8_t* bytes = malloc(2 * count);
  bool written;
  size_t i;
  if (bytes == NULL) return failed("allocating levels");
  for (i = 0; i < count; ++i) {
    const double z = (map->z[i] - map->transform.originZ) / map->transform.scaleZ;
    const unsigned level = isnan(z) ? 0U : (unsigned)lround(z);
    bytes[2 * i] = (uint8_t)(level >> 8);
    bytes[2 * i + 1] = (uint8_t)(level & 0xFFU);
  }
  written = writePgm(folder, "height.pgm", map, bytes, 2) &&
            writePgm(folder, "intensity_map.pgm", map, map->intensity, 1);
  free(bytes);
  if (written) {
    printf("\nheight.pgm: Z = level * %.9g mm %+.9g mm, 0 where nothing was measured\n",
           map->transform.scaleZ, map->transform.originZ);
  }
  return written;
}

static bool run(Chain* chain, const char* outputFolder) {
  bool good;
  if (!readScan(chain->folder, &chain->scan)) return false;
  printf("%d profiles of %d columns; times are the best of %d calls\n\n", chain->scan.size.height,
         chain->scan.size.width, kRepetitions);
  if (!loadModel(chain) || !calibrate(chain) || !chooseGrid(chain) || !rectifyScan(chain)) {
    return false;
  }
  printCounts(chain);
  good = printMeasurements(chain);
  return writeMaps(&chain->map, outputFolder) && good;
}

static void release(Chain* chain) {
  if (chain->rectification != 0) destroyRectificationFilter(&chain->rectification);
  if (chain->calibration != 0) destroyCalibrationFilter(&chain->calibration);
  if (chain->model != 0) destroyModel(&chain->model);
  freeScan(&chain->scan);
  free(chain->x);
  free(chain->z);
  free(chain->map.z);
  free(chain->map.intensity);
}

int main(int argc, char** argv) {
  Chain chain;
  bool good;
  if (argc != 3 && argc != 4) {
    fprintf(stderr, "usage: %s <scan folder> <output folder> [mode 0 ... 4]\n", argv[0]);
    return 2;
  }
  memset(&chain, 0, sizeof chain);
  chain.folder = argv[1];
  chain.mode = argc == 4 ? (uint32_t)strtoul(argv[3], NULL, 10) : PLANEX_RECTIFICATION_MEAN;
  registerLogHandler(printLog);
  good = run(&chain, argv[2]);
  release(&chain);
  return good ? 0 : 1;
}
