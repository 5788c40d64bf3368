#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "planex/infra/export.h"

namespace planex::io {

/// Reads a table from text, line by line: fields that commas or semicolons separate, or blanks and
/// tabs where a line has neither.
///
/// The byte order mark of UTF-8 and empty lines are left out. A line with commas and semicolons is
/// refused, as the commas may be meant as decimal ones, and so are quotes. Memory holds one line.
class PLANEX_EXPORT TextTable {
 public:
  /// @param path "-": standard input. A Failure when the file cannot be opened
  explicit TextTable(const std::string& path);
  ~TextTable();
  TextTable(const TextTable&) = delete;
  TextTable& operator=(const TextTable&) = delete;

  /// Goes to the next line that is not empty. @return false behind the last
  bool next();
  /// The fields of the line, without blanks around them; as long as next() is not called.
  const std::vector<std::string_view>& fields() const { return fields_; }
  /// The number of the line, counted from 1.
  std::int64_t line() const { return line_; }
  /// Whether the line names columns: it has fields, and no number among them.
  bool isHeading() const;
  /// Takes the fields of the line for the names of columns; a # before them is left out.
  void takeHeading();
  /// The names of the columns; empty without a heading.
  const std::vector<std::string>& heading() const { return heading_; }

  /// Where columns of these names stand, in any case of their letters; the number of columns for
  /// one that is not there. A Failure where two columns have one of the names.
  std::vector<std::size_t> columnsNamed(const std::vector<std::string_view>& names) const;

  /// Takes a field for a number: written as in C, with a point whatever the locale, or nan or inf.
  /// A Failure where it is none.
  double number(std::size_t column) const;

  /// @{
  /// A Failure "FILE: line 7 PROBLEM", or "FILE: line 7, column 2 (v): 'x' PROBLEM".
  [[noreturn]] void refuseLine(const std::string& problem) const;
  [[noreturn]] void refuseColumn(std::size_t column, const std::string& problem) const;
  /// @}
  /// A Failure where the line has another number of fields than this.
  void requireFields(std::size_t count) const;

 private:
  bool nextLine();
  void split(std::string_view line);

  std::string path_;
  std::FILE* file_;
  std::int64_t line_ = 0;
  std::string text_;                      // of the line
  std::vector<std::string_view> fields_;  // in it
  std::vector<std::string> heading_;
};

/// A text as messages show it: in quotes, one line, at most 40 letters.
PLANEX_EXPORT std::string shown(std::string_view text);

/// Whether two names differ in no more than the case of their letters.
PLANEX_EXPORT bool isSameName(std::string_view a, std::string_view b);

}  // namespace planex::io
