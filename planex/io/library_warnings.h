#pragma once

#include <string>

#include "planex/infra/export.h"

namespace planex::io {

/// Collects what the library logs, from now on. Called once, before the first use of the library.
PLANEX_EXPORT void collectLibraryWarnings();

/// The texts collected since the last call, joined by " "; without the full stop at the end, so
/// that a sentence can go on behind them. Empty when there are none.
PLANEX_EXPORT std::string takeLibraryWarnings();

/// Ends the command after the library refused something of `file`: "FILE: WHAT (WARNINGS); REMEDY".
[[noreturn]] PLANEX_EXPORT void failWithLibraryWarnings(const std::string& file,
                                                        const std::string& what,
                                                        const std::string& remedy);

}  // namespace planex::io
