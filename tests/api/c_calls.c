#include "tests/api/c_calls.h"

#include <string.h>

#include "planex/api/planex.h"

enum { kWidth = 64, kHeight = 3, kPixels = kWidth * kHeight };

static char lastText[256];

static void keepText(const char* text) { strncpy(lastText, text, sizeof lastText - 1); }

static const char* rectifyInC(const float* x, const float* z, WorldRangeTraits box,
                              SplatSettings splat, ImageSize size) {
  static uint8_t intensity[kPixels];
  static uint8_t rectified[kPixels];
  static float range[kPixels];
  static const uint32_t formats[] = {PLANEX_PIXEL_FORMAT_MONO8};
  const void* inputs[] = {intensity};
  void* outputs[] = {rectified};
  uint32_t filter = 0;
  memset(intensity, 9, sizeof intensity);
  if (!createRectificationFilter(PLANEX_RECTIFICATION_HIGHEST, box, size, 1, formats, splat, -1.0f,
                                 &filter)) {
    return "createRectificationFilter";
  }
  if (!rectify(filter, x, z, inputs, range, outputs) || rectified[kPixels / 2] != 9 ||
      !(range[kPixels / 2] >= box.zMin && range[kPixels / 2] <= box.zMax)) {
    return "rectify";
  }
  if (!destroyRectificationFilter(&filter) || filter != 0) return "destroyRectificationFilter";
  return NULL;
}

const char* callEveryFunctionFromC(const char* document, const char* path) {
  static uint16_t range[kPixels];
  static float x[kPixels];
  static float z[kPixels];
  static char json[65536];
  const SensorTraits traits = {10.0, 0.0, 0.5, 100.0, 640, 300};
  const ImageSize size = {kWidth, kHeight};
  WorldRangeTraits box;
  SplatSettings splat;
  uint32_t model = 0, filter = 0, i;
  const char* failed;

  registerLogHandler(keepText);
  if (createModelFromJson(NULL, &model) || strstr(lastText, "jsonData is NULL") == NULL) {
    return "registerLogHandler";
  }
  if (!createModelFromFilePath(path, &model) || !destroyModel(&model) || model != 0) {
    return "createModelFromFilePath, destroyModel";
  }
  if (!createModelFromJson(document, &model)) return "createModelFromJson";
  if (!createJsonFromModel(model, json, sizeof json)) return "createJsonFromModel";
  if (!createCalibrationFilter(model, traits, size, PLANEX_PIXEL_FORMAT_COORD3D_C16, &filter)) {
    return "createCalibrationFilter";
  }
  for (i = 0; i < kPixels; ++i) range[i] = 100;
  if (!applyCalibration(filter, range, x, z) || !(x[1] > x[0])) return "applyCalibration";
  if (!calculateCalibrationBounds(model, traits, size, &box, &splat) || box.xCount != kWidth) {
    return "calculateCalibrationBounds";
  }
  if (rangeTraitsToTransform(box).originX != box.xMin) return "rangeTraitsToTransform";
  failed = rectifyInC(x, z, box, splat, size);
  if (failed != NULL) return failed;
  if (!destroyCalibrationFilter(&filter)) return "destroyCalibrationFilter";

  destroyAllRectificationFilters();
  destroyAllCalibrationFilters();
  destroyAllModels();
  if (destroyModel(&model)) return "destroyAllModels";
  return NULL;
}
