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
#include "planex/io/json_member.h"
#include "planex/io/json_value.h"
#include "planex/io/model_file.h"
#include "planex/io/pixel_packing.h"

namespace planex::scan {
namespace {

using io::JsonMember;

void readSensor(const JsonMember& sensor, ScanSidecar& sidecar) {
  sensor.requireObject({"scaleX", "originX", "scaleZ", "originZ", "width", "height"});
  sidecar.scaleX = sensor.required("scaleX").scale();
  sidecar.originX = sensor.required("originX").number();
  sidecar.scaleZ = sensor.required("scaleZ").scale();
  sidecar.originZ = sensor.required("originZ").number();
  sidecar.width = sensor.at("width").size();
  sidecar.height = sensor.at("height").size();
}

void readRows(const JsonMember& rows, ScanSidecar& sidecar) {
  rows.requireObject({"scaleY", "originY", "positions"});
  if (const JsonMember positions = rows.at("positions")) {
    for (const char* name : {"scaleY", "originY"}) {
      if (const JsonMember other = rows.at(name)) other.refuse("is there beside rows.positions");
    }
    const auto folder = std::filesystem::path(sidecar.path).parent_path();
    sidecar.positions = (folder / positions.text()).string();
    return;
  }
  sidecar.scaleY = rows.required("scaleY").scale();
  if (const JsonMember origin = rows.at("originY")) sidecar.originY = origin.number();
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
  const JsonMember root(path, "", json.get());
  const bool isScan = own && root.at("sensor");
  if (own && !isScan && named.empty()) return sidecar;
  sidecar.path = path;
  const JsonMember said = own && !isScan ? root.required("made") : root;
  if (!own) root.requireObject({"sensor", "rows"});
  const JsonMember sensor = said.at("sensor"), rows = said.at("rows");
  if (!sensor && !rows) sensor.refuse("is missing");
  if (sensor) readSensor(sensor, sidecar);
  if (rows) readRows(rows, sidecar);
  if (const JsonMember extraction = root.at("extraction"); isScan && extraction) {
    if (const JsonMember noise = extraction.at("rowNoise")) sidecar.rowNoise = noise.number();
  }
  if (const JsonMember camera = root.at("camera"); isScan && camera) {
    if (const JsonMember format = camera.at("pixelFormat")) {
      sidecar.bits = io::usedBits(format.text());
    }
  }
  return sidecar;
}

}  // namespace planex::scan
