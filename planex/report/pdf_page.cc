#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "planex/report/document.h"
#include "planex/report/plain_text.h"
#include "planex/report/plot.h"

namespace planex::report {
namespace {

// Lengths are points, 1/72 inch.
constexpr double kPageWidth = 595.276, kPageHeight = 841.89;  // A4
constexpr double kMargin = 42.5, kFoot = 20;
constexpr double kWidth = kPageWidth - 2 * kMargin;
constexpr double kRoom = kPageHeight - 2 * kMargin - kFoot;  // of a page, above its foot
constexpr double kUsualPicture = 900;                        // pixels that are as wide as a page
constexpr double kLeading = 1.4;                             // of lines, in sizes of letters
constexpr Color kSoft{73, 80, 87};

const TextStyle kTitleStyle{17, kInk, Anchor::kStart, true};
const TextStyle kHeadingStyle{13, kInk, Anchor::kStart, true};
const TextStyle kTextStyle{9.5};
const TextStyle kNoteStyle{8, kSoft};
const TextStyle kCellStyle{8}, kDenseStyle{7};

TextStyle bold(TextStyle style) {
  style.bold = true;
  return style;
}

/// What is not cut: where it stands on a page is known later.
struct Part {
  double height = 0;
  std::function<void(Canvas& canvas, double top)> draw;
};

/// Parts below each other.
struct Column {
  double gap = 0;  ///< above
  std::vector<Part> parts;
  bool leads = false;        ///< belongs to what follows
  std::size_t repeated = 0;  ///< parts that are there again on each further page

  double height() const {
    double sum = 0;
    for (const Part& part : parts) sum += part.height;
    return sum;
  }
  /// What must fit on a page for the column to begin there.
  double beginning() const {
    const double all = height();
    if (all <= kRoom) return all;
    double sum = 0;
    for (std::size_t i = 0; i < std::min(repeated + 2, parts.size()); ++i) sum += parts[i].height;
    return sum;
  }
};

Part lineOf(std::string text, const TextStyle& style, double left) {
  return {style.size * kLeading, [text = std::move(text), style, left](Canvas& canvas, double top) {
            canvas.text({left, top + style.size * kLeading / 2}, text, style);
          }};
}

std::vector<Part> linesOf(const std::string& text, const TextStyle& style) {
  std::vector<Part> parts;
  for (std::string& line : wrapped(text, kWidth, style)) {
    parts.push_back(lineOf(std::move(line), style, kMargin));
  }
  return parts;
}

struct Look {
  Color color, paper;
};
const Look kLooks[] = {{{0, 135, 95}, {241, 249, 246}},
                       {{179, 92, 0}, {253, 246, 236}},
                       {{179, 38, 30}, {253, 241, 240}}};

/// The sign of a verdict: a tick in a circle, a mark in a triangle, a cross in an octagon.
/// @param size  a pixel of a sign of 52
void drawSign(Canvas& canvas, Point at, double size, Verdict::Level level) {
  const Canvas::Placed placed(canvas, at, size, 52, 52);
  const Color color = kLooks[static_cast<int>(level)].color;
  switch (level) {
    case Verdict::Level::kGood:
      canvas.dots({{26, 26}}, color, 24);
      canvas.line({{14, 27}, {22, 36}, {38, 17}}, kPaper, 5);
      break;
    case Verdict::Level::kDoubtful:
      canvas.polygon({{26, 3}, {51, 48}, {1, 48}}, color);
      canvas.line({{26, 20}, {26, 32}}, kPaper, 5);
      canvas.line({{26, 40}, {26, 40.5}}, kPaper, 5);
      break;
    case Verdict::Level::kBad:
      canvas.polygon({{16, 2}, {36, 2}, {50, 16}, {50, 36}, {36, 50}, {16, 50}, {2, 36}, {2, 16}},
                     color);
      canvas.line({{16, 16}, {36, 36}}, kPaper, 5);
      canvas.line({{36, 16}, {16, 36}}, kPaper, 5);
  }
}

Column columnOf(const Verdict& verdict) {
  constexpr double kBar = 6, kSign = 30, kPad = 9, kLeft = kMargin + kBar + kPad + kSign + kPad;
  const double width = kPageWidth - kMargin - kPad - kLeft;
  const Look look = kLooks[static_cast<int>(verdict.level)];
  Column column;
  // Each part has its piece of the paper and of the bar.
  const auto add = [&](double height, std::function<void(Canvas&, double)> draw) {
    column.parts.push_back(
        {height, [look, height, draw = std::move(draw)](Canvas& canvas, double top) {
           canvas.fill({kMargin, top, kWidth, height}, look.paper);
           canvas.fill({kMargin, top, kBar, height}, look.color);
           draw(canvas, top);
         }});
  };
  const auto addLine = [&](const std::string& text, const TextStyle& style, double left) {
    const Part line = lineOf(text, style, left);
    add(line.height, line.draw);
  };
  const TextStyle sentence{12, kInk, Anchor::kStart, true};
  constexpr std::ptrdiff_t kBeside = 3;  // lines beside the sign
  std::vector<std::string> lines = wrapped(verdict.sentence, width, sentence);
  const auto below = lines.begin() + std::min(kBeside, lines.end() - lines.begin());
  const std::vector<std::string> further(below, lines.end());
  lines.erase(below, lines.end());
  const double lineHeight = sentence.size * kLeading;
  const double block = std::max(kSign, static_cast<double>(lines.size()) * lineHeight);
  add(block + 2 * kPad, [=](Canvas& canvas, double top) {
    drawSign(canvas, {kMargin + kBar + kPad, top + kPad}, kSign / 52, verdict.level);
    double y = top + kPad + (block - static_cast<double>(lines.size()) * lineHeight) / 2;
    for (const std::string& line : lines) {
      canvas.text({kLeft, y + lineHeight / 2}, line, sentence);
      y += lineHeight;
    }
  });
  for (const std::string& line : further) addLine(line, sentence, kLeft);
  constexpr double kBullet = 10;
  for (const auto& [about, reason] : verdict.reasons) {
    const std::string name = fitted(plainLine(about), width / 2, bold(kTextStyle)) + ": ";
    const double indent = Canvas::textWidth(name, bold(kTextStyle));
    const std::vector<std::string> texts = wrapped(reason, width - kBullet, kTextStyle, indent);
    const double height = kTextStyle.size * kLeading * static_cast<double>(texts.size());
    add(height + 2, [=](Canvas& canvas, double top) {
      double y = top + kTextStyle.size * kLeading / 2;
      canvas.dots({{kLeft + 3, y}}, kInk, 1.5);
      canvas.text({kLeft + kBullet, y}, name, bold(kTextStyle));
      for (std::size_t i = 0; i < texts.size(); ++i) {
        canvas.text({kLeft + kBullet + (i == 0 ? indent : 0), y}, texts[i], kTextStyle);
        y += kTextStyle.size * kLeading;
      }
    });
  }
  if (!verdict.more.empty()) {
    for (const std::string& line : wrapped(verdict.more, width, kTextStyle)) {
      addLine(line, kTextStyle, kLeft);
    }
  }
  if (column.parts.size() > 1) add(kPad, [](Canvas&, double) {});
  column.gap = 4;
  return column;
}

Column columnOf(const Heading& heading) {
  Column column{16, linesOf(heading.text, kHeadingStyle), true};
  column.parts.push_back({5, [](Canvas& canvas, double top) {
                            canvas.fill({kMargin, top + 1.5, kWidth, 0.7}, kGrey);
                          }});
  return column;
}

Column columnOf(const Paragraph& paragraph) {
  return {5, linesOf(paragraph.text, paragraph.isNote ? kNoteStyle : kTextStyle)};
}

double sumOf(const std::vector<double>& widths) {
  return std::accumulate(widths.begin(), widths.end(), 0.0);
}

/// How wide the columns of a table are, and how its texts stand in them.
class TableLayout {
 public:
  explicit TableLayout(const Table& table)
      : isFacts_(table.heading.empty()),
        texts_(isFacts_ ? 2 : table.texts),
        pad_(table.isDense ? 3 : 5),
        style_(table.isDense ? kDenseStyle : kCellStyle) {
    std::vector<Table::Cell> heading;
    for (const std::string& text : table.heading) heading.push_back({text});
    const std::size_t count = isFacts_ ? 2 : heading.size();
    if (isFacts_) {
      widths_ = {0.26 * kWidth, 0.74 * kWidth};
    } else {
      std::vector<double> whole(count), least(count);
      // Only where room is scarce headings are cut between all their words.
      for (const bool isCut : {false, true}) {
        if (isCut && sumOf(whole) <= kWidth) break;
        whole.assign(count, 0);
        measure(heading, true, isCut, whole, least);
        for (const auto& row : table.rows) measure(row, false, false, whole, least);
      }
      distribute(whole, least);
    }
  }

  /// One part, or several of a row that no page holds.
  std::vector<Part> rowOf(const std::vector<Table::Cell>& cells, bool isHeading) const {
    constexpr std::size_t kMostLines = 45;
    const bool isGroup = cells.size() == 1;
    std::vector<Lines> columns;
    std::size_t most = 1;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const double width = (isGroup ? kWidth : widths_[i]) - 2 * pad_;
      Lines& lines = columns.emplace_back();
      for (const std::string& text : cells[i]) {
        for (std::string& line : wrapped(text, width, styleOf(i, isHeading || isGroup))) {
          lines.push_back(std::move(line));
        }
      }
      most = std::max(most, lines.size());
    }
    if (isHeading) {  // which stands at the bottom
      for (Lines& lines : columns) lines.insert(lines.begin(), most - lines.size(), "");
    }
    std::vector<Part> parts;
    for (std::size_t first = 0; first < most; first += kMostLines) {
      std::vector<Lines> some;
      for (const Lines& lines : columns) {
        const auto at = [&](std::size_t line) {
          return lines.begin() + static_cast<std::ptrdiff_t>(std::min(line, lines.size()));
        };
        some.emplace_back(at(first), at(first + kMostLines));
      }
      parts.push_back(partOf(std::move(some), std::min(kMostLines, most - first), isHeading));
    }
    return parts;
  }

 private:
  using Lines = std::vector<std::string>;

  Part partOf(std::vector<Lines> columns, std::size_t most, bool isHeading) const {
    const bool isGroup = columns.size() == 1;
    const double line = style_.size * kLeading, above = isGroup ? 8 : 2;
    const double height = above + static_cast<double>(most) * line + 3;
    return {
        height, [=, columns = std::move(columns), layout = *this](Canvas& canvas, double top) {
          double left = kMargin;
          for (std::size_t i = 0; i < columns.size(); ++i) {
            double y = top + above + line / 2;
            TextStyle style = layout.styleOf(i, isHeading || isGroup);
            const bool isFigure = i >= layout.texts_;
            style.anchor = isFigure ? Anchor::kEnd : Anchor::kStart;
            const double right = left + (isGroup ? kWidth : layout.widths_[i]);
            for (const std::string& text : columns[i]) {
              canvas.text({isFigure ? right - layout.pad_ : left + layout.pad_, y}, text, style);
              y += line;
            }
            left = right;
          }
          canvas.fill({kMargin, top + height - 0.8, kWidth, isHeading ? 0.8 : 0.5},
                      isHeading ? kGrey : kFaint);
        }};
  }

  TextStyle styleOf(std::size_t column, bool isHeading) const {
    return column == 0 || isHeading ? bold(style_) : style_;
  }

  void measure(const std::vector<Table::Cell>& row, bool isHeading, bool isCut,
               std::vector<double>& whole, std::vector<double>& least) const {
    if (row.size() == 1) return;
    for (std::size_t i = 0; i < std::min(row.size(), whole.size()); ++i) {
      const TextStyle style = styleOf(i, isHeading);
      for (const std::string& text : row[i]) {
        const std::string plain = plainLine(text);
        std::istringstream words(plain);
        for (std::string word; words >> word;) {
          least[i] = std::max(
              least[i], std::min(Canvas::textWidth(word, style) + 2 * pad_ + 0.01, 0.3 * kWidth));
        }
        const double widest = isCut ? least[i] : kWidth;
        for (const std::string& line : wrapped(plain, widest, style)) {
          whole[i] = std::max(whole[i], Canvas::textWidth(line, style) + 2 * pad_ + 0.01);
        }
      }
    }
  }

  /// What is left over goes to the columns as they want it, and what is missing is taken likewise.
  void distribute(const std::vector<double>& whole, const std::vector<double>& least) {
    const double all = sumOf(whole), needed = sumOf(least);
    for (std::size_t i = 0; i < whole.size(); ++i) {
      double width = whole[i] * kWidth / all;
      if (all > kWidth) {
        width = needed < kWidth
                    ? least[i] + (whole[i] - least[i]) * (kWidth - needed) / (all - needed)
                    : least[i] * kWidth / needed;
      }
      widths_.push_back(width);
    }
  }

  bool isFacts_;
  std::size_t texts_;
  double pad_;
  TextStyle style_;
  std::vector<double> widths_;
};

Column columnOf(const Table& table) {
  const TableLayout layout(table);
  Column column{8, {}};
  const auto add = [&](const std::vector<Table::Cell>& row, bool isHeading) {
    for (Part& part : layout.rowOf(row, isHeading)) column.parts.push_back(std::move(part));
  };
  if (!table.heading.empty()) {
    std::vector<Table::Cell> heading;
    for (const std::string& text : table.heading) heading.push_back({text});
    add(heading, true);
    column.repeated = column.height() < kRoom / 4 ? 1 : 0;
  }
  for (const auto& row : table.rows) add(row, false);
  return column;
}

Column columnOf(const Picture& picture) {
  const Drawing& drawing = picture.drawing;
  std::vector<Part> caption = linesOf(picture.caption, kNoteStyle);
  if (picture.caption.empty()) caption.clear();
  double below = 0;
  for (const Part& part : caption) below += part.height;
  const double scale = std::min(kWidth / std::max(drawing.width, kUsualPicture),
                                (kRoom - below - 4) / drawing.height);
  Column column{8, {}};
  column.parts.push_back(
      {drawing.height * scale + 4, [drawing, scale](Canvas& canvas, double top) {
         const Canvas::Placed placed(canvas, {kMargin, top}, scale, drawing.width, drawing.height);
         drawing.draw(canvas);
       }});
  for (Part& part : caption) column.parts.push_back(std::move(part));
  return column;
}

Column columnOf(const Signature& signature) {
  constexpr double kSpace = 40, kGap = 18;
  return {12,
          {{kSpace + 14, [signature](Canvas& canvas, double top) {
              const auto count = static_cast<double>(signature.fields.size());
              const double width = (kWidth - kGap * (count - 1)) / count;
              double left = kMargin;
              for (const std::string& field : signature.fields) {
                canvas.fill({left, top + kSpace, width, 0.7}, kInk);
                canvas.text({left, top + kSpace + 8}, fitted(field, width, kNoteStyle), kNoteStyle);
                left += width + kGap;
              }
            }}}};
}

/// Puts columns on pages.
class Pages {
 public:
  void add(const std::vector<Column>& columns) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
      double needed = columns[i].beginning();
      for (std::size_t k = i; columns[k].leads && k + 1 < columns.size(); ++k) {
        needed += columns[k + 1].gap + columns[k + 1].beginning();
      }
      const double gap = pages_.back().empty() ? 0 : columns[i].gap;
      if (used_ + gap + needed > kRoom && !pages_.back().empty()) {
        nextPage();
      } else {
        used_ += gap;
      }
      addParts(columns[i]);
    }
  }

  std::string draw(const Document& document) const {
    Canvas canvas(kPageWidth, kPageHeight, PictureFormat::kPdf);
    canvas.setTitle(document.title);
    const TextStyle style{7.5, kSoft};
    TextStyle atEnd = style;
    atEnd.anchor = Anchor::kEnd;
    const double y = kPageHeight - kMargin - 4;
    for (std::size_t i = 0; i < pages_.size(); ++i) {
      if (i > 0) canvas.nextPage();
      for (const auto& [top, part] : pages_[i]) part.draw(canvas, kMargin + top);
      canvas.text({kMargin, y}, fitted(document.foot, kWidth - 90, style), style);
      canvas.text({kPageWidth - kMargin, y},
                  "page " + std::to_string(i + 1) + " of " + std::to_string(pages_.size()), atEnd);
    }
    return canvas.finish();
  }

 private:
  void nextPage() {
    pages_.emplace_back();
    used_ = 0;
  }

  void addParts(const Column& column) {
    for (std::size_t i = 0; i < column.parts.size(); ++i) {
      if (used_ + column.parts[i].height > kRoom && !pages_.back().empty()) {
        nextPage();
        for (std::size_t k = 0; k < std::min(column.repeated, i); ++k) put(column.parts[k]);
      }
      put(column.parts[i]);
    }
  }

  void put(const Part& part) {
    pages_.back().push_back({used_, part});
    used_ += part.height;
  }

  std::vector<std::vector<std::pair<double, Part>>> pages_{1};
  double used_ = 0;
};

}  // namespace

std::string pdfOf(const Document& document) {
  std::vector<Column> columns = {{0, linesOf(document.title, kTitleStyle), true}};
  for (const auto& block : document.blocks) {
    // Nobody signs an empty page.
    if (std::holds_alternative<Signature>(block)) columns.back().leads = true;
    columns.push_back(std::visit([](const auto& one) { return columnOf(one); }, block));
  }
  Pages pages;
  pages.add(columns);
  return pages.draw(document);
}

}  // namespace planex::report
