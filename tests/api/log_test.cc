#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "planex/infra/logger.h"
#include "tests/api/api_test.h"

namespace test {
namespace {

const char* const kUnknownModel =
    "SEVERE: The provided model handle does not map to a previously created model";

std::vector<std::string> received;

bool fail() {
  uint32_t unknown = 4711;
  return !destroyModel(&unknown);
}

class Log : public ApiTest {
 protected:
  Log() { received.clear(); }
};

TEST_F(Log, CallbackGetsTimeLevelAndMessageWithoutLineEnd) {
  registerLogHandler([](const char* text) { received.emplace_back(text); });
  ASSERT_TRUE(fail());
  ASSERT_EQ(received.size(), 1u);
  EXPECT_THAT(received[0], ::testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} "
                                                   "[0-9]{2}-[0-9]{2}-[0-9]{2}: " +
                                                   std::string(kUnknownModel)));
}

TEST_F(Log, WithoutCallbackPrintsLines) {
  registerLogHandler(nullptr);
  ::testing::internal::CaptureStdout();
  fail();
  EXPECT_THAT(::testing::internal::GetCapturedStdout(),
              ::testing::EndsWith(std::string(": ") + kUnknownModel + "\n"));
}

TEST_F(Log, FirstFailureInstallsAHandlerInPlaceOfOthers) {
  base::Logger::GetRoot().RemoveAllHandlers(true);
  ::testing::internal::CaptureStdout();
  fail();
  EXPECT_THAT(::testing::internal::GetCapturedStdout(), ::testing::HasSubstr(kUnknownModel));
}

TEST_F(Log, WarningsOfOtherLoggersReachTheCallbackLowerLevelsDoNot) {
  base::Logger::Get("Image").Warning("seen %d", 1);
  base::Logger::Get("Image").Info("unseen");
  EXPECT_EQ(log.TakeOne(), "WARNING: seen 1");
}

TEST_F(Log, CallbackMayUseTheInterfaceAndReplaceItself) {
  registerLogHandler([](const char* text) {
    received.emplace_back(text);
    registerLogHandler(
        [](const char* later) { received.push_back("second " + std::string(later)); });
    fail();                       // a record from inside a handler is dropped
    received.emplace_back(text);  // the text outlives the handler's place in the list
  });
  fail();
  EXPECT_EQ(received.size(), 2u);
  fail();
  ASSERT_EQ(received.size(), 3u);
  EXPECT_THAT(received[2], ::testing::StartsWith("second "));
}

TEST_F(Log, CallbackMayDestroyWhatTheFailingCallUses) {
  static uint32_t fresh;
  static float x[4], z[4];
  const uint16_t range[2] = {1, 2};
  uint32_t filter = 0;
  const ImageSize size = {2, 1};
  ASSERT_TRUE(createCalibrationFilter(makeModel(), {1, 0, 1, 0, 640, 480}, size,
                                      PLANEX_PIXEL_FORMAT_MONO16, &filter));
  registerLogHandler([](const char* text) {
    received.emplace_back(text);
    destroyAll();
    fresh = makeModel();
    uint32_t inside = 0;
    EXPECT_TRUE(createCalibrationFilter(fresh, {1, 0, 1, 0, 640, 480}, {2, 1},
                                        PLANEX_PIXEL_FORMAT_MONO16, &inside));
    const uint16_t other[2] = {7, 8};
    EXPECT_TRUE(applyCalibration(inside, other, x, z));
  });
  EXPECT_FALSE(applyCalibration(filter, range, x, x));
  EXPECT_EQ(received.size(), 1u);
  EXPECT_TRUE(destroyModel(&fresh)) << "made by the callback";
  EXPECT_FALSE(applyCalibration(filter, range, x, z)) << "destroyed by the callback";
}

}  // namespace
}  // namespace test
