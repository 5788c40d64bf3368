#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/json.h>
#include <planex/io/number_text.h>
#include <planex/scan/height_map.h>
#include <planex/scan/map_statistics.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/progress.h"
#include "tools/commands/commands.h"

namespace planex::tools {
namespace {

using scan::HeightMap;
using scan::MapStatistics;

struct StatsOptions {
  std::string map, rectangle;
  bool json = false, csv = false;
};

scan::CellRange rangeOf(const StatsOptions& options, const HeightMap& map) {
  if (options.rectangle.empty()) return map.allCells();
  const auto numbers = io::parseNumberList(options.rectangle);
  if (!numbers || numbers->size() != 4) {
    throw CLI::ValidationError("--rect", "'" + options.rectangle + "' is no list of 4 numbers");
  }
  const auto [xMin, xMax] = std::minmax((*numbers)[0], (*numbers)[2]);
  const auto [yMin, yMax] = std::minmax((*numbers)[1], (*numbers)[3]);
  if (const auto range = map.cellsIn({xMin, yMin, xMax, yMax})) return *range;
  const scan::WorldRectangle all = map.centresOf(map.allCells());
  throw CLI::ValidationError(
      "--rect", fmt::format("'{}' holds no centre of a cell; the map has X {:.6g} to {:.6g} {}, "
                            "Y {:.6g} to {:.6g} {}",
                            options.rectangle, all.xMin, all.xMax, map.unit(), all.yMin, all.yMax,
                            map.yUnit()));
}

double coverage(const MapStatistics& s) {
  return 100 * static_cast<double>(s.filled) / static_cast<double>(s.cells);
}

std::string plainText(const HeightMap& map, const scan::CellRange& range, const MapStatistics& s) {
  const std::string& unit = map.unit();
  const scan::WorldRectangle area = map.centresOf(range);
  std::string text;
  const auto line = [&text](const std::string& title, const std::string& value) {
    text += fmt::format("{:<19}{}\n", title, value);
  };
  const auto length = [&](const std::string& title, double value) {
    line(title, fmt::format("{:.6g} {}", value, unit));
  };
  line("size", fmt::format("{} columns {:.6g} {} apart, {} rows {:.6g} {} apart", range.columns(),
                           map.x().scale, unit, range.rows(), map.y().scale, map.yUnit()));
  line("area", fmt::format("X {:.6g} to {:.6g} {}, Y {:.6g} to {:.6g} {}", area.xMin, area.xMax,
                           unit, area.yMin, area.yMax, map.yUnit()));
  line("coverage", fmt::format("{:.1f} %, {} filled of {} cells", coverage(s), s.filled, s.cells));
  length("minimum", s.minimum);
  length("maximum", s.maximum);
  length("mean", s.mean);
  for (std::size_t i = 0; i < s.percentiles.size(); ++i) {
    length(scan::kPercents[i] == 50 ? "median" : fmt::format("percentile {}", scan::kPercents[i]),
           s.percentiles[i]);
  }
  if (!s.plane) {
    line("plane", "none: it takes three filled cells that are not on one line");
    return text;
  }
  line("plane", fmt::format("Z = a + b X + c Y, a {:.6g} {}, b {:.6g}, c {:.6g}", s.plane->a, unit,
                            s.plane->b, s.plane->c));
  if (map.isYLength()) {
    line("tilt", fmt::format("{:.6g} degrees, {:.6g} along X, {:.6g} along Y", s.plane->tilt(),
                             s.plane->tiltX(), s.plane->tiltY()));
  } else {
    line("tilt", fmt::format("{:.6g} degrees along X; none along Y, which counts {}",
                             s.plane->tiltX(), map.yUnit()));
  }
  length("Sq", s.roughness->sq);
  length("Sa", s.roughness->sa);
  length("Sz", s.roughness->sz);
  length("Sp", s.roughness->sp);
  length("Sv", s.roughness->sv);
  const auto share = [](const std::optional<double>& value) {
    return value ? fmt::format("{:.6g}", *value) : std::string("none: the plane has no residuals");
  };
  line("Ssk", share(s.roughness->ssk));
  line("Sku", share(s.roughness->sku));
  return text;
}

void add(const io::JsonObject& object, const char* name, const std::optional<double>& value) {
  if (value) {
    object.add(name, *value);
  } else {
    object.addNull(name);
  }
}

void addPlane(const io::JsonObject& root, const HeightMap& map, const MapStatistics& s) {
  if (!s.plane) {
    root.addNull("plane");
    root.addNull("roughness");
    return;
  }
  const io::JsonObject plane = root.addObject("plane");
  plane.add("a", s.plane->a);
  plane.add("b", s.plane->b);
  plane.add("c", s.plane->c);
  const auto ofLength = [&](double angle) {
    return map.isYLength() ? std::optional<double>(angle) : std::nullopt;
  };
  add(plane, "tilt", ofLength(s.plane->tilt()));
  plane.add("tiltX", s.plane->tiltX());
  add(plane, "tiltY", ofLength(s.plane->tiltY()));
  const io::JsonObject roughness = root.addObject("roughness");
  roughness.add("Sq", s.roughness->sq);
  roughness.add("Sa", s.roughness->sa);
  roughness.add("Sz", s.roughness->sz);
  roughness.add("Sp", s.roughness->sp);
  roughness.add("Sv", s.roughness->sv);
  add(roughness, "Ssk", s.roughness->ssk);
  add(roughness, "Sku", s.roughness->sku);
}

std::string jsonText(const HeightMap& map, const scan::CellRange& range, const MapStatistics& s) {
  io::JsonText root;
  root.add("unit", map.unit());
  root.add("unitY", map.yUnit());
  const io::JsonObject size = root.addObject("size");
  size.add("columns", range.columns());
  size.add("rows", range.rows());
  size.add("scaleX", map.x().scale);
  size.add("scaleY", map.y().scale);
  const scan::WorldRectangle centres = map.centresOf(range);
  const io::JsonObject area = root.addObject("area");
  area.add("xMin", centres.xMin);
  area.add("xMax", centres.xMax);
  area.add("yMin", centres.yMin);
  area.add("yMax", centres.yMax);
  root.add("cells", static_cast<double>(s.cells));
  root.add("filled", static_cast<double>(s.filled));
  root.add("coverage", coverage(s));
  root.add("minimum", s.minimum);
  root.add("maximum", s.maximum);
  root.add("mean", s.mean);
  root.add("median", s.median());
  const io::JsonObject percentiles = root.addObject("percentiles");
  for (std::size_t i = 0; i < s.percentiles.size(); ++i) {
    if (scan::kPercents[i] == 50) continue;
    percentiles.add(std::to_string(scan::kPercents[i]).c_str(), s.percentiles[i]);
  }
  addPlane(root, map, s);
  return root.print();
}

/// A heading and a line, with the names of the JSON; fields without a number are empty.
std::string csvText(const HeightMap& map, const scan::CellRange& range, const MapStatistics& s) {
  std::string names, values;
  const auto add = [&](const std::string& name, const std::optional<double>& value) {
    const char* const comma = names.empty() ? "" : ",";
    names += comma + name;
    values += comma + (value ? fmt::format("{}", *value) : std::string());
  };
  const auto ofPlane = [&](const char* name, auto number) {
    add(name, s.plane ? std::optional<double>(number(*s.plane)) : std::nullopt);
  };
  const auto ofRest = [&](const char* name, auto member) {
    add(name, s.roughness ? std::optional<double>((*s.roughness).*member) : std::nullopt);
  };
  const auto ofLength = [&](const char* name, double (scan::HeightPlane::*angle)() const) {
    add(name,
        s.plane && map.isYLength() ? std::optional<double>(((*s.plane).*angle)()) : std::nullopt);
  };
  const scan::WorldRectangle area = map.centresOf(range);
  add("xMin", area.xMin);
  add("xMax", area.xMax);
  add("yMin", area.yMin);
  add("yMax", area.yMax);
  add("cells", static_cast<double>(s.cells));
  add("filled", static_cast<double>(s.filled));
  add("minimum", s.minimum);
  add("maximum", s.maximum);
  add("mean", s.mean);
  for (std::size_t i = 0; i < s.percentiles.size(); ++i) {
    add(scan::kPercents[i] == 50 ? "median" : fmt::format("percentile{}", scan::kPercents[i]),
        s.percentiles[i]);
  }
  ofPlane("a", [](const scan::HeightPlane& plane) { return plane.a; });
  ofPlane("b", [](const scan::HeightPlane& plane) { return plane.b; });
  ofPlane("c", [](const scan::HeightPlane& plane) { return plane.c; });
  ofLength("tilt", &scan::HeightPlane::tilt);
  ofPlane("tiltX", [](const scan::HeightPlane& plane) { return plane.tiltX(); });
  ofLength("tiltY", &scan::HeightPlane::tiltY);
  ofRest("Sq", &scan::Roughness::sq);
  ofRest("Sa", &scan::Roughness::sa);
  ofRest("Sz", &scan::Roughness::sz);
  ofRest("Sp", &scan::Roughness::sp);
  ofRest("Sv", &scan::Roughness::sv);
  add("Ssk", s.roughness ? s.roughness->ssk : std::nullopt);
  add("Sku", s.roughness ? s.roughness->sku : std::nullopt);
  return names + "\n" + values + "\n";
}

void runStats(const StatsOptions& options, const Context& context) {
  HeightMap map(options.map);
  const scan::CellRange range = rangeOf(options, map);
  io::WorkerPool pool(workerCount(context));
  MapStatistics statistics;
  {
    Progress progress(context, "measuring", 2 * std::int64_t{range.columns()} * range.rows(),
                      "cells");
    statistics =
        calculateStatistics(map, range, pool, [&](std::int64_t cells) { progress.advance(cells); });
  }
  if (statistics.filled == 0) {
    throw io::Failure(options.map, options.rectangle.empty()
                                       ? "has no cell with a height; see why with planex calibrate"
                                       : "has no cell with a height in --rect; choose another");
  }
  const std::string text = options.json  ? jsonText(map, range, statistics)
                           : options.csv ? csvText(map, range, statistics)
                                         : plainText(map, range, statistics);
  std::fputs(text.c_str(), stdout);
}

}  // namespace

void addStatsCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<StatsOptions>();
  CLI::App* command =
      app.add_subcommand("stats", "Tell heights, plane and roughness of a height map");
  command
      ->add_option("HEIGHT", options->map,
                   "Height map that planex rectify wrote; HEIGHT.json is beside it")
      ->required();
  command
      ->add_option("--rect", options->rectangle,
                   "Only the cells whose centres lie in this rectangle of the world")
      ->type_name("X0,Y0,X1,Y1");
  CLI::Option* json = command->add_flag("--json", options->json, "Print JSON");
  command->add_flag("--csv", options->csv, "Print CSV: a heading and a line")->excludes(json);
  addThreadsOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "Sq, Sa, Sz, Sp, Sv, Ssk and Sku are those of ISO 25178-2, of the measured cells without "
      "the\n"
      "least-squares plane and without a filter.\n\n"
      "Examples:\n"
      "  planex stats height.tif\n"
      "  planex stats height.png --rect -10,0,10,25 --json\n"
      "  planex stats height.tif --csv > height.csv");
  command->callback([options, &context] { runStats(*options, context); });
}

}  // namespace planex::tools
