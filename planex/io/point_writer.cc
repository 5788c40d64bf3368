#include "planex/io/point_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include "planex/io/raster_writer.h"
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

std::string plyHeader(const PointDescription& points) {
  std::string header = fmt::format(
      "ply\nformat binary_little_endian 1.0\ncomment {}\ncomment {} points, NaN where nothing was "
      "measured\ncomment unit {}\nobj_info num_cols {}\nobj_info num_rows {}\nelement vertex {}\n"
      "property float x\nproperty float y\nproperty float z\n",
      kGenerator, points.aligned ? "aligned" : "calibrated", points.unit, points.columns,
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
      kGenerator, points.aligned ? "aligned" : "calibrated", points.unit, more ? " intensity" : "",
      more ? " 4" : "", more ? " F" : "", more ? " 1" : "", points.columns, points.rows,
      pointCount(points));
}

/// The format's description, a Python dictionary, ends on a multiple of 64 bytes.
std::string npyHeader(const PointDescription& points) {
  std::string dictionary =
      fmt::format("{{'descr': '<f4', 'fortran_order': False, 'shape': ({}, {}, {}), }}",
                  points.rows, points.columns, points.aligned ? 3 : 2);
  const std::size_t begin = 10;  // signature, version and length
  dictionary.append(63 - (begin + dictionary.size()) % 64, ' ');
  dictionary += '\n';
  std::string header("\x93NUMPY\x01\x00", 8);
  header += static_cast<char>(dictionary.size() & 0xFF);
  header += static_cast<char>(dictionary.size() >> 8);
  return header + dictionary;
}

/// Points one behind the other, each with its numbers together.
class RecordWriter : public PointWriter {
 protected:
  RecordWriter(OutputFile& file, const PointDescription& points, const std::string& header,
               std::size_t recordBytes)
      : points_(points), file_(file), recordBytes_(recordBytes) {
    file_.write(header);
    row_.resize(static_cast<std::size_t>(points.columns) * recordBytes);
  }

  /// Copies one number of every point of a row to its place in the records.
  template <typename T>
  void place(const T* values, std::size_t position) {
    char* target = row_.data() + position;
    for (int i = 0; i < points_.columns; ++i, target += recordBytes_) {
      std::memcpy(target, values + i, sizeof(T));
    }
  }

  /// Where row r begins in arrays of rows.
  std::size_t indexOfRow(int r) const {
    return static_cast<std::size_t>(r) * static_cast<std::size_t>(points_.columns);
  }

  void writeRow() { file_.write(row_.data(), row_.size()); }

  const PointDescription points_;

 private:
  OutputFile& file_;
  const std::size_t recordBytes_;
  std::vector<char> row_;
};

/// PLY and PCD: X, Y, Z and, where there is one, the intensity, as a byte or as a float.
class CloudWriter final : public RecordWriter {
 public:
  CloudWriter(OutputFile& file, const PointDescription& points, const std::string& header,
              SampleType intensity)
      : RecordWriter(file, points, header, 12 + (points.intensity ? bytesOf(intensity) : 0)),
        intensity_(intensity),
        floats_(static_cast<std::size_t>(points.columns)) {}

  void writeRows(const PointRows& rows) override {
    for (int r = 0; r < rows.count; ++r) {
      const std::size_t begin = indexOfRow(r);
      place(rows.x + begin, 0);
      place(rows.y + begin, 4);
      place(rows.z + begin, 8);
      if (points_.intensity == SampleType::kUint8) {
        placeIntensity(static_cast<const std::uint8_t*>(rows.intensity) + begin);
      } else if (points_.intensity == SampleType::kUint16) {
        placeIntensity(static_cast<const std::uint16_t*>(rows.intensity) + begin);
      }
      writeRow();
    }
  }

 private:
  template <typename T>
  void placeIntensity(const T* values) {
    if (intensity_ == SampleType::kUint8) {
      place(values, 12);  // bytes as they are
    } else {
      std::copy(values, values + points_.columns, floats_.begin());
      place(floats_.data(), 12);
    }
  }

  const SampleType intensity_;  // in the file
  std::vector<float> floats_;
};

class NpyWriter final : public RecordWriter {
 public:
  NpyWriter(OutputFile& file, const PointDescription& points)
      : RecordWriter(file, points, npyHeader(points), points.aligned ? 12 : 8) {}

  void writeRows(const PointRows& rows) override {
    for (int r = 0; r < rows.count; ++r) {
      const std::size_t begin = indexOfRow(r);
      place(rows.x + begin, 0);
      if (points_.aligned) place(rows.y + begin, 4);
      place(rows.z + begin, points_.aligned ? 8 : 4);
      writeRow();
    }
  }
};

class LayerWriter final : public PointWriter {
 public:
  LayerWriter(OutputFile& file, const PointDescription& points)
      : aligned_(points.aligned),
        raster_(RasterWriter::create(RasterFormat::kTiff, file, describe(points))) {}

  void writeRows(const PointRows& rows) override {
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
                                                 const PointDescription& description) {
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
  return std::make_unique<LayerWriter>(file, description);
}

}  // namespace planex::io
