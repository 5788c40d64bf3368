#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

namespace planex::io {

/// A number between two others: what is computed from bounds contains what would be computed from
/// any numbers between them without rounding. Each result is wider by its own rounding, an ulp or
/// two to each side. Where nothing is known, bounds are infinite or NaN, so that no comparison with
/// a bound holds.
///
/// Source: Moore, Kearfott and Cloud, Introduction to Interval Analysis, SIAM 2009.
struct Bounds {
  double low, high;

  Bounds(double value) : low(value), high(value) {}  // NOLINT(*-explicit-*): stands in formulas
  Bounds(double least, double greatest) : low(least), high(greatest) {}

  friend Bounds operator+(const Bounds& a, const Bounds& b) {
    return widened(a.low + b.low, a.high + b.high);
  }
  friend Bounds operator-(const Bounds& a, const Bounds& b) {
    return widened(a.low - b.high, a.high - b.low);
  }
  friend Bounds operator*(const Bounds& a, const Bounds& b) {
    return spanning(a.low * b.low, a.low * b.high, a.high * b.low, a.high * b.high);
  }
  friend Bounds operator/(const Bounds& a, const Bounds& b) {
    if (!(b.low > 0) && !(b.high < 0)) return unknown();
    return spanning(a.low / b.low, a.low / b.high, a.high / b.low, a.high / b.high);
  }

 private:
  static Bounds unknown() {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    return {-kInfinity, kInfinity};
  }
  static double slackOf(double value) {
    return std::abs(value) * std::numeric_limits<double>::epsilon() +
           std::numeric_limits<double>::denorm_min();
  }
  static Bounds widened(double least, double greatest) {
    return {least - slackOf(least), greatest + slackOf(greatest)};
  }
  static Bounds spanning(double a, double b, double c, double d) {
    if (!std::isfinite(a + b + c + d)) return unknown();  // minima would pass over NaN
    return widened(std::min(std::min(a, b), std::min(c, d)),
                   std::max(std::max(a, b), std::max(c, d)));
  }
};

/// A function's value and its derivatives by sensor column u and row v. Formulas that take it for a
/// number give the derivatives of their results; of Duals of Duals, the second ones, too.
template <typename T>
struct Dual {
  T value, u, v;

  Dual(double constant)  // NOLINT(*-explicit-*): stands in formulas
      : value(constant), u(0.0), v(0.0) {}
  Dual(const T& its, const T& byColumn, const T& byRow) : value(its), u(byColumn), v(byRow) {}

  friend Dual operator+(const Dual& a, const Dual& b) {
    return {a.value + b.value, a.u + b.u, a.v + b.v};
  }
  friend Dual operator-(const Dual& a, const Dual& b) {
    return {a.value - b.value, a.u - b.u, a.v - b.v};
  }
  friend Dual operator*(const Dual& a, const Dual& b) {
    return {a.value * b.value, a.u * b.value + a.value * b.u, a.v * b.value + a.value * b.v};
  }
  friend Dual operator/(const Dual& a, const Dual& b) {
    const T ratio = a.value / b.value;
    return {ratio, (a.u - ratio * b.u) / b.value, (a.v - ratio * b.v) / b.value};
  }
};

}  // namespace planex::io
