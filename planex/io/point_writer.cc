#include "planex/io/point_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include "planex/io/raster_formats.h"
#include "planex/version.h"

namespace planex::io {
namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "floats are written as they lie in memory");

const char* const kGenerator = "planex " PLANEX_VERSION_STRING;

std::size_t pointCount(const PointDescription& points) {
  return static_cast<std::size_t>(points.columns) * static_cast<std::size_t>(points.rows);
}

/// 16 bits go into a float: some readers of PLY know no ushort.
SampleType plyIntensity(const PointDescription& points) {
  return points.intensity == SampleType::kUint8 ? SampleType::kUint8 : SampleType::kFloat32;
}

std::string unitText(const PointDescription& points) {
  if (points.rowUnit.empty()) return points.unit;
  return points.aligned ? fmt::format("{0}, with {1} taken as 1 {0}", points.unit, points.rowUnit)
                        : fmt::format("{}, of Y {}", points.unit, points.rowUnit);
}

std::string plyHeader(const PointDescription& points) {
  std::string header = fmt::format(
      "ply\nformat binary_little_endian 1.0\ncomment {}\ncomment {} points, NaN where nothing was "
      "measured\ncomment unit {}\nobj_info num_cols {}\nobj_info num_rows {}\nelement vertex {}\n"
      "property float x\nproperty float y\nproperty float z\n",
      kGenerator, points.aligned ? "aligned" : "calibrated", unitText(points), points.columns,
      points.rows, pointCount(points));
  if (points.intensity) {
    header += fmt::format("property {} intensity\n",
                          plyIntensity(points) == SampleType::kUint8 ? "uchar" : "float");
  }
  return header + "end_header\n";
}

std::string pcdHeader(const PointDescription& points) {
  const bool more = points.intensity.has_value();
  return fmt::format(
      "# .PCD v0.7 - Point Cloud Data file format\n# {}, {} points, unit {}\nVERSION 0.7\n"
      "FIELDS x y z{}\nSIZE 4 4 4{}\nTYPE F F F{}\nCOUNT 1 1 1{}\nWIDTH {}\nHEIGHT {}\n"
      "VIEWPOINT 0 0 0 1 0 0 0\nPOINTS {}\nDATA binary\n",
      kGenerator, points.aligned ? "aligned" : "calibrated", unitText(points),
      more ? " intensity" : "", more ? " 4" : "", more ? " F" : "", more ? " 1" : "",
      points.columns, points.rows, pointCount(points));
}

std::string npyHeaderOf(const PointDescription& points) {
  return npyHeader(
      "<f4", fmt::format("({}, {}, {})", points.rows, points.columns, points.aligned ? 3 : 2));
}

/// out = a0 b0 a1 b1 ... or, with c, a0 b0 c0 a1 ...
void interleave(const float* a, const float* b, const float* c, std::size_t count, float* out) {
  if (c == nullptr) {
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i) {
      out[2 * i] = a[i];
      out[2 * i + 1] = b[i];
    }
    return;
  }
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    out[3 * i] = a[i];
    out[3 * i + 1] = b[i];
    out[3 * i + 2] = c[i];
  }
}

/// Points one behind the other, each with its numbers together.
class RecordWriter : public PointWriter {
 public:
  void prepare(const PointRows& rows, std::vector<char>& bytes) const override {
    bytes.resize(static_cast<std::size_t>(rows.count) * static_cast<std::size_t>(points_.columns) *
                 recordBytes_);
    fill(rows, bytes);
  }
  void writeRows(const PointRows& /*rows*/, const std::vector<char>& bytes) override {
    file_.write(bytes.data(), bytes.size());
  }

 protected:
  RecordWriter(OutputFile& file, const PointDescription& points, const std::string& header,
               std::size_t recordBytes)
      : points_(points), recordBytes_(recordBytes), file_(file) {
    file_.write(header);
  }

  /// Copies one number of every point to its place in the records, as a Stored.
  template <typename Stored, typename T>
  void place(const T* values, std::size_t position, std::vector<char>& bytes) const {
    for (std::size_t i = position; i < bytes.size(); i += recordBytes_, ++values) {
      const auto stored = static_cast<Stored>(*values);
      std::memcpy(bytes.data() + i, &stored, sizeof stored);
    }
  }

  const PointDescription points_;

 private:
  virtual void fill(const PointRows& rows, std::vector<char>& bytes) const = 0;

  const std::size_t recordBytes_;
  OutputFile& file_;
};

/// PLY and PCD: X, Y, Z and, where there is one, the intensity, as a byte or as a float.
class CloudWriter final : public RecordWriter {
 public:
  CloudWriter(OutputFile& file, const PointDescription& points, const std::string& header,
              SampleType intensity)
      : RecordWriter(file, points, header, 12 + (points.intensity ? bytesOf(intensity) : 0)),
        intensity_(intensity) {}

 private:
  void fill(const PointRows& rows, std::vector<char>& bytes) const override {
    if (!points_.intensity) {
      interleave(rows.x, rows.y, rows.z, bytes.size() / 12, reinterpret_cast<float*>(bytes.data()));
      return;
    }
    place<float>(rows.x, 0, bytes);
    place<float>(rows.y, 4, bytes);
    place<float>(rows.z, 8, bytes);
    if (points_.intensity == SampleType::kUint8) {
      placeIntensity(static_cast<const std::uint8_t*>(rows.intensity), bytes);
    } else if (points_.intensity == SampleType::kUint16) {
      placeIntensity(static_cast<const std::uint16_t*>(rows.intensity), bytes);
    }
  }

  template <typename T>
  void placeIntensity(const T* values, std::vector<char>& bytes) const {
    if (intensity_ == SampleType::kUint8) {
      place<std::uint8_t>(values, 12, bytes);
    } else {
      place<float>(values, 12, bytes);
    }
  }

  const SampleType intensity_;  // in the file
};

class NpyWriter final : public RecordWriter {
 public:
  NpyWriter(OutputFile& file, const PointDescription& points)
      : RecordWriter(file, points, npyHeaderOf(points), points.aligned ? 12 : 8) {}

 private:
  void fill(const PointRows& rows, std::vector<char>& bytes) const override {
    const std::size_t count = bytes.size() / (points_.aligned ? 12 : 8);
    auto* out = reinterpret_cast<float*>(bytes.data());
    if (points_.aligned) {
      interleave(rows.x, rows.y, rows.z, count, out);
    } else {
      interleave(rows.x, rows.z, nullptr, count, out);
    }
  }
};

class LayerWriter final : public PointWriter {
 public:
  LayerWriter(OutputFile& file, const PointDescription& points, const RasterEncoding& encoding)
      : aligned_(points.aligned),
        raster_(RasterWriter::create(RasterFormat::kTiff, file, describe(points), encoding)) {}

  void prepare(const PointRows& /*rows*/, std::vector<char>& /*bytes*/) const override {}
  void writeRows(const PointRows& rows, const std::vector<char>& /*bytes*/) override {
    if (aligned_) {
      raster_->writeRows(rows.count, {rows.x, rows.y, rows.z});
    } else {
      raster_->writeRows(rows.count, {rows.x, rows.z});
    }
  }

  void finish() override { raster_->finish(); }

 private:
  static RasterDescription describe(const PointDescription& points) {
    RasterDescription raster;
    raster.width = points.columns;
    raster.height = points.rows;
    raster.sample = SampleType::kFloat32;
    raster.layers = points.aligned ? std::vector<std::string>{"aligned X", "aligned Y", "aligned Z"}
                                   : std::vector<std::string>{"calibrated X", "calibrated Z"};
    raster.values = Axis{};
    raster.missing = std::numeric_limits<double>::quiet_NaN();
    raster.unit = points.unit;
    raster.rowUnit = points.aligned ? points.rowUnit : "";
    return raster;
  }

  const bool aligned_;
  const std::unique_ptr<RasterWriter> raster_;
};

}  // namespace

std::optional<PointFormat> pointFormatOf(const std::string& path) {
  const std::string ending = endingOf(path);
  if (ending == ".ply") return PointFormat::kPly;
  if (ending == ".pcd") return PointFormat::kPcd;
  if (ending == ".tif" || ending == ".tiff") return PointFormat::kTiff;
  if (ending == ".npy") return PointFormat::kNpy;
  return std::nullopt;
}

std::unique_ptr<PointWriter> PointWriter::create(PointFormat format, OutputFile& file,
                                                 const PointDescription& description,
                                                 const RasterEncoding& encoding) {
  switch (format) {
    case PointFormat::kPly:
      return std::make_unique<CloudWriter>(file, description, plyHeader(description),
                                           plyIntensity(description));
    case PointFormat::kPcd:
      return std::make_unique<CloudWriter>(file, description, pcdHeader(description),
                                           SampleType::kFloat32);
    case PointFormat::kNpy:
      return std::make_unique<NpyWriter>(file, description);
    case PointFormat::kTiff:
      break;
  }
  return std::make_unique<LayerWriter>(file, description, encoding);
}

}  // namespace planex::io
