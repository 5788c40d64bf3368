#pragma once

#include <string>
#include <vector>

#include "planex/infra/export.h"

namespace planex::io {

/// Something wrong with a model document.
struct Fault {
  std::string path;  ///< of the member: "data.Homography[1][2]"; "document" for the whole text
  std::string text;  ///< what is wrong: "is missing"
};

/// Checks the form of a model document, which is more than reading asks for: JSON to its end; class
/// and data and nothing else; every member there, once, spelt as it is written, of the right type
/// and shape; known names; numbers finite and in their range.
///
/// @return all faults, in the order of the members; none for a document that is as the library
///         writes it
PLANEX_EXPORT std::vector<Fault> checkDocument(const std::string& text);

}  // namespace planex::io
