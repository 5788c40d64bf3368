#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/api/api_test.h"

namespace test {
namespace {

const char* const kNoHandle = "SEVERE: Handle is NULL";
const char* const kNoModel =
    "SEVERE: The provided model handle does not map to a previously created model";
const char* const kNoCalibrationFilter =
    "SEVERE: The provided calibration filter handle does not map to a previously created filter";
const char* const kNoRectificationFilter =
    "SEVERE: The provided rectification filter handle does not map to a previously created filter";

constexpr uint32_t kUnknown = 4711;
constexpr SensorTraits kInside = {1, 0, 1, 0, 640, 480};
constexpr SensorTraits kOutside = {1, 1, 1, 0, 640, 480};
constexpr ImageSize kSize = {2, 1};
constexpr WorldRangeTraits kGrid = {0, 1, 2, 0, 0, 1, 0, 1, 65536};

/// Buffers that no refusal may write to, and objects to refuse arguments for.
struct Stage {
  uint32_t model, filter, formatless, rectification, withImage, withoutFormats;
  uint32_t handle = 77;
  char json[4] = "abc";
  uint16_t range[2] = {1, 2};
  float in[2] = {0, 1};
  float x[2] = {5, 5};
  float z[2] = {6, 6};
  uint8_t image[2] = {7, 7};
  WorldRangeTraits box = {};
  SplatSettings splat = {};
  const uint32_t formats[1] = {PLANEX_PIXEL_FORMAT_MONO8};
  const void* inputs[1] = {nullptr};
  void* outputs[1] = {nullptr};
};

struct Case {
  const char* name;
  std::function<bool(Stage&)> call;
  const char* message;
  uint32_t handle = 77;  // what becomes of Stage::handle
};

// Where several things are wrong, the row shows which check comes first.
const Case kCases[] = {
    {"JsonNothing", [](Stage&) { return createModelFromJson(nullptr, nullptr); }, kNoHandle},
    {"JsonNoText", [](Stage& s) { return createModelFromJson(nullptr, &s.handle); },
     "SEVERE: Argument jsonData is NULL", 0},
    {"ExportNothing", [](Stage&) { return createJsonFromModel(kUnknown, nullptr, 0); },
     "SEVERE: Argument jsonData is NULL"},
    {"ExportUnknown", [](Stage& s) { return createJsonFromModel(kUnknown, s.json, 0); }, kNoModel},
    {"ExportNoRoom", [](Stage& s) { return createJsonFromModel(s.model, s.json, 0); },
     "SEVERE: The provided json buffer is to small for the model"},

    {"CalibrationFilterUnknownModel",
     [](Stage&) { return createCalibrationFilter(kUnknown, kOutside, kSize, 0, nullptr); },
     kNoModel},
    {"CalibrationFilterOutside",
     [](Stage& s) { return createCalibrationFilter(s.model, kOutside, kSize, 0, nullptr); },
     "SEVERE: Sensor traits does not match the model"},
    {"CalibrationFilterNoHandle",
     [](Stage& s) { return createCalibrationFilter(s.model, kInside, kSize, 0, nullptr); },
     kNoHandle},

    {"CalibrateNoRange",
     [](Stage&) { return applyCalibration(kUnknown, nullptr, nullptr, nullptr); },
     "SEVERE: Argument inputBufferRange is NULL"},
    {"CalibrateNoX", [](Stage& s) { return applyCalibration(kUnknown, s.range, nullptr, nullptr); },
     "SEVERE: Argument outputBufferX is NULL"},
    {"CalibrateNoZ", [](Stage& s) { return applyCalibration(kUnknown, s.range, s.x, nullptr); },
     "SEVERE: Argument outputBufferZ is NULL"},
    {"CalibrateUnknownFilter",
     [](Stage& s) { return applyCalibration(kUnknown, s.range, s.x, s.z); }, kNoCalibrationFilter},
    {"CalibrateFormat", [](Stage& s) { return applyCalibration(s.formatless, s.range, s.x, s.z); },
     "SEVERE: Unknown PixelFormat"},
    {"CalibrateOverItself", [](Stage& s) { return applyCalibration(s.filter, s.x, s.x, s.z); },
     "WARNING: Cannot reuse source image as target image."},
    {"CalibrateIntoOneBuffer",
     [](Stage& s) { return applyCalibration(s.filter, s.range, s.x, s.x); },
     "WARNING: Cannot reuse source image as target image."},

    {"BoundsNoBox",
     [](Stage&) { return calculateCalibrationBounds(kUnknown, kOutside, kSize, nullptr, nullptr); },
     "SEVERE: Argument worldRangeTraits is NULL"},
    {"BoundsNoSplat",
     [](Stage& s) {
       return calculateCalibrationBounds(kUnknown, kOutside, kSize, &s.box, nullptr);
     },
     "SEVERE: Argument splatSettings is NULL"},
    {"BoundsUnknownModel",
     [](Stage& s) {
       return calculateCalibrationBounds(kUnknown, kOutside, kSize, &s.box, &s.splat);
     },
     kNoModel},

    {"RectificationFilterNoHandle",
     [](Stage&) { return createRectificationFilter(0, kGrid, kSize, 0, nullptr, {}, 0, nullptr); },
     kNoHandle},

    {"RectifyNoX",
     [](Stage&) { return rectify(kUnknown, nullptr, nullptr, nullptr, nullptr, nullptr); },
     "SEVERE: inputX is NULL"},
    {"RectifyNoZ",
     [](Stage& s) { return rectify(kUnknown, s.in, nullptr, nullptr, nullptr, nullptr); },
     "SEVERE: inputZ is NULL"},
    {"RectifyNoRange",
     [](Stage& s) { return rectify(kUnknown, s.in, s.in, nullptr, nullptr, nullptr); },
     "SEVERE: outputRange is NULL"},
    {"RectifyUnknownFilter",
     [](Stage& s) { return rectify(kUnknown, s.in, s.in, nullptr, s.x, nullptr); },
     kNoRectificationFilter},
    {"RectifyMode",
     [](Stage& s) { return rectify(s.rectification, s.in, s.in, nullptr, s.x, nullptr); },
     "SEVERE: Unknown rectification mode"},
    {"RectifyNoInputs",
     [](Stage& s) { return rectify(s.withImage, s.in, s.in, nullptr, s.x, nullptr); },
     "SEVERE: inputCoRectified array is NULL"},
    {"RectifyNoOutputs",
     [](Stage& s) { return rectify(s.withImage, s.in, s.in, s.inputs, s.x, nullptr); },
     "SEVERE: outputCoRectified array is NULL"},
    {"RectifyNoFormats",
     [](Stage& s) { return rectify(s.withoutFormats, s.in, s.in, s.inputs, s.x, s.outputs); },
     "SEVERE: The data format of the corectified image number 0 is null"},
    {"RectifyNoInput",
     [](Stage& s) { return rectify(s.withImage, s.in, s.in, s.inputs, s.x, s.outputs); },
     "SEVERE: The data pointer of inputCoRectified number 0 is null"},
};

/// Instead of the bytes of the record, padding included.
void PrintTo(const Case& row, std::ostream* out) { *out << row.name; }

class Failures : public ApiTest, public ::testing::WithParamInterface<Case> {
 protected:
  Failures() {
    stage.model = makeModel();
    createCalibrationFilter(stage.model, kInside, kSize, PLANEX_PIXEL_FORMAT_MONO16, &stage.filter);
    createCalibrationFilter(stage.model, kInside, kSize, 0, &stage.formatless);
    const auto filter = [](uint64_t count, const uint32_t* formats, uint32_t* handle) {
      createRectificationFilter(5, kGrid, kSize, count, formats, {0, 1, 1}, 0, handle);
    };
    filter(uint64_t{1} << 32, nullptr, &stage.rectification);  // the low 32 bits count
    filter(1, stage.formats, &stage.withImage);
    filter(1, nullptr, &stage.withoutFormats);
  }

  Stage stage;
};

TEST_P(Failures, LogOnceAndTouchNothing) {
  EXPECT_FALSE(GetParam().call(stage));
  EXPECT_EQ(log.TakeOne(), GetParam().message);
  EXPECT_EQ(stage.handle, GetParam().handle);
  EXPECT_STREQ(stage.json, "abc");
  for (const float x : stage.x) EXPECT_EQ(x, 5);
  for (const float z : stage.z) EXPECT_EQ(z, 6);
}

INSTANTIATE_TEST_SUITE_P(Interface, Failures, ::testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(ApiTest, ModelLimitComesBeforeTheText) {
  for (int i = 0; i < 256; ++i) makeModel();
  uint32_t handle = 77;
  EXPECT_FALSE(createModelFromJson("no json", &handle));
  EXPECT_EQ(log.TakeOne(),
            "SEVERE: Too many models created, destroy unused models by calling destroyModel()");
  EXPECT_EQ(handle, 0u);
}

}  // namespace
}  // namespace test
