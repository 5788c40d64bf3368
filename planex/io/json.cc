#include "planex/io/json.h"

#include <fmt/format.h>

#include <cmath>
#include <new>

#include "planex/io/json_value.h"
#include "planex/io/utf8.h"

namespace planex::io {
namespace {

/// As text, because cJSON leaves out the last digit where it finds it small enough.
cJSON* numberOf(double value) {
  if (!std::isfinite(value)) return cJSON_CreateNull();
  return cJSON_CreateRaw(fmt::format("{}", value).c_str());
}

cJSON* listOf(const double* values, std::size_t count) {
  cJSON* list = cJSON_CreateArray();
  for (std::size_t i = 0; i < count; ++i) cJSON_AddItemToArray(list, numberOf(values[i]));
  return list;
}

}  // namespace

void JsonObject::add(const char* name, double value) const {
  cJSON_AddItemToObject(object_, name, numberOf(value));
}

void JsonObject::add(const char* name, const std::string& value) const {
  cJSON_AddStringToObject(object_, name, asUtf8(value).c_str());
}

void JsonObject::add(const char* name, const char* value) const { add(name, std::string(value)); }

void JsonObject::addNull(const char* name) const { cJSON_AddNullToObject(object_, name); }

void JsonObject::addList(const char* name, const double* values, std::size_t count) const {
  cJSON_AddItemToObject(object_, name, listOf(values, count));
}

void JsonObject::addRows(const char* name, const cmnalg::Matrix<double>& matrix) const {
  cJSON* rows = cJSON_AddArrayToObject(object_, name);
  for (int row = 0; row < matrix.Height(); ++row) {
    cJSON_AddItemToArray(rows, listOf(matrix[row], static_cast<std::size_t>(matrix.Width())));
  }
}

JsonObject JsonObject::addObject(const char* name) const {
  return JsonObject(cJSON_AddObjectToObject(object_, name));
}

JsonObject JsonObject::appendTo(const char* list) const {
  cJSON* object = cJSON_CreateObject();
  cJSON_AddItemToArray(cJSON_GetObjectItemCaseSensitive(object_, list), object);
  return JsonObject(object);
}

JsonText::JsonText() : JsonObject(cJSON_CreateObject()) {
  if (object_ == nullptr) throw std::bad_alloc();
}

JsonText::~JsonText() { cJSON_Delete(object_); }

std::string JsonText::print() const {
  const std::unique_ptr<char, void (*)(void*)> text(cJSON_Print(object_), cJSON_free);
  if (text == nullptr) throw std::bad_alloc();
  return std::string(text.get()) + "\n";
}

}  // namespace planex::io
