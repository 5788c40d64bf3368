// The kinds of raster files behind RasterWriter::create.
#pragma once

#include <memory>

#include "tools/images/raster_writer.h"

namespace planex_tools {

/// @{
/// As RasterWriter::create.
std::unique_ptr<RasterWriter> createPng(OutputFile& file, const RasterDescription& description);
std::unique_ptr<RasterWriter> createTiff(OutputFile& file, const RasterDescription& description);
/// @}

}  // namespace planex_tools
