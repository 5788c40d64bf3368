#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

#include "planex/report/base64.h"
#include "planex/report/document.h"
#include "planex/report/plain_text.h"

namespace planex::report {
namespace {

const char* const kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy"
 content="default-src 'none'; style-src 'unsafe-inline'; img-src data:; base-uri 'none';
 form-action 'none'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<style>
@page { size: A4; margin: 16mm; }
body { margin: 0 auto; max-width: 900px; padding: 24px; background: #fff; color: #212529;
 font: 15px/1.5 "DejaVu Sans", Verdana, "Helvetica Neue", Arial, sans-serif; }
h1 { margin: 0 0 16px; font-size: 24px; }
h2 { margin: 36px 0 8px; padding-bottom: 4px; border-bottom: 1px solid #adb4bc; font-size: 18px; }
p, ul { margin: 8px 0; }
ul { padding-left: 22px; }
.verdict { display: flex; gap: 18px; align-items: flex-start; padding: 16px 18px;
 border: 1px solid; border-left-width: 10px; border-radius: 4px; }
.verdict svg { flex: none; width: 52px; height: 52px; }
.verdict div { align-self: center; }
.verdict p, .verdict ul { margin: 8px 0 0; }
.verdict p:first-child { margin: 0; font-size: 18px; font-weight: bold; }
.good { border-color: #00875f; background: #f1f9f6; }
.doubtful { border-color: #b35c00; background: #fdf6ec; }
.bad { border-color: #b3261e; background: #fdf1f0; }
figure { margin: 12px 0; }
figure img { display: block; width: 100%; height: auto; }
figcaption, .note { color: #495057; font-size: 13px; }
table { width: 100%; margin: 12px 0; border-collapse: collapse; font-size: 13px;
 font-variant-numeric: tabular-nums; }
th, td { padding: 4px 10px; border-bottom: 1px solid #e2e5e9; text-align: left;
 vertical-align: top; overflow-wrap: anywhere; }
thead th { border-bottom: 2px solid #adb4bc; vertical-align: bottom; overflow-wrap: normal; }
.figure { text-align: right; overflow-wrap: normal; }
td.figure { white-space: nowrap; }
.group { padding-top: 12px; }
.dense th, .dense td { padding: 4px 6px; overflow-wrap: normal; }
.dense td { white-space: nowrap; }
.figures tbody th { min-width: 8em; }
.facts th { width: 26%; }
.signature { display: flex; gap: 24px; margin-top: 72px; }
.signature div { flex: 1; padding-top: 4px; border-top: 1px solid #212529; font-size: 13px; }
footer { margin-top: 36px; color: #495057; font-size: 12px; }
@media print {
 body { max-width: none; padding: 0; font-size: 10pt; }
 table, figcaption, .note { font-size: 8.5pt; }
 h2 { break-after: avoid; }
 figure, tr, .verdict, .signature { break-inside: avoid; }
}
</style>
)";

/// A verdict's class, its word and a sign that is told without colours.
struct Sign {
  const char* style;
  const char* word;
  const char* drawing;
};

const Sign kSigns[] = {
    {"good", "good",
     R"(<circle cx="26" cy="26" r="24" fill="#00875f"/>)"
     R"(<path d="M14 27l8 9 16-19" fill="none" stroke="#fff" stroke-width="5"/>)"},
    {"doubtful", "doubtful",
     R"(<path d="M26 3L51 48H1z" fill="#b35c00"/>)"
     R"(<path d="M26 18v15M26 38v5" stroke="#fff" stroke-width="5"/>)"},
    {"bad", "bad",
     R"(<path d="M16 2h20l14 14v20L36 50H16L2 36V16z" fill="#b3261e"/>)"
     R"(<path d="M16 16l20 20M36 16L16 36" stroke="#fff" stroke-width="5"/>)"}};

/// A text as it stands between tags and in quotes.
std::string htmlText(std::string_view text) {
  const std::string plain = plainLine(text);
  std::string escaped;
  for (const char letter : plain) {
    switch (letter) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += letter;
    }
  }
  return escaped;
}

std::string cellText(const Table::Cell& cell) {
  std::string text;
  for (const std::string& line : cell) text += (text.empty() ? "" : "<br>") + htmlText(line);
  return text;
}

std::string htmlOfBlock(const Verdict& verdict) {
  const Sign& sign = kSigns[static_cast<int>(verdict.level)];
  std::string text = std::string("<section class=\"verdict ") + sign.style +
                     "\">\n<svg viewBox=\"0 0 52 52\" role=\"img\"><title>" + sign.word +
                     "</title>" + sign.drawing + "</svg>\n<div>\n<p>" + htmlText(verdict.sentence) +
                     "</p>\n";
  if (!verdict.reasons.empty()) text += "<ul>\n";
  for (const auto& [about, reason] : verdict.reasons) {
    text += "<li><b>" + htmlText(about) + "</b>: " + htmlText(reason) + "</li>\n";
  }
  if (!verdict.reasons.empty()) text += "</ul>\n";
  if (!verdict.more.empty()) text += "<p>" + htmlText(verdict.more) + "</p>\n";
  return text + "</div>\n</section>\n";
}

std::string htmlOfBlock(const Heading& heading) {
  return "<h2>" + htmlText(heading.text) + "</h2>\n";
}

std::string htmlOfBlock(const Paragraph& paragraph) {
  return (paragraph.isNote ? "<p class=\"note\">" : "<p>") + htmlText(paragraph.text) + "</p>\n";
}

std::string htmlOfBlock(const Table& table) {
  const auto openTag = [&](const char* tag, std::size_t column) {
    return std::string("<") + tag + (column < table.texts ? ">" : " class=\"figure\">");
  };
  const bool isFacts = table.heading.empty();
  const std::size_t columns = isFacts ? 2 : table.heading.size();
  std::string text = std::string("<table class=\"") +
                     (isFacts         ? "facts"
                      : table.isDense ? "dense"
                                      : "figures") +
                     "\">\n";
  if (!isFacts) {
    text += "<thead>\n<tr>";
    for (std::size_t i = 0; i < columns; ++i) {
      text += openTag("th", i) + htmlText(table.heading[i]) + "</th>";
    }
    text += "</tr>\n</thead>\n";
  }
  text += "<tbody>\n";
  for (const std::vector<Table::Cell>& row : table.rows) {
    text += "<tr>";
    if (row.size() == 1) {
      text += "<th class=\"group\" colspan=\"" + std::to_string(columns) + "\">" +
              cellText(row.front()) + "</th>";
    }
    for (std::size_t i = 0; row.size() > 1 && i < row.size(); ++i) {
      text += i == 0 ? "<th scope=\"row\">" + cellText(row[i]) + "</th>"
                     : openTag("td", i) + cellText(row[i]) + "</td>";
    }
    text += "</tr>\n";
  }
  return text + "</tbody>\n</table>\n";
}

/// The picture's identifiers are its own, as those of another file.
std::string htmlOfBlock(const Picture& picture) {
  return "<figure>\n<img alt=\"" + htmlText(picture.alt) + "\" src=\"data:image/svg+xml;base64," +
         base64(picture.drawing.file(PictureFormat::kSvg)) + "\">\n" +
         (picture.caption.empty()
              ? ""
              : "<figcaption>" + htmlText(picture.caption) + "</figcaption>\n") +
         "</figure>\n";
}

std::string htmlOfBlock(const Signature& signature) {
  std::string text = "<section class=\"signature\">\n";
  for (const std::string& field : signature.fields) text += "<div>" + htmlText(field) + "</div>\n";
  return text + "</section>\n";
}

}  // namespace

std::string htmlOf(const Document& document) {
  const std::string title = htmlText(document.title);
  std::string text = kHead;
  text += "<title>" + title + "</title>\n</head>\n<body>\n<h1>" + title + "</h1>\n";
  for (const auto& block : document.blocks) {
    text += std::visit([](const auto& one) { return htmlOfBlock(one); }, block);
  }
  return text + "<footer>" + htmlText(document.foot) + "</footer>\n</body>\n</html>\n";
}

}  // namespace planex::report
