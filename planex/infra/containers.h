#pragma once

#include <string>
#include <vector>

/// Names of the containers that cross the class-level interface.
///
/// They are the standard library's: a caller uses them with its algorithms and ranges as they
/// stand, and must be built against the same standard library as planex (libstdc++).
namespace etl {

/// Growable contiguous list. Point lists are `Vector<cmnalg::Vec<2, double>>` and the like.
template <typename T>
using Vector = std::vector<T>;

/// Bytes of text; documents hold UTF-8.
using String = std::string;

/// Growable bytes.
using Buffer = std::vector<unsigned char>;

}  // namespace etl
