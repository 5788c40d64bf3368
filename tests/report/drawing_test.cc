#include <gtest/gtest.h>
#include <png.h>

#include <cmath>
#include <tuple>

#include "planex/report/height_picture.h"
#include "planex/report/model_plot.h"
#include "planex/report/plain_text.h"

namespace planex::report {
namespace {

const double kNan = std::nan(""), kInf = HUGE_VAL;

TEST(Ticks, AreRoundAndToldApart) {
  const struct {
    double from, to;
    int most;
    const char* labels;
  } cases[] = {{0, 1, 6, "0.0 0.2 0.4 0.6 0.8 1.0"},
               {3.1, -3.1, 5, "−2 0 2"},
               {0.1, 0.3, 3, "0.1 0.2 0.3"},
               {1.9, 4.1, 1, "2"},
               {-1e300, 1e300, 5, "−1.0e300 −5e299 0 5e299 1.0e300"},
               {2e6, 2.00004e6, 3, "2.00000e6 2.00002e6 2.00004e6"},
               {0, 3e-9, 4, "0 1e-9 2e-9 3e-9"},
               {5, 5, 9, "5"},
               {1e15, 1e15 + 1, 5, "1e15"},
               {0, 1e-320, 5, "4.99994e-321"},
               {-1.7e308, 1.7e308, 5, ""},
               {0, kNan, 5, ""},
               {0, kInf, 5, ""},
               {0, 1, 0, ""}};
  for (const auto& c : cases) {
    std::string labels, wanted = c.labels;
    for (const std::string& label : roundTicks(c.from, c.to, c.most).labels) {
      labels += (labels.empty() ? "" : " ") + label;
    }
    for (std::size_t i = 0; (i = wanted.find("e-", i)) != std::string::npos;) {
      wanted.replace(i, 2, "e−");
    }
    EXPECT_EQ(labels, wanted) << c.from << " to " << c.to;
  }
}

/// CIE L*, from the luminance of sRGB.
double lightness(Color color) {
  const auto linear = [](double c) {
    return c <= 10 ? c / 255 / 12.92 : std::pow((c / 255 + 0.055) / 1.055, 2.4);
  };
  const double y = 0.2126 * linear(color.r) + 0.7152 * linear(color.g) + 0.0722 * linear(color.b);
  return 116 * std::cbrt(std::max(y, 0.0089)) - 16;
}

TEST(ColorMap, GetsLighterInEqualSteps) {
  for (const std::string& name : ColorMap::names()) {
    const ColorMap& map = *ColorMap::find(name);
    const double end = map.isDiverging() ? 0.5 : 1;
    const double step = (lightness(map.at(end)) - lightness(map.at(0))) / 16;
    EXPECT_GT(step, 3) << name;
    for (int i = 0; i < 16; ++i) {
      const double from = lightness(map.at(end * i / 16));
      EXPECT_NEAR(lightness(map.at(end * (i + 1) / 16)) - from, step, 0.4 * step) << name << i;
      const double mirrored = lightness(map.at(1 - end * i / 16));
      EXPECT_NEAR(map.isDiverging() ? mirrored : from, from, 4) << name << i;
    }
  }
}

std::vector<Color> decoded(const std::string& bytes, int& width) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()) == 0) return {};
  image.format = PNG_FORMAT_RGB;
  width = static_cast<int>(image.width);
  std::vector<Color> pixels(std::size_t{image.width} * image.height);
  const bool read = png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) != 0;
  return read ? pixels : std::vector<Color>{};
}

/// A map of 8 x 8 cells: missing ones in the upper left quarter, low ones in the upper right, high
/// ones below, which rise to the right in the lower left quarter.
HeightPicture quarters(const std::string& unit = "mm") {
  HeightPicture picture({8, 8, {0.5, -1}, {0.5, 3}, {0.01, 0}, true, unit});
  for (std::uint16_t y = 0; y < 8; ++y) {
    std::uint16_t row[8];
    for (std::uint16_t x = 0; x < 8; ++x) {
      row[x] = y < 4 ? (x < 4 ? 0 : 100) : static_cast<std::uint16_t>(x < 4 ? 900 + x : 1000);
    }
    picture.addRows(1, row);
  }
  return picture;
}

TEST(HeightPicture, ShowsEachCellWhereItIs) {
  int width = 0;
  for (const std::string& name : ColorMap::names()) {
    const ColorMap* map = ColorMap::find(name);
    const std::vector<Color> pixels = decoded(quarters().draw({map}, PictureFormat::kPng), width);
    // 600 pixels of map behind the numbers on the left and below the title.
    const auto at = [&](int x, int y) {
      const Color c = pixels.at(static_cast<std::size_t>((y + 48) * width + x + 60));
      return std::tuple(c.r, c.g, c.b);
    };
    const auto wanted = [](Color c) { return std::tuple(c.r, c.g, c.b); };
    EXPECT_EQ(at(150, 150), wanted(map->missing())) << name;
    EXPECT_EQ(at(450, 150), wanted(map->at(map->isDiverging() ? 0.55 : 0))) << name;
    EXPECT_EQ(at(450, 450), wanted(map->at(1))) << name;
  }
}

TEST(Drawing, BearsEverything) {
  const std::string hostile = "\xFF<&\x1B[2J\n\xE2\x80\xAE\xC2\x9B" + std::string(5000, 'W');
  EXPECT_EQ(plainText(hostile).substr(0, 11), "?<&?[2J???W");
  for (const PictureFormat format : {PictureFormat::kPng, PictureFormat::kSvg}) {
    std::vector<std::string> pictures = {quarters(hostile).draw({}, format)};
    for (const double scale : {0.05, -1.0, 0.0, 1e300, 1e-300, kNan, kInf}) {
      for (const auto& [columns, rows] : {std::pair(1, 1), {2560, 3}, {3, 2000}}) {
        for (const std::uint16_t level : {std::uint16_t{0}, std::uint16_t{7}}) {
          HeightPicture picture({columns, rows, {scale, 0}, {1, scale}, {scale, 0}, true, "mm"});
          const std::vector<std::uint16_t> cells(static_cast<std::size_t>(columns * rows), level);
          picture.addRows(rows, cells.data());
          pictures.push_back(picture.draw({ColorMap::find("diverging"), true}, format));
        }
      }
      const Point far{scale * 1e8, -scale};
      pictures.push_back(drawModel({hostile,
                                    hostile,
                                    {-scale, scale},
                                    {scale, 1},
                                    {{0, 0}, far},
                                    {{{1, 1}, far, {kNan, 0}}},
                                    {{far, hostile}},
                                    {far, {1, 2}},
                                    {{hostile, 2, 1, {0, 0}, far, {kNan, scale}}}},
                                   *ColorMap::find("gray"), format));
    }
    for (const std::string& picture : pictures) {
      int width = 0;
      if (format == PictureFormat::kPng) {
        EXPECT_FALSE(decoded(picture, width).empty());
        EXPECT_LE(width, 1800);
      } else {
        EXPECT_EQ(picture.find("nan"), std::string::npos);
        EXPECT_EQ(picture.substr(picture.size() - 7), "</svg>\n");
      }
    }
  }
}

}  // namespace
}  // namespace planex::report
