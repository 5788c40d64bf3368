// Any bytes as a document: as an object of the class that it names; through the check that lets
// damaged models pass, against a regular expression; and as a model through the C interface, where
// an unreadable text may pass by that check only. What was read is written and read again.

#include <algorithm>
#include <iterator>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "planex/api/planex.h"
#include "planex/model/calibration_model.h"
#include "planex/model/model_file.h"
#include "planex/model/model_recovery.h"
#include "tests/support/documents.h"
#include "tests/support/property.h"

namespace {

using datafusion::planex::CalibrationModel;

/// What a text may cost: the parser's node of 64 bytes for every two characters, and as much again
/// for what is made of them; then the object itself.
std::size_t allowedBytes(std::size_t textSize) { return 128 * textSize + 65536; }

void checkObject(const std::string& text, bool exactNames) {
  const etl::Buffer bytes(text.begin(), text.end());
  const test::MemoryPeak peak;
  base::JsonVisitingDeSerializer reader(bytes, exactNames);
  const std::unique_ptr<etl::IVisitable> object = reader.DeserializeObject();
  CHECK_HOLDS(peak.Bytes() <= allowedBytes(bytes.size()));
  CHECK_HOLDS((object != nullptr) == !reader.HasError());
  if (object == nullptr) return;

  const std::string first = test::toJson(*object);
  base::JsonVisitingDeSerializer again(first.c_str(), true);
  const std::unique_ptr<etl::IVisitable> reread = again.DeserializeObject();
  CHECK_HOLDS(reread != nullptr);
  CHECK_HOLDS(test::toJson(*reread) == first);
  CHECK_HOLDS(test::toJson(*object->CloneVisitable()) == first);
}

/// The two numbers of the only mention; else nothing.
std::vector<std::string> onlyMention(const std::string& text) {
  const test::MayFail no(false);  // not what is tested
  static const std::regex expression(R"((SensorSize)(\D*)(\d+)(\D*)(\d+))");
  const std::vector<std::smatch> matches(std::sregex_iterator(text.begin(), text.end(), expression),
                                         std::sregex_iterator());
  if (matches.size() != 1) return {};
  return {matches[0].str(3), matches[0].str(5)};
}

bool says(const std::string& digits, int value) {
  return digits.substr(std::min(digits.find_first_not_of('0'), digits.size() - 1)) ==
         std::to_string(value);
}

/// Whether the C interface must take the text.
bool isModel(const std::string& text) {
  const std::vector<std::string> wanted = onlyMention(text);
  const auto found = datafusion::planex::findOnlySensorSize(text);
  CHECK_HOLDS(wanted.empty() == !found.has_value());
  CHECK_HOLDS(!found || (found->width == wanted[0] && found->height == wanted[1]));
  CalibrationModel model;
  const bool readable = test::readJson(text, model).empty();
  const auto shown = onlyMention(text.c_str());  // as far as the interface sees it
  const bool confirmed =
      !shown.empty() && says(shown[0], model.SensorSize.x) && says(shown[1], model.SensorSize.y);
  CHECK_HOLDS(datafusion::planex::sensorSizeConfirms(text.c_str(), model) == confirmed);
  return (readable || confirmed) && model.IsConsistent();
}

bool exportTo(std::string& buffer, std::size_t size, uint32_t model, test::CheckedLog& log) {
  buffer.assign(size, '#');
  const bool done =
      test::succeeds([&] { return createJsonFromModel(model, buffer.data(), buffer.size()); });
  log.CheckCall(done);
  CHECK_ALWAYS(done || buffer == std::string(size, '#'));
  return done;
}

std::string exported(uint32_t model, test::CheckedLog& log) {
  std::string buffer;
  for (std::size_t size = 4096; !exportTo(buffer, size, model, log); size *= 2) {
    CHECK_HOLDS(size < (std::size_t{1} << 28));
  }
  std::string text = buffer.c_str();
  CHECK_HOLDS(!exportTo(buffer, text.size(), model, log));
  CHECK_HOLDS(exportTo(buffer, text.size() + 1, model, log) && buffer.c_str() == text);
  return text;
}

}  // namespace

PLANEX_PROPERTY(document) {
  const std::string input = source.Rest();
  checkObject(input, false);
  checkObject(input, true);
  // Exactly as long as the text: reading past its end is seen.
  std::vector<char> text(input.begin(), input.end());
  text.push_back('\0');
  const bool isKnown = input.size() <= 1024;  // matching is recursive
  const bool isWanted = isKnown && isModel(input);
  test::CheckedLog log;
  destroyAllModels();
  uint32_t model = 77;
  const test::MemoryPeak peak;
  const bool created = test::succeeds([&] { return createModelFromJson(text.data(), &model); });
  CHECK_HOLDS(peak.Bytes() <= allowedBytes(input.size()));
  log.CheckCall(created);
  CHECK_ALWAYS(created == (model != 0));
  CHECK_HOLDS(!isKnown || created == isWanted);
  if (!created) return;
  const std::string first = exported(model, log);
  uint32_t again = 0;
  CHECK_HOLDS(createModelFromJson(first.c_str(), &again) && exported(again, log) == first);
  CHECK_HOLDS(destroyModel(&again) && again == 0 && destroyModel(&model));
}
