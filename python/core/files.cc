#include <pybind11/stl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/bindings.h"
#include "core/call.h"
#include "planex/io/failure.h"
#include "planex/io/image_reader.h"
#include "planex/io/output_file.h"
#include "planex/io/point_writer.h"
#include "planex/io/provenance.h"
#include "planex/io/raster_writer.h"
#include "planex/scan/height_map.h"
#include "planex/scan/sensor.h"
#include "planex/scan/sidecar.h"
#include "planex/scan/y_positions.h"
#include "planex/version.h"

namespace planex_python {
namespace {

namespace io = planex::io;
namespace scan = planex::scan;

using datafusion::planex::CalibrationModel;
using io::Failure;
using io::ImageReader;
using io::ImageShape;

/// A range image in a file, for all threads of the interpreter.
///
/// A reader stands in the middle of a file: threads take turns, one that failed is not used again,
/// and neither is that of a parent process, with which the file's position would be shared.
class ImageFile {
 public:
  explicit ImageFile(std::string path) : path_(std::move(path)) {
    const py::gil_scoped_release release;
    Open();
    shape_ = reader_->shape();
  }

  const ImageShape& Shape() const { return shape_; }

  /// Rows from `first` on, into an array of its type and as many columns.
  py::object Read(std::int64_t first, std::int64_t count, py::object given) {
    if (first < 0 || count < 0 || count > shape_.height - first) {
      throw py::value_error("rows lie outside the image");
    }
    Output out(std::move(given), "out", shape_.type, count, shape_.width);
    out.Allocate();
    const Turn turn(*this);
    forEachBlock(count, profilesPerBlock(kPixelsPerBlock, {&out.profiles}), 0,
                 [&](std::int64_t done, int rows) {
                   ReadBlock(static_cast<int>(first + done), rows, out.profiles.At(done));
                   return true;
                 });
    return out.array;
  }

 private:
  /// Waits without the GIL for those who read. A thread may come again, in a handler of signals.
  class Turn {
   public:
    explicit Turn(ImageFile& file) : lock_(file.turn_, std::defer_lock) {
      const py::gil_scoped_release release;
      lock_.lock();
    }

   private:
    std::unique_lock<std::recursive_mutex> lock_;
  };

  void Open() {
    reader_ = ImageReader::open(path_, io::Samples::kRanges);
    process_ = ::getpid();
  }

  void ReadBlock(int first, int count, char* rows) {
    if (reader_ == nullptr || process_ != ::getpid()) {
      Open();
      const ImageShape& shape = reader_->shape();
      if (shape.width != shape_.width || shape.height != shape_.height ||
          shape.type != shape_.type) {
        reader_.reset();
        throw Failure(path_, "has become an image of another size or type; open it again");
      }
    }
    std::unique_ptr<ImageReader> reader = std::move(reader_);
    reader->readRows(first, count, rows);
    reader_ = std::move(reader);
  }

  std::string path_;
  ImageShape shape_;
  std::recursive_mutex turn_;
  std::unique_ptr<ImageReader> reader_;
  pid_t process_ = 0;
};

/// What is written between two looks at signals.
constexpr std::int64_t kWrittenPerBlock = std::int64_t{1} << 20;

constexpr std::int64_t kMostRows = std::numeric_limits<int>::max();

constexpr TypeSet kIntensities = oneOf({cmnalg::IMAGE_TYPE_UINT8, cmnalg::IMAGE_TYPE_UINT16});

/// Runs what writes files. What it says is no matter of an image: planex.Error.
template <typename Body>
void write(const Body& body) {
  try {
    body();
  } catch (const Failure& failure) {
    raise("Error", failure.what());
  }
}

void requireSize(const Profiles& profiles, const Profiles& like) {
  if (profiles.rows == like.rows && profiles.columns == like.columns) return;
  throw py::value_error(std::string(profiles.name) + " must have the shape of " + like.name);
}

void requireCells(const Profiles& profiles) {
  if (profiles.IsEmpty() || profiles.rows > kMostRows) {
    throw py::value_error(std::string(profiles.name) + " has " + std::to_string(profiles.rows) +
                          " rows of " + std::to_string(profiles.columns) +
                          " columns; a file needs one at least, and at most 2147483647 rows");
  }
}

/// Rows without gaps: where they lie, or copied to `room`.
const void* withoutGaps(const Profiles& profiles, std::int64_t first, int count,
                        std::vector<char>& room) {
  if (profiles.pitch == profiles.columns || count == 1) return profiles.At(first);
  const std::size_t bytes = static_cast<std::size_t>(profiles.columns) *
                            static_cast<std::size_t>(cmnalg::bytesPerPixel(profiles.type));
  room.resize(bytes * static_cast<std::size_t>(count));
  for (int row = 0; row < count; ++row) {
    std::memcpy(room.data() + static_cast<std::size_t>(row) * bytes, profiles.At(first + row),
                bytes);
  }
  return room.data();
}

io::SampleType sampleOf(cmnalg::ImageType type) {
  return type == cmnalg::IMAGE_TYPE_UINT8    ? io::SampleType::kUint8
         : type == cmnalg::IMAGE_TYPE_UINT16 ? io::SampleType::kUint16
                                             : io::SampleType::kFloat32;
}

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

/// A raster of a map with its sidecar, each a file on its way.
struct MapRaster {
  MapRaster(const std::string& path, const char* what, io::RasterFormat format, const Profiles& its,
            const io::RasterDescription& raster, const io::RasterEncoding& encoding, bool overwrite)
      : content(what),
        cells(its),
        description(raster),
        file(path, overwrite),
        sidecar(path + ".json", overwrite),
        writer(io::RasterWriter::create(format, file, description, encoding)) {}

  const char* const content;
  const Profiles cells;
  const io::RasterDescription description;
  io::OutputFile file, sidecar;
  const std::unique_ptr<io::RasterWriter> writer;
};

/// A planex.HeightMap on its way into files.
class MapFiles {
 public:
  MapFiles(const std::string& path, py::handle map)
      : path_(path),
        z_(readProfiles(map.attr("z"), "z",
                        oneOf({cmnalg::IMAGE_TYPE_UINT16, cmnalg::IMAGE_TYPE_FLOAT32}))),
        aligned_(py::cast<bool>(map.attr("aligned"))) {
    const std::optional<io::RasterFormat> format = io::rasterFormatOf(path);
    if (!format) throw py::value_error("the file must end in .tif, .tiff, .png or .npy");
    format_ = *format;
    requireCells(z_);
    if (format_ == io::RasterFormat::kPng && z_.type == cmnalg::IMAGE_TYPE_FLOAT32) {
      throw py::value_error("heights in float32 have no place in a .png; take a .tif or .npy");
    }
    const py::object intensity = map.attr("intensity");
    if (!intensity.is_none()) {
      intensity_ = readProfiles(intensity, "intensity", kIntensities);
      requireSize(*intensity_, z_);
    }
    describe(map);
  }

  void Write(const std::string& intensityPath, io::Compression compression, int threads,
             bool overwrite) {
    if (compression != io::Compression::kNone && format_ != io::RasterFormat::kTiff) {
      throw py::value_error("compress needs a .tif");
    }
    std::optional<io::WorkerPool> pool;
    if (compression != io::Compression::kNone || format_ == io::RasterFormat::kPng) {
      pool.emplace(threads);
    }
    const io::RasterEncoding encoding{compression, pool ? &*pool : nullptr};
    std::vector<std::unique_ptr<MapRaster>> rasters;
    rasters.push_back(std::make_unique<MapRaster>(path_, "height map", format_, z_, raster_,
                                                  encoding, overwrite));
    if (intensity_) {
      io::RasterDescription raster = raster_;
      raster.layers = {"intensity"};
      raster.sample = sampleOf(intensity_->type);
      raster.values.reset();
      raster.missing.reset();
      rasters.push_back(std::make_unique<MapRaster>(intensityPath, "rectified intensity", format_,
                                                    *intensity_, raster, encoding, overwrite));
    }
    for (const auto& raster : rasters) {
      forEachBlock(z_.rows, profilesPerBlock(kWrittenPerBlock, {&z_}), 0,
                   [&](std::int64_t first, int count) {
                     const void* cells = withoutGaps(raster->cells, first, count, room_);
                     raster->writer->writeRows(count, {cells});
                     return true;
                   });
    }
    call([&] {
      for (const auto& raster : rasters) raster->writer->finish();
      for (const auto& raster : rasters) raster->sidecar.write(describeInJson(*raster, rasters));
      for (const auto& raster : rasters) {
        raster->file.commit();
        raster->sidecar.commit();
      }
      return true;
    });
  }

 private:
  static io::Axis axisOf(py::handle record, const char* scale, const char* origin) {
    const io::Axis axis{py::cast<double>(record.attr(scale)),
                        py::cast<double>(record.attr(origin))};
    if (std::isfinite(axis.scale) && std::isfinite(axis.origin) && axis.scale != 0) return axis;
    throw py::value_error(std::string(scale) + " and " + origin +
                          " must be finite, and the scale not 0");
  }

  void describe(py::handle map) {
    const py::object grid = map.attr("grid");
    const bool levels = z_.type == cmnalg::IMAGE_TYPE_UINT16;
    if (py::cast<std::int64_t>(grid.attr("columns")) != z_.columns) {
      throw py::value_error("z has " + std::to_string(z_.columns) + " columns, its grid has not");
    }
    levels_ = axisOf(grid, "z_scale", "z_origin");
    if (levels_.scale < 0) throw py::value_error("z_scale must be above 0");
    raster_.width = static_cast<int>(z_.columns);
    raster_.height = static_cast<int>(z_.rows);
    raster_.columns = axisOf(grid, "x_scale", "x_origin");
    raster_.rows = axisOf(map, "y_scale", "y_origin");
    raster_.layers = {"height"};
    raster_.sample = sampleOf(z_.type);
    raster_.values = levels ? levels_ : io::Axis{};
    raster_.missing = py::cast<double>(map.attr("missing"));
    if (std::isinf(*raster_.missing)) throw py::value_error("missing must not be infinite");
    raster_.unit = py::cast<std::string>(map.attr("unit"));
    const py::object yUnit = map.attr("y_unit");
    if (!yUnit.is_none()) raster_.rowUnit = py::cast<std::string>(yUnit);
    if (raster_.rowUnit == raster_.unit) raster_.rowUnit.clear();
    const py::object splat = grid.attr("splat");
    for (const char* name : {"a", "b", "c"}) {
      splat_.push_back(py::cast<double>(splat.attr(name)));
    }
  }

  std::string describeInJson(const MapRaster& of,
                             const std::vector<std::unique_ptr<MapRaster>>& all) const {
    const io::JsonText json;
    json.add("generator", "planex " PLANEX_VERSION_STRING);
    json.add("content", of.content);
    scan::describeMap(json, of.description, aligned_, 0);
    const io::JsonObject made = json.addObject("made");
    const io::JsonObject splat = made.addObject("splat");
    splat.add("splatA", splat_[0]);
    splat.add("splatB", splat_[1]);
    splat.add("splatC", splat_[2]);
    const io::JsonObject levels = made.addObject("levels");
    levels.add("scaleZ", levels_.scale);
    levels.add("originZ", levels_.origin);
    made.addList("outputs", nullptr, 0);
    for (const auto& raster : all) {
      io::addOutput(made, of.sidecar.path(), raster->content, raster->file.path(),
                    raster->file.size());
    }
    return json.print();
  }

  const std::string path_;
  const Profiles z_;
  const bool aligned_;
  io::RasterFormat format_{};
  std::optional<Profiles> intensity_;
  io::RasterDescription raster_;  // of the heights
  io::Axis levels_;
  std::vector<double> splat_;
  std::vector<char> room_;
};

void writeMap(const std::string& path, const std::string& intensityPath, py::handle map,
              int compression, int threads, bool overwrite) {
  MapFiles files(path, map);
  write([&] {
    files.Write(intensityPath, static_cast<io::Compression>(compression), threads, overwrite);
  });
}

/// The stored values of a map, and the fields of a planex.HeightMap by their names.
py::tuple readMap(const std::string& path) {
  std::optional<scan::HeightMap> map;
  call([&] {
    map.emplace(path);
    return true;
  });
  Output cells(py::none(), "z", map->type(), map->rows(), map->columns());
  cells.Allocate();
  forEachBlock(map->rows(), profilesPerBlock(kPixelsPerBlock, {&cells.profiles}), 0,
               [&](std::int64_t first, int count) {
                 map->readStored(static_cast<int>(first), count, cells.profiles.At(first));
                 return true;
               });
  py::dict fields;
  fields["missing"] = map->missing();
  fields["y_scale"] = map->y().scale;
  fields["y_origin"] = map->y().origin;
  fields["unit"] = map->unit();
  fields["y_unit"] = map->isYLength() ? py::object(py::none()) : py::str(map->yUnit());
  fields["aligned"] = map->isAligned();
  const bool isFloat = map->type() == cmnalg::IMAGE_TYPE_FLOAT32;
  const io::Axis z = isFloat && map->levels() ? *map->levels() : map->z();
  const py::tuple grid = py::make_tuple(map->x().scale, map->x().origin, z.scale, z.origin);
  return py::make_tuple(cells.array, grid, map->splat(), fields);
}

/// The numbers of a sensor region, sizes as far as they are told; None where nothing is. And where
/// rows lie.
py::tuple readSidecar(const std::string& path, const CalibrationModel* model) {
  const scan::ScanSidecar told = scan::readScanSidecar(path, "");
  py::object sensor = py::none();
  if (told.scaleX && model != nullptr) {
    const scan::ResolvedSensor region = scan::resolveSensor({}, told, *model, "the model");
    sensor = py::make_tuple(region.width, region.height, region.scaleX, region.originX,
                            region.scaleZ, region.originZ);
  } else if (told.scaleX) {
    sensor = py::make_tuple(told.width, told.height, told.scaleX, told.originX, told.scaleZ,
                            told.originZ);
  }
  return py::make_tuple(sensor, told.scaleY, told.originY, py::bytes(told.positions));
}

/// Y of so many rows.
py::array rowPositions(const std::string& path, int rows) {
  const scan::YPositions y = scan::resolveY({}, scan::readScanSidecar(path, ""), rows);
  py::array_t<double> positions(rows);
  for (int row = 0; row < rows; ++row) positions.mutable_at(row) = y.at(row);
  return std::move(positions);
}

void translate(std::exception_ptr thrown) {
  try {
    if (thrown != nullptr) std::rethrow_exception(thrown);
  } catch (const Failure& failure) {
    setError("ImageError", failure.what());
  }
}

}  // namespace

void bindFiles(py::module_& module) {
  py::register_local_exception_translator(&translate);
  py::class_<ImageFile>(module, "ImageFile")
      .def(py::init<std::string>())
      .def_property_readonly("shape",
                             [](const ImageFile& file) {
                               return py::make_tuple(file.Shape().height, file.Shape().width);
                             })
      .def_property_readonly(
          "type_name",
          [](const ImageFile& file) { return cmnalg::serialisedTypeName(file.Shape().type); })
      .def("read", &ImageFile::Read);
  module.def("write_points", &writePoints);
  module.def("write_map", &writeMap);
  module.def("read_map", &readMap);
  module.def("read_sidecar", &readSidecar);
  module.def("row_positions", &rowPositions);
}

}  // namespace planex_python
