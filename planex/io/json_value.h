#pragma once

#include <cjson/cJSON.h>

#include <memory>

namespace planex::io {

struct DeleteJson {
  void operator()(cJSON* json) const { cJSON_Delete(json); }
};
/// Owns a JSON value with all that it holds.
using JsonValue = std::unique_ptr<cJSON, DeleteJson>;

}  // namespace planex::io
