#pragma once

namespace cmnalg {

/// A point or vector of N components (N = 2 or 3) of type float, double or int.
///
/// An aggregate without invariant; lists are etl::Vector<Vec<N, T>>, contiguous, without padding
/// between points.
template <int N, typename T>
struct Vec;

/// A point in the plane.
template <typename T>
struct Vec<2, T> {
  T x{};  ///< column, or X
  T y{};  ///< row, or Z of the laser plane

  /// @{
  /// By component: a NaN makes points unequal.
  friend constexpr bool operator==(const Vec& a, const Vec& b) { return a.x == b.x && a.y == b.y; }
  friend constexpr bool operator!=(const Vec& a, const Vec& b) { return !(a == b); }
  /// @}
};

/// A point in space.
template <typename T>
struct Vec<3, T> {
  T x{};  ///< column, or X
  T y{};  ///< profile index or image row, or Y
  T z{};  ///< sensor row or stored value, or Z

  /// @{
  /// By component: a NaN makes points unequal.
  friend constexpr bool operator==(const Vec& a, const Vec& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
  }
  friend constexpr bool operator!=(const Vec& a, const Vec& b) { return !(a == b); }
  /// @}
};

}  // namespace cmnalg
