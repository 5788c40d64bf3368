#include "planex/report/view_page.h"

#include <fmt/format.h>
#include <nettle/sha2.h>

#include <array>
#include <cmath>
#include <limits>
#include <string_view>

#include "planex/io/json.h"
#include "planex/report/base64.h"
#include "planex/report/color_map.h"
#include "planex/report/plain_text.h"
#include "planex/report/view_sources.h"
#include "planex/version.h"

namespace planex::report {
namespace {

/// What a security policy calls an inline script or style.
std::string sourceHash(std::string_view text) {
  sha256_ctx context;
  sha256_init(&context);
  sha256_update(&context, text.size(), reinterpret_cast<const std::uint8_t*>(text.data()));
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
  sha256_digest(&context, digest.size(), digest.data());
  return "'sha256-" + base64({reinterpret_cast<const char*>(digest.data()), digest.size()}) + "'";
}

std::string securityPolicy(const ViewSources& sources) {
  return "default-src 'none'; script-src " + sourceHash(sources.three) + " " +
         sourceHash(sources.script) + "; style-src " + sourceHash(sources.style) +
         "; base-uri 'none'; form-action 'none'";
}

/// A JSON text in which nothing ends the element that it stands in.
std::string inElement(std::string json) {
  for (std::size_t at = 0; (at = json.find('<', at)) != std::string::npos;) {
    json.replace(at, 1, "\\u003c");
  }
  return json;
}

/// Six hexadecimal digits a colour, from one end of the scale to the other; the last is the one of
/// what has no number.
std::string colorText(const ColorMap& map) {
  std::string text;
  const auto append = [&text](Color color) {
    text += fmt::format("{:02x}{:02x}{:02x}", color.r, color.g, color.b);
  };
  for (int i = 0; i <= 256; ++i) append(map.at(i / 256.0));
  append(map.missing());
  return text;
}

void describe(const io::JsonObject& json, const io::Axis& x, const io::Axis& y) {
  json.add("scaleX", x.scale);
  json.add("originX", x.origin);
  json.add("scaleY", y.scale);
  json.add("originY", y.origin);
}

void describe(const io::JsonObject& json, const ViewLayer& layer) {
  json.add("name", plainText(layer.name));
  json.add("unit", plainText(layer.unit));
  json.add("colors", layer.colors);
  json.add("scale", layer.values.scale);
  json.add("origin", layer.values.origin);
  const auto [low, high] = layer.colorEnds();
  json.add("low", low);  // null where there is none
  json.add("high", high);
  const auto [least, most] = layer.ends();
  json.add("least", least);
  json.add("most", most);
}

std::string jsonText(const std::vector<ViewMap>& maps) {
  io::JsonText root;
  root.add("generator", "planex " PLANEX_VERSION_STRING);
  root.add("tileSide", ViewTiles::kSide);
  const io::JsonObject colors = root.addObject("colors");
  for (const std::string& name : ColorMap::names()) {
    colors.add(name.c_str(), colorText(*ColorMap::find(name)));
  }
  root.addList("maps", nullptr, 0);
  for (const ViewMap& map : maps) {
    const io::JsonObject json = root.appendTo("maps");
    json.add("name", plainText(map.name));
    json.add("unit", plainText(map.unit));
    json.add("unitY", plainText(map.yUnit));
    json.add("columns", map.columns);
    json.add("rows", map.rows);
    describe(json, map.x, map.y);
    json.add("levels", ViewTiles::levelsOf(map.columns, map.rows));
    const std::size_t points = map.points.size() / 3;
    json.add("points", static_cast<double>(points));
    json.addList("facts", nullptr, 0);
    for (const auto& [title, text] : map.facts) {
      const io::JsonObject fact = json.appendTo("facts");
      fact.add("title", title);
      fact.add("text", text);
    }
    json.addList("layers", nullptr, 0);
    for (const ViewLayer& layer : map.layers) describe(json.appendTo("layers"), layer);
  }
  return inElement(root.print());
}

void writeData(io::OutputFile& file, const std::string& name, std::string_view bytes) {
  file.write("<script type=\"text/plain\" id=\"" + name + "\">" + base64(bytes) + "</script>\n");
}

}  // namespace

ViewPageSize writeViewPage(const std::vector<ViewMap>& maps, io::OutputFile& file) {
  const ViewSources& sources = viewSources();
  const std::string_view head =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"";
  file.write(head);
  file.write(securityPolicy(sources));
  file.write(
      "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<title>planex view</title>\n<style>");
  file.write(sources.style);
  file.write("</style>\n</head>\n<body>\n");
  file.write(sources.body);
  file.write("<script type=\"application/json\" id=\"page\">\n" + jsonText(maps) + "</script>\n");
  const std::int64_t before = file.size();
  for (std::size_t map = 0; map < maps.size(); ++map) {
    for (std::size_t layer = 0; layer < maps[map].layers.size(); ++layer) {
      ViewTiles::write(
          maps[map].layers[layer], maps[map].columns, maps[map].rows,
          [&](int level, int row, int column, std::string_view bytes) {
            writeData(file, fmt::format("tile-{}-{}-{}-{}-{}", map, layer, level, row, column),
                      bytes);
          });
    }
    if (maps[map].points.empty()) continue;
    writeData(file, fmt::format("points-{}", map), packedPoints(maps[map].points));
  }
  ViewPageSize size;
  size.data = file.size() - before;
  file.write("<script type=\"text/plain\" id=\"licence\">\n");
  file.write(sources.licence);
  file.write("</script>\n<script>");
  file.write(sources.three);
  file.write("</script>\n<script>");
  file.write(sources.script);
  file.write("</script>\n</body>\n</html>\n");
  size.page = file.size();
  return size;
}

ViewLayer differenceOf(const ViewMap& map, const ViewMap& other) {
  const auto cellsAt = [](const io::Axis& at, int count, const io::Axis& of, int most) {
    std::vector<int> cells;
    for (int i = 0; i < count; ++i) {
      const double cell = std::round((at.scale * i + at.origin - of.origin) / of.scale);
      cells.push_back(cell >= 0 && cell < most ? static_cast<int>(cell) : -1);
    }
    return cells;
  };
  const std::vector<int> columns = cellsAt(map.x, map.columns, other.x, other.columns);
  const std::vector<int> rows = cellsAt(map.y, map.rows, other.y, other.rows);
  const ViewLayer &mine = map.layers.front(), &theirs = other.layers.front();
  std::vector<float> numbers(mine.steps.size(), std::numeric_limits<float>::quiet_NaN());
  std::size_t i = 0;
  for (const int row : rows) {
    for (const int column : columns) {
      const std::size_t at = i++;
      if (row < 0 || column < 0 || mine.steps[at] == 0) continue;
      const std::uint16_t step =
          theirs.steps[static_cast<std::size_t>(row) * other.columns + column];
      if (step == 0) continue;
      numbers[at] = static_cast<float>((mine.values.scale * mine.steps[at] + mine.values.origin) -
                                       (theirs.values.scale * step + theirs.values.origin));
    }
  }
  ViewLayer layer = ViewLayer::of(numbers, {1, 0});
  layer.name = "difference to " + other.name;
  layer.unit = mine.unit;
  layer.colors = "diverging";
  return layer;
}

}  // namespace planex::report
