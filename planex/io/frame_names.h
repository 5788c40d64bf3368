#pragma once

#include <string>
#include <vector>

namespace planex::io {

/// Whether a name comes before another where runs of digits count as numbers: frame_2 before
/// frame_10. Names that differ in leading zeros alone keep the order of their bytes.
bool isBeforeNaturally(const std::string& name, const std::string& other);

/// The files of a folder that hold frames by their ending, in natural order; hidden files, folders
/// and all others are passed over. None is opened. A Failure where there are none.
/// @param areRaw the frames are raw data (.raw, .bin), not images
std::vector<std::string> frameFilesIn(const std::string& folder, bool areRaw);

}  // namespace planex::io
