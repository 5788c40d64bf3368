#include "planex/report/document.h"

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

}  // namespace planex::report
