#include <pybind11/stl.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/bindings.h"
#include "core/file_writing.h"
#include "planex/io/json.h"
#include "planex/io/ordered_work.h"
#include "planex/io/output_file.h"
#include "planex/io/provenance.h"
#include "planex/io/raster_writer.h"
#include "planex/scan/height_map.h"
#include "planex/version.h"

namespace planex_python {
namespace {

namespace io = planex::io;
namespace scan = planex::scan;

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
    if (py::hasattr(intensity, "values")) {
      for (const py::handle one : py::list(intensity.attr("values")())) addIntensity(one);
    } else if (!intensity.is_none()) {
      addIntensity(intensity);
    }
    describe(map);
  }

  void Write(const std::vector<std::string>& intensityPaths, io::Compression compression,
             int threads, bool overwrite) {
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
    if (intensityPaths.size() != intensities_.size()) throw py::value_error("a path an intensity");
    for (std::size_t i = 0; i < intensities_.size(); ++i) {
      io::RasterDescription raster = raster_;
      raster.layers = {"intensity" + (intensities_.size() > 1 ? std::to_string(i + 1) : "")};
      raster.sample = sampleOf(intensities_[i].type);
      raster.values.reset();
      raster.missing.reset();
      rasters.push_back(std::make_unique<MapRaster>(intensityPaths[i], "rectified intensity",
                                                    format_, intensities_[i], raster, encoding,
                                                    overwrite));
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

  void addIntensity(py::handle array) {
    intensities_.push_back(readProfiles(array, "intensity", kIntensities));
    requireSize(intensities_.back(), z_);
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
  std::vector<Profiles> intensities_;
  io::RasterDescription raster_;  // of the heights
  io::Axis levels_;
  std::vector<double> splat_;
  std::vector<char> room_;
};

void writeMap(const std::string& path, const std::vector<std::string>& intensityPaths,
              py::handle map, int compression, int threads, bool overwrite) {
  MapFiles files(path, map);
  write([&] {
    files.Write(intensityPaths, static_cast<io::Compression>(compression), threads, overwrite);
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

}  // namespace

void bindMapFiles(py::module_& module) {
  module.def("write_map", &writeMap);
  module.def("read_map", &readMap);
}

}  // namespace planex_python
