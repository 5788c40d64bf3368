#pragma once

#include <cjson/cJSON.h>
#include <fmt/format.h>

#include <cmath>
#include <memory>
#include <new>
#include <string>

#include "tools/support/utf8.h"

namespace planex_tools {

struct DeleteJson {
  void operator()(cJSON* json) const { cJSON_Delete(json); }
};
/// Owns a JSON value with all that it holds.
using Json = std::unique_ptr<cJSON, DeleteJson>;

/// Indented text with a line end behind it.
inline std::string printJson(const cJSON& json) {
  const std::unique_ptr<char, void (*)(void*)> text(cJSON_Print(&json), cJSON_free);
  if (text == nullptr) throw std::bad_alloc();
  return std::string(text.get()) + "\n";
}

/// A number with as many digits as reading back needs, or null for what JSON cannot say: NaN and
/// infinities. As text, because cJSON leaves out the last digit where it finds it small enough.
inline cJSON* jsonNumber(double value) {
  if (!std::isfinite(value)) return cJSON_CreateNull();
  return cJSON_CreateRaw(fmt::format("{}", value).c_str());
}

/// @{
/// Adds a member to an object.
inline void add(cJSON* object, const char* name, double value) {
  cJSON_AddItemToObject(object, name, jsonNumber(value));
}
inline void add(cJSON* object, const char* name, const std::string& value) {
  cJSON_AddStringToObject(object, name, asUtf8(value).c_str());
}
inline void add(cJSON* object, const char* name, const char* value) {
  cJSON_AddStringToObject(object, name, value);
}
inline void add(cJSON* object, const char* name, bool value) {
  cJSON_AddBoolToObject(object, name, value);
}
/// @}

/// Adds an empty object as a member, and returns it.
inline cJSON* addObject(cJSON* object, const char* name) {
  return cJSON_AddObjectToObject(object, name);
}

}  // namespace planex_tools
