#include "planex/report/document.h"

#include <fmt/format.h>

#include "planex/io/raster.h"

namespace planex::report {

void Table::add(const std::vector<std::string>& cells) {
  std::vector<Cell>& row = rows.emplace_back();
  for (const std::string& text : cells) row.push_back({text});
}

std::string (*writerOf(std::string_view path))(const Document& document) {
  const std::string ending = io::endingOf(std::string(path));
  if (ending == ".html" || ending == ".htm") return htmlOf;
  return ending == ".pdf" ? pdfOf : nullptr;
}

std::string bytesText(std::uint64_t bytes) {
  if (bytes < 10000) return fmt::format("{} bytes", bytes);
  const char* const units[] = {"kB", "MB", "GB", "TB", "PB"};
  auto size = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  while (size >= 999.5 && unit < 4) {
    size /= 1000;
    ++unit;
  }
  return fmt::format("{:.{}f} {}", size, size < 99.95 ? 1 : 0, units[unit]);
}

}  // namespace planex::report
