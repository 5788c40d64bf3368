#pragma once

#include <cjson/cJSON.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "planex/io/failure.h"

namespace planex::io {

/// A value of the file and where it stands. Each check throws a Failure that names the place.
class JsonMember {
 public:
  JsonMember(const std::string& file, std::string path, const cJSON* json)
      : file_(file), path_(std::move(path)), json_(json) {}

  explicit operator bool() const { return json_ != nullptr; }

  [[noreturn]] void refuse(const std::string& fault) const {
    throw Failure(file_, fmt::format("{} {}; correct it", path_, fault));
  }

  /// A member of an object, which may be missing.
  JsonMember at(const char* name) const {
    return {file_, path_.empty() ? name : path_ + "." + name,
            cJSON_GetObjectItemCaseSensitive(json_, name)};
  }
  JsonMember required(const char* name) const {
    JsonMember member = at(name);
    if (!member) member.refuse("is missing");
    return member;
  }

  /// Requires an object with no other members than these, each once.
  void requireObject(const std::vector<const char*>& names) const {
    if (!cJSON_IsObject(json_)) refuse("is no object");
    for (const cJSON* item = json_->child; item != nullptr; item = item->next) {
      const auto isSame = [item](const char* name) { return std::strcmp(item->string, name) == 0; };
      const JsonMember member(file_, path_.empty() ? item->string : path_ + "." + item->string,
                              item);
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
  /// Of an array, each with its place: path[3].
  std::vector<JsonMember> elements() const {
    if (!cJSON_IsArray(json_)) refuse("is no array");
    std::vector<JsonMember> elements;
    for (const cJSON* item = json_->child; item != nullptr; item = item->next) {
      elements.emplace_back(file_, fmt::format("{}[{}]", path_, elements.size()), item);
    }
    return elements;
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

}  // namespace planex::io
