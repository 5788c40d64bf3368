#include "tools/support/row_options.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace planex_tools {
namespace {

constexpr int kBlockPixels = 1 << 20;

[[noreturn]] void refuseRows(const RowOptions& options, const ImageShape& image) {
  throw CLI::ValidationError("--rows", "'" + options.rows + "' is no part A:B of the rows 0:" +
                                           std::to_string(image.height) + " of the image");
}

/// The number between begin and end; `otherwise` where nothing stands there.
int parseRow(const char* begin, const char* end, int otherwise, const RowOptions& options,
             const ImageShape& image) {
  if (begin == end) return otherwise;
  int row = 0;
  const auto result = std::from_chars(begin, end, row);
  if (result.ec != std::errc() || result.ptr != end) refuseRows(options, image);
  return row;
}

}  // namespace

void addRowOptions(CLI::App& command, RowOptions& options) {
  command
      .add_option("--rows", options.rows,
                  "Process rows A to B - 1 only, counted from 0; A or B may be left out")
      ->type_name("A:B");
  command
      .add_option("--block", options.block,
                  "Hold N rows in memory at a time; results do not depend on it")
      ->check(CLI::Range(1, 1 << 20))
      ->type_name("N");
}

RowBlocks resolveRows(const RowOptions& options, const ImageShape& image) {
  RowBlocks blocks{0, image.height, options.block};
  if (!options.rows.empty()) {
    const char* const begin = options.rows.data();
    const char* const end = begin + options.rows.size();
    const char* const colon = std::find(begin, end, ':');
    if (colon == end) refuseRows(options, image);
    blocks.first = parseRow(begin, colon, 0, options, image);
    blocks.end = parseRow(colon + 1, end, image.height, options, image);
    if (blocks.first < 0 || blocks.first >= blocks.end || blocks.end > image.height) {
      refuseRows(options, image);
    }
  }
  if (blocks.block == 0) blocks.block = std::max(1, kBlockPixels / image.width);
  return blocks;
}

}  // namespace planex_tools
