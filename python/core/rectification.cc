#include "planex/processing/rectification.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/bindings.h"
#include "core/call.h"
#include "planex/processing/height_grid.h"
#include "planex/processing/intensity_reduction.h"
#include "planex/processing/world_heights.h"

namespace planex_python {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using datafusion::planex::GridAxis;
using datafusion::planex::HeightGrid;
using datafusion::planex::IntensityLimits;
using datafusion::planex::RectificationMode;
using datafusion::planex::SplatShape;

/// Points of height_map() between calibration and rectification: they stay in the cache.
constexpr std::int64_t kPixelsAtOnce = std::int64_t{1} << 19;

const std::uint16_t* wordsAt(const Profiles& profiles, std::int64_t row) {
  return reinterpret_cast<const std::uint16_t*>(profiles.At(row));
}

IntensityLimits limitsOf(const Profiles& intensity, std::int64_t first, std::int64_t count) {
  IntensityLimits limits;
  for (std::int64_t row = first; row < first + count; ++row) {
    limits.Include(datafusion::planex::findIntensityLimits(
        wordsAt(intensity, row), static_cast<std::size_t>(intensity.columns)));
  }
  return limits;
}

IntensityLimits limitsOf(const Profiles& intensity) {
  IntensityLimits limits;
  forEachBlock(intensity.rows, profilesPerBlock(kPixelsPerBlock, {&intensity}), 0,
               [&](std::int64_t first, int count) {
                 limits.Include(limitsOf(intensity, first, count));
                 return true;
               });
  return limits;
}

/// How points become cells: the fields of a planex.Grid, and what else a map is asked for.
struct Rules {
  Rules(py::handle grid, int modeNumber, float missingHeight, bool asLevels)
      : mode(static_cast<RectificationMode>(modeNumber)), missing(missingHeight), levels(asLevels) {
    static const FieldName columns("columns"), xScale("x_scale"), xOrigin("x_origin"),
        zScale("z_scale"), zOrigin("z_origin"), a("a"), b("b"), c("c");
    cells.width = static_cast<int>(numberOf(grid, columns));  // 1 to 2^20
    cells.height = 1;
    cells.x = {numberOf(grid, xScale), numberOf(grid, xOrigin)};
    cells.levels = {numberOf(grid, zScale), numberOf(grid, zOrigin)};
    const py::object from = grid.attr("splat");
    splat.lateralSpacing = {numberOf(from, a), numberOf(from, b)};
    splat.size = numberOf(from, c);
    if (!cells.IsConsistent()) {
      throw py::value_error("grid must have columns, finite numbers and no negative scale");
    }
  }

  HeightGrid cells;  // of one profile
  SplatShape splat;
  RectificationMode mode;
  float missing;
  bool levels;  // uint16 as they are, instead of world heights
};

/// A height map that is made of blocks of points.
class HeightMap {
 public:
  /// Checks everything that is given; writes nothing.
  HeightMap(const Profiles& points, const Rules& rules, const py::object& intensity,
            const py::object& limits, py::object out, py::object outIntensity)
      : rules_(rules),
        heights_(std::move(out), "out",
                 rules.levels ? cmnalg::IMAGE_TYPE_UINT16 : cmnalg::IMAGE_TYPE_FLOAT32, points.rows,
                 rules.cells.width) {
    if (!limits.is_none()) {
      const auto pair = py::cast<std::pair<std::uint16_t, std::uint16_t>>(limits);
      limits_ = IntensityLimits{pair.first, pair.second};
    }
    if (intensity.is_none()) {
      if (!outIntensity.is_none()) throw py::value_error("out_intensity needs an intensity");
      return;
    }
    intensity_ = readProfiles(intensity, "intensity", kIntensities);
    if (intensity_->rows != points.rows || intensity_->columns != points.columns) {
      throw py::value_error("intensity must have a value for each point");
    }
    rectified_.emplace(std::move(outIntensity), "out_intensity", cmnalg::IMAGE_TYPE_UINT8,
                       points.rows, rules.cells.width);
  }

  void RequireDisjoint(std::initializer_list<const Profiles*> inputs) {
    requireDisjoint(inputs, {&heights_.profiles});
    if (!intensity_) return;
    requireDisjoint(inputs, {&rectified_->profiles});
    requireDisjoint({&*intensity_}, {&heights_.profiles, &rectified_->profiles});
  }

  /// Makes the arrays that were not given, and finds the limits of intensities in them all.
  void Begin(const Profiles& points) {
    if (intensity_ && intensity_->type == cmnalg::IMAGE_TYPE_UINT16 && !limits_) {
      limits_ = limitsOf(*intensity_);
    }
    heights_.Allocate();
    if (rectified_) rectified_->Allocate();
    if (points.columns == 0) Clear();
  }

  std::int64_t ProfilesPerBlock(const Profiles& points) const {
    return intensity_
               ? profilesPerBlock(kPixelsPerBlock, {&points, &heights_.profiles, &*intensity_})
               : profilesPerBlock(kPixelsPerBlock, {&points, &heights_.profiles});
  }

  /// Rectifies `count` profiles from `first` on.
  bool Rectify(const Image& x, const Image& z, std::int64_t first, int count) const {
    HeightGrid grid = rules_.cells;
    grid.height = count;
    Image intensity;
    ImageOf<std::uint8_t> rectified;
    std::vector<std::uint8_t> reduced;
    if (intensity_) {
      rectified_->profiles.View(first, count, rectified);
      ViewIntensity(first, count, reduced, intensity);
    }
    if (rules_.levels) return RectifyLevels(x, z, intensity, first, grid, rectified);
    ImageOf<float> heights;
    heights_.profiles.View(first, count, heights);
    return intensity_
               ? toRectifiedWorld(x, z, intensity, rules_.splat, rules_.mode, grid, rules_.missing,
                                  &heights, rectified)
               : toRectifiedWorld(x, z, rules_.splat, rules_.mode, grid, rules_.missing, heights);
  }

  py::tuple Result() const {
    return py::make_tuple(heights_.array, rectified_ ? rectified_->array : py::none());
  }

 private:
  bool RectifyLevels(const Image& x, const Image& z, const Image& intensity, std::int64_t first,
                     const HeightGrid& grid, ImageOf<std::uint8_t>& rectified) const {
    ImageOf<std::uint16_t> target;
    heights_.profiles.View(first, grid.height, target);
    target.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
    target.PixelSize = {grid.x.scale, 1.0, grid.levels.scale};
    target.Origin = {grid.x.origin, 0.0, grid.levels.origin};
    const SplatShape& splat = rules_.splat;
    return intensity_
               ? toRectified(x, z, intensity, splat.lateralSpacing, splat.size, rules_.mode, target,
                             rectified, true)
               : toRectified(x, z, splat.lateralSpacing, splat.size, rules_.mode, target, true);
  }

  /// Intensities of 8 bits where they lie, those of 16 bits reduced.
  void ViewIntensity(std::int64_t first, int count, std::vector<std::uint8_t>& reduced,
                     Image& intensity) const {
    if (intensity_->type == cmnalg::IMAGE_TYPE_UINT8) {
      intensity_->View(first, count, intensity);
      return;
    }
    const auto columns = static_cast<std::size_t>(intensity_->columns);
    reduced.resize(columns * static_cast<std::size_t>(count));
    for (int row = 0; row < count; ++row) {
      datafusion::planex::reduceIntensities(
          wordsAt(*intensity_, first + row), columns, *limits_,
          reduced.data() + columns * static_cast<std::size_t>(row));
    }
    intensity.Create(reduced.data(), cmnalg::IMAGE_TYPE_UINT8, static_cast<int>(columns), count, 0,
                     false, Image::s_defaultImageAllocator, false);
  }

  /// Profiles without a point.
  void Clear() {
    const Profiles& out = heights_.profiles;
    const std::int64_t cells = out.rows * out.columns;
    if (rules_.levels) {
      std::fill_n(reinterpret_cast<std::uint16_t*>(out.data), cells, std::uint16_t{0});
    } else {
      std::fill_n(reinterpret_cast<float*>(out.data), cells, rules_.missing);
    }
    if (rectified_) std::fill_n(rectified_->profiles.data, cells, '\0');
  }

  const Rules& rules_;
  Output heights_;
  std::optional<IntensityLimits> limits_;
  std::optional<Profiles> intensity_;
  std::optional<Output> rectified_;
};

py::tuple rectify(py::handle xIn, py::handle zIn, py::handle grid, int mode,
                  const py::object& intensity, const py::object& limits, float missing, bool levels,
                  py::object out, py::object outIntensity, int threads) {
  const Profiles x = readProfiles(xIn, "x", kFloating);
  const Profiles z = readProfiles(zIn, "z", kFloating);
  if (x.rows != z.rows || x.columns != z.columns) {
    throw py::value_error("x and z must be of one size");
  }
  const Rules rules(grid, mode, missing, levels);
  HeightMap map(z, rules, intensity, limits, std::move(out), std::move(outIntensity));
  map.RequireDisjoint({&x, &z});
  map.Begin(z);
  if (!z.IsEmpty()) {
    const std::int64_t perBlock = std::min(map.ProfilesPerBlock(x), map.ProfilesPerBlock(z));
    forEachBlock(z.rows, perBlock, threads, [&](std::int64_t first, int count) {
      Image xImage;
      Image zImage;
      x.View(first, count, xImage);
      z.View(first, count, zImage);
      return map.Rectify(xImage, zImage, first, count);
    });
  }
  return map.Result();
}

/// Calibrates and rectifies by small blocks: X and Z never exist as a whole.
py::tuple heightMap(const datafusion::planex::CalibrationModel& model, py::handle range,
                    py::handle sensor, bool aligned, bool inDouble, py::handle grid, int mode,
                    const py::object& intensity, const py::object& limits, float missing,
                    bool levels, py::object out, py::object outIntensity, int threads) {
  const RangeScan scan(model, range, sensor, aligned, inDouble);
  const Profiles& in = scan.profiles;
  const Rules rules(grid, mode, missing, levels);
  HeightMap map(in, rules, intensity, limits, std::move(out), std::move(outIntensity));
  map.RequireDisjoint({&in});
  map.Begin(in);
  if (in.IsEmpty()) return map.Result();
  forEachBlock(in.rows, map.ProfilesPerBlock(in), threads, [&](std::int64_t first, int count) {
    const auto step = static_cast<int>(
        std::min<std::int64_t>(count, std::max<std::int64_t>(kPixelsAtOnce / in.columns, 1)));
    ImageOf<float> x(static_cast<int>(in.columns), step, Image::s_defaultImageAllocator);
    ImageOf<float> z(static_cast<int>(in.columns), step, Image::s_defaultImageAllocator);
    if (!x.GetImageData().IsValid() || !z.GetImageData().IsValid()) throw std::bad_alloc();
    for (int done = 0; done < count; done += step) {
      const int profiles = std::min(step, count - done);
      if (!scan.Calibrate(first + done, profiles, x, z) ||
          !map.Rectify(x, z, first + done, profiles)) {
        return false;
      }
    }
    return true;
  });
  return map.Result();
}

std::pair<int, int> intensityLimits(py::handle intensity) {
  const Profiles profiles =
      readProfiles(intensity, "intensity", oneOf({cmnalg::IMAGE_TYPE_UINT16}));
  if (profiles.IsEmpty()) throw py::value_error("intensity is empty and has no limits");
  const IntensityLimits limits = limitsOf(profiles);
  return {limits.min, limits.max};
}

py::array worldHeights(py::handle levels, double scale, double origin, float missing) {
  const Profiles in = readProfiles(levels, "z", oneOf({cmnalg::IMAGE_TYPE_UINT16}));
  Output out(py::none(), "heights", cmnalg::IMAGE_TYPE_FLOAT32, in.rows, in.columns);
  out.Allocate();
  forEachBlock(
      in.rows, profilesPerBlock(kPixelsPerBlock, {&in}), 0, [&](std::int64_t first, int count) {
        for (std::int64_t row = first; row < first + count; ++row) {
          datafusion::planex::toWorldHeights(wordsAt(in, row), static_cast<std::size_t>(in.columns),
                                             {scale, origin}, missing,
                                             reinterpret_cast<float*>(out.profiles.At(row)));
        }
        return true;
      });
  return out.array;
}

}  // namespace

void bindRectification(py::module_& module) {
  module.def("rectify", &rectify);
  module.def("height_map", &heightMap);
  module.def("intensity_limits", &intensityLimits);
  module.def("world_heights", &worldHeights);
  const auto pairOf = [](const GridAxis& axis) { return std::make_pair(axis.scale, axis.origin); };
  module.def("sample_axis", [pairOf](double first, double last, std::int64_t count) {
    return pairOf(datafusion::planex::sampleAxis(first, last, count));
  });
  module.def("level_axis", [pairOf](double first, double last, std::int64_t levels) {
    return pairOf(datafusion::planex::levelAxis(first, last, levels));
  });
}

}  // namespace planex_python
