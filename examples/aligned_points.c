/* From a range image to aligned points, in C: aligned_points <model document> */
#include <math.h>
#include <planex/api/planex.h>
#include <planex/api/points.h>
#include <stdio.h>
#include <stdlib.h>

enum { kWidth = 2560, kMiddle = kWidth / 2, kProfiles = 100, kPixels = kWidth * kProfiles };
static uint16_t range[kPixels]; /* the camera's: the row of the laser line, in sixteenths */
static float calibratedX[kPixels], calibratedZ[kPixels], x[kPixels], y[kPixels], z[kPixels];

static void printLog(const char* text) { fprintf(stderr, "%s\n", text); }

static void check(bool good) {
  if (!good) exit(1); /* the log has said why */
}

int main(int argc, char** argv) {
  const SensorTraits traits = {1, 0, 1.0 / 16, 0, kWidth, 1024}; /* the whole sensor */
  const ImageSize size = {kWidth, kProfiles};
  const double spacing = 0.1; /* mm between profiles; an encoder may give others */
  double position[kProfiles];
  uint32_t model, calibration, alignment;
  for (int i = 0; i < kProfiles; ++i) position[i] = i * spacing;
  for (int i = 0; i < kPixels; ++i) range[i] = (uint16_t)(16 * (400 + i / kWidth));

  registerLogHandler(printLog);
  check(createModelFromFilePath(argc > 1 ? argv[1] : "model.json", &model));
  check(createCalibrationFilter(model, traits, size, PLANEX_PIXEL_FORMAT_MONO16, &calibration));
  check(applyCalibration(calibration, range, calibratedX, calibratedZ));
  check(createAlignmentFilter(model, size, &alignment));
  check(applyAlignment(alignment, calibratedX, position, calibratedZ, x, y, z));

  /* Where on the sensor, and in which profile, a point in space was seen. */
  for (int profile = 0; profile < kProfiles; profile += 25) {
    const int i = profile * kWidth + kMiddle;
    const double point[3] = {x[i], y[i], z[i]};
    double seen[3];
    check(mapSpacePoints(model, PLANEX_COORDINATES_ALIGNED, PLANEX_COORDINATES_PIXEL, spacing, 0, 1,
                         point, seen));
    printf("X %.3f mm, Y %.3f mm, Z %.3f mm: column %.2f, profile %.2f, row %.2f\n", point[0],
           point[1], point[2], seen[0], seen[1], seen[2]);
    if (fabs(seen[0] - kMiddle) > 0.01 || fabs(seen[1] - profile) > 0.01 ||
        fabs(seen[2] - range[i] / 16.0) > 0.01) {
      return 1;
    }
  }
  return destroyModel(&model) ? 0 : 1; /* the filters go with the process */
}
