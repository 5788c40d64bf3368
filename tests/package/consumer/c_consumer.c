/* Walks the whole C interface once, as a program outside the library. */
#include <math.h>
#include <planex/api/planex.h>
#include <planex/version.h>
#include <stdio.h>
#include <string.h>

/* X = (u - 4) / 100 and Z = (v - 8) / 100. */
static const char kModel[] =
    "{\"class\": \"Image.Planex.Model\", \"data\": {\"FileVersion\": 1, \"CurrentState\": "
    "\"CALIBRATED\", \"SkewMode\": \"NONE\", \"CalibrationError\": 0, \"CalibrationErrorMax\": 0, "
    "\"AlignmentError\": 0, \"AlignmentErrorMax\": 0, \"FocalLength\": 100, \"SensorSize\": "
    "{\"x\": 16, \"y\": 32}, \"LensCenter\": {\"x\": 4, \"y\": 8}, \"Skew\": {\"x\": 0, \"y\": 1, "
    "\"z\": 0}, \"Homography\": [[1, 0, 0], [0, 1, 0], [0, 0, 1]], \"Pose\": [[1, 0, 0, 0], [0, 1, "
    "0, 0], [0, 0, 1, 0], [0, 0, 0, 1]], \"LensCoefficients\": [0, 0, 0, 0, 0, 0, 0]}}";

static char lastText[256];

static void keepText(const char* text) { strncpy(lastText, text, sizeof lastText - 1); }

#define CHECK(condition)                                                             \
  do {                                                                               \
    if (!(condition)) {                                                              \
      fprintf(stderr, "line %d: %s; log: \"%s\"\n", __LINE__, #condition, lastText); \
      return 1;                                                                      \
    }                                                                                \
  } while (0)

int main(void) {
  const SensorTraits traits = {1, 0, 1, 0, 16, 32};
  const ImageSize size = {16, 2};
  uint16_t range[32];
  uint8_t intensity[32], rectifiedIntensity[32];
  float x[32], z[32], height[32];
  uint32_t model = 0, calibration = 0, rectification = 0;
  const uint32_t formats[] = {PLANEX_PIXEL_FORMAT_MONO8};
  const void* in[] = {intensity};
  void* out[] = {rectifiedIntensity};
  WorldRangeTraits world;
  SplatSettings splat;
  RangeTransform transform;
  static char document[65536];
  int i, filled = 0;

  registerLogHandler(keepText);
  model = 77;
  CHECK(!destroyModel(&model) && model == 77);
  CHECK(strstr(lastText, ": SEVERE: The provided model handle does not map") != NULL);
  CHECK(!createModelFromFilePath("", &model));
  CHECK(createModelFromJson(kModel, &model) && model != 0);
  CHECK(createJsonFromModel(model, document, sizeof document));
  CHECK(strstr(document, "\"Image.Planex.Model\"") != NULL);

  for (i = 0; i < 32; ++i) {
    range[i] = (uint16_t)(i % 7 == 0 ? 0 : 12 + i % 3);
    intensity[i] = (uint8_t)(100 + i);
  }
  CHECK(
      createCalibrationFilter(model, traits, size, PLANEX_PIXEL_FORMAT_COORD3D_C16, &calibration));
  CHECK(applyCalibration(calibration, range, x, z));
  for (i = 0; i < 32; ++i) {
    if (range[i] == 0) {
      CHECK(isnan(x[i]) && isnan(z[i]));
    } else {
      CHECK(fabs(x[i] - (i % 16 - 4) / 100.0) < 1e-7 && fabs(z[i] - (range[i] - 8) / 100.0) < 1e-7);
    }
  }

  CHECK(calculateCalibrationBounds(model, traits, size, &world, &splat));
  CHECK(world.xCount == 16 && world.yCount == 2);
  transform = rangeTraitsToTransform(world);
  CHECK(createRectificationFilter(PLANEX_RECTIFICATION_HIGHEST, world, size, 1, formats, splat,
                                  -1.0F, &rectification));
  CHECK(rectify(rectification, x, z, in, height, out));
  for (i = 0; i < 32; ++i) {
    if (height[i] != -1.0F) {
      CHECK(height[i] > 0.04 - transform.scaleZ && height[i] < 0.06 + transform.scaleZ);
      ++filled;
    }
  }
  CHECK(filled >= 27);

  CHECK(destroyRectificationFilter(&rectification) && rectification == 0);
  CHECK(destroyCalibrationFilter(&calibration) && calibration == 0);
  CHECK(destroyModel(&model) && model == 0);
  destroyAllRectificationFilters();
  destroyAllCalibrationFilters();
  destroyAllModels();
  printf("planex %s from C\n", PLANEX_VERSION_STRING);
  return 0;
}
