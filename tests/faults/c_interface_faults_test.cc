#include <gmock/gmock.h>
#include <omp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "planex/api/planex.h"
#include "planex/infra/logger.h"
#include "tests/faults/faulty_memory.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/model_builders.h"
#include "tests/support/model_documents.h"

namespace test {
namespace {

constexpr SensorTraits kTraits = {1, 0, 1.0 / 16, 0, 640, 300};
constexpr ImageSize kSize = {16, 4};
constexpr std::size_t kPixels = 64;
constexpr WorldRangeTraits kGrid = {-40, 40, 20, 0, 3, 4, 0, 200, 65536};
constexpr uint32_t kUnknown = 4711;
constexpr float kUntouched = -7.0F;

int logged = 0;
char lastText[256];

void keep(const char* text) {
  ++logged;
  std::strncpy(lastText, text, sizeof lastText - 1);
}

/// A document with everything in it, the images of the region included.
std::string fullDocument() {
  CalibrationModel model;
  EXPECT_EQ(readJson(kModelDocument, model), "");
  EXPECT_TRUE(model.CalibratedRegion.Resize(4, 3));
  return toJson(model);
}

/// The handles that the next objects of each kind get, found out by making them; that nothing had
/// them already shows in that they cannot be destroyed before.
std::array<uint32_t, 3> nextHandles(std::array<uint32_t, 3> expected) {
  EXPECT_FALSE(destroyModel(&expected[0]));
  EXPECT_FALSE(destroyCalibrationFilter(&expected[1]));
  EXPECT_FALSE(destroyRectificationFilter(&expected[2]));
  std::array<uint32_t, 3> next{};
  EXPECT_TRUE(createModelFromJson(kModelDocument.c_str(), &next[0]));
  EXPECT_TRUE(createCalibrationFilter(next[0], kTraits, kSize, 0, &next[1]));
  EXPECT_TRUE(createRectificationFilter(0, kGrid, kSize, 0, nullptr, {}, 0, &next[2]));
  std::array<uint32_t, 3> gone = next;
  EXPECT_TRUE(destroyModel(&gone[0]));
  EXPECT_TRUE(destroyCalibrationFilter(&gone[1]));
  EXPECT_TRUE(destroyRectificationFilter(&gone[2]));
  return next;
}

/// Objects and buffers for one call.
struct Stage {
  Stage() {
    registerLogHandler(keep);
    EXPECT_TRUE(createModelFromJson(document().c_str(), &model));
    EXPECT_TRUE(
        createCalibrationFilter(model, kTraits, kSize, PLANEX_PIXEL_FORMAT_MONO16, &calibration));
    const auto filter = [](uint32_t mode, uint64_t images, uint32_t* handle) {
      EXPECT_TRUE(createRectificationFilter(mode, kGrid, kSize, images, kFormats, {0.001, 0.5, 1},
                                            -1, handle));
    };
    filter(PLANEX_RECTIFICATION_MEAN, 0, &heights);
    filter(PLANEX_RECTIFICATION_BRIGHTEST, 2, &withImages);
    for (std::size_t i = 0; i < kPixels; ++i) range[i] = static_cast<uint16_t>(1000 + 13 * i);
    for (std::size_t i = 0; i < kPixels; ++i) {
      x[i] = static_cast<float>(i % 16) - 8;
      z[i] = 100;
    }
    out.fill(kUntouched);
    expected = nextHandles({model + 1, calibration + 1, withImages + 1});
    for (uint32_t& handle : expected) ++handle;
  }
  ~Stage() {
    destroyAllModels();
    destroyAllCalibrationFilters();
    destroyAllRectificationFilters();
  }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  static const std::string& document() {
    static const std::string text = fullDocument();
    return text;
  }

  /// After a failure: every registry and every output as before.
  void check() const {
    const int before = logged;
    EXPECT_EQ(nextHandles(expected), expected);
    EXPECT_EQ(logged, before + 3) << "the log function no longer hears of failures";
    std::vector<char> text(100000);
    EXPECT_TRUE(createJsonFromModel(model, text.data(), text.size()));
    for (const float value : out) EXPECT_EQ(value, kUntouched);
    EXPECT_EQ(made, 0u);
    EXPECT_EQ(json, "untouched");
    EXPECT_EQ(box.xCount, 0u);
    EXPECT_EQ(splat.splatC, 0.0);
  }

  static constexpr uint32_t kFormats[] = {PLANEX_PIXEL_FORMAT_MONO16, PLANEX_PIXEL_FORMAT_MONO8};

  uint32_t model = 0, calibration = 0, heights = 0, withImages = 0;
  std::array<uint32_t, 3> expected{};
  uint32_t made = 0;
  std::string json = "untouched";
  std::array<uint16_t, kPixels> range{};
  std::array<float, kPixels> x{}, z{};
  std::array<float, 80 + 2 * kPixels> out{};  // two images, or the 20 x 4 cells of the grid
  std::array<uint8_t, 80> rectified[2] = {};
  WorldRangeTraits box = {};
  SplatSettings splat = {};
};

/// An operation of the C interface on a fresh stage.
Operation operation(const char* name, Expect expect, bool (*run)(Stage&), bool succeeds = true) {
  return {name, expect,
          [run] {
            const auto stage = std::make_shared<Stage>();
            return Call{[stage, run] { return run(*stage); }, [stage] { stage->check(); }};
          },
          succeeds};
}

std::string modelFile() {
  return ::testing::TempDir() + "planex_faults_test" + std::to_string(getpid()) + ".json";
}

bool rectifyImages(Stage& s) {
  const void* inputs[] = {s.range.data(), s.x.data()};
  void* outputs[] = {s.rectified[0].data(), s.rectified[1].data()};
  return rectify(s.withImages, s.x.data(), s.z.data(), inputs, s.out.data(), outputs);
}

/// The output lies over an input, so that the heights need a copy.
bool rectifyInPlace(Stage& s) {
  std::copy(s.x.begin(), s.x.end(), s.out.begin() + 16);
  const bool done =
      rectify(s.heights, s.out.data() + 16, s.z.data(), nullptr, s.out.data(), nullptr);
  if (!done) s.out.fill(kUntouched);
  return done;
}

const Operation kOperations[] = {
    operation("createModelFromJson", Expect::FalseOrThrow,
              [](Stage& s) { return createModelFromJson(Stage::document().c_str(), &s.made); }),
    operation("createModelFromFilePath", Expect::FalseOrThrow,
              [](Stage& s) {
                static const std::string path = modelFile();
                return createModelFromFilePath(path.c_str(), &s.made);
              }),
    operation("createJsonFromModel", Expect::FalseOrThrow,
              [](Stage& s) {
                static char text[100000];
                const bool done = createJsonFromModel(s.model, text, sizeof text);
                if (!done) s.json = text;
                return done;
              }),
    operation("destroyModel", Expect::False,
              [](Stage& s) {
                uint32_t handle = s.model;
                return destroyModel(&handle);
              }),
    operation("destroyAllModels", Expect::False,
              [](Stage&) {
                destroyAllModels();
                return true;
              }),
    operation("createCalibrationFilter", Expect::FalseOrThrow,
              [](Stage& s) {
                return createCalibrationFilter(s.model, kTraits, kSize, PLANEX_PIXEL_FORMAT_MONO8,
                                               &s.made);
              }),
    operation("destroyCalibrationFilter", Expect::False,
              [](Stage& s) { return destroyCalibrationFilter(&s.calibration); }),
    operation("destroyAllCalibrationFilters", Expect::False,
              [](Stage&) {
                destroyAllCalibrationFilters();
                return true;
              }),
    operation("applyCalibration", Expect::FalseOrThrow,
              [](Stage& s) {
                return applyCalibration(s.calibration, s.range.data(), s.out.data(),
                                        s.out.data() + kPixels);
              }),
    operation("calculateCalibrationBounds", Expect::FalseOrThrow,
              [](Stage& s) {
                return calculateCalibrationBounds(s.model, kTraits, kSize, &s.box, &s.splat);
              }),
    operation("rangeTraitsToTransform", Expect::False,
              [](Stage&) { return rangeTraitsToTransform(kGrid).originX == kGrid.xMin; }),
    operation("createRectificationFilter", Expect::FalseOrThrow,
              [](Stage& s) {
                return createRectificationFilter(0, kGrid, kSize, 0, nullptr, {}, 0, &s.made);
              }),
    operation("destroyRectificationFilter", Expect::False,
              [](Stage& s) { return destroyRectificationFilter(&s.heights); }),
    operation("destroyAllRectificationFilters", Expect::False,
              [](Stage&) {
                destroyAllRectificationFilters();
                return true;
              }),
    operation("rectify", Expect::False,
              [](Stage& s) {
                return rectify(s.heights, s.x.data(), s.z.data(), nullptr, s.out.data(), nullptr);
              }),
    operation("rectifyImages", Expect::False, rectifyImages),
    operation("rectifyInPlace", Expect::False, rectifyInPlace),
    operation("registerLogHandler", Expect::FalseOrThrow,
              [](Stage&) {
                registerLogHandler(keep);
                return true;
              }),
    // A refusal stays one: the text may be lost, nothing else.
    operation(
        "RefusedHandle", Expect::False,
        [](Stage&) {
          uint32_t handle = kUnknown;
          return destroyModel(&handle);
        },
        false),
    operation(
        "RefusedText", Expect::FalseOrThrow,
        [](Stage& s) { return createModelFromJson("no json", &s.made); }, false),
    operation(
        "RefusedBuffers", Expect::FalseOrThrow,
        [](Stage& s) {
          return applyCalibration(s.calibration, s.out.data(), s.out.data(), s.out.data());
        },
        false),
    operation(
        "RefusedMode", Expect::False,
        [](Stage& s) {
          return rectify(kUnknown, s.x.data(), s.z.data(), nullptr, s.out.data(), nullptr);
        },
        false),
};

class CInterfaceFaults : public ::testing::TestWithParam<Operation> {
 protected:
  CInterfaceFaults() {
    omp_set_num_threads(2);
    std::ofstream(modelFile()) << Stage::document();
  }
  ~CInterfaceFaults() override { std::remove(modelFile().c_str()); }

  const SmallTeams teams_;
};

TEST_P(CInterfaceFaults, LeaveEverythingAsItWas) { runWithEveryFault(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Interface, CInterfaceFaults, ::testing::ValuesIn(kOperations),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(RectifyFaults, AreToldAsSizesThatDoNotFit) {
  const SmallTeams teams;
  omp_set_num_threads(2);
  for (const auto call : {+[](Stage& s) {
                            return rectify(s.heights, s.x.data(), s.z.data(), nullptr, s.out.data(),
                                           nullptr);
                          },
                          +rectifyImages, +rectifyInPlace}) {
    bool done = false;
    for (long number = 1; !done; ++number) {
      SCOPED_TRACE(number);
      Stage stage;
      lastText[0] = '\0';
      {
        const FaultyMemory memory(number, Fault::Once);
        done = call(stage);
      }
      if (done) break;
      EXPECT_THAT(lastText,
                  ::testing::EndsWith("SEVERE: Invalid data in sensor traits scale X / Z"));
    }
  }
}

// ---- First use, each time in a process of its own ----

constexpr int kNotStruck = 42;

/// The first calls of a process with a fault among them, then the same calls with enough memory.
/// Ends the process with kNotStruck when the fault lay behind them all.
void useForTheFirstTime(long number, Fault fault) {
  const auto callAll = [](uint32_t& model, uint32_t& filter) {
    uint32_t unknown = kUnknown;
    EXPECT_FALSE(destroyModel(&unknown));
    base::Logger::Get("Image.Planex.Model").Warning("%s", "A text that needs memory for itself.");
    try {
      createModelFromJson(kModelDocument.c_str(), &model);
    } catch (const std::bad_alloc&) {
    }
    try {
      createRectificationFilter(0, kGrid, kSize, 0, nullptr, {}, 0, &filter);
    } catch (const std::bad_alloc&) {
    }
  };
  uint32_t models[2] = {};
  uint32_t filters[2] = {};
  bool hasStruck = false;
  {
    const FaultyMemory memory(number, fault);
    callAll(models[0], filters[0]);
    hasStruck = FaultyMemory::hasStruck();
  }
  registerLogHandler(keep);
  callAll(models[1], filters[1]);
  EXPECT_EQ(logged, 2);
  EXPECT_EQ(models[1], models[0] + 1);
  EXPECT_EQ(filters[1], filters[0] + 1);
  if (!hasStruck && !::testing::Test::HasFailure()) std::exit(kNotStruck);
}

TEST(FirstUse, SurvivesFaults) {
  if (const char* number = std::getenv("PLANEX_FIRST_FAULT")) {
    return useForTheFirstTime(std::atol(number), std::getenv("PLANEX_FAULTS_GO_ON") != nullptr
                                                     ? Fault::FromThere
                                                     : Fault::Once);
  }
  for (const char* goOn : {"", "PLANEX_FAULTS_GO_ON=1 "}) {
    // Steps, as most of the allocations are those of the document.
    for (long number = 1; number < 1000; number += number < 20 ? 1 : 17) {
      const std::string command =
          std::string(goOn) + "PLANEX_FIRST_FAULT=" + std::to_string(number) + " /proc/" +
          std::to_string(getpid()) + "/exe --gtest_filter=FirstUse.* >/dev/null";
      const int status = std::system(command.c_str());
      ASSERT_TRUE(WIFEXITED(status));
      if (WEXITSTATUS(status) == kNotStruck) break;
      ASSERT_EQ(WEXITSTATUS(status), 0) << command;
    }
  }
}

}  // namespace
}  // namespace test
