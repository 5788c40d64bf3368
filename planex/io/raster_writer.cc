#include "planex/io/raster_writer.h"

#include <fmt/format.h>

#include <limits>

#include "planex/io/failure.h"
#include "planex/io/raster_formats.h"
#include "planex/version.h"

namespace planex::io {
namespace {

std::string escaped(const std::string& text) {
  std::string xml;
  for (const char c : text) {
    switch (c) {
      case '&':
        xml += "&amp;";
        break;
      case '<':
        xml += "&lt;";
        break;
      case '>':
        xml += "&gt;";
        break;
      case '"':
        xml += "&quot;";
        break;
      default:
        xml += c;
    }
  }
  return xml;
}

std::string item(const char* name, const std::string& value) {
  return fmt::format("  <Item name=\"{}\">{}</Item>\n", name, escaped(value));
}

std::string layerItem(const char* name, std::size_t layer, const char* role,
                      const std::string& value) {
  return fmt::format("  <Item name=\"{}\" sample=\"{}\" role=\"{}\">{}</Item>\n", name, layer, role,
                     escaped(value));
}

}  // namespace

std::optional<RasterFormat> rasterFormatOf(const std::string& path) {
  const std::string ending = endingOf(path);
  if (ending == ".png") return RasterFormat::kPng;
  if (ending == ".tif" || ending == ".tiff") return RasterFormat::kTiff;
  if (ending == ".npy") return RasterFormat::kNpy;
  return std::nullopt;
}

std::unique_ptr<RasterWriter> RasterWriter::create(RasterFormat format, OutputFile& file,
                                                   const RasterDescription& description,
                                                   const RasterEncoding& encoding) {
  switch (format) {
    case RasterFormat::kPng:
      return createPng(file, description, encoding);
    case RasterFormat::kNpy:
      return createNpy(file, description);
    case RasterFormat::kTiff:
      break;
  }
  return createTiff(file, description, encoding);
}

void RowCount::add(int count) {
  if (count > std::numeric_limits<int>::max() - rows_) {
    throw Failure(file_.path(), "would have too many rows; write several files");
  }
  rows_ += count;
}

void RowCount::requireSome() const {
  if (rows_ == 0) throw Failure(file_.path(), "would have no rows; check where they come from");
}

std::vector<std::pair<std::string, std::string>> describeInText(const RasterDescription& raster) {
  std::vector<std::pair<std::string, std::string>> texts;
  const auto add = [&](const char* keyword, double value) {
    texts.emplace_back(keyword, fmt::format("{}", value));
  };
  texts.emplace_back("Software", "planex " PLANEX_VERSION_STRING);
  texts.emplace_back("Title", fmt::format("{}", fmt::join(raster.layers, ", ")));
  if (!raster.unit.empty()) texts.emplace_back("Unit", raster.unit);
  if (!raster.rowUnit.empty()) texts.emplace_back("UnitY", raster.rowUnit);
  if (raster.columns) {
    add("ScaleX", raster.columns->scale);
    add("OriginX", raster.columns->origin);
  }
  if (raster.rows) {
    add("ScaleY", raster.rows->scale);
    add("OriginY", raster.rows->origin);
  }
  if (raster.values) {
    add("ScaleZ", raster.values->scale);
    add("OriginZ", raster.values->origin);
  }
  if (raster.missing) add("MissingValue", *raster.missing);
  return texts;
}

std::string describeInGdalXml(const RasterDescription& raster) {
  std::string xml = "<GDALMetadata>\n";
  xml += item("SOFTWARE", "planex " PLANEX_VERSION_STRING);
  if (!raster.unit.empty()) xml += item("UNIT", raster.unit);
  if (!raster.rowUnit.empty()) xml += item("UNIT_Y", raster.rowUnit);
  for (std::size_t layer = 0; layer < raster.layers.size(); ++layer) {
    xml += layerItem("DESCRIPTION", layer, "description", raster.layers[layer]);
    if (!raster.values) continue;
    xml += layerItem("OFFSET", layer, "offset", fmt::format("{}", raster.values->origin));
    xml += layerItem("SCALE", layer, "scale", fmt::format("{}", raster.values->scale));
    xml += layerItem("UNITTYPE", layer, "unittype", raster.unit);
  }
  return xml + "</GDALMetadata>\n";
}

}  // namespace planex::io
