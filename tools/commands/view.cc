#include <fmt/format.h>
#include <planex/io/cloud_reader.h>
#include <planex/io/failure.h>
#include <planex/io/output_file.h>
#include <planex/io/raster.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tools/cli/scan_options.h"
#include "tools/commands/commands.h"
#include "tools/commands/view_maps.h"

namespace planex::tools {
namespace {

std::vector<report::ViewMap> readMaps(const ViewOptions& options, const Context& context) {
  std::vector<report::ViewMap> maps;
  for (auto file = options.files.begin(); file != options.files.end(); ++file) {
    if (io::endingOf(*file) == ".json") {  // a model
      const std::string& model = *file++;
      if (file == options.files.end()) {
        throw CLI::ValidationError("FILE",
                                   "the model '" + model + "' needs a range image behind it");
      }
      maps.push_back(viewOfScan(model, *file, options, context));
    } else if (io::CloudReader::isCloud(*file)) {
      maps.push_back(viewOfCloud(*file, context));
    } else {
      maps.push_back(viewOfMap(*file, options));
    }
    const report::ViewMap &first = maps.front(), &last = maps.back();
    if (maps.size() < 2 || last.unit != first.unit || last.yUnit != first.yUnit) continue;
    report::ViewLayer difference = differenceOf(maps.back(), maps.front());
    if (difference.filled() > 0) maps.back().layers.push_back(std::move(difference));
  }
  return maps;
}

void runView(const ViewOptions& options, const Context& context) {
  if (io::endingOf(options.output) != ".html") {
    throw CLI::ValidationError("--output", "'" + options.output + "' does not end in .html");
  }
  std::vector<std::string> inputs = {options.intensity, options.sensor.sidecar,
                                     options.y.positions};
  for (const std::string& file : options.files) {
    if (file == "-") throw CLI::ValidationError("FILE", "cannot be standard input");
    inputs.insert(inputs.end(), {file, file + ".json"});
  }
  io::requireNoInput(options.output, inputs);
  applyThreads(context);
  const std::vector<report::ViewMap> maps = readMaps(options, context);
  io::OutputFile file(options.output, context.force);
  const report::ViewPageSize size = writeViewPage(maps, file);
  file.commit();
  if (context.quiet) return;
  std::fputs(fmt::format("{}: {:.1f} MB, {:.1f} MB of them cells and points\n",
                         io::inOneLine(options.output), static_cast<double>(size.page) / 1e6,
                         static_cast<double>(size.data) / 1e6)
                 .c_str(),
             stdout);
}

}  // namespace

void addViewCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<ViewOptions>();
  CLI::App* command =
      app.add_subcommand("view", "Make a page that shows and measures maps, clouds and scans");
  command
      ->add_option(
          "FILE", options->files,
          "Height maps that planex rectify wrote, with HEIGHT.json beside them; clouds: PLY, "
          "PCD or NPY; or a model document with a range image behind it")
      ->required();
  command->add_option("-o,--output", options->output, "Page for a browser: .html")
      ->required()
      ->type_name("PAGE");
  command
      ->add_option("--cells", options->cells,
                   "Cells of a map in the page at most; of larger maps it gets blocks of cells")
      ->check(CLI::Range(std::int64_t{1}, std::int64_t{1} << 31))
      ->capture_default_str()
      ->type_name("N");
  command
      ->add_option("--intensity", options->intensity,
                   "Image with the intensity of every point of the range image")
      ->type_name("IMAGE");
  addYOptions(*command, options->y);
  addSensorOptions(*command, options->sensor);
  addUnitOption(*command, context);
  addThreadsOption(*command, context);
  addForceOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "The page is one file that opens in any browser, without a network. It shows maps in space "
      "and\n"
      "from above, tells X, Y and Z under the pointer, and measures steps, slopes, profiles and\n"
      "planes. Layers of a map and HEIGHT_intensity and HEIGHT_mask beside it become colours to\n"
      "choose, and of several maps the differences to the first one.\n"
      "Large maps are there in several resolutions. Large clouds are thinned: of each of half a\n"
      "million cells the lowest and the highest point stay.\n\n"
      "Examples:\n"
      "  planex view height.tif -o height.html\n"
      "  planex view before.tif after.tif -o both.html\n"
      "  planex view points.ply -o points.html\n"
      "  planex view model.json range.png --y-scale 0.1 -o scan.html");
  command->callback([options, &context] { runView(*options, context); });
}

}  // namespace planex::tools
