#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "planex/infra/export.h"

namespace planex::io {

/// A point of a cloud.
struct CloudPoint {
  double x = 0;          ///< X
  double y = 0;          ///< Y
  double z = 0;          ///< Z
  double intensity = 0;  ///< where the cloud has one
};

/// Reads the points of a PLY, a PCD or an NPY, some at a time.
///
///     PLY  ascii or binary_little_endian; vertices are the first element; x, y, z, and intensity
///     PCD  ascii or binary; fields x, y, z, and intensity
///     NPY  float32 or float64, points x 3, or rows x columns x 3: X, Y and Z
///
/// Other numbers of a point are passed over, lists and what follows the points are not read.
/// Nothing in the file is trusted: a Failure names what cannot be read, has no X, Y and Z, or is
/// shorter than its heading announces. Memory holds the heading and some points.
class PLANEX_EXPORT CloudReader {
 public:
  /// Opens a file, and reads its heading; the first bytes tell the kind.
  explicit CloudReader(const std::string& path);
  ~CloudReader();
  CloudReader(const CloudReader&) = delete;
  CloudReader& operator=(const CloudReader&) = delete;

  /// Whether a file begins as one of the kinds; an NPY only where it has points of three numbers
  /// and no file beside it, PATH.json, calls it a height map.
  static bool isCloud(const std::string& path);

  /// How many points the file announces.
  std::int64_t count() const;
  /// Whether they have intensities.
  bool hasIntensity() const;
  /// @{
  /// Units of X and Z, and of Y, of the file beside it, PATH.json; empty where there is none.
  const std::string& unit() const;
  const std::string& yUnit() const;
  /// @}

  /// Reads up to `most` more points; those that are no numbers, too. @return false behind the last
  bool read(std::size_t most, std::vector<CloudPoint>& points);
  /// Makes the first point the next one.
  void rewind();

 private:
  class Source;
  std::unique_ptr<Source> source_;
};

}  // namespace planex::io
