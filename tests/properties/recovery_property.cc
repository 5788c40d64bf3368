// Any text through the check that lets damaged documents pass, against a plain search for the same
// pattern; then through the C interface, where an unreadable text may pass by this check only.

#include <algorithm>
#include <optional>
#include <string>

#include "planex/api/model_recovery.h"
#include "planex/api/planex.h"
#include "planex/api/registries.h"
#include "planex/infra/json_deserializer.h"
#include "tests/support/property.h"

namespace {

using datafusion::planex::CalibrationModel;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

struct Match {
  std::string width, height;
  std::size_t end;
};

/// `(SensorSize)(\D*)(\d+)(\D*)(\d+)` the slow way: tries every start, and for each every length of
/// the first run of digits, longest first, as backtracking does.
std::optional<Match> search(const std::string& text, std::size_t from) {
  for (std::size_t start = text.find("SensorSize", from); start != std::string::npos;
       start = text.find("SensorSize", start + 1)) {
    std::size_t first = start + 10;
    while (first < text.size() && !isDigit(text[first])) ++first;
    std::size_t firstEnd = first;
    while (firstEnd < text.size() && isDigit(text[firstEnd])) ++firstEnd;
    for (std::size_t cut = firstEnd; cut > first; --cut) {
      std::size_t second = cut;
      while (second < text.size() && !isDigit(text[second])) ++second;
      std::size_t secondEnd = second;
      while (secondEnd < text.size() && isDigit(text[secondEnd])) ++secondEnd;
      if (secondEnd == second) continue;
      return Match{text.substr(first, cut - first), text.substr(second, secondEnd - second),
                   secondEnd};
    }
  }
  return std::nullopt;
}

std::optional<Match> searchOnly(const std::string& text) {
  std::optional<Match> match = search(text, 0);
  if (match && search(text, match->end)) return std::nullopt;
  return match;
}

/// The number where it is an int, otherwise nothing.
std::optional<int> numberOf(const std::string& digits) {
  const std::size_t significant = std::min(digits.find_first_not_of('0'), digits.size());
  if (digits.size() - significant > 10) return std::nullopt;
  const long long number = std::stoll(digits);
  if (number > 2147483647) return std::nullopt;
  return static_cast<int>(number);
}

}  // namespace

PLANEX_PROPERTY(recovery) {
  const std::string text = source.Rest();
  const std::optional<Match> wanted = searchOnly(text);
  const auto found = tavik::planex::findOnlySensorSize(text);
  CHECK_HOLDS(wanted.has_value() == found.has_value());
  if (wanted) {
    CHECK_HOLDS(found->width == wanted->width && found->height == wanted->height);
    const std::optional<int> width = numberOf(wanted->width);
    const std::optional<int> height = numberOf(wanted->height);
    CalibrationModel model;
    model.SensorSize = {width.value_or(0), height.value_or(0)};
    CHECK_HOLDS(tavik::planex::sensorSizeConfirms(text, model) == (width && height));
    model.SensorSize.y ^= 1;
    CHECK_HOLDS(!tavik::planex::sensorSizeConfirms(text, model));
  }

  test::CheckedLog log;
  uint32_t handle = 77;
  const bool created = createModelFromJson(text.c_str(), &handle);
  log.CheckCall(created);
  CalibrationModel model;
  base::JsonVisitingDeSerializer reader(text.c_str(), false);
  const bool readable = reader.DeserializeIntoExistingObject(model);
  const std::string shown = text.c_str();  // as far as the interface sees it
  const std::optional<Match> mention = searchOnly(shown);
  const bool confirmed = mention && numberOf(mention->width) == model.SensorSize.x &&
                         numberOf(mention->height) == model.SensorSize.y;
  CHECK_HOLDS(created == ((readable || confirmed) && model.IsConsistent()));
  if (created) {
    const auto sensor = tavik::planex::models().copyOf(handle).SensorSize;
    CHECK_HOLDS(sensor.x == model.SensorSize.x && sensor.y == model.SensorSize.y);
    CHECK_HOLDS(destroyModel(&handle));
  }
}
