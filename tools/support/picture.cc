#include "tools/support/picture.h"

#include <fmt/format.h>
#include <planex/io/failure.h>
#include <png.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "tools/support/bitmap_font.h"

namespace planex::tools {
namespace {

constexpr int kStops = 7;
constexpr double kStopColors[kStops][3] = {{48, 34, 110},  {38, 110, 200}, {40, 180, 190},
                                           {90, 200, 100}, {230, 210, 70}, {240, 130, 45},
                                           {190, 35, 35}};

std::uint8_t mix(double from, double to, double share) {
  return static_cast<std::uint8_t>(std::lround(from + share * (to - from)));
}

/// The next character of UTF-8 text, which is taken off it. A byte that is no part of a character
/// stands for itself.
char32_t takeCharacter(std::string_view& text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  char32_t character = byte(0);
  const std::size_t length = character < 0xC0 ? 1 : character < 0xE0 ? 2 : character < 0xF0 ? 3 : 4;
  if (length > text.size()) {
    text.remove_prefix(1);
    return character;
  }
  if (length > 1) character &= 0x7FU >> length;
  for (std::size_t i = 1; i < length; ++i) character = character << 6 | (byte(i) & 0x3FU);
  text.remove_prefix(length);
  return character;
}

std::size_t pixelCount(int width, int height) {
  if (width < 1 || height < 1 || height > Picture::kMostPixels / width) {
    throw std::length_error("the picture would be too large; choose a smaller one");
  }
  return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

}  // namespace

Color falseColor(double share) {
  if (std::isnan(share)) return kPaper;
  const double position = std::clamp(share, 0.0, 1.0) * (kStops - 1);
  const int stop = std::min(static_cast<int>(position), kStops - 2);
  const double* a = kStopColors[stop];
  const double* b = kStopColors[stop + 1];
  const double part = position - stop;
  return {mix(a[0], b[0], part), mix(a[1], b[1], part), mix(a[2], b[2], part)};
}

Picture::Picture(int width, int height)
    : width_(width), height_(height), pixels_(pixelCount(width, height), kPaper) {}

void Picture::set(int x, int y, Color color) {
  if (contains(x, y)) pixels_[index(x, y)] = color;
}

void Picture::fill(int x, int y, int width, int height, Color color) {
  const int right = std::min(x + width, width_);
  const int bottom = std::min(y + height, height_);
  for (int row = std::max(y, 0); row < bottom; ++row) {
    for (int column = std::max(x, 0); column < right; ++column) {
      pixels_[index(column, row)] = color;
    }
  }
}

void Picture::frame(int x, int y, int width, int height, Color color) {
  fill(x, y, width, 1, color);
  fill(x, y + height - 1, width, 1, color);
  fill(x, y, 1, height, color);
  fill(x + width - 1, y, 1, height, color);
}

void Picture::blend(int x, int y, Color color, double share) {
  if (!contains(x, y)) return;
  Color& pixel = pixels_[index(x, y)];
  pixel = {mix(pixel.r, color.r, share), mix(pixel.g, color.g, share),
           mix(pixel.b, color.b, share)};
}

void Picture::line(double x0, double y0, double x1, double y1, Color color) {
  if (!std::isfinite(x0) || !std::isfinite(y0) || !std::isfinite(x1) || !std::isfinite(y1)) return;
  // Along the axis on which it is longer each step has two pixels, which share the ink.
  const bool steep = std::abs(y1 - y0) > std::abs(x1 - x0);
  if (steep) {
    std::swap(x0, y0);
    std::swap(x1, y1);
  }
  if (x0 > x1) {
    std::swap(x0, x1);
    std::swap(y0, y1);
  }
  const double slope = x1 > x0 ? (y1 - y0) / (x1 - x0) : 0;
  const double limit = steep ? height_ : width_;
  const double across = steep ? width_ : height_;
  const auto first = static_cast<int>(std::clamp(std::ceil(x0 - 0.5), 0.0, limit));
  const auto last = static_cast<int>(std::clamp(std::floor(x1 + 0.5), -1.0, limit - 1));
  for (int i = first; i <= last; ++i) {
    const double position = y0 + slope * (i - x0);
    if (!(position > -1 && position < across)) continue;
    const double below = std::floor(position);
    const auto k = static_cast<int>(below);
    const double share = position - below;
    if (steep) {
      blend(k, i, color, 1 - share);
      blend(k + 1, i, color, share);
    } else {
      blend(i, k, color, 1 - share);
      blend(i, k + 1, color, share);
    }
  }
}

void Picture::text(int x, int y, std::string_view text, Color color, int scale) {
  for (; !text.empty(); x += kGlyphWidth * scale) {
    const Glyph& glyph = glyphOf(takeCharacter(text));
    for (int row = 0; row < kGlyphHeight; ++row) {
      for (int column = 0; column < 5; ++column) {
        if ((glyph[static_cast<std::size_t>(row)] >> (4 - column) & 1) == 0) continue;
        fill(x + column * scale, y + row * scale, scale, scale, color);
      }
    }
  }
}

int Picture::textWidth(std::string_view text, int scale) {
  int letters = 0;
  for (; !text.empty(); ++letters) takeCharacter(text);
  return letters * kGlyphWidth * scale;
}

void Picture::writePng(io::OutputFile& file) const {
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width_);
  image.height = static_cast<png_uint_32>(height_);
  image.format = PNG_FORMAT_RGB;
  static_assert(sizeof(Color) == 3, "rows without padding");
  if (png_image_write_to_stdio(&image, file.stream(), 0, pixels_.data(), 0, nullptr) == 0) {
    throw io::Failure(file.path(), std::string("cannot be written (") + image.message +
                                       "); check the space on the disk");
  }
}

double roundStep(double span) {
  if (!(span > 0) || !std::isfinite(span)) return 0;
  const double power = std::pow(10.0, std::floor(std::log10(span)));
  for (const double factor : {5.0, 2.0}) {
    if (factor * power <= span) return factor * power;
  }
  return power;
}

std::vector<double> roundValues(double min, double max, double step) {
  std::vector<double> values;
  if (!(step > 0)) return values;
  // Counted, because far from 0 adding a step may change nothing.
  const double first = std::ceil(min / step);
  for (int i = 0; i < 100 && (first + i) * step <= max; ++i) values.push_back((first + i) * step);
  return values;
}

std::string labelText(double value, double step) {
  const double digits = step > 0 ? -std::floor(std::log10(step) + 1e-9) : 0;
  const double rounded = std::abs(value) < step / 1000 ? 0 : value;  // no "-0.0"
  return fmt::format("{:.{}f}", rounded, static_cast<int>(std::clamp(digits, 0.0, 12.0)));
}

void drawLegend(Picture& picture, int x, int y, int height, double min, double max,
                std::string_view unit, int scale) {
  const int width = 12 * scale;
  for (int row = 0; row < height; ++row) {
    picture.fill(x, y + row, width, 1, falseColor(1 - (row + 0.5) / height));
  }
  picture.frame(x, y, width, height, kFaint);
  const int textX = x + width + 4 * scale;
  const int textHeight = Picture::kGlyphHeight * scale;
  picture.text(x, y - textHeight - 4 * scale, unit, kInk, scale);
  if (!(max >= min) || !std::isfinite(max - min)) return;
  if (max == min) {
    picture.text(textX, y + (height - textHeight) / 2, fmt::format("{:.4g}", max), kInk, scale);
    return;
  }
  const double step = roundStep((max - min) * 2.5 * textHeight / height);
  const double labelStep = step > 0 ? step : max - min;
  for (const double value : roundValues(min, max, labelStep)) {
    const double share = (value - min) / (max - min);
    const int row = y + static_cast<int>(std::lround((1 - share) * (height - 1)));
    picture.fill(x + width, row, 2 * scale, 1, kInk);
    picture.text(textX, row - textHeight / 2, labelText(value, labelStep), kInk, scale);
  }
}

void drawScaleBar(Picture& picture, int x, int y, int mostPixels, double pixelsPerUnit,
                  std::string_view unit, int scale) {
  const double length = roundStep(mostPixels / pixelsPerUnit);
  if (length == 0) return;
  const auto width = static_cast<int>(std::lround(length * pixelsPerUnit));
  const std::string text = fmt::format("{} {}", labelText(length, length), unit);
  picture.text(x + (width - Picture::textWidth(text, scale)) / 2, y, text, kInk, scale);
  const int barY = y + (Picture::kGlyphHeight + 3) * scale;
  picture.fill(x, barY, width, scale, kInk);
  picture.fill(x, barY - 2 * scale, scale, 5 * scale, kInk);
  picture.fill(x + width - scale, barY - 2 * scale, scale, 5 * scale, kInk);
}

}  // namespace planex::tools
