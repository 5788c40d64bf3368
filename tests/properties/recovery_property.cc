// Any text through the check that lets damaged documents pass, against a regular expression; then
// through the C interface, where an unreadable text may pass by this check only.

#include <algorithm>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "planex/api/model_recovery.h"
#include "planex/api/planex.h"
#include "planex/infra/json_deserializer.h"
#include "planex/model/calibration_model.h"
#include "tests/support/property.h"

namespace {

using datafusion::planex::CalibrationModel;

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

}  // namespace

PLANEX_PROPERTY(recovery) {
  const std::string text = source.Text(1024);  // matching is recursive
  const std::vector<std::string> wanted = onlyMention(text);
  const auto found = tavik::planex::findOnlySensorSize(text);
  CHECK_HOLDS(wanted.empty() == !found.has_value());
  CHECK_HOLDS(!found || (found->width == wanted[0] && found->height == wanted[1]));

  test::CheckedLog log;
  uint32_t handle = 77;
  const bool created = test::succeeds([&] { return createModelFromJson(text.c_str(), &handle); });
  log.CheckCall(created);
  CalibrationModel model;
  base::JsonVisitingDeSerializer reader(text.c_str(), false);
  const bool readable = reader.DeserializeIntoExistingObject(model);
  const auto shown = onlyMention(text.c_str());  // as far as the interface sees it
  const bool confirmed =
      !shown.empty() && says(shown[0], model.SensorSize.x) && says(shown[1], model.SensorSize.y);
  CHECK_HOLDS(tavik::planex::sensorSizeConfirms(text.c_str(), model) == confirmed);
  CHECK_HOLDS(created == ((readable || confirmed) && model.IsConsistent()));
  CHECK_ALWAYS(created == (handle != 0));
  CHECK_HOLDS(!created || destroyModel(&handle));
}
