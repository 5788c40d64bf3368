// The kinds of point files behind PointWriter::create, and what they share.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "planex/infra/byte_order.h"
#include "planex/io/output_file.h"
#include "planex/io/point_writer.h"

namespace planex::io {

/// @{
/// As PointWriter::create.
std::unique_ptr<PointWriter> createPly(OutputFile& file, const PointDescription& points);
std::unique_ptr<PointWriter> createPcd(OutputFile& file, const PointDescription& points);
std::unique_ptr<PointWriter> createLas(OutputFile& file, const PointDescription& points);
/// @param separator of the numbers; a comma has a heading
std::unique_ptr<PointWriter> createText(OutputFile& file, const PointDescription& points,
                                        char separator);
/// @}

/// The unit as people read it: of all coordinates, or of all but Y.
std::string unitText(const PointDescription& points);

/// Whether a file without missing points has that one.
inline bool isThere(const PointRows& rows, std::size_t i) {
  return std::isfinite(rows.x[i]) && std::isfinite(rows.y[i]) && std::isfinite(rows.z[i]);
}

/// Puts what is known at the end of a file, a heading of the same size, in the place of the first.
void replaceHeading(OutputFile& file, std::string_view heading);

/// bytes = a0 b0 a1 b1 ... or, with c, a0 b0 c0 a1 ..., as files have them
/// @param bytes of `count` points, at an address of floats
void interleave(const float* a, const float* b, const float* c, std::size_t count, char* bytes);

/// Points one behind the other, each with its numbers together.
class RecordWriter : public PointWriter {
 public:
  void prepare(const PointRows& rows, PreparedRows& prepared) const override;
  void writeRows(const PointRows& rows, const PreparedRows& prepared) override;

 protected:
  RecordWriter(OutputFile& file, const PointDescription& points, std::size_t recordBytes)
      : points_(points), recordBytes_(recordBytes), file_(file) {}

  /// Copies one number of every point to its place in the records, as a Stored.
  template <typename Stored, typename T>
  void place(const T* values, std::size_t position, std::vector<char>& bytes) const {
    for (std::size_t i = position; i < bytes.size(); i += recordBytes_, ++values) {
      base::storeLittle(static_cast<Stored>(*values), bytes.data() + i);
    }
  }
  /// The same for intensities, whose type the description tells.
  template <typename Stored>
  void placeIntensity(const void* values, std::size_t position, std::vector<char>& bytes) const {
    if (points_.intensity == SampleType::kUint8) {
      place<Stored>(static_cast<const std::uint8_t*>(values), position, bytes);
    } else if (points_.intensity == SampleType::kUint16) {
      place<Stored>(static_cast<const std::uint16_t*>(values), position, bytes);
    }
  }
  /// A Failure where the file would have more points than 32 bits count.
  void requireCountable(std::int64_t more) const;

  const PointDescription points_;
  const std::size_t recordBytes_;
  OutputFile& file_;

 private:
  /// Fills the records of all points; bytes that it leaves alone are 0, or what it gave them.
  virtual void fill(const PointRows& rows, std::vector<char>& bytes) const = 0;
};

}  // namespace planex::io
