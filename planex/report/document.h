#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "planex/report/canvas.h"

namespace planex::report {

// A page for people, as what it says: headings, texts, tables and pictures. How they look is for
// htmlOf() and pdfOf(). Texts may be any bytes: they show as plainLine() has them, and are never
// markup.

struct Heading {
  std::string text;
};

struct Paragraph {
  std::string text;
  bool isNote = false;  ///< smaller, as it explains what stands above
};

/// What all comes to, with its reasons, in a box whose sign is told without colours, too.
struct Verdict {
  enum class Level { kGood, kDoubtful, kBad };

  Level level = Level::kGood;
  std::string sentence;
  std::vector<std::pair<std::string, std::string>> reasons;  ///< what it is about, and the reason
  std::string more;                                          ///< below the reasons; may be empty
};

/// Lines of texts, or of texts and figures.
struct Table {
  /// Lines in a field.
  using Cell = std::vector<std::string>;

  std::vector<std::string> heading;     ///< none: two columns, what it is and what is said of it
  std::size_t texts = 2;                ///< columns before those of figures, which end at the right
  bool isDense = false;                 ///< of many columns
  std::vector<std::vector<Cell>> rows;  ///< of one cell: the heading of those below

  void add(const std::vector<std::string>& cells);
};

struct Picture {
  Drawing drawing;
  std::string alt;      ///< what it shows, in words
  std::string caption;  ///< below; may be empty
};

/// Places to be filled in by hand, beside each other.
struct Signature {
  std::vector<std::string> fields;
};

struct Document {
  std::string title;
  std::vector<std::variant<Verdict, Heading, Paragraph, Table, Picture, Signature>> blocks;
  std::string foot;
};

/// A page in HTML that needs nothing beside itself, and forbids itself to load anything. The same
/// document gives the same bytes.
std::string htmlOf(const Document& document);

/// Pages of A4 with the same pictures, numbered, as a PDF. A table is on one page if one page holds
/// it, and else cut between rows with its heading on each page. The same document gives the same
/// bytes on one machine.
std::string pdfOf(const Document& document);

/// htmlOf() or pdfOf(), as the ending of a file name asks for: .html, .htm or .pdf; null for
/// others.
std::string (*writerOf(std::string_view path))(const Document& document);

}  // namespace planex::report
