#include "planex/io/document_check.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <utility>

#include "planex/io/json_value.h"
#include "planex/model/calibration_model.h"
#include "planex/model/model_state.h"

namespace planex::io {
namespace {

using datafusion::planex::CalibrationModel;

constexpr double kHighest = std::numeric_limits<double>::max();
constexpr double kMostInt = std::numeric_limits<std::int32_t>::max();

/// One value of the document and where it stands. Checks that find a fault add it to the list; a
/// value that is missing was named when it was looked up, and passes all checks.
class Value {
 public:
  Value(const cJSON* json, std::string path, std::vector<Fault>& faults)
      : json_(json), path_(std::move(path)), faults_(faults) {}

  explicit operator bool() const { return json_ != nullptr; }
  const cJSON* json() const { return json_; }
  const std::string& path() const { return path_; }
  std::vector<Fault>& faults() const { return faults_; }
  bool isNull() const { return cJSON_IsNull(json_); }

  void fault(std::string text) const { faults_.push_back({path_, std::move(text)}); }

  /// A member, which must be there exactly once under exactly this name.
  Value member(const char* name) const {
    const cJSON* found = nullptr;
    const cJSON* similar = nullptr;
    int count = 0;
    for (const cJSON* item = json_->child; item != nullptr; item = item->next) {
      if (std::strcmp(item->string, name) == 0) {
        if (count++ == 0) found = item;
      } else if (strcasecmp(item->string, name) == 0) {
        similar = item;
      }
    }
    Value value(found, path_.empty() ? name : path_ + "." + name, faults_);
    if (count > 1) value.fault("is there more than once");
    if (found == nullptr && similar == nullptr) value.fault("is missing");
    if (found == nullptr && similar != nullptr) {
      value.fault(fmt::format("is spelt {}", similar->string));
    }
    return value;
  }

  Value element(int i) const {
    return {cJSON_GetArrayItem(json_, i), fmt::format("{}[{}]", path_, i), faults_};
  }

  /// Whether it is an object; its members that are not in the list are faults.
  bool isObject(std::initializer_list<const char*> members) const {
    if (json_ == nullptr) return false;
    if (!cJSON_IsObject(json_)) {
      fault("is no object");
      return false;
    }
    for (const cJSON* item = json_->child; item != nullptr; item = item->next) {
      const bool known = std::any_of(members.begin(), members.end(), [&](const char* name) {
        return strcasecmp(item->string, name) == 0;
      });
      if (!known) Value(item, path_ + "." + item->string, faults_).fault("is no known member");
    }
    return true;
  }

  /// Whether it is a list of one of these lengths.
  bool isList(std::initializer_list<int> lengths, const char* expected) const {
    if (json_ == nullptr) return false;
    const int length = cJSON_IsArray(json_) ? cJSON_GetArraySize(json_) : -1;
    if (std::find(lengths.begin(), lengths.end(), length) != lengths.end()) return true;
    fault(length < 0 ? fmt::format("is no list; expected {}", expected)
                     : fmt::format("has {} elements; expected {}", length, expected));
    return false;
  }

  /// A finite number.
  bool isNumber() const {
    if (json_ == nullptr) return false;
    if (!cJSON_IsNumber(json_)) {
      fault("is no number");
    } else if (!std::isfinite(json_->valuedouble)) {
      fault("is too large for a number");
    } else {
      return true;
    }
    return false;
  }

  void expectNumber(double least, double most, const char* expected) const {
    if (!isNumber()) return;
    const double value = json_->valuedouble;
    if (!(value >= least && value <= most))
      fault(fmt::format("is {}; expected {}", value, expected));
  }

  void expectInteger(double least, double most, const char* expected) const {
    if (!isNumber()) return;
    const double value = json_->valuedouble;
    if (!(value >= least && value <= most && std::floor(value) == value)) {
      fault(fmt::format("is {}; expected {}", value, expected));
    }
  }

  void expectName(std::initializer_list<std::string> names) const {
    if (json_ == nullptr) return;
    const std::string name = cJSON_IsString(json_) ? json_->valuestring : "";
    if (std::find(names.begin(), names.end(), name) != names.end()) return;
    std::string expected;
    for (const std::string& known : names) expected += (expected.empty() ? "" : ", ") + known;
    fault(fmt::format("is {}; expected {}", cJSON_IsString(json_) ? "\"" + name + "\"" : "no text",
                      expected));
  }

  void expectNumbers(std::initializer_list<const char*> members) const {
    if (!isObject(members)) return;
    for (const char* name : members) static_cast<void>(member(name).isNumber());
  }

  void expectMatrix(std::initializer_list<int> rows, int columns, const char* expected) const {
    if (!isList(rows, expected)) return;
    for (int r = 0; r < cJSON_GetArraySize(json_); ++r) {
      const Value row = element(r);
      if (!row.isList({columns}, fmt::format("{}", columns).c_str())) continue;
      for (int c = 0; c < columns; ++c) static_cast<void>(row.element(c).isNumber());
    }
  }

  void expectNumberList(std::initializer_list<int> lengths, const char* expected) const {
    if (!isList(lengths, expected)) return;
    for (int i = 0; i < cJSON_GetArraySize(json_); ++i) static_cast<void>(element(i).isNumber());
  }

 private:
  const cJSON* json_;
  std::string path_;
  std::vector<Fault>& faults_;
};

void checkErrors(const Value& data, const char* name, const char* maximumName) {
  const Value error = data.member(name);
  const Value maximum = data.member(maximumName);
  for (const Value& value : {error, maximum}) value.expectNumber(0, kHighest, "0 or more");
  if (!cJSON_IsNumber(error.json()) || !cJSON_IsNumber(maximum.json())) return;
  if (error.json()->valuedouble == CalibrationModel::kNeverSet) return;
  if (maximum.json()->valuedouble < error.json()->valuedouble) {
    maximum.fault(fmt::format("is smaller than {}", name));
  }
}

/// Whether the pixels are as many as the sizes say, and their text as long as base64 of 4 bytes a
/// pixel is.
void checkPixelCount(const Value& buffer, const Value& pixels) {
  const cJSON* width = cJSON_GetObjectItemCaseSensitive(buffer.json(), "Width");
  const cJSON* height = cJSON_GetObjectItemCaseSensitive(buffer.json(), "Height");
  const Value count(cJSON_GetObjectItemCaseSensitive(pixels.json(), "numOfElems"),
                    pixels.path() + ".numOfElems", buffer.faults());
  const Value text = pixels.member("data");
  if (text && !cJSON_IsString(text.json())) text.fault("is no text");
  if (!cJSON_IsNumber(width) || !cJSON_IsNumber(height) || !cJSON_IsNumber(count.json())) return;
  const double expected = width->valuedouble * height->valuedouble;
  if (count.json()->valuedouble != expected) {
    count.fault(
        fmt::format("is {}; expected Width x Height, {}", count.json()->valuedouble, expected));
  } else if (cJSON_IsString(text.json())) {
    const double length = 4 * std::ceil(4 * expected / 3);
    const auto present = static_cast<double>(std::strlen(text.json()->valuestring));
    if (present != length) text.fault(fmt::format("has {} letters; expected {}", present, length));
  }
}

void checkImage(const Value& image, const char* type) {
  if (!image || image.isNull() || !image.isObject({"class", "data"})) return;
  image.member("class").expectName({"Image"});
  const Value data = image.member("data");
  if (!data.isObject({"PixelSize", "Origin", "HandleZeroPixels", "Data"})) return;
  data.member("PixelSize").expectNumbers({"x", "y", "z"});
  data.member("Origin").expectNumbers({"x", "y", "z"});
  data.member("HandleZeroPixels").expectName({"Default", "MissingData"});
  const Value buffer = data.member("Data");
  if (!buffer.isObject({"ImageType", "Width", "Height", "Pixels"})) return;
  buffer.member("ImageType").expectName({type});
  buffer.member("Width").expectInteger(0, kMostInt, "a number of columns");
  buffer.member("Height").expectInteger(0, kMostInt, "a number of rows");
  const Value pixels = buffer.member("Pixels");
  if (!pixels.isObject({"numOfElems", "elemSz", "endian", "elemTypes", "data"})) return;
  pixels.member("numOfElems").expectInteger(0, kMostInt, "a number of pixels");
  pixels.member("elemSz").expectInteger(4, 4, "4");
  pixels.member("endian").expectName({"little"});
  pixels.member("elemTypes").expectName({type});
  checkPixelCount(buffer, pixels);
}

void checkRegion(const Value& region) {
  constexpr const char* kAverages[] = {"AverageResidualX", "AverageResidualZ"};
  constexpr const char* kMaxima[] = {"MaximumResidualX", "MaximumResidualZ"};
  if (!region.isObject({"PointCount", kAverages[0], kAverages[1], kMaxima[0], kMaxima[1]})) return;
  checkImage(region.member("PointCount"), "int32");
  for (const char* name : kAverages) checkImage(region.member(name), "float32");
  for (const char* name : kMaxima) checkImage(region.member(name), "float32");
}

void checkMembers(const Value& data) {
  using datafusion::planex::ModelState;
  using datafusion::planex::SkewMode;
  const Value version = data.member("FileVersion");
  version.expectInteger(1, 2, "1 or 2");
  data.member("CurrentState")
      .expectName({stateToString(ModelState::UNCALIBRATED), stateToString(ModelState::CALIBRATED),
                   stateToString(ModelState::CALIBRATED_ALIGNED_2D),
                   stateToString(ModelState::CALIBRATED_ALIGNED_3D),
                   stateToString(ModelState::ALIGNED_2D), stateToString(ModelState::ALIGNED_3D)});
  data.member("SkewMode")
      .expectName({skewModeToString(SkewMode::XZ_IN_LIGHT_PLANE),
                   skewModeToString(SkewMode::Z_NOT_IN_LIGHT_PLANE),
                   skewModeToString(SkewMode::XZ_NOT_IN_LIGHT_PLANE)});
  checkErrors(data, "CalibrationError", "CalibrationErrorMax");
  checkErrors(data, "AlignmentError", "AlignmentErrorMax");
  data.member("FocalLength").expectNumber(std::numeric_limits<double>::min(), kHighest, "above 0");
  const Value sensor = data.member("SensorSize");
  if (sensor.isObject({"x", "y"})) {
    for (const char* name : {"x", "y"}) {
      sensor.member(name).expectInteger(1, 65535, "a whole number of 1 to 65535");
    }
  }
  data.member("LensCenter").expectNumbers({"x", "y"});
  data.member("Skew").expectNumbers({"x", "y", "z"});
  data.member("Homography").expectMatrix({3}, 3, "3 rows of 3");
  data.member("Pose").expectMatrix({3, 4}, 4, "4 rows of 4");
  data.member("LensCoefficients").expectNumberList({7}, "7");
  if (cJSON_IsNumber(version.json()) && version.json()->valuedouble < 2) return;
  data.member("SheetCurve").expectNumberList({0, 6}, "none or 6");
  checkRegion(data.member("CalibratedRegion"));
}

/// Line and column, from 1, of a place in the text.
std::string placeIn(const std::string& text, std::size_t at) {
  const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(at, text.size()));
  const auto lines = std::count(text.begin(), end, '\n');
  const std::size_t lineEnd = at == 0 ? std::string::npos : text.rfind('\n', at - 1);
  const std::size_t column = lineEnd == std::string::npos ? at + 1 : at - lineEnd;
  return fmt::format("line {}, column {}", lines + 1, column);
}

}  // namespace

std::vector<Fault> checkDocument(const std::string& text) {
  std::vector<Fault> faults;
  if (const std::size_t nul = text.find('\0'); nul != std::string::npos) {
    faults.push_back({"document", "has a NUL byte in " + placeIn(text, nul)});
  }
  const char* end = nullptr;
  const JsonValue json(cJSON_ParseWithOpts(text.c_str(), &end, 0));
  const auto endAt = static_cast<std::size_t>(end - text.c_str());
  const Value root(json.get(), "document", faults);
  if (json == nullptr) {
    root.fault("is no JSON from " + placeIn(text, endAt) + " on");
    return faults;
  }
  if (std::strspn(end, " \t\r\n") != std::strlen(end)) {
    root.fault("goes on behind its end in " + placeIn(text, endAt));
  }
  if (!root.isObject({"class", "data"})) return faults;
  const Value unnamed(json.get(), "", faults);
  unnamed.member("class").expectName({"Image.Planex.Model"});
  const Value data = unnamed.member("data");
  if (data.isObject({"FileVersion", "CurrentState", "SkewMode", "CalibrationError",
                     "CalibrationErrorMax", "AlignmentError", "AlignmentErrorMax", "FocalLength",
                     "SensorSize", "LensCenter", "Skew", "Homography", "Pose", "LensCoefficients",
                     "SheetCurve", "CalibratedRegion",
                     // Of the library that estimates, which knows what it should be.
                     "Estimation"})) {
    checkMembers(data);
  }
  return faults;
}

}  // namespace planex::io
