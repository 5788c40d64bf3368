#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "planex/infra/logger.h"
#include "tests/api/api_test.h"

namespace test {
namespace {

const std::string kUnknownModel =
    "SEVERE: The provided model handle does not map to a previously created model";
std::vector<std::string> received;

void keep(const char* text) { received.emplace_back(text); }

void fail() {
  uint32_t unknown = 4711;
  EXPECT_FALSE(destroyModel(&unknown));
}

std::string printedBy(void (*body)()) {
  ::testing::internal::CaptureStdout();
  body();
  return ::testing::internal::GetCapturedStdout();
}

class Log : public ApiTest {
 protected:
  Log() { received.clear(); }
};

TEST_F(Log, CallbackGetsTimeLevelAndMessageWithoutLineEnd) {
  registerLogHandler(keep);
  fail();
  base::Logger::GetRoot().RemoveAllHandlers(false);  // but not this one
  base::Logger::Get("Image").Warning("seen %d", 1);
  base::Logger::Get("Image").Info("unseen");
  const std::string time = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}-[0-9]{2}-[0-9]{2}: ";
  EXPECT_THAT(received, ::testing::ElementsAre(::testing::MatchesRegex(time + kUnknownModel),
                                               ::testing::EndsWith(": WARNING: seen 1")));
}

TEST_F(Log, WithoutCallbackPrintsLines) {
  registerLogHandler(nullptr);
  EXPECT_THAT(printedBy(fail), ::testing::EndsWith(": " + kUnknownModel + "\n"));
  base::Logger::GetRoot().RemoveAllHandlers(true);
  EXPECT_THAT(printedBy(fail), ::testing::HasSubstr(kUnknownModel)) << "installs a handler";
}

TEST_F(Log, CallbackMayDestroyWhatTheFailingCallUses) {
  static uint32_t fresh;
  uint32_t filter = 0;
  const uint16_t range[2] = {1, 2};
  float x[2], z[2];
  ASSERT_TRUE(createCalibrationFilter(makeModel(), {1, 0, 1, 0, 640, 480}, {2, 1},
                                      PLANEX_PIXEL_FORMAT_MONO16, &filter));
  registerLogHandler([](const char* text) {
    keep(text);
    destroyAll();
    fresh = makeModel();
  });
  EXPECT_FALSE(applyCalibration(filter, range, x, x));
  EXPECT_EQ(received.size(), 1u);
  EXPECT_TRUE(destroyModel(&fresh)) << "made by the callback";
  EXPECT_FALSE(applyCalibration(filter, range, x, z)) << "destroyed by the callback";
}

}  // namespace
}  // namespace test
