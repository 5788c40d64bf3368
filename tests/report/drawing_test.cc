#include <gtest/gtest.h>
#include <png.h>

#include <cmath>
#include <tuple>

#include "planex/report/document.h"
#include "planex/report/estimation_plot.h"
#include "planex/report/height_picture.h"
#include "planex/report/model_plot.h"
#include "planex/report/plain_text.h"

namespace planex::report {
namespace {

const double kNan = std::nan("");

TEST(Ticks, AreRoundAndToldApart) {
  const std::tuple<double, double, int, const char*> cases[] = {
      {0, 1, 6, "0.0 0.2 0.4 0.6 0.8 1.0 "},
      {3.1, -3.1, 5, "−2 0 2 "},
      {0.1, 0.3, 3, "0.1 0.2 0.3 "},
      {1.9, 4.1, 1, "2 "},
      {-1e300, 1e300, 5, "−1.0e300 −5e299 0 5e299 1.0e300 "},
      {2e6, 2.00004e6, 3, "2.00000e6 2.00002e6 2.00004e6 "},
      {0, 2e-9, 4, "0 1e−9 2e−9 "},
      {1e15, 1e15 + 1, 5, "1e15 "},
      {0, 1e-320, 5, "4.99994e−321 "},
      {-1.7e308, 1.7e308, 5, ""},
      {0, kNan, 5, ""}};
  for (const auto& [from, to, most, wanted] : cases) {
    std::string labels;
    for (const std::string& label : roundTicks(from, to, most).labels) labels += label + " ";
    EXPECT_EQ(labels, wanted);
  }
  const std::tuple<double, double, int, const char*> ratios[] = {
      {0.9, 9.1, 7, "1 1.5 2 3 4 6 8 "},
      {0.9, 130, 7, "1 2 5 10 20 50 100 "},
      {1, 1e4, 4, "1 10 100 1000 10000 "},
      {8.3, 8.9, 3, "8.4 8.6 8.8 "},
      {7, 7, 3, "7 "},
      {0, 1, 5, ""}};
  for (const auto& [from, to, most, wanted] : ratios) {
    std::string labels;
    for (const std::string& label : ratioTicks(from, to, most).labels) labels += label + " ";
    EXPECT_EQ(labels, wanted);
  }
}

TEST(EvenChoice, SpreadsOverTheSensor) {
  EvenChoice few(2560, 1024, 40), many(2560, 1024, 40);
  for (int i = 0; i < 40; ++i) few.offer({0, 0});
  EXPECT_EQ(few.chosen().size(), 40U);
  for (int i = 0; i < 51200; ++i) many.offer({0.1 * (i % 25600), i < 25600 ? 250.0 : 750.0});
  int lower = 0, right = 0;
  for (const std::size_t i : many.chosen()) {
    lower += i < 25600 ? 0 : 1;
    right += i % 25600 < 12800 ? 0 : 1;
  }
  EXPECT_EQ(many.chosen().size(), 20U);  // in two of four rows of ten cells
  EXPECT_EQ(lower, 10);
  EXPECT_EQ(right, 10);
}

std::vector<Color> decoded(const std::string& bytes, int& width) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  png_image_begin_read_from_memory(&image, bytes.data(), bytes.size());
  image.format = PNG_FORMAT_RGB;
  width = static_cast<int>(image.width);
  std::vector<Color> pixels(std::size_t{image.width} * image.height);
  EXPECT_NE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr), 0) << image.message;
  return pixels;
}

/// Nothing above on the left, low cells above on the right, high ones below.
HeightPicture quarters(const std::string& unit = "mm") {
  HeightPicture picture({8, 2, {0.5, -1}, {2, 3}, {0.01, 0}, true, unit});
  const std::uint16_t rows[2][8] = {{0, 0, 0, 0, 9, 9, 9, 9}, {90, 90, 90, 90, 90, 90, 90, 90}};
  for (const auto& row : rows) picture.addRows(1, row);
  return picture;
}

TEST(HeightPicture, ShowsEachCellWhereItIs) {
  for (const std::string& name : ColorMap::names()) {
    const ColorMap* map = ColorMap::find(name);
    int width = 0;
    const auto pixels = decoded(quarters().draw({map}, PictureFormat::kPng), width);
    // 600 pixels of map, behind the numbers on the left and below the title.
    const auto expect = [&](int x, int y, Color wanted) {
      const Color color =
          pixels.at(static_cast<std::size_t>(y + 48) * static_cast<std::size_t>(width) +
                    static_cast<std::size_t>(x + 60));
      EXPECT_EQ(std::tuple(color.r, color.g, color.b), std::tuple(wanted.r, wanted.g, wanted.b));
    };
    expect(150, 150, map->missing());
    expect(450, 150, map->at(map->isDiverging() ? 0.55 : 0));
    expect(450, 450, map->at(1));
  }
}

/// @param draw gives the picture in a format
template <typename Draw>
void expectSound(const Draw& draw) {
  int width = 0;
  decoded(draw(PictureFormat::kPng), width);
  EXPECT_LE(width, 1800);
  const std::string svg = draw(PictureFormat::kSvg);
  EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
  EXPECT_EQ(svg.find("nan"), svg.npos);
}

TEST(Drawing, BearsEverything) {
  const std::string hostile = "\xFF<&\x1B[2J\n\xE2\x80\xAE\xC2\x9B" + std::string(5000, 'W');
  EXPECT_EQ(plainText(hostile).substr(0, 11), "?<&?[2J???W");
  expectSound([&](PictureFormat format) { return quarters(hostile).draw({}, format); });
  const ColorMap* colors = ColorMap::find("diverging");
  const std::tuple<int, int, std::uint16_t> sizes[] = {{1, 1, 7}, {2560, 3, 0}, {3, 2000, 7}};
  for (const double scale : {0.05, -1.0, 0.0, 1e300, 1e-300, kNan, HUGE_VAL}) {
    for (const auto& [columns, rows, level] : sizes) {
      HeightPicture picture({columns, rows, {scale, 0}, {1, scale}, {scale, 0}, true, "mm"});
      picture.addRows(rows, std::vector<std::uint16_t>(7680, level).data());
      expectSound([&](auto format) { return picture.draw({colors, true}, format); });
    }
    const std::vector<Point> line = {{0, 1}, {scale * 1e8, -scale}, {kNan, 0}, {scale, 1}};
    const CellMap cells{hostile, 2,       1,       line[0], line[1], {kNan, scale},
                        hostile, hostile, hostile, hostile, {}};
    const ModelFigure figure = {
        hostile, hostile, line[0], line[1], line, {line}, {{line[1], hostile}},
        line,    {cells}, line};
    expectSound([&](auto format) { return drawModel(figure, *colors).file(format); });
    const Outline outline{hostile, line};
    const SensorMap map{3, 9, 2, 2, {kNan, scale, 1, -scale}, hostile, 5, outline};
    expectSound([&](auto format) { return drawSensorMap(map).file(format); });
    const ArrowFigure arrows = {{0, scale, hostile},
                                {scale, 0, hostile},
                                hostile,
                                {{line[1], {1, scale}}, {{0, 0}, {0, 0}}},
                                line,
                                hostile,
                                {outline}};
    expectSound([&](auto format) { return drawArrows(arrows).file(format); });
  }
}

/// How often a text stands in another.
std::size_t countOf(const std::string& part, const std::string& text) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(Document, HoldsEveryTextAndNoMarkupOfIt) {
  const std::string hostile = "\xFF\"'</title><script>&\n\xE2\x80\xAE" + std::string(5000, 'W');
  Table table;
  table.heading = {hostile, hostile, hostile};
  for (int i = 0; i < 120; ++i) table.add({hostile.substr(0, 60), "1", ""});
  table.add({hostile});
  Table facts;
  facts.rows = {{{hostile}, {hostile, hostile}}, {{hostile}, {}}};
  const Drawing huge{1, 5000, [](Canvas& canvas) { canvas.text({0, 9}, "in the picture"); }};
  const Verdict verdict{Verdict::Level::kBad, hostile, {30, {hostile, hostile}}, hostile};
  const Document page{hostile,
                      {verdict, Heading{hostile}, Paragraph{hostile, true}, facts, table,
                       Picture{huge, hostile, hostile}, Signature{{hostile, hostile}}},
                      hostile};
  const std::string html = htmlOf(page), pdf = pdfOf(page);
  EXPECT_EQ(countOf("<script", html) + countOf("onerror", html), 0U);
  EXPECT_EQ(countOf("?&quot;&#39;&lt;/title&gt;&lt;script&gt;&amp;??", html), 199U);
  EXPECT_EQ(countOf("Content-Security-Policy", html), 1U);
  EXPECT_EQ(countOf("/Type /Page %", pdf), 57U);
  EXPECT_EQ(pdf.substr(0, 5) + pdf.substr(pdf.size() - 6), "%PDF-%%EOF\n");
  EXPECT_EQ(countOf("CreationDate", pdf), 0U);
  EXPECT_EQ(pdfOf({"", {}, ""}), pdfOf({"", {}, ""}));
}

}  // namespace
}  // namespace planex::report
