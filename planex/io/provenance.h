#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "planex/infra/export.h"
#include "planex/io/json.h"

namespace planex::io {

/// What the sidecar of an output tells: what the output is and how it was made.
struct Provenance {
  std::string sidecar;  ///< its file
  std::string json;     ///< its text, printable
  /// The same for people: pairs of title and text, each of one printable line.
  std::vector<std::pair<std::string, std::string>> lines;
  /// Why the sidecar does not belong to the output, or to one of its outputs; empty where it does.
  std::string fault;
};

/// Reads the sidecar of an output of planex.
///
/// @param path  the output, whose sidecar is its name with ".json" behind it, or the sidecar
/// @return nothing for a file that is neither
/// A Failure for an image or file of points without a sidecar, and for a sidecar that cannot be
/// read.
PLANEX_EXPORT std::optional<Provenance> readProvenance(const std::string& path);

/// A file as seen from the folder of a sidecar: how sidecars name files.
PLANEX_EXPORT std::string seenFrom(const std::string& sidecar, const std::string& file);

/// Adds an output, complete but for its name, to the list "outputs" of the member "made", which
/// addList() began; readProvenance() compares it with the file.
/// @param content  what it is
PLANEX_EXPORT void addOutput(const JsonObject& made, const std::string& sidecar,
                             const char* content, const std::string& file, std::int64_t bytes);

}  // namespace planex::io
