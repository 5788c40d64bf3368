#include "planex/io/point_writer.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <limits>

#include "planex/io/point_formats.h"
#include "planex/io/raster_formats.h"

namespace planex::io {
namespace {

std::string npyHeaderOf(const PointDescription& points) {
  return npyHeader(
      "<f4", fmt::format("({}, {}, {})", points.rows, points.columns, points.aligned ? 3 : 2));
}

class NpyWriter final : public RecordWriter {
 public:
  NpyWriter(OutputFile& file, const PointDescription& points)
      : RecordWriter(file, points, points.aligned ? 12 : 8) {
    file.write(npyHeaderOf(points));
  }

 private:
  void fill(const PointRows& rows, std::vector<char>& bytes) const override {
    const std::size_t count = bytes.size() / (points_.aligned ? 12 : 8);
    if (points_.aligned) {
      interleave(rows.x, rows.y, rows.z, count, bytes.data());
    } else {
      interleave(rows.x, rows.z, nullptr, count, bytes.data());
    }
  }
};

class LayerWriter final : public PointWriter {
 public:
  LayerWriter(OutputFile& file, const PointDescription& points, const RasterEncoding& encoding)
      : aligned_(points.aligned),
        columns_(points.columns),
        raster_(RasterWriter::create(RasterFormat::kTiff, file, describe(points), encoding)) {}

  void prepare(const PointRows& /*rows*/, PreparedRows& /*prepared*/) const override {}
  void writeRows(const PointRows& rows, const PreparedRows& /*prepared*/) override {
    written_.points += std::int64_t{rows.count} * columns_;
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
  const int columns_;
  const std::unique_ptr<RasterWriter> raster_;
};

}  // namespace

std::optional<PointFormat> pointFormatOf(const std::string& path) {
  const std::string ending = endingOf(path);
  if (ending == ".ply") return PointFormat::kPly;
  if (ending == ".pcd") return PointFormat::kPcd;
  if (ending == ".tif" || ending == ".tiff") return PointFormat::kTiff;
  if (ending == ".npy") return PointFormat::kNpy;
  if (ending == ".las") return PointFormat::kLas;
  if (ending == ".csv") return PointFormat::kCsv;
  if (ending == ".xyz" || ending == ".txt") return PointFormat::kXyz;
  return std::nullopt;
}

std::unique_ptr<PointWriter> PointWriter::create(PointFormat format, OutputFile& file,
                                                 const PointDescription& description,
                                                 const RasterEncoding& encoding) {
  switch (format) {
    case PointFormat::kPly:
      return createPly(file, description);
    case PointFormat::kPcd:
      return createPcd(file, description);
    case PointFormat::kLas:
      return createLas(file, description);
    case PointFormat::kCsv:
      return createText(file, description, ',');
    case PointFormat::kXyz:
      return createText(file, description, ' ');
    case PointFormat::kNpy: {
      PointDescription grid = description;
      grid.withoutMissing = false;
      return std::make_unique<NpyWriter>(file, grid);
    }
    case PointFormat::kTiff:
      break;
  }
  return std::make_unique<LayerWriter>(file, description, encoding);
}

}  // namespace planex::io
