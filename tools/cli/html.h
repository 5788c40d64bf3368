#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace planex::tools {

/// A text as it stands between tags and in quotes: of one line and of UTF-8 that only shows, as
/// report::plainText() has it, with all that HTML means something by escaped. Of a text beyond
/// `most` bytes the beginning and an ellipsis.
std::string htmlText(std::string_view text, std::size_t most = 1024);

/// A number of so many digits, at most 6, as people write it.
std::string figureText(double value, int digits);

/// A picture as part of the page. Its identifiers are its own, as those of another file.
/// @param svg  the bytes of the picture's file
/// @param alt  what it shows, in words
std::string htmlPicture(std::string_view svg, std::string_view alt);

/// A table: its heading, and rows of texts in HTML.
class HtmlTable {
 public:
  /// @param heading  may be empty
  /// @param texts    columns before those that hold figures
  /// @param style    class of the table
  HtmlTable(const std::vector<std::string>& heading, std::size_t texts, const std::string& style);

  void addRow(const std::vector<std::string>& cells);
  /// A row that is the heading of those below.
  void addGroup(std::string_view title);
  std::string print() const { return text_ + "</tbody>\n</table>\n"; }

 private:
  std::string cell(const char* tag, std::size_t column, const std::string& content) const;

  std::size_t columns_, texts_;
  std::string text_;
};

}  // namespace planex::tools
