// Points as PLY, with or without a mesh, and PCD.
#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

#include "planex/io/point_formats.h"
#include "planex/io/range_mesh.h"
#include "planex/io/scratch_file.h"
#include "planex/version.h"

namespace planex::io {
namespace {

const char* const kGenerator = "planex " PLANEX_VERSION_STRING;

/// 16 bits go into a float: some readers of PLY know no ushort.
SampleType plyIntensity(const PointDescription& points) {
  return points.intensity == SampleType::kUint8 ? SampleType::kUint8 : SampleType::kFloat32;
}

/// What a comment needs so that the heading is as long for all counts.
std::string padding(const PointDescription& points, const PointCounts& counts) {
  if (!points.withoutMissing) return {};
  return std::string(40 - fmt::formatted_size("{}{}", counts.points, counts.triangles), ' ');
}

std::string plyHeading(const PointDescription& points, const PointCounts& counts) {
  std::string header = fmt::format(
      "ply\nformat binary_little_endian 1.0\ncomment {}\ncomment {} points, {} nothing was "
      "measured{}\ncomment unit {}\n",
      kGenerator, points.aligned ? "aligned" : "calibrated",
      points.withoutMissing ? "none where" : "NaN where", padding(points, counts),
      unitText(points));
  if (!points.withoutMissing) {
    header +=
        fmt::format("obj_info num_cols {}\nobj_info num_rows {}\n", points.columns, points.rows);
  }
  header += fmt::format("element vertex {}\nproperty float x\nproperty float y\nproperty float z\n",
                        counts.points);
  if (points.intensity) {
    header += fmt::format("property {} intensity\n",
                          plyIntensity(points) == SampleType::kUint8 ? "uchar" : "float");
  }
  if (points.meshEdge) {
    header +=
        fmt::format("element face {}\nproperty list uchar uint vertex_indices\n", counts.triangles);
  }
  return header + "end_header\n";
}

std::string pcdHeading(const PointDescription& points, const PointCounts& counts) {
  const bool more = points.intensity.has_value();
  const std::int64_t width = points.withoutMissing ? counts.points : points.columns;
  return fmt::format(
      "# .PCD v0.7 - Point Cloud Data file format\n# {}, {} points, unit {}{}\nVERSION 0.7\n"
      "FIELDS x y z{}\nSIZE 4 4 4{}\nTYPE F F F{}\nCOUNT 1 1 1{}\nWIDTH {}\nHEIGHT {}\n"
      "VIEWPOINT 0 0 0 1 0 0 0\nPOINTS {}\nDATA binary\n",
      kGenerator, points.aligned ? "aligned" : "calibrated", unitText(points),
      padding(points, {width, counts.points}), more ? " intensity" : "", more ? " 4" : "",
      more ? " F" : "", more ? " 1" : "", width, points.withoutMissing ? 1 : points.rows,
      counts.points);
}

/// X, Y, Z and, where there is one, the intensity, as a byte or as a float.
class CloudWriter : public RecordWriter {
 public:
  using Heading = std::string (*)(const PointDescription& points, const PointCounts& counts);

  CloudWriter(OutputFile& file, const PointDescription& points, Heading heading,
              SampleType intensity)
      : RecordWriter(file, points, 12 + (points.intensity ? bytesOf(intensity) : 0)),
        heading_(heading),
        intensity_(intensity) {
    PointCounts counts;
    if (!points.withoutMissing) counts.points = std::int64_t{points.columns} * points.rows;
    file_.write(heading_(points, counts));
  }

  void finish() override {
    if (points_.withoutMissing) replaceHeading(file_, heading_(points_, written_));
  }

 private:
  void fill(const PointRows& rows, std::vector<char>& bytes) const override {
    if (!points_.intensity) {
      interleave(rows.x, rows.y, rows.z, bytes.size() / 12, bytes.data());
      return;
    }
    place<float>(rows.x, 0, bytes);
    place<float>(rows.y, 4, bytes);
    place<float>(rows.z, 8, bytes);
    if (intensity_ == SampleType::kUint8) {
      placeIntensity<std::uint8_t>(rows.intensity, 12, bytes);
    } else {
      placeIntensity<float>(rows.intensity, 12, bytes);
    }
  }

  const Heading heading_;
  const SampleType intensity_;  // in the file
};

/// A row with numbers of its points.
struct NumberedRow {
  std::vector<float> x, y, z;
  std::vector<std::uint32_t> index;

  SampleRow samples() const { return {x.data(), y.data(), z.data(), index.data()}; }
};

/// A PLY whose triangles wait in a file of their own until the last point is written. Those between
/// rows of a block are found on the thread that prepares it, those between blocks on that of the
/// writer: row after row, whatever the blocks are.
class MeshWriter final : public CloudWriter {
 public:
  MeshWriter(OutputFile& file, const PointDescription& points)
      : CloudWriter(file, points, plyHeading, plyIntensity(points)), triangles_(file) {}

  void prepare(const PointRows& rows, PreparedRows& prepared) const override {
    CloudWriter::prepare(rows, prepared);
    prepared.corners.clear();
    prepared.facing = 0;
    std::vector<std::uint32_t> upper(columns()), lower(columns());
    std::uint32_t next = number(rows, 0, 0, upper);
    for (int row = 1; row < rows.count; ++row) {
      next = number(rows, row, next, lower);
      connectRows(samples(rows, row - 1, upper), samples(rows, row, lower), columns(),
                  *points_.meshEdge, {prepared.corners, prepared.facing});
      upper.swap(lower);
    }
  }

  void writeRows(const PointRows& rows, const PreparedRows& prepared) override {
    requireCountable(prepared.points);
    const auto first = static_cast<std::uint32_t>(written_.points);
    connectToLast(rows, first);
    writeTriangles(prepared.corners, first);
    facing_ += prepared.facing;
    CloudWriter::writeRows(rows, prepared);
    keepLast(rows, first, prepared.points);
  }

  void finish() override {
    triangles_.rewind();
    std::vector<char> bytes(kTriangleBytes * 65536);
    for (std::int64_t left = written_.triangles; left > 0; left -= 65536) {
      bytes.resize(kTriangleBytes * static_cast<std::size_t>(std::min<std::int64_t>(left, 65536)));
      triangles_.read(bytes.data(), bytes.size());
      for (std::size_t i = 0; facing_ < 0 && i < bytes.size(); i += kTriangleBytes) {
        char* const corners = bytes.data() + i + 1;
        std::swap_ranges(corners + 4, corners + 8, corners + 8);
      }
      file_.write(bytes.data(), bytes.size());
    }
    CloudWriter::finish();
  }

 private:
  static constexpr std::size_t kTriangleBytes = 13;

  std::size_t columns() const { return static_cast<std::size_t>(points_.columns); }

  /// Numbers the points of a row that are there. @return the number of the next one
  std::uint32_t number(const PointRows& rows, int row, std::uint32_t next,
                       std::vector<std::uint32_t>& index) const {
    const std::size_t begin = static_cast<std::size_t>(row) * columns();
    for (std::size_t i = 0; i < columns(); ++i) {
      index[i] = next;
      next += isThere(rows, begin + i) ? 1U : 0U;
    }
    return next;
  }

  SampleRow samples(const PointRows& rows, int row, const std::vector<std::uint32_t>& index) const {
    const std::size_t begin = static_cast<std::size_t>(row) * columns();
    return {rows.x + begin, rows.y + begin, rows.z + begin, index.data()};
  }

  void connectToLast(const PointRows& rows, std::uint32_t first) {
    if (last_.index.empty()) return;
    std::vector<std::uint32_t> index(columns()), corners;
    number(rows, 0, first, index);
    connectRows(last_.samples(), samples(rows, 0, index), columns(), *points_.meshEdge,
                {corners, facing_});
    writeTriangles(corners, 0);
  }

  void keepLast(const PointRows& rows, std::uint32_t first, std::int64_t count) {
    const std::size_t begin = static_cast<std::size_t>(rows.count - 1) * columns();
    last_.x.assign(rows.x + begin, rows.x + begin + columns());
    last_.y.assign(rows.y + begin, rows.y + begin + columns());
    last_.z.assign(rows.z + begin, rows.z + begin + columns());
    last_.index.resize(columns());
    const std::uint32_t ofRow = number(rows, rows.count - 1, 0, last_.index);
    const std::uint32_t before = first + static_cast<std::uint32_t>(count) - ofRow;
    for (std::uint32_t& index : last_.index) index += before;
  }

  void writeTriangles(const std::vector<std::uint32_t>& corners, std::uint32_t first) {
    bytes_.resize(corners.size() / 3 * kTriangleBytes);
    char* to = bytes_.data();
    for (std::size_t i = 0; i < corners.size(); ++i) {
      if (i % 3 == 0) *to++ = 3;  // corners follow
      base::storeLittle(corners[i] + first, to);
      to += sizeof corners[i];
    }
    triangles_.write(bytes_.data(), bytes_.size());
    written_.triangles += static_cast<std::int64_t>(corners.size() / 3);
  }

  ScratchFile triangles_;
  std::vector<char> bytes_;  // of triangles on their way there
  NumberedRow last_;
  std::int64_t facing_ = 0;
};

}  // namespace

std::unique_ptr<PointWriter> createPly(OutputFile& file, const PointDescription& points) {
  if (!points.meshEdge) {
    return std::make_unique<CloudWriter>(file, points, plyHeading, plyIntensity(points));
  }
  PointDescription mesh = points;
  mesh.withoutMissing = true;
  return std::make_unique<MeshWriter>(file, mesh);
}

std::unique_ptr<PointWriter> createPcd(OutputFile& file, const PointDescription& points) {
  return std::make_unique<CloudWriter>(file, points, pcdHeading, SampleType::kFloat32);
}

}  // namespace planex::io
