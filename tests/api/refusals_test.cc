// Every refusal of the C interface: its one text, and nothing touched. Where several things are
// wrong, a row shows which check comes first.

#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "tests/api/api_test.h"

namespace test {
namespace {

const std::string kNoModel = "The provided model handle does not map to a previously created model";
const std::string kNoCalibration =
    "The provided calibration filter handle does not map to a previously created filter";
const std::string kNoAlignment =
    "The provided alignment filter handle does not map to a previously created filter";
const std::string kNoRectification =
    "The provided rectification filter handle does not map to a previously created filter";
const char* const kNoHandle = "Handle is NULL";
const char* const kMismatch = "Sensor traits does not match the model";
const char* const kScale = "Invalid data in sensor traits scale X / Z";
const char* const kShared = "WARNING: Cannot reuse source image as target image.";
const char* const kFormat = "Image format of the corectified image id not supported";
const char* const kUnmapped =
    "WARNING: Operation failed because it was called with uncalibrated model. | SEVERE: The sensor "
    "region could not be mapped to world coordinates";

constexpr uint32_t kUnknown = 4711;
constexpr SensorTraits kInside = {1, 0, 1, 0, 640, 480};
constexpr SensorTraits kOutside = {1, 1, 1, 0, 640, 480};
constexpr ImageSize kSize = {4, 2};
constexpr WorldRangeTraits kGrid = {0, 3, 4, 0, 1, 2, 0, 1, 65536};

/// Objects to refuse arguments for, and buffers that no refusal may write to.
struct Stage {
  bool Calibrate(uint32_t format, const void* from, float* outZ, ImageSize size = kSize) {
    uint32_t filter = 0;
    EXPECT_TRUE(createCalibrationFilter(model, kInside, size, format, &filter));
    return applyCalibration(filter, from, x, outZ);
  }
  bool CalibrateWithoutModel() {
    uint32_t gone = makeModel(), filter = 0;
    return createCalibrationFilter(gone, kInside, kSize, 0, &filter) && destroyModel(&gone) &&
           applyCalibration(filter, range, x, z);
  }
  bool Bounds(uint32_t of, SensorTraits traits, ImageSize size = {9, 9}) {
    return calculateCalibrationBounds(of, traits, size, &box, &splat);
  }
  bool Rectify(uint64_t count, const uint32_t* list, const void* const* inputs,
               void* const* outputs, uint32_t mode, WorldRangeTraits grid = kGrid,
               ImageSize size = kSize) {
    uint32_t filter = 0;
    EXPECT_TRUE(createRectificationFilter(mode, grid, size, count, list, {0, 1, 1}, 0, &filter));
    return rectify(filter, in, in, inputs, x, outputs);
  }
  /// Without images: the low 32 bits count.
  bool Rectify(WorldRangeTraits grid, uint32_t mode = 5, ImageSize size = kSize) {
    return Rectify(uint64_t{1} << 32, nullptr, nullptr, nullptr, mode, grid, size);
  }
  /// With two images, of which the first one is fine.
  bool RectifyTwo(uint32_t format, const void* input, void* output, uint32_t mode = 1,
                  void* firstOutput = nullptr) {
    const uint32_t list[] = {PLANEX_PIXEL_FORMAT_MONO8, format};
    const void* const inputs[] = {image, input};
    void* const outputs[] = {firstOutput == nullptr ? first.data() : firstOutput, output};
    return Rectify(2, list, inputs, outputs, mode);
  }
  bool Align(const float* inX, const double* inY, const float* inZ, float* outX, float* outY,
             float* outZ) {
    uint32_t filter = 0;
    EXPECT_TRUE(createAlignmentFilter(model, kSize, &filter));
    return applyAlignment(filter, inX, inY, inZ, outX, outY, outZ);
  }
  bool AlignWithoutModel() {
    uint32_t gone = makeModel(), filter = 0;
    return createAlignmentFilter(gone, kSize, &filter) && destroyModel(&gone) &&
           applyAlignment(filter, in, points, in, x, x, z);
  }
  bool IsUntouched() const {
    return json == "abc" && x[0] == 5 && x[7] == 0 && z[0] == 6 && box.xMin + box.zLevels == 10 &&
           splat.splatA + splat.splatC == 4 && points[0] + points[2] == 4;
  }

  uint32_t model = 0, uncalibrated = 0, handle = 77;
  std::string json = "abc", inconsistent = with(kModelDocument, "1000.0", "-1");
  uint16_t range[8] = {1, 2};
  float in[8] = {0, 1, 2, 3}, x[8] = {5}, z[8] = {6};
  uint8_t image[16] = {1}, second[16] = {7};
  std::array<uint8_t, 16> first{7};
  WorldRangeTraits box = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  SplatSettings splat = {1, 2, 3};
  double points[8] = {1, 2, 3};
  const uint32_t mono8 = PLANEX_PIXEL_FORMAT_MONO8, mono16 = PLANEX_PIXEL_FORMAT_MONO16;
  const void* const noInputs[1] = {nullptr};
  void* const noOutputs[1] = {nullptr};
};

#define CALL(expression) #expression, [](Stage & s) { return static_cast<void>(s), expression; }

const struct {
  const char* name;
  bool (*call)(Stage& s);
  std::string log;              // SEVERE unless it says another level
  bool writesTheFirst = false;  // the image before the one that is refused
  uint32_t handle = 77;         // what becomes of Stage::handle
} kRows[] = {
    {CALL(createModelFromJson(nullptr, nullptr)), kNoHandle},
    {CALL(createModelFromJson(nullptr, &s.handle)), "Argument jsonData is NULL", false, 0},
    {CALL(createModelFromJson("SensorSize", &s.handle)),
     "The json buffer does not contain valid json", false, 0},
    {CALL(createModelFromJson(s.inconsistent.c_str(), &s.handle)),
     "The json data does not describe a valid model", false, 0},
    {CALL(createJsonFromModel(kUnknown, nullptr, 0)), "Argument jsonData is NULL"},
    {CALL(createJsonFromModel(kUnknown, &s.json[0], 0)), kNoModel},
    {CALL(createJsonFromModel(s.model, &s.json[0], 0)),
     "The provided json buffer is to small for the model"},

    {CALL(createCalibrationFilter(kUnknown, kOutside, kSize, 0, nullptr)), kNoModel},
    {CALL(createCalibrationFilter(s.model, kOutside, kSize, 0, nullptr)), kMismatch},
    {CALL(createCalibrationFilter(s.model, kInside, kSize, 0, nullptr)), kNoHandle},
    {CALL(applyCalibration(kUnknown, nullptr, nullptr, nullptr)),
     "Argument inputBufferRange is NULL"},
    {CALL(applyCalibration(kUnknown, s.range, nullptr, nullptr)), "Argument outputBufferX is NULL"},
    {CALL(applyCalibration(kUnknown, s.range, s.x, nullptr)), "Argument outputBufferZ is NULL"},
    {CALL(applyCalibration(kUnknown, s.range, s.x, s.z)), kNoCalibration},
    {CALL(s.Calibrate(0, s.range, s.z)), "Unknown PixelFormat"},
    {CALL(s.Calibrate(s.mono16, s.x, s.z)), kShared},
    {CALL(s.Calibrate(s.mono8, s.range, s.x)), kShared},
    {CALL(s.Calibrate(s.mono16, s.range, s.z, {65535, 65535})), "WARNING: Failed to allocate."},
    {CALL(s.CalibrateWithoutModel()), kNoModel},

    {CALL(calculateCalibrationBounds(kUnknown, kOutside, kSize, nullptr, nullptr)),
     "Argument worldRangeTraits is NULL"},
    {CALL(calculateCalibrationBounds(kUnknown, kOutside, kSize, &s.box, nullptr)),
     "Argument splatSettings is NULL"},
    {CALL(s.Bounds(kUnknown, kOutside)), kNoModel},
    {CALL(s.Bounds(s.model, {1, 600, 1, 0, 300, 100})), kMismatch},
    {CALL(s.Bounds(s.model, {1, 0, 0, 0, 640, 480})), kScale},
    {CALL(s.Bounds(s.model, {1, 0, 0, 0, 640, 0})), kScale},  // 0 / 0 values
    {CALL(s.Bounds(s.model, {1, 0, NAN, 0, 640, 480})), kScale},
    {CALL(s.Bounds(s.model, {1, 0, 480 / 16777218.5, 0, 640, 480})), kScale},  // 2^24 + 1 values
    {CALL(s.Bounds(s.uncalibrated, kInside)), kUnmapped},
    {CALL(s.Bounds(s.uncalibrated, {1, 0, 1, 0, 0, 0}, {0, 9})), kUnmapped},  // no samples

    {CALL(createAlignmentFilter(kUnknown, kSize, nullptr)), kNoModel},
    {CALL(createAlignmentFilter(s.model, kSize, nullptr)), kNoHandle},
    {CALL(applyAlignment(kUnknown, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)),
     "Argument inputX is NULL"},
    {CALL(applyAlignment(kUnknown, s.in, nullptr, nullptr, nullptr, nullptr, nullptr)),
     "Argument inputY is NULL"},
    {CALL(applyAlignment(kUnknown, s.in, s.points, nullptr, nullptr, nullptr, nullptr)),
     "Argument inputZ is NULL"},
    {CALL(applyAlignment(kUnknown, s.in, s.points, s.in, nullptr, nullptr, nullptr)),
     "Argument outputX is NULL"},
    {CALL(applyAlignment(kUnknown, s.in, s.points, s.in, s.x, nullptr, nullptr)),
     "Argument outputY is NULL"},
    {CALL(applyAlignment(kUnknown, s.in, s.points, s.in, s.x, s.x, nullptr)),
     "Argument outputZ is NULL"},
    {CALL(applyAlignment(kUnknown, s.in, s.points, s.in, s.x, s.x, s.z)), kNoAlignment},
    {CALL(s.Align(s.in, s.points, s.in, s.x, s.x, s.z)), kShared},
    {CALL(s.Align(s.x, s.points, s.in, s.x, s.z, s.z)), kShared},
    {CALL(s.AlignWithoutModel()), kNoModel},
    {CALL(mapPlanePoints(kUnknown, 0, 3, SIZE_MAX, nullptr, nullptr)), "Unknown coordinate system"},
    {CALL(mapSpacePoints(kUnknown, 3, 0, 1, 0, SIZE_MAX, nullptr, nullptr)),
     "Unknown coordinate system"},
    {CALL(mapSpacePoints(kUnknown, 0, 1, 1, 0, PTRDIFF_MAX / 24 + 1, nullptr, nullptr)),
     "Too many points"},
    {CALL(mapPlanePoints(kUnknown, 0, 1, 1, nullptr, nullptr)), "Argument inputPoints is NULL"},
    {CALL(mapPlanePoints(kUnknown, 0, 1, 1, s.points, nullptr)), "Argument outputPoints is NULL"},
    {CALL(mapPlanePoints(kUnknown, 0, 1, 2, s.points, s.points + 3)),
     "The input and output points overlap"},
    {CALL(mapPlanePoints(kUnknown, 0, 1, 0, nullptr, nullptr)), kNoModel},
    {CALL(mapSpacePoints(s.uncalibrated, 0, 1, 1, 0, 1, s.points, s.points)),
     "WARNING: Operation failed because it was called with uncalibrated model."},

    {CALL(createRectificationFilter(0, kGrid, kSize, 0, nullptr, {}, 0, nullptr)), kNoHandle},
    {CALL(rectify(kUnknown, nullptr, nullptr, nullptr, nullptr, nullptr)), "inputX is NULL"},
    {CALL(rectify(kUnknown, s.in, nullptr, nullptr, nullptr, nullptr)), "inputZ is NULL"},
    {CALL(rectify(kUnknown, s.in, s.in, nullptr, nullptr, nullptr)), "outputRange is NULL"},
    {CALL(rectify(kUnknown, s.in, s.in, nullptr, s.x, nullptr)), kNoRectification},
    {CALL(s.Rectify(kGrid)), "Unknown rectification mode"},
    {CALL(s.Rectify(kGrid, 5, {65535, 65535})), kScale},         // too many points
    {CALL(s.Rectify({0, 3, 1, 0, 1, 2, 0, 1, 65536})), kScale},  // one column
    {CALL(s.Rectify({5, 5, 0, 0, 1, 2, 0, 1, 65536})), kScale},  // no column
    {CALL(s.Rectify({0, 3, 4, 0, 1, 0, 0, 1, 65536})), kScale},  // no row
    {CALL(s.Rectify({3, 0, 4, 0, 1, 2, 0, 1, 65536})), kScale},  // X step below 0
    {CALL(s.Rectify({0, 3, 4, 0, 1, 2, 1, 0, 65536})), kScale},  // Z step below 0
    {CALL(s.Rectify({0, 3, 4, 0, 1, 2, 0, 1, 2})), kScale},      // Z step infinite
    {CALL(s.Rectify({0, 3, 4, 0, 1, 2, NAN, 1, 65536})), kScale},
    {CALL(s.Rectify({3, 0, 0x80000001, 0, 1, 2, 0, 1, 65536})), kScale},  // columns above int
    {CALL(s.Rectify({0, 3, 0x7fffffff, 0, 1, 2, 0, 1, 65536})), kScale},  // too many cells
    // Its range would overlap the inputs, and need a copy of 8 GiB.
    {CALL(s.Rectify({0, 3, 0x7fffffff, 0, 1, 1, 0, 1, 65536}, 1)),
     "WARNING: Target image must have the same height as the source image."},

    {CALL(s.Rectify(1, &s.mono8, nullptr, nullptr, 5)), "inputCoRectified array is NULL"},
    {CALL(s.Rectify(1, &s.mono8, s.noInputs, nullptr, 5)), "outputCoRectified array is NULL"},
    {CALL(s.Rectify(1, nullptr, s.noInputs, s.noOutputs, 5)),
     "The data format of the corectified image number 0 is null"},
    {CALL(s.RectifyTwo(0, nullptr, nullptr)),
     "The data pointer of inputCoRectified number 1 is null", true},
    {CALL(s.RectifyTwo(0, s.image, nullptr)),
     "The data pointer of outputCoRectified number 1 is null", true},
    {CALL(s.RectifyTwo(0, s.image, s.second)), kFormat, true},
    {CALL(s.RectifyTwo(PLANEX_PIXEL_FORMAT_COORD3D_C16, s.image, s.second)), kFormat, true},
    {CALL(s.RectifyTwo(0, s.image, s.second, 5)), "Unknown rectification mode"},
    {CALL(s.RectifyTwo(s.mono8, s.image, s.in)), kShared, true},             // over X
    {CALL(s.RectifyTwo(s.mono8, s.image, &s.x[7])), kShared, true},          // over the range
    {CALL(s.RectifyTwo(s.mono8, s.image, s.second, 1, &s.x[7])), kShared},   // the first over it
    {CALL(s.RectifyTwo(s.mono8, s.image, &s.first[7])), kShared, true},      // over the first
    {CALL(s.RectifyTwo(s.mono8, &s.first[7], s.second)), kShared},           // over the next input
    {CALL(s.RectifyTwo(s.mono16, s.first.data() - 15, s.second)), kShared},  // over its end
};

TEST_F(ApiTest, RefusalsLogOnceAndTouchNothing) {
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    Stage stage;
    const Stage before = stage;
    stage.model = makeModel();
    stage.uncalibrated = makeModel(with(kModelDocument, "\"CALIBRATED\"", "\"UNCALIBRATED\""));
    EXPECT_FALSE(row.call(stage));
    EXPECT_EQ(log.TakeOne(), (row.log[0] == 'W' ? "" : "SEVERE: ") + row.log);
    EXPECT_EQ(stage.handle, row.handle);
    EXPECT_TRUE(stage.IsUntouched());
    EXPECT_EQ(stage.first != before.first, row.writesTheFirst);
    destroyAll();
  }
}

TEST_F(ApiTest, AtMost256OfAKindAreAlive) {
  static uint32_t model;  // of the filters
  const struct {
    bool (*create)(uint32_t* handle);
    bool (*destroy)(uint32_t* handle);
    std::string tooMany, unknown;
  } kinds[] = {
      // The limit comes before the text.
      {[](uint32_t* h) { return createModelFromJson(*h == 77 ? "" : "SensorSize 0 0", h); },
       destroyModel, "models created, destroy unused models by calling destroyModel()", kNoModel},
      {[](uint32_t* h) { return createCalibrationFilter(model, kInside, kSize, 0, h); },
       destroyCalibrationFilter,
       "calibration filters created, destroy unused calibrationFilters by calling "
       "destroyCalibrationFilter()",
       kNoCalibration},
      {[](uint32_t* h) { return createAlignmentFilter(model, kSize, h); }, destroyAlignmentFilter,
       "alignment filters created, destroy unused alignmentFilters by calling "
       "destroyAlignmentFilter()",
       kNoAlignment},
      {[](uint32_t* h) { return createRectificationFilter(99, {}, {}, 0, nullptr, {}, 0, h); },
       destroyRectificationFilter,
       "rectification filters created, destroy unused rectificationFilters by calling "
       "destroyRectificationFilter()",
       kNoRectification},
  };
  for (const auto& kind : kinds) {
    SCOPED_TRACE(kind.unknown);
    destroyAll();
    if (kind.unknown != kNoModel) model = makeModel();
    std::vector<uint32_t> handles(256);
    for (uint32_t& handle : handles) ASSERT_TRUE(kind.create(&handle));
    uint32_t handle = 77;
    EXPECT_FALSE(kind.create(&handle));
    EXPECT_EQ(handle, 0u);
    EXPECT_EQ(log.TakeOne(), "SEVERE: Too many " + kind.tooMany);
    EXPECT_TRUE(kind.destroy(nullptr));
    EXPECT_TRUE(kind.destroy(&handles[3]));
    EXPECT_TRUE(kind.create(&handle));
    EXPECT_EQ(handle, handles.back() + 1) << "a refused create uses up no number";
    for (const uint32_t unknown : {0u, handles[4] - 1, 0xffffffffu}) {
      handle = unknown;
      EXPECT_FALSE(kind.destroy(&handle));
      EXPECT_EQ(handle, unknown);
      EXPECT_EQ(log.TakeOne(), "SEVERE: " + kind.unknown);
    }
  }
}

}  // namespace
}  // namespace test
