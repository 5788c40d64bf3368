#include "planex/scan/sidecar.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <vector>

#include "planex/io/failure.h"
#include "planex/io/input_file.h"
#include "planex/io/json_value.h"
#include "planex/io/model_file.h"

namespace planex::scan {
namespace {

using Names = std::vector<const char*>;

/// A value of the file and where it stands. Each check throws a Failure that names the place.
class Member {
 public:
  Member(const std::string& file, std::string path, const cJSON* json)
      : file_(file), path_(std::move(path)), json_(json) {}

  explicit operator bool() const { return json_ != nullptr; }

  [[noreturn]] void refuse(const std::string& fault) const {
    throw io::Failure(file_, fmt::format("{} {}; correct it", path_, fault));
  }

  /// A member of an object, which may be missing.
  Member at(const char* name) const {
    return {file_, path_.empty() ? name : path_ + "." + name,
            cJSON_GetObjectItemCaseSensitive(json_, name)};
  }
  Member required(const char* name) const {
    Member member = at(name);
    if (!member) member.refuse("is missing");
    return member;
  }

  /// Requires an object with no other members than these, each once.
  void requireObject(const Names& names) const {
    if (!cJSON_IsObject(json_)) refuse("is no object");
    for (const cJSON* item = json_->child; item != nullptr; item = item->next) {
      const auto isSame = [item](const char* name) { return std::strcmp(item->string, name) == 0; };
      const Member member(file_, path_.empty() ? item->string : path_ + "." + item->string, item);
      if (std::none_of(names.begin(), names.end(), isSame)) {
        member.refuse(fmt::format("is none of the members {}", fmt::join(names, ", ")));
      }
      if (at(item->string).json_ != item) member.refuse("is there more than once");
    }
  }

  double number() const {
    if (!cJSON_IsNumber(json_) || !std::isfinite(json_->valuedouble)) refuse("is not a number");
    return json_->valuedouble;
  }
  double scale() const {
    const double value = number();
    if (value == 0) refuse("is 0");
    return value;
  }
  std::optional<double> size() const {
    if (!*this) return std::nullopt;
    const double value = number();
    if (!(value >= 1 && value <= 65535 && std::floor(value) == value)) refuse("is not 1 to 65535");
    return value;
  }
  std::string text() const {
    if (!cJSON_IsString(json_) || *json_->valuestring == 0) refuse("is no text");
    return json_->valuestring;
  }

 private:
  const std::string& file_;
  std::string path_;
  const cJSON* json_;
};

void readSensor(const Member& sensor, ScanSidecar& sidecar) {
  sensor.requireObject({"scaleX", "originX", "scaleZ", "originZ", "width", "height"});
  sidecar.scaleX = sensor.required("scaleX").scale();
  sidecar.originX = sensor.required("originX").number();
  sidecar.scaleZ = sensor.required("scaleZ").scale();
  sidecar.originZ = sensor.required("originZ").number();
  sidecar.width = sensor.at("width").size();
  sidecar.height = sensor.at("height").size();
}

void readRows(const Member& rows, ScanSidecar& sidecar) {
  rows.requireObject({"scaleY", "originY", "positions"});
  if (const Member positions = rows.at("positions")) {
    for (const char* name : {"scaleY", "originY"}) {
      if (const Member other = rows.at(name)) other.refuse("is there beside rows.positions");
    }
    const auto folder = std::filesystem::path(sidecar.path).parent_path();
    sidecar.positions = (folder / positions.text()).string();
    return;
  }
  sidecar.scaleY = rows.required("scaleY").scale();
  if (const Member origin = rows.at("originY")) sidecar.originY = origin.number();
}

io::JsonValue parse(const std::string& path) {
  const std::string text = io::readTextFile(path);
  io::JsonValue json(cJSON_ParseWithOpts(text.c_str(), nullptr, 1));
  if (json == nullptr || text.find('\0') != std::string::npos) {
    throw io::Failure(path, "is not JSON; correct it or name another sidecar");
  }
  if (cJSON_IsObject(json.get())) return json;
  throw io::Failure(path, "is no JSON object; correct it or name another sidecar");
}

/// Whether it tells of an output of planex: see docs/guide.md.
bool tellsOfOutput(const cJSON* root) {
  const cJSON* generator = cJSON_GetObjectItemCaseSensitive(root, "generator");
  return cJSON_IsString(generator) && std::strncmp(generator->valuestring, "planex ", 7) == 0 &&
         cJSON_GetObjectItemCaseSensitive(root, "content") != nullptr;
}

}  // namespace

ScanSidecar readScanSidecar(const std::string& named, const std::string& image) {
  ScanSidecar sidecar;
  const bool isNameless = image.empty() || image == "-";
  const std::string path = !named.empty() ? named : isNameless ? "" : image + ".json";
  if (path.empty() || (named.empty() && access(path.c_str(), F_OK) != 0)) return sidecar;
  if (named.empty()) io::InputFile{path};  // nobody named it: not a pipe to wait for
  const io::JsonValue json = parse(path);
  const bool own = tellsOfOutput(json.get());
  if (own && named.empty()) return sidecar;
  sidecar.path = path;
  const Member root(path, "", json.get());
  const Member said = own ? root.required("made") : root;
  if (!own) root.requireObject({"sensor", "rows"});
  const Member sensor = said.at("sensor"), rows = said.at("rows");
  if (!sensor && !rows) sensor.refuse("is missing");
  if (sensor) readSensor(sensor, sidecar);
  if (rows) readRows(rows, sidecar);
  return sidecar;
}

}  // namespace planex::scan
