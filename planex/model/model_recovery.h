#pragma once

#include <optional>
#include <string_view>

namespace datafusion::planex {

/// Two runs of digits behind the word "SensorSize".
struct SensorSizeMention {
  std::string_view width, height;
};

/// The only place where a text says "SensorSize" with two numbers behind it.
///
/// It matches as the ECMAScript expression `(SensorSize)(\D*)(\d+)(\D*)(\d+)` does, over all
/// matches that do not overlap: anything but digits may stand around the first number. Where no
/// second run of digits follows, the first gives its last digit for it: "SensorSize 10" says 1 and
/// 0.
///
/// Linear in the length of the text.
///
/// @return the numbers when there is exactly one match, otherwise nothing
std::optional<SensorSizeMention> findOnlySensorSize(std::string_view text);

}  // namespace datafusion::planex
