#include "planex/processing/rectification.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <cstring>
#include <deque>
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
  Rules(py::handle grid, int modeNumber, float missingHeight, bool asLevels, bool intoOld)
      : mode(static_cast<RectificationMode>(modeNumber)),
        missing(missingHeight),
        levels(asLevels),
        merges(intoOld) {
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
  bool merges;  // into levels that are there
};

/// Intensities that are rectified with the points.
struct Channel {
  Channel(const py::handle& given, const Profiles& points, int columns)
      : name(py::cast<std::string>(given.attr("name"))), outName("out_" + name) {
    in = readProfiles(given.attr("array"), name.c_str(), kIntensities);
    if (in.rows != points.rows || in.columns != points.columns) {
      throw py::value_error(name + " must have a value for each point");
    }
    if (const py::object pair = given.attr("limits"); !pair.is_none()) {
      const auto ends = py::cast<std::pair<std::uint16_t, std::uint16_t>>(pair);
      limits = IntensityLimits{ends.first, ends.second};
    }
    out.emplace(given.attr("out"), outName.c_str(), cmnalg::IMAGE_TYPE_UINT8, points.rows, columns);
  }

  /// Those of 8 bits where they lie, those of 16 bits reduced.
  void View(std::int64_t first, int count, std::vector<std::uint8_t>& reduced, Image& image) const {
    if (in.type == cmnalg::IMAGE_TYPE_UINT8) {
      in.View(first, count, image);
      return;
    }
    const auto columns = static_cast<std::size_t>(in.columns);
    reduced.resize(columns * static_cast<std::size_t>(count));
    for (int row = 0; row < count; ++row) {
      datafusion::planex::reduceIntensities(
          wordsAt(in, first + row), columns, *limits,
          reduced.data() + columns * static_cast<std::size_t>(row));
    }
    image.Create(reduced.data(), cmnalg::IMAGE_TYPE_UINT8, static_cast<int>(columns), count, 0,
                 false, Image::s_defaultImageAllocator, false);
  }

  const std::string name, outName;  // for messages
  Profiles in;
  std::optional<IntensityLimits> limits;
  std::optional<Output> out;
};

/// A height map that is made of blocks of points. With intensities the heights are those of the
/// last of them: modes that choose by intensity let each choose for itself.
class HeightMap {
 public:
  /// Checks everything that is given; writes nothing.
  /// @param intensities  objects with name, array, limits and out
  HeightMap(const Profiles& points, const Rules& rules, const py::tuple& intensities,
            py::object out)
      : rules_(rules),
        heights_(std::move(out), rules.merges ? "into" : "out",
                 rules.levels ? cmnalg::IMAGE_TYPE_UINT16 : cmnalg::IMAGE_TYPE_FLOAT32, points.rows,
                 rules.cells.width) {
    for (const py::handle given : intensities) {
      channels_.emplace_back(given, points, rules.cells.width);
    }
  }

  void RequireDisjoint(std::vector<const Profiles*> inputs) const {
    std::vector<const Profiles*> outputs = {&heights_.profiles};
    for (const Channel& channel : channels_) {
      inputs.push_back(&channel.in);
      outputs.push_back(&channel.out->profiles);
    }
    requireDisjoint(inputs, outputs);
  }

  /// Makes the arrays that were not given, and finds the limits of intensities in them all.
  void Begin(const Profiles& points) {
    for (Channel& channel : channels_) {
      if (channel.in.type == cmnalg::IMAGE_TYPE_UINT16 && !channel.limits) {
        channel.limits = limitsOf(channel.in);
      }
    }
    heights_.Allocate();
    for (Channel& channel : channels_) channel.out->Allocate();
    if (points.columns == 0 && !rules_.merges) Clear();
  }

  std::int64_t ProfilesPerBlock(const Profiles& points) const {
    std::int64_t least = profilesPerBlock(kPixelsPerBlock, {&points, &heights_.profiles});
    for (const Channel& channel : channels_) {
      least = std::min(least, profilesPerBlock(kPixelsPerBlock, {&channel.in}));
    }
    return least;
  }

  /// Rectifies `count` profiles from `first` on.
  bool Rectify(const Image& x, const Image& z, std::int64_t first, int count) const {
    HeightGrid grid = rules_.cells;
    grid.height = count;
    if (rules_.levels) return RectifyLevels(x, z, first, grid);
    ImageOf<float> heights;
    heights_.profiles.View(first, count, heights);
    if (channels_.empty()) {
      return toRectifiedWorld(x, z, rules_.splat, rules_.mode, grid, rules_.missing, heights);
    }
    Image intensity;
    ImageOf<std::uint8_t> rectified;
    std::vector<std::uint8_t> reduced;
    for (const Channel& channel : channels_) {
      channel.View(first, count, reduced, intensity);
      channel.out->profiles.View(first, count, rectified);
      if (!toRectifiedWorld(x, z, intensity, rules_.splat, rules_.mode, grid, rules_.missing,
                            &channel == &channels_.back() ? &heights : nullptr, rectified)) {
        return false;
      }
    }
    return true;
  }

  /// Heights and a list of intensities.
  py::tuple Result() const {
    py::list rectified;
    for (const Channel& channel : channels_) rectified.append(channel.out->array);
    return py::make_tuple(heights_.array, rectified);
  }

 private:
  bool RectifyLevels(const Image& x, const Image& z, std::int64_t first,
                     const HeightGrid& grid) const {
    ImageOf<std::uint16_t> target;
    heights_.profiles.View(first, grid.height, target);
    target.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
    target.PixelSize = {grid.x.scale, 1.0, grid.levels.scale};
    target.Origin = {grid.x.origin, 0.0, grid.levels.origin};
    const SplatShape& splat = rules_.splat;
    const bool clear = !rules_.merges;
    if (channels_.empty()) {
      return toRectified(x, z, splat.lateralSpacing, splat.size, rules_.mode, target, clear);
    }
    Image intensity;
    ImageOf<std::uint8_t> rectified;
    std::vector<std::uint8_t> reduced;
    for (const Channel& channel : channels_) {
      channel.View(first, grid.height, reduced, intensity);
      channel.out->profiles.View(first, grid.height, rectified);
      if (!toRectified(x, z, intensity, splat.lateralSpacing, splat.size, rules_.mode, target,
                       rectified, clear)) {
        return false;
      }
    }
    return true;
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
    for (Channel& channel : channels_) std::fill_n(channel.out->profiles.data, cells, '\0');
  }

  const Rules& rules_;
  Output heights_;
  std::deque<Channel> channels_;
};

py::tuple rectify(py::handle xIn, py::handle zIn, py::handle grid, int mode,
                  const py::tuple& intensities, float missing, bool levels, bool merges,
                  py::object out, int threads) {
  const Profiles x = readProfiles(xIn, "x", kFloating);
  const Profiles z = readProfiles(zIn, "z", kFloating);
  if (x.rows != z.rows || x.columns != z.columns) {
    throw py::value_error("x and z must be of one size");
  }
  const Rules rules(grid, mode, missing, levels, merges);
  HeightMap map(z, rules, intensities, std::move(out));
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
                    const py::tuple& intensities, float missing, bool levels, bool merges,
                    py::object out, int threads) {
  const RangeScan scan(model, range, sensor, aligned, inDouble);
  const Profiles& in = scan.profiles;
  const Rules rules(grid, mode, missing, levels, merges);
  HeightMap map(in, rules, intensities, std::move(out));
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
