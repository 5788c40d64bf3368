// Any text as a model document through the C interface. A model that comes of it is written and
// read again, calibrates a small range image and is asked for its world bounds.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "planex/api/planex.h"
#include "planex/api/registries.h"
#include "tests/support/property.h"

namespace {

constexpr ImageSize kSize = {8, 4};
constexpr std::size_t kPixels = std::size_t{kSize.width} * kSize.height;
constexpr float kUntouched = 4711.0F;

/// What a text may cost: the parser's node of 64 bytes for every two characters, and as much again
/// for what is made of them; then the model itself.
std::size_t allowedBytes(std::size_t textSize) { return 128 * textSize + 65536; }

std::string exported(uint32_t model) {
  std::string buffer(4096, '#');
  while (!createJsonFromModel(model, buffer.data(), buffer.size())) {
    CHECK_HOLDS(test::LogCount::Severe() == 1);
    CHECK_HOLDS(buffer.find_first_not_of('#') == std::string::npos);
    test::LogCount::Clear();
    buffer.assign(buffer.size() * 2, '#');
    CHECK_HOLDS(buffer.size() < (std::size_t{1} << 28));
  }
  buffer.resize(std::strlen(buffer.c_str()));
  return buffer;
}

void checkRoomForExport(uint32_t model, const std::string& text) {
  std::vector<char> buffer(text.size() + 1, '#');
  CHECK_HOLDS(!createJsonFromModel(model, buffer.data(), text.size()));
  CHECK_HOLDS(std::count(buffer.begin(), buffer.end(), '#') ==
              static_cast<std::ptrdiff_t>(buffer.size()));
  CHECK_HOLDS(createJsonFromModel(model, buffer.data(), buffer.size()));
  CHECK_HOLDS(buffer.data() == text);
  test::LogCount::Clear();
}

void checkRereading(uint32_t model) {
  const std::string text = exported(model);
  checkRoomForExport(model, text);
  uint32_t again = 0;
  CHECK_HOLDS(createModelFromJson(text.c_str(), &again));
  CHECK_HOLDS(again == model + 1);
  CHECK_HOLDS(exported(again) == text);
  CHECK_HOLDS(destroyModel(&again) && again == 0);
}

/// The whole sensor, as far as it fits the record, in few range values.
SensorTraits wholeSensor(uint32_t model) {
  const auto size = tavik::planex::models().copyOf(model).SensorSize;
  const auto width = static_cast<uint16_t>(std::clamp(size.x, 0, 65535));
  const auto height = static_cast<uint16_t>(std::clamp(size.y, 0, 65535));
  return {width / 8.0, 0, std::max<double>(height, 1) / 64, 0, width, height};
}

void checkBounds(uint32_t model, const SensorTraits& traits, test::LogCount& log) {
  WorldRangeTraits box = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  SplatSettings splat = {1, 2, 3};
  const std::string before = test::bytesOf(box) + test::bytesOf(splat);
  const bool done = calculateCalibrationBounds(model, traits, kSize, &box, &splat);
  log.CheckCall(done);
  if (!done) {
    CHECK_HOLDS(test::bytesOf(box) + test::bytesOf(splat) == before);
    return;
  }
  CHECK_HOLDS(box.xCount == kSize.width && box.yCount == kSize.height && box.zLevels == 65536);
  CHECK_HOLDS(splat.splatC == 1);
  CHECK_HOLDS(!std::isnan(box.xMin) && !std::isnan(box.yMin) && !std::isnan(box.zMin));
}

struct Calibrated {
  std::vector<float> x = std::vector<float>(kPixels, kUntouched);
  std::vector<float> z = x;

  bool operator==(const Calibrated& other) const {
    const auto same = [](float a, float b) { return test::sameBits(a, b); };
    return std::equal(x.begin(), x.end(), other.x.begin(), same) &&
           std::equal(z.begin(), z.end(), other.z.begin(), same);
  }
};

void checkCalibration(uint32_t model, const SensorTraits& traits, test::LogCount& log) {
  uint32_t filter = 0;
  const bool created =
      createCalibrationFilter(model, traits, kSize, PLANEX_PIXEL_FORMAT_MONO16, &filter);
  log.CheckCall(created);
  if (!created) return;
  std::vector<uint16_t> range(kPixels);
  for (std::size_t i = 0; i < kPixels; ++i) range[i] = static_cast<uint16_t>(i * i * 63);
  Calibrated one;
  const bool done = applyCalibration(filter, range.data(), one.x.data(), one.z.data());
  log.CheckCall(done);
  CHECK_HOLDS(done || one == Calibrated());
  CHECK_HOLDS(!done || (std::isnan(one.x[0]) && std::isnan(one.z[0])));
  Calibrated three;
  test::useThreads(3);
  CHECK_HOLDS(applyCalibration(filter, range.data(), three.x.data(), three.z.data()) == done);
  test::useThreads(1);
  CHECK_HOLDS(one == three);
  test::LogCount::Clear();
  CHECK_HOLDS(destroyCalibrationFilter(&filter));
}

}  // namespace

PLANEX_PROPERTY(model_text) {
  const std::string input = source.Rest();
  // Exactly as long as the text: reading past its end is seen.
  std::vector<char> text(input.begin(), input.end());
  text.push_back('\0');
  test::LogCount log;
  uint32_t model = 77;
  const test::MemoryPeak peak;
  const bool created = createModelFromJson(text.data(), &model);
  CHECK_HOLDS(peak.Bytes() <= allowedBytes(input.size()));
  log.CheckCall(created);
  CHECK_HOLDS(created == (model != 0));
  if (!created) return;
  checkRereading(model);
  const SensorTraits traits = wholeSensor(model);
  checkBounds(model, traits, log);
  checkCalibration(model, traits, log);
  CHECK_HOLDS(destroyModel(&model));
}
