#include <pybind11/stl.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "core/bindings.h"
#include "core/file_writing.h"
#include "planex/io/output_file.h"
#include "planex/io/point_writer.h"

namespace planex_python {
namespace {

namespace io = planex::io;

/// The arrays of a file of points, checked.
class PointArrays {
 public:
  PointArrays(py::handle x, py::handle z, const py::object& y, const py::object& intensity)
      : x_(readProfiles(x, "x", oneOf({cmnalg::IMAGE_TYPE_FLOAT32}))),
        z_(readProfiles(z, "z", oneOf({cmnalg::IMAGE_TYPE_FLOAT32}))) {
    requireCells(x_);
    requireSize(z_, x_);
    if (!y.is_none()) takeY(y);
    if (!intensity.is_none()) {
      intensity_ = readProfiles(intensity, "intensity", kIntensities);
      requireSize(*intensity_, x_);
    }
  }

  const Profiles& X() const { return x_; }
  std::optional<io::SampleType> Intensity() const {
    if (!intensity_) return std::nullopt;
    return sampleOf(intensity_->type);
  }
  std::int64_t RowsPerBlock() const { return profilesPerBlock(kWrittenPerBlock, {&x_}); }

  /// Some rows as writers take them.
  io::PointRows Rows(std::int64_t first, int count) {
    io::PointRows rows;
    rows.count = count;
    rows.x = static_cast<const float*>(withoutGaps(x_, first, count, roomX_));
    rows.z = static_cast<const float*>(withoutGaps(z_, first, count, roomZ_));
    if (intensity_) rows.intensity = withoutGaps(*intensity_, first, count, roomIntensity_);
    if (y_) {
      rows.y = static_cast<const float*>(withoutGaps(*y_, first, count, roomY_));
      return rows;
    }
    const auto columns = static_cast<std::size_t>(x_.columns);
    positions_.resize(columns * static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < positions_.size(); ++i) {
      const std::int64_t row = first + static_cast<std::int64_t>(i / columns);
      const double position = lines_ == nullptr ? static_cast<double>(row) : lines_[row];
      positions_[i] = std::isnan(rows.z[i]) ? std::numeric_limits<float>::quiet_NaN()
                                            : static_cast<float>(position);
    }
    rows.y = positions_.data();
    return rows;
  }

 private:
  void takeY(const py::object& y) {
    if (py::isinstance<py::array>(y) && py::reinterpret_borrow<py::array>(y).ndim() == 1) {
      lines_ = readNumbers(y, "y", x_.rows);
      for (std::int64_t row = 0; row < x_.rows; ++row) {
        if (std::abs(lines_[row]) <= std::numeric_limits<float>::max()) continue;
        throw py::value_error("y has a number in row " + std::to_string(row) +
                              " that no float32 can hold");
      }
    } else {
      y_ = readProfiles(y, "y", oneOf({cmnalg::IMAGE_TYPE_FLOAT32}));
      requireSize(*y_, x_);
    }
  }

  Profiles x_, z_;
  std::optional<Profiles> y_, intensity_;
  const double* lines_ = nullptr;  // a position a row
  std::vector<char> roomX_, roomY_, roomZ_, roomIntensity_;
  std::vector<float> positions_;
};

/// A format that has a place for all that is asked for.
io::PointFormat pointFormat(const std::string& path, bool hasIntensity, bool dropMissing,
                            bool mesh) {
  const std::optional<io::PointFormat> format = io::pointFormatOf(path);
  if (!format) {
    throw py::value_error(
        "the file must end in .ply, .pcd, .las, .csv, .xyz, .txt, .tif, .tiff or .npy");
  }
  const bool isGrid = *format == io::PointFormat::kTiff || *format == io::PointFormat::kNpy;
  if (isGrid && hasIntensity) throw py::value_error("intensity has no place in a .tif or .npy");
  if (isGrid && dropMissing) {
    throw py::value_error("drop_missing would leave holes in a .tif or .npy, a grid");
  }
  if (mesh && *format != io::PointFormat::kPly) throw py::value_error("mesh needs a .ply");
  return *format;
}

void writePoints(const std::string& path, py::handle x, py::handle z, const py::object& y,
                 const py::object& intensity, bool aligned, bool dropMissing,
                 const std::optional<double>& mesh, const std::string& unit, bool overwrite) {
  const io::PointFormat format =
      pointFormat(path, !intensity.is_none(), dropMissing, mesh.has_value());
  PointArrays arrays(x, z, y, intensity);
  io::PointDescription points;
  points.columns = static_cast<int>(arrays.X().columns);
  points.rows = static_cast<int>(arrays.X().rows);
  points.aligned = aligned;
  points.intensity = arrays.Intensity();
  points.unit = unit;
  if (y.is_none()) points.rowUnit = "rows";
  points.withoutMissing = dropMissing || mesh || format == io::PointFormat::kLas ||
                          format == io::PointFormat::kCsv || format == io::PointFormat::kXyz;
  points.meshEdge = mesh;
  write([&] {
    io::OutputFile file(path, overwrite);
    const auto writer = io::PointWriter::create(format, file, points);
    io::PreparedRows prepared;
    forEachBlock(arrays.X().rows, arrays.RowsPerBlock(), 0, [&](std::int64_t first, int count) {
      const io::PointRows rows = arrays.Rows(first, count);
      writer->prepare(rows, prepared);
      writer->writeRows(rows, prepared);
      return true;
    });
    call([&] {
      writer->finish();
      file.commit();
      return true;
    });
  });
}

}  // namespace

void bindPointFiles(py::module_& module) { module.def("write_points", &writePoints); }

}  // namespace planex_python
