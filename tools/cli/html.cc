#include "tools/cli/html.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "planex/report/plain_text.h"
#include "planex/report/ticks.h"

namespace planex::tools {
namespace {

/// RFC 4648, section 4.
std::string base64(std::string_view bytes) {
  const char* const digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      group = group << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0U);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      text += k <= count ? digits[group >> (18 - 6 * k) & 63] : '=';
    }
  }
  return text;
}

bool continuesLetter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

}  // namespace

std::string htmlText(std::string_view text, std::size_t most) {
  constexpr std::size_t kPiece = 252;  // of what plainText() takes, with a letter across the end
  std::string plain;
  std::size_t size = std::min(most, text.size());
  while (size > 0 && size < text.size() && continuesLetter(text[size])) --size;
  std::string_view rest = text.substr(0, size);
  while (!rest.empty()) {
    std::size_t end = std::min(kPiece, rest.size());
    for (int i = 0; i < 3 && end < rest.size() && continuesLetter(rest[end]); ++i) ++end;
    plain += report::plainText(rest.substr(0, end));
    rest.remove_prefix(end);
  }
  if (size < text.size()) plain += "\xE2\x80\xA6";
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

std::string figureText(double value, int digits) {
  if (!std::isfinite(value) || value == 0) return report::numberText(value);
  const int exponent = static_cast<int>(std::floor(std::log10(std::abs(value)))) - digits + 1;
  const double power = std::pow(10.0, std::abs(exponent));
  return report::numberText(exponent < 0 ? std::round(value * power) / power
                                         : std::round(value / power) * power);
}

std::string htmlPicture(std::string_view svg, std::string_view alt) {
  return "<img alt=\"" + htmlText(alt) + "\" src=\"data:image/svg+xml;base64," + base64(svg) +
         "\">\n";
}

HtmlTable::HtmlTable(const std::vector<std::string>& heading, std::size_t texts,
                     const std::string& style)
    : columns_(heading.size()), texts_(texts), text_("<table class=\"" + style + "\">\n") {
  if (columns_ > 0) {
    text_ += "<thead>\n<tr>";
    for (std::size_t i = 0; i < columns_; ++i) text_ += cell("th", i, heading[i]);
    text_ += "</tr>\n</thead>\n";
  }
  text_ += "<tbody>\n";
}

std::string HtmlTable::cell(const char* tag, std::size_t column, const std::string& content) const {
  const char* const style = column < texts_ ? "" : " class=\"figure\"";
  return std::string("<") + tag + style + ">" + content + "</" + tag + ">";
}

void HtmlTable::addRow(const std::vector<std::string>& cells) {
  text_ += "<tr>";
  for (std::size_t i = 0; i < cells.size(); ++i) text_ += cell("td", i, cells[i]);
  text_ += "</tr>\n";
}

void HtmlTable::addGroup(std::string_view title) {
  text_ += "<tr><th class=\"group\" colspan=\"" + std::to_string(columns_) + "\">" +
           htmlText(title) + "</th></tr>\n";
}

}  // namespace planex::tools
