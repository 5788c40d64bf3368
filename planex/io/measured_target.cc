#include "planex/io/measured_target.h"

#include "planex/io/input_file.h"
#include "planex/io/json_member.h"
#include "planex/io/json_value.h"
#include "planex/io/model_file.h"

namespace planex::io {

MeasuredTarget readMeasuredTarget(const std::string& path) {
  const std::string text = readTextFile(path);
  const JsonValue json(cJSON_ParseWithOpts(text.c_str(), nullptr, 1));
  if (json == nullptr || text.find('\0') != std::string::npos) {
    throw Failure(path, "is not JSON; see planex estimate --help for what a target looks like");
  }
  const JsonMember root(path, "", json.get());
  if (cJSON_IsObject(json.get()) == 0) throw Failure(path, "is no JSON object");
  root.requireObject({"profile", "tolerance", "scaleTolerance", "margin"});
  MeasuredTarget target;
  for (const JsonMember& corner : root.required("profile").elements()) {
    const std::vector<JsonMember> numbers = corner.elements();
    if (numbers.size() != 2) corner.refuse("is not [x, z]");
    target.profile.push_back({numbers[0].number(), numbers[1].number()});
  }
  target.tolerance = root.required("tolerance").number();
  if (const JsonMember scale = root.at("scaleTolerance")) target.scaleTolerance = scale.number();
  if (const JsonMember margin = root.at("margin")) target.margin = margin.number();
  return target;
}

}  // namespace planex::io
