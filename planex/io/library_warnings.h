#pragma once

#include <string>

#include "planex/infra/export.h"

namespace planex::io {

/// Collects what the library logs, from now on, for each thread by itself. Called once, before the
/// first use of the library; without it a Failure does not tell the reasons of the library.
PLANEX_EXPORT void collectLibraryWarnings();

/// The texts collected on this thread since its last call, joined by " "; without the full stop at
/// the end, so that a sentence can go on behind them. Empty when there are none.
PLANEX_EXPORT std::string takeLibraryWarnings();

/// Throws a Failure after the library refused something of `file`: "FILE: WHAT (WARNINGS); REMEDY".
[[noreturn]] PLANEX_EXPORT void failWithLibraryWarnings(const std::string& file,
                                                        const std::string& what,
                                                        const std::string& remedy);

}  // namespace planex::io
