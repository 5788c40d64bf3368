/* From a range image to a height map: minimal <model document> */
#include <math.h>
#include <planex/api/planex.h>
#include <stdio.h>
#include <stdlib.h>

enum { kWidth = 2560, kMiddle = kWidth / 2, kProfiles = 100, kPixels = kWidth * kProfiles };
static uint16_t range[kPixels]; /* the camera's: the row of the laser line, in sixteenths */
static float x[kPixels], z[kPixels], height[kPixels];

static void printLog(const char* text) { fprintf(stderr, "%s\n", text); }

static void check(bool good) {
  if (!good) exit(1); /* the log has said why */
}

int main(int argc, char** argv) {
  const SensorTraits traits = {1, 0, 1.0 / 16, 0, kWidth, 1024}; /* the whole sensor */
  const ImageSize size = {kWidth, kProfiles};
  uint32_t model, calibration, rectification;
  WorldRangeTraits grid;
  SplatSettings splat;
  for (int i = 0; i < kPixels; ++i) range[i] = (uint16_t)(16 * (400 + i / kWidth));

  registerLogHandler(printLog);
  check(createModelFromFilePath(argc > 1 ? argv[1] : "model.json", &model));
  check(createCalibrationFilter(model, traits, size, PLANEX_PIXEL_FORMAT_MONO16, &calibration));
  check(applyCalibration(calibration, range, x, z));
  check(calculateCalibrationBounds(model, traits, size, &grid, &splat));
  check(createRectificationFilter(PLANEX_RECTIFICATION_MEAN, grid, size, 0, NULL, splat, NAN,
                                  &rectification));
  check(rectify(rectification, x, z, NULL, height, NULL));

  const RangeTransform world = rangeTraitsToTransform(grid);
  for (int row = 0; row < kProfiles; row += 25) {
    printf("X %.3f mm, profile %d: Z %.3f mm\n", kMiddle * world.scaleX + world.originX, row,
           height[row * kWidth + kMiddle]);
  }
  return destroyModel(&model) ? 0 : 1; /* the filters go with the process */
}
