#pragma once

#include <cstdint>
#include <vector>

#include "core/arrays.h"
#include "core/call.h"
#include "planex/io/failure.h"
#include "planex/io/raster.h"

namespace planex_python {

/// What is written between two looks at signals.
constexpr std::int64_t kWrittenPerBlock = std::int64_t{1} << 20;

/// Runs what writes files. What it says is no matter of an image: planex.Error.
template <typename Body>
void write(const Body& body) {
  try {
    body();
  } catch (const planex::io::Failure& failure) {
    raise("Error", failure.what());
  }
}

/// @{
/// ValueError for arrays of unlike shape, and for one that no file has.
void requireSize(const Profiles& profiles, const Profiles& like);
void requireCells(const Profiles& profiles);
/// @}

/// Rows without gaps: where they lie, or copied to `room`.
const void* withoutGaps(const Profiles& profiles, std::int64_t first, int count,
                        std::vector<char>& room);

/// How files store samples of that type.
planex::io::SampleType sampleOf(cmnalg::ImageType type);

}  // namespace planex_python
