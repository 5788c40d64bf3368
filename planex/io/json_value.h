#pragma once

#include <cjson/cJSON.h>

#include <memory>

namespace planex::io {

// cJSON_Parse has one state that calls share, the place of the last error. Nothing of planex reads
// it (cJSON_ParseWithOpts gives the place of its own error), so no result depends on who parses at
// the same time.

struct DeleteJson {
  void operator()(cJSON* json) const { cJSON_Delete(json); }
};
/// Owns a JSON value with all that it holds.
using JsonValue = std::unique_ptr<cJSON, DeleteJson>;

}  // namespace planex::io
