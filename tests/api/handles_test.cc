#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/api/api_test.h"

namespace test {
namespace {

uint32_t calibrationModel;  // what the calibration filters of these tests belong to

/// The three kinds of handle behind one face.
struct Kind {
  const char* name;
  std::function<bool(uint32_t*)> create;
  std::function<bool(uint32_t*)> destroy;
  std::function<void()> destroyAll;
  const char* tooMany;
  const char* unknown;
};

const Kind kKinds[] = {
    {"Model", [](uint32_t* h) { return createModelFromJson(kModelDocument.c_str(), h); },
     destroyModel, destroyAllModels,
     "SEVERE: Too many models created, destroy unused models by calling destroyModel()",
     "SEVERE: The provided model handle does not map to a previously created model"},
    {"CalibrationFilter",
     [](uint32_t* h) {
       return createCalibrationFilter(calibrationModel, {1, 0, 1, 0, 1, 1}, {1, 1}, 0, h);
     },
     destroyCalibrationFilter, destroyAllCalibrationFilters,
     "SEVERE: Too many calibration filters created, destroy unused calibrationFilters by calling "
     "destroyCalibrationFilter()",
     "SEVERE: The provided calibration filter handle does not map to a previously created filter"},
    {"RectificationFilter",
     [](uint32_t* h) {
       return createRectificationFilter(99, {}, {}, uint64_t{1} << 32, nullptr, {}, 0, h);
     },
     destroyRectificationFilter, destroyAllRectificationFilters,
     "SEVERE: Too many rectification filters created, destroy unused rectificationFilters by "
     "calling destroyRectificationFilter()",
     "SEVERE: The provided rectification filter handle does not map to a previously created "
     "filter"},
};

/// Instead of the bytes of the record, padding included.
void PrintTo(const Kind& row, std::ostream* out) { *out << row.name; }

class Handles : public ApiTest, public ::testing::WithParamInterface<Kind> {
 protected:
  Handles() { calibrationModel = makeModel(); }

  uint32_t create() {
    uint32_t handle = 0;
    EXPECT_TRUE(GetParam().create(&handle));
    return handle;
  }
};

TEST_P(Handles, CountUpAndAreNotGivenBack) {
  const Kind& kind = GetParam();
  uint32_t first = create();
  const uint32_t original = first;
  EXPECT_TRUE(kind.destroy(&first));
  EXPECT_EQ(first, 0u);
  EXPECT_EQ(create(), original + 1);
  kind.destroyAll();
  EXPECT_EQ(create(), original + 2);
}

TEST_P(Handles, AtMost256AreAlive) {
  const Kind& kind = GetParam();
  kind.destroyAll();
  std::vector<uint32_t> handles;
  while (handles.size() < 256) handles.push_back(create());

  uint32_t refused = 77;
  EXPECT_FALSE(kind.create(&refused));
  EXPECT_EQ(refused, 0u);
  EXPECT_EQ(log.TakeOne(), kind.tooMany);

  const uint32_t last = handles.back();
  EXPECT_TRUE(kind.destroy(&handles[3]));
  EXPECT_EQ(create(), last + 1) << "a refused create uses up no number";
}

TEST_P(Handles, UnknownOnesAreRefusedAndKept) {
  const Kind& kind = GetParam();
  EXPECT_TRUE(kind.destroy(nullptr));
  uint32_t handle = create();
  const uint32_t destroyed = handle;
  EXPECT_TRUE(kind.destroy(&handle));
  EXPECT_EQ(log.TakeOne(), "");
  for (const uint32_t unknown : {0u, destroyed, 0xffffffffu}) {
    handle = unknown;
    EXPECT_FALSE(kind.destroy(&handle));
    EXPECT_EQ(handle, unknown);
    EXPECT_EQ(log.TakeOne(), kind.unknown);
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Handles, ::testing::ValuesIn(kKinds),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(ApiTest, FiltersOutliveTheirModelButDoNotWork) {
  uint32_t model = makeModel();
  uint32_t filter = 0;
  ASSERT_TRUE(createCalibrationFilter(model, {1, 0, 1, 0, 1, 1}, {1, 1}, PLANEX_PIXEL_FORMAT_MONO16,
                                      &filter));
  ASSERT_TRUE(destroyModel(&model));
  const uint16_t range = 1;
  float x = 5;
  float z = 6;
  EXPECT_FALSE(applyCalibration(filter, &range, &x, &z));
  EXPECT_EQ(log.TakeOne(),
            "SEVERE: The provided model handle does not map to a previously created model");
  EXPECT_EQ(x, 5);
  EXPECT_EQ(z, 6);
  EXPECT_TRUE(destroyCalibrationFilter(&filter));
}

}  // namespace
}  // namespace test
