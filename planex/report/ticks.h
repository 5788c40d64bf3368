#pragma once

#include <string>
#include <vector>

namespace planex::report {

/// Where an axis has its marks, and what is written there.
struct Ticks {
  std::vector<double> values;  ///< growing
  std::vector<std::string> labels;
};

/// The multiples of 1, 2 or 5 times a power of ten between two numbers, in either order, as close
/// as at most `most` of them allow. At least one for finite numbers and most > 0: of a range too
/// small for a step, its middle. None where an end, or the distance of the ends, is not finite.
Ticks roundTicks(double from, double to, int most);

/// The same for an axis on which equal ratios are equally long: some round digits times powers of
/// ten, such as 1, 2 and 5; of a range too small for two of them, roundTicks(). 0 < from <= to.
Ticks ratioTicks(double from, double to, int most);

/// The largest of 1, 2, 5 times a power of ten that is at most `span`; 0 unless span is positive
/// and finite.
double roundStep(double span);

/// A number for people: six digits, a minus sign of its own, and exponents as 2e9.
std::string numberText(double value);

/// A number of so many digits, at most 6, as people write it.
std::string figureText(double value, int digits);

}  // namespace planex::report
