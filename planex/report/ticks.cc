#include "planex/report/ticks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace planex::report {
namespace {

/// "-2.5e-09" as people write it.
std::string tidied(std::string text) {
  std::size_t e = text.find('e');
  if (e != std::string::npos) {
    if (text[++e] == '+') text.erase(e, 1);
    if (text[e] == '-') ++e;
    while (e + 1 < text.size() && text[e] == '0') text.erase(e, 1);
  }
  for (std::size_t i = 0; (i = text.find('-', i)) != std::string::npos;) {
    text.replace(i, 1, "\xE2\x88\x92");  // U+2212
  }
  return text;
}

int exponentOf(double step) { return static_cast<int>(std::floor(std::log10(step) + 1e-9)); }

/// As many digits as tell multiples of the step apart.
std::string labelText(double value, double step, double largest) {
  const int exponent = exponentOf(step);
  if (value == 0) value = 0;  // no "-0"
  if (largest < 1e6 && step > 1e-5) {
    return tidied(fmt::format("{:.{}f}", value, std::max(0, -exponent)));
  }
  if (value == 0) return "0";
  return tidied(fmt::format("{:.{}e}", value, std::max(0, exponentOf(std::abs(value)) - exponent)));
}

Ticks multiples(double from, double to, double step) {
  Ticks ticks;
  // A hair beyond the ends, which may be multiples themselves.
  const double first = std::ceil(from / step - 1e-6), last = std::floor(to / step + 1e-6);
  for (int i = 0; first + i <= last; ++i) ticks.values.push_back((first + i) * step);
  const double largest = std::max(std::abs(first), std::abs(last)) * step;
  for (const double value : ticks.values) ticks.labels.push_back(labelText(value, step, largest));
  return ticks;
}

}  // namespace

Ticks ratioTicks(double from, double to, int most) {
  if (!(from > 0 && from <= to && std::isfinite(to)) || most < 1) return {};
  const double decades = std::log10(to) - std::log10(from);
  std::vector<double> factors = {1};
  // The closest that stay over half of an equal share apart.
  for (const auto& [gap, closer] : {std::pair<double, std::vector<double>>{0.47, {1, 3}},
                                    {0.30, {1, 2, 5}},
                                    {0.096, {1, 1.5, 2, 3, 4, 6, 8}}}) {
    if (gap * most >= 0.6 * decades) factors = closer;
  }
  Ticks ticks;
  for (int exponent = exponentOf(from); exponent <= exponentOf(to); ++exponent) {
    for (const double factor : factors) {
      const double value = factor * std::pow(10.0, exponent);
      if (value < from || value > to) continue;
      ticks.values.push_back(value);
      ticks.labels.push_back(numberText(value));
    }
  }
  return ticks.values.size() < 2 ? roundTicks(from, to, most) : ticks;
}

double roundStep(double span) {
  if (!(span > 0) || !std::isfinite(span)) return 0;
  const double power = std::pow(10.0, std::floor(std::log10(span)));
  for (const double factor : {10.0, 5.0, 2.0}) {
    if (factor * power <= span) return factor * power;
  }
  return power;
}

Ticks roundTicks(double from, double to, int most) {
  if (from > to) std::swap(from, to);
  const double span = to - from;
  if (!std::isfinite(from) || !std::isfinite(to) || !std::isfinite(span) || most < 1) return {};
  // Below, neighbouring multiples are the same number, or the step is none that has all its digits.
  const double least = std::max(1e-9 * std::max(std::abs(from), std::abs(to)), 1e-300);
  if (span < least) return {{from + span / 2}, {numberText(from + span / 2)}};
  double step = roundStep(span / most);
  Ticks best = multiples(from, to, step);
  while (best.values.size() > static_cast<std::size_t>(most)) {
    step = roundStep(step * 2.6);  // the next one of 1, 2, 5, 10
    Ticks wider = multiples(from, to, step);
    if (wider.values.empty()) {  // the wider step leaps over the range: one of the narrower
      best.values.resize(1);
      best.labels.resize(1);
    } else {
      best = std::move(wider);
    }
  }
  return best;
}

std::string numberText(double value) {
  return std::isfinite(value) ? tidied(fmt::format("{:.6g}", value)) : "?";
}

std::string figureText(double value, int digits) {
  if (!std::isfinite(value) || value == 0) return numberText(value);
  const int exponent = static_cast<int>(std::floor(std::log10(std::abs(value)))) - digits + 1;
  const double power = std::pow(10.0, std::abs(exponent));
  return numberText(exponent < 0 ? std::round(value * power) / power
                                 : std::round(value / power) * power);
}

}  // namespace planex::report
