#include "planex/io/point_formats.h"

#include <fmt/format.h>

#include <cstdio>
#include <limits>

#include "planex/io/failure.h"

namespace planex::io {

std::string unitText(const PointDescription& points) {
  if (points.rowUnit.empty()) return points.unit;
  return points.aligned ? fmt::format("{0}, with {1} taken as 1 {0}", points.unit, points.rowUnit)
                        : fmt::format("{}, of Y {}", points.unit, points.rowUnit);
}

void replaceHeading(OutputFile& file, std::string_view heading) {
  if (fseeko(file.stream(), 0, SEEK_SET) != 0) throw Failure(file.path(), "cannot be rewound");
  file.write(heading);
}

void interleave(const float* a, const float* b, const float* c, std::size_t count, char* bytes) {
  auto* const out = reinterpret_cast<float*>(bytes);
  if (c == nullptr) {
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i) {
      out[2 * i] = a[i];
      out[2 * i + 1] = b[i];
    }
    return base::swapLittle(bytes, 2 * count, sizeof(float));
  }
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    out[3 * i] = a[i];
    out[3 * i + 1] = b[i];
    out[3 * i + 2] = c[i];
  }
  base::swapLittle(bytes, 3 * count, sizeof(float));
}

void RecordWriter::prepare(const PointRows& rows, PreparedRows& prepared) const {
  std::vector<char>& bytes = prepared.bytes;
  const std::size_t count =
      static_cast<std::size_t>(rows.count) * static_cast<std::size_t>(points_.columns);
  bytes.resize(count * recordBytes_);
  fill(rows, bytes);
  std::size_t kept = count;
  if (points_.withoutMissing) {
    kept = 0;
    for (std::size_t i = 0; i < count; ++i) {
      if (!isThere(rows, i)) continue;
      char* const to = bytes.data() + kept++ * recordBytes_;
      std::memmove(to, bytes.data() + i * recordBytes_, recordBytes_);
    }
    bytes.resize(kept * recordBytes_);
  }
  prepared.points = static_cast<std::int64_t>(kept);
}

void RecordWriter::writeRows(const PointRows& /*rows*/, const PreparedRows& prepared) {
  file_.write(prepared.bytes.data(), prepared.bytes.size());
  written_.points += prepared.points;
}

void RecordWriter::requireCountable(std::int64_t more) const {
  if (written_.points + more <= std::numeric_limits<std::uint32_t>::max()) return;
  throw Failure(file_.path(),
                "would have more than 4294967295 points, as many as such a file can "
                "count; write parts of the scan with --rows");
}

}  // namespace planex::io
