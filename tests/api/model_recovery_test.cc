#include "planex/api/model_recovery.h"

#include <gtest/gtest.h>

#include <ctime>
#include <iterator>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace tavik::planex {
namespace {

std::string describe(const std::optional<SensorSizeMention>& mention) {
  if (!mention) return "none";
  return std::string(mention->width) + " and " + std::string(mention->height);
}

std::string describeByRegex(const std::string& text) {
  static const std::regex expression(R"((SensorSize)(\D*)(\d+)(\D*)(\d+))");
  const std::vector<std::smatch> matches(std::sregex_iterator(text.begin(), text.end(), expression),
                                         std::sregex_iterator());
  if (matches.size() != 1) return "none";
  return matches[0].str(3) + " and " + matches[0].str(5);
}

TEST(ModelRecovery, FindsWhatTheRegularExpressionFinds) {
  const char* const parts[] = {"SensorSize", "SensorSize", "Sensor", "Size", "1", "20", "7",
                               " ",          "\n",         ":",      "\xff", "S", "-",  "\""};
  std::mt19937 random(1);
  std::size_t found = 0;
  for (int round = 0; round < 100000; ++round) {
    std::string text;
    for (std::size_t n = random() % 12; n > 0; --n) text += parts[random() % std::size(parts)];
    const std::string expected = describeByRegex(text);
    found += expected != "none";
    ASSERT_EQ(describe(findOnlySensorSize(text)), expected) << text;
  }
  EXPECT_GT(found, 10000u);  // the texts are no monotony of one answer
}

TEST(ModelRecovery, OneRunOfDigitsServesBothNumbers) {
  EXPECT_EQ(describe(findOnlySensorSize("SensorSize 10")), "1 and 0");
  EXPECT_EQ(describe(findOnlySensorSize("SensorSize 1")), "none");
  EXPECT_EQ(describe(findOnlySensorSize("SensorSize 640 x 480 SensorSize")), "640 and 480");
  EXPECT_EQ(describe(findOnlySensorSize("SensorSize 1 2 SensorSize 34")), "none");
}

TEST(ModelRecovery, TakesLinearTime) {
  constexpr std::size_t kLength = 64 << 20;
  std::string keywords;
  keywords.reserve(kLength);
  while (keywords.size() < kLength) keywords += "SensorSize";
  const std::string texts[] = {keywords, "SensorSize" + std::string(kLength, '1'),
                               std::string(kLength, 'S'), keywords + "1" + keywords};
  const std::clock_t start = std::clock();  // of this process: others may keep it waiting
  for (const std::string& text : texts) findOnlySensorSize(text);
  EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 10);
}

TEST(ModelRecovery, NumbersBeyondIntDisagree) {
  datafusion::planex::CalibrationModel model;
  EXPECT_TRUE(sensorSizeConfirms("SensorSize 0 000", model));
  EXPECT_FALSE(sensorSizeConfirms("SensorSize 0 4294967296", model));
  EXPECT_FALSE(sensorSizeConfirms("SensorSize 0 1", model));
}

}  // namespace
}  // namespace tavik::planex
