#include "planex/io/json.h"

#include <fmt/format.h>

#include <cmath>
#include <new>

#include "planex/io/json_value.h"
#include "planex/io/utf8.h"

namespace planex::io {
namespace {

/// What was made, or added: where that failed there is no memory.
template <typename T>
T made(T value) {
  if (!value) throw std::bad_alloc();
  return value;
}

/// Gives a value to an object, or to a list where it has no name.
cJSON* give(cJSON* owner, const char* name, cJSON* value) {
  JsonValue item(made(value));
  made(name != nullptr ? cJSON_AddItemToObject(owner, name, value)
                       : cJSON_AddItemToArray(owner, value));
  return item.release();
}

/// As text, because cJSON leaves out the last digit where it finds it small enough.
cJSON* numberOf(double value) {
  if (!std::isfinite(value)) return cJSON_CreateNull();
  return cJSON_CreateRaw(fmt::format("{}", value).c_str());
}

cJSON* listOf(const double* values, std::size_t count) {
  JsonValue list(made(cJSON_CreateArray()));
  for (std::size_t i = 0; i < count; ++i) give(list.get(), nullptr, numberOf(values[i]));
  return list.release();
}

}  // namespace

void JsonObject::add(const char* name, double value) const { give(object_, name, numberOf(value)); }

void JsonObject::add(const char* name, const std::string& value) const {
  give(object_, name, cJSON_CreateString(asUtf8(value).c_str()));
}

void JsonObject::add(const char* name, const char* value) const { add(name, std::string(value)); }

void JsonObject::addNull(const char* name) const { give(object_, name, cJSON_CreateNull()); }

void JsonObject::addList(const char* name, const double* values, std::size_t count) const {
  give(object_, name, listOf(values, count));
}

void JsonObject::addRows(const char* name, const cmnalg::Matrix<double>& matrix) const {
  cJSON* rows = give(object_, name, cJSON_CreateArray());
  for (int row = 0; row < matrix.Height(); ++row) {
    give(rows, nullptr, listOf(matrix[row], static_cast<std::size_t>(matrix.Width())));
  }
}

JsonObject JsonObject::addObject(const char* name) const {
  return JsonObject(give(object_, name, cJSON_CreateObject()));
}

void JsonObject::addTexts(const char* name, const std::vector<std::string>& texts) const {
  cJSON* list = give(object_, name, cJSON_CreateArray());
  for (const std::string& text : texts) {
    give(list, nullptr, cJSON_CreateString(escapedUtf8(text).c_str()));
  }
}

JsonObject JsonObject::appendTo(const char* list) const {
  cJSON* const owner = cJSON_GetObjectItemCaseSensitive(object_, list);
  return JsonObject(give(owner, nullptr, cJSON_CreateObject()));
}

JsonText::JsonText() : JsonObject(made(cJSON_CreateObject())) {}

JsonText::~JsonText() { cJSON_Delete(object_); }

std::string JsonText::print() const {
  const std::unique_ptr<char, void (*)(void*)> text(cJSON_Print(object_), cJSON_free);
  if (text == nullptr) throw std::bad_alloc();
  return std::string(text.get()) + "\n";
}

}  // namespace planex::io
