#include "planex/acquisition/camera_features.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <vector>

#include "planex/io/failure.h"
#include "planex/io/number_text.h"

namespace planex::acquisition {
namespace {

std::optional<std::int64_t> parseInteger(const std::string& text) {
  const bool isHex = text.rfind("0x", 0) == 0;
  const char* const begin = text.data() + (isHex ? 2 : 0);
  const char* const end = text.data() + text.size();
  std::int64_t value = 0;
  const auto parsed = std::from_chars(begin, end, value, isHex ? 16 : 10);
  if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  return value;
}

std::string listed(const std::vector<std::string>& names) {
  return fmt::format("{}", fmt::join(names, ", "));
}

}  // namespace

CameraFeatures::CameraFeatures(ArvCamera* camera, std::string name)
    : device_(arv_camera_get_device(camera)), name_(std::move(name)) {
  arv_camera_set_range_check_policy(camera, ARV_RANGE_CHECK_POLICY_ENABLE);
  arv_camera_set_access_check_policy(camera, ARV_ACCESS_CHECK_POLICY_ENABLE);
}

void CameraFeatures::refuse(const std::string& problem) const {
  throw io::Failure("camera:" + name_, problem);
}

void CameraFeatures::require(const AravisError& error, const std::string& what) const {
  if (error) refuse(fmt::format("{} ({})", what, io::inOneLine(error.text())));
}

bool CameraFeatures::has(const char* name) const {
  AravisError error;
  return ARV_IS_GC_FEATURE_NODE(arv_device_get_feature(device_, name)) &&
         arv_device_is_feature_available(device_, name, error.out()) != 0 && !error;
}

ArvGcFeatureNode* CameraFeatures::writable(const std::string& name) const {
  ArvGcNode* node = arv_device_get_feature(device_, name.c_str());
  if (!ARV_IS_GC_FEATURE_NODE(node) || ARV_IS_GC_CATEGORY(node)) {
    refuse("has no feature " + name + "; its manual tells how it calls them");
  }
  if (!has(name.c_str())) refuse("does not offer " + name + " as it is set");
  ArvGcFeatureNode* feature = ARV_GC_FEATURE_NODE(node);
  AravisError error;
  if (arv_gc_feature_node_get_actual_access_mode(feature) == ARV_GC_ACCESS_MODE_RO ||
      arv_gc_feature_node_is_locked(feature, error.out()) != 0) {
    refuse("does not let " + name + " be set");
  }
  return feature;
}

void CameraFeatures::setInteger(const FeatureValue& feature) const {
  const char* name = feature.name.c_str();
  const std::optional<std::int64_t> value = parseInteger(feature.value);
  AravisError error;
  gint64 least = 0, most = 0;
  arv_device_get_integer_feature_bounds(device_, name, &least, &most, error.out());
  require(error, "does not tell what " + feature.name + " may be");
  if (!value || *value < least || *value > most) {
    refuse(fmt::format("{} takes whole numbers from {} to {}, not {}", feature.name, least, most,
                       feature.value));
  }
  const gint64 step = arv_device_get_integer_feature_increment(device_, name, error.out());
  if (!error && step > 1 && (*value - least) % step != 0) {
    refuse(fmt::format("{} takes {} and what is multiples of {} above, not {}", feature.name, least,
                       step, feature.value));
  }
  arv_device_set_integer_feature_value(device_, name, *value, error.out());
  require(error, "does not take " + feature.name + " " + feature.value);
}

void CameraFeatures::setFloat(const FeatureValue& feature) const {
  const char* name = feature.name.c_str();
  const std::optional<double> value = io::parseNumber(feature.value);
  AravisError error;
  double least = 0, most = 0;
  arv_device_get_float_feature_bounds(device_, name, &least, &most, error.out());
  require(error, "does not tell what " + feature.name + " may be");
  if (!value || *value < least || *value > most) {
    refuse(fmt::format("{} takes numbers from {:.9g} to {:.9g}, not {}", feature.name, least, most,
                       feature.value));
  }
  arv_device_set_float_feature_value(device_, name, *value, error.out());
  require(error, "does not take " + feature.name + " " + feature.value);
}

void CameraFeatures::setEntry(const FeatureValue& feature) const {
  const char* name = feature.name.c_str();
  AravisError error;
  guint count = 0;
  const std::unique_ptr<const char*, decltype(&g_free)> entries(
      arv_device_dup_available_enumeration_feature_values_as_strings(device_, name, &count,
                                                                     error.out()),
      &g_free);
  require(error, "does not tell what " + feature.name + " may be");
  const std::vector<std::string> names(entries.get(), entries.get() + count);
  if (std::find(names.begin(), names.end(), feature.value) == names.end()) {
    refuse(fmt::format("{} takes {}, not {}", feature.name, listed(names), feature.value));
  }
  arv_device_set_string_feature_value(device_, name, feature.value.c_str(), error.out());
  require(error, "does not take " + feature.name + " " + feature.value);
}

void CameraFeatures::set(const FeatureValue& feature) const {
  ArvGcFeatureNode* node = writable(feature.name);
  const char* name = feature.name.c_str();
  AravisError error;
  if (ARV_IS_GC_ENUMERATION(node)) return setEntry(feature);
  if (ARV_IS_GC_BOOLEAN(node)) {
    const bool isTrue = feature.value == "true" || feature.value == "1";
    if (!isTrue && feature.value != "false" && feature.value != "0") {
      refuse(feature.name + " takes true or false, not " + feature.value);
    }
    arv_device_set_boolean_feature_value(device_, name, isTrue ? 1 : 0, error.out());
  } else if (ARV_IS_GC_COMMAND(node)) {
    if (feature.value != "1") refuse(feature.name + " is a command, which takes 1");
    arv_device_execute_command(device_, name, error.out());
  } else if (ARV_IS_GC_INTEGER(node)) {
    return setInteger(feature);
  } else if (ARV_IS_GC_FLOAT(node)) {
    return setFloat(feature);
  } else if (ARV_IS_GC_STRING(node)) {
    arv_device_set_string_feature_value(device_, name, feature.value.c_str(), error.out());
  } else {
    refuse(feature.name + " is none that can be set");
  }
  require(error, "does not take " + feature.name + " " + feature.value);
}

std::int64_t CameraFeatures::integer(const char* name, std::int64_t without) const {
  AravisError error;
  if (!has(name)) return without;
  const gint64 value = arv_device_get_integer_feature_value(device_, name, error.out());
  return error ? without : value;
}

double CameraFeatures::number(const char* name, double without) const {
  AravisError error;
  if (!has(name)) return without;
  const double value =
      ARV_IS_GC_FLOAT(arv_device_get_feature(device_, name))
          ? arv_device_get_float_feature_value(device_, name, error.out())
          : static_cast<double>(arv_device_get_integer_feature_value(device_, name, error.out()));
  return error ? without : value;
}

std::string CameraFeatures::text(const char* name, const std::string& without) const {
  AravisError error;
  if (!has(name)) return without;
  const std::string value = textOf(arv_device_get_string_feature_value(device_, name, error.out()));
  return error ? without : value;
}

std::string CameraFeatures::valueOf(const std::string& name) const {
  ArvGcNode* node = arv_device_get_feature(device_, name.c_str());
  if (ARV_IS_GC_ENUMERATION(node) || ARV_IS_GC_STRING(node)) return text(name.c_str());
  if (ARV_IS_GC_COMMAND(node)) return "1";
  if (ARV_IS_GC_BOOLEAN(node)) {
    AravisError error;
    return arv_device_get_boolean_feature_value(device_, name.c_str(), error.out()) != 0 ? "true"
                                                                                         : "false";
  }
  if (ARV_IS_GC_INTEGER(node)) return std::to_string(integer(name.c_str(), 0));
  return fmt::format("{:.9g}", number(name.c_str(), 0));
}

}  // namespace planex::acquisition
