#pragma once

#include <optional>
#include <string>
#include <vector>

#include "planex/infra/export.h"

namespace planex::io {

/// A number as people write it: "0.0625", "-1e-3", "1/16". Independent of the locale.
/// @return nothing for other texts, and for what is not finite
PLANEX_EXPORT std::optional<double> parseNumber(const std::string& text);

/// The numbers of a list such as "1,-2.5,1/16"; nothing when one of them is none.
PLANEX_EXPORT std::optional<std::vector<double>> parseNumberList(const std::string& text);

}  // namespace planex::io
