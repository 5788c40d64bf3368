#include "planex/scan/height_map.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "planex/io/failure.h"
#include "planex/io/input_file.h"
#include "planex/io/json_value.h"
#include "planex/io/model_file.h"

namespace planex::scan {
namespace {

using io::Failure;

/// The JSON file beside a map.
class Description {
 public:
  explicit Description(const std::string& map, bool isHeights = true) : path_(map + ".json") {
    if (access(path_.c_str(), F_OK) != 0) {
      throw Failure(map, "has no " + io::inOneLine(path_) +
                             " beside it, which says what its numbers mean; copy it, too");
    }
    const io::InputFile file(path_);  // not a pipe to wait for
    json_.reset(cJSON_Parse(io::readTextFile(path_).c_str()));
    if (json_ == nullptr) refuse("is not JSON; write the map again");
    if (isHeights && text(json_.get(), "content") != "height map") {
      refuse("describes no height map; give one that planex rectify wrote");
    }
  }

  /// What stands in the object "transform" for one of the axes X, Y and Z.
  io::Axis axis(char name) const {
    const cJSON* const transform = cJSON_GetObjectItemCaseSensitive(json_.get(), "transform");
    return {number(transform, std::string("scale") + name),
            number(transform, std::string("origin") + name)};
  }

  std::string unit() const { return text(json_.get(), "unit"); }
  std::string yUnit() const {
    const cJSON* const transform = cJSON_GetObjectItemCaseSensitive(json_.get(), "transform");
    return cJSON_HasObjectItem(transform, "unitY") != 0 ? text(transform, "unitY") : unit();
  }

  void requireSize(const io::ImageShape& shape) const {
    if (number(json_.get(), "columns") == shape.width &&
        number(json_.get(), "rows") == shape.height) {
      return;
    }
    refuse("describes a map of another size; write the map again");
  }

  std::vector<std::string> layers() const {
    std::vector<std::string> names;
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItemCaseSensitive(json_.get(), "layers")) {
      names.push_back(cJSON_IsString(item) != 0 ? io::inOneLine(item->valuestring) : "");
    }
    return names;
  }

  /// The stored value of cells without height.
  double missing() const {
    const cJSON* const item = cJSON_GetObjectItemCaseSensitive(json_.get(), "missing");
    if (cJSON_IsString(item) != 0 && text(json_.get(), "missing") == "NaN") return std::nan("");
    return number(json_.get(), "missing");
  }

  bool isAligned() const {
    const char* const system =
        cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(json_.get(), "system"));
    return system != nullptr && std::strcmp(system, "aligned") == 0;
  }

  /// Finite numbers of an object in "made"; nothing where one of them is none.
  template <std::size_t kCount>
  std::optional<std::array<double, kCount>> made(
      const char* object, const std::array<const char*, kCount>& names) const {
    const cJSON* const all = cJSON_GetObjectItemCaseSensitive(
        cJSON_GetObjectItemCaseSensitive(json_.get(), "made"), object);
    std::array<double, kCount> numbers{};
    for (std::size_t i = 0; i < kCount; ++i) {
      const cJSON* const item = cJSON_GetObjectItemCaseSensitive(all, names[i]);
      if (cJSON_IsNumber(item) == 0 || !std::isfinite(item->valuedouble)) return std::nullopt;
      numbers[i] = item->valuedouble;
    }
    return numbers;
  }

  [[noreturn]] void refuse(const std::string& problem) const { throw Failure(path_, problem); }

 private:
  double number(const cJSON* object, const std::string& name) const {
    const cJSON* const item = cJSON_GetObjectItemCaseSensitive(object, name.c_str());
    if (cJSON_IsNumber(item) == 0 || !std::isfinite(item->valuedouble)) {
      refuse("its member " + name + " is no number; write the map again");
    }
    return item->valuedouble;
  }

  std::string text(const cJSON* object, const char* name) const {
    const char* const value = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, name));
    if (value == nullptr)
      refuse(std::string("its member ") + name + " is no text; write the map again");
    return io::inOneLine(value);
  }

  std::string path_;
  io::JsonValue json_;
};

template <typename Sample>
void convert(const char* samples, std::size_t count, float missing, float* values) {
  const auto* const from = reinterpret_cast<const Sample*>(samples);
  for (std::size_t i = 0; i < count; ++i) {
    const auto value = static_cast<float>(from[i]);
    values[i] =
        value == missing || !std::isfinite(value) ? std::numeric_limits<float>::quiet_NaN() : value;
  }
}

/// The indices [first, end) of 0 ... count - 1 whose places on the axis are in [least, most].
std::pair<int, int> indicesIn(const io::Axis& axis, int count, double least, double most) {
  const auto place = [&](int i) { return axis.scale * i + axis.origin; };
  const auto isIn = [&](int i) { return place(i) >= least && place(i) <= most; };
  // Near one of the ends, where rounding decides, the formula of the places does.
  const double a = (least - axis.origin) / axis.scale, b = (most - axis.origin) / axis.scale;
  const auto near = [count](double index) {
    return static_cast<int>(std::clamp(index, 0.0, static_cast<double>(count)));
  };
  int first = near(std::floor(std::min(a, b)) - 1), end = near(std::ceil(std::max(a, b)) + 2);
  while (first < end && !isIn(first)) ++first;
  while (end > first && !isIn(end - 1)) --end;
  return {first, end};
}

}  // namespace

HeightMap::HeightMap(const std::string& path, std::size_t layer)
    : image_(io::ImageReader::openLayer(path, layer)) {
  const Description description(path);
  description.requireSize(image_->shape());
  x_ = description.axis('X');
  y_ = description.axis('Y');
  z_ = description.axis('Z');
  if (x_.scale == 0 || y_.scale == 0 || !(z_.scale > 0)) {
    description.refuse("has a scale of X or Y that is 0, or of Z that is not above 0; correct it");
  }
  missing_ = description.missing();
  aligned_ = description.isAligned();
  splat_ = description.made<3>("splat", {"splatA", "splatB", "splatC"});
  if (const auto levels = description.made<2>("levels", {"scaleZ", "originZ"})) {
    levels_ = io::Axis{(*levels)[0], (*levels)[1]};
  }
  unit_ = description.unit();
  yUnit_ = description.yUnit();
  layers_ = description.layers();
}

std::unique_ptr<io::ImageReader> HeightMap::openCompanion(const std::string& suffix) const {
  const std::size_t name = path().find_last_of('/') + 1, dot = path().find_last_of('.');
  if (dot == std::string::npos || dot < name) return nullptr;
  const std::string path = this->path().substr(0, dot) + '_' + suffix + this->path().substr(dot);
  if (access(path.c_str(), F_OK) != 0 || access((path + ".json").c_str(), F_OK) != 0)
    return nullptr;
  const Description description(path, false);
  const auto isSame = [](const io::Axis& a, const io::Axis& b) {
    return a.scale == b.scale && a.origin == b.origin;
  };
  if (!isSame(description.axis('X'), x_) || !isSame(description.axis('Y'), y_)) return nullptr;
  auto image = io::ImageReader::open(path);
  if (image->shape().width != columns() || image->shape().height != rows()) return nullptr;
  return image;
}

std::optional<CellRange> HeightMap::cellsIn(const WorldRectangle& rectangle) const {
  const auto [firstColumn, endColumn] = indicesIn(x_, columns(), rectangle.xMin, rectangle.xMax);
  const auto [firstRow, endRow] = indicesIn(y_, rows(), rectangle.yMin, rectangle.yMax);
  if (firstColumn == endColumn || firstRow == endRow) return std::nullopt;
  return CellRange{firstColumn, endColumn, firstRow, endRow};
}

WorldRectangle HeightMap::centresOf(const CellRange& range) const {
  const auto ends = [](const io::Axis& axis, int first, int end) {
    return std::minmax({axis.scale * first + axis.origin, axis.scale * (end - 1) + axis.origin});
  };
  const auto [xMin, xMax] = ends(x_, range.firstColumn, range.endColumn);
  const auto [yMin, yMax] = ends(y_, range.firstRow, range.endRow);
  return {xMin, yMin, xMax, yMax};
}

void HeightMap::readRows(int first, int count, float* values) {
  const std::size_t cells = static_cast<std::size_t>(count) * static_cast<std::size_t>(columns());
  samples_.resize(static_cast<std::size_t>(count) * image_->shape().rowBytes());
  readStored(first, count, samples_.data());
  const auto missing = static_cast<float>(missing_);
  switch (type()) {
    case cmnalg::IMAGE_TYPE_UINT8:
      return convert<std::uint8_t>(samples_.data(), cells, missing, values);
    case cmnalg::IMAGE_TYPE_UINT16:
      return convert<std::uint16_t>(samples_.data(), cells, missing, values);
    default:
      return convert<float>(samples_.data(), cells, missing, values);
  }
}

void HeightMap::readStored(int first, int count, void* samples) {
  image_->readRows(first, count, samples);
}

void describeMap(const io::JsonObject& json, const io::RasterDescription& raster, bool aligned,
                 int firstRow) {
  json.add("unit", raster.unit);
  json.add("system", aligned ? "aligned" : "calibrated");
  json.add("columns", raster.width);
  json.add("rows", raster.height);
  json.add("firstRow", firstRow);
  const io::JsonObject transform = json.addObject("transform");
  transform.add("scaleX", raster.columns->scale);
  transform.add("originX", raster.columns->origin);
  transform.add("scaleY", raster.rows->scale);
  transform.add("originY", raster.rows->origin);
  transform.add("unitY", raster.rowUnit.empty() ? raster.unit : raster.rowUnit);
  if (raster.values) {
    transform.add("scaleZ", raster.values->scale);
    transform.add("originZ", raster.values->origin);
  }
  if (raster.missing && std::isnan(*raster.missing)) {
    json.add("missing", "NaN");
  } else if (raster.missing) {
    json.add("missing", *raster.missing);
  }
  json.addTexts("layers", raster.layers);
}

}  // namespace planex::scan
