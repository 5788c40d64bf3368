#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/frame_source.h>
#include <planex/io/provenance.h>
#include <planex/scan/line_figures.h>
#include <planex/scan/row_stream.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/cli/camera_options.h"
#include "tools/cli/frame_record.h"
#include "tools/cli/progress.h"
#include "tools/cli/scan_options.h"
#include "tools/cli/stop_request.h"
#include "tools/cli/warnings.h"
#include "tools/commands/commands.h"
#include "tools/commands/extract_files.h"
#include "tools/commands/extract_preview.h"

namespace planex::tools {
namespace {

using datafusion::planex::LineChoice;
using datafusion::planex::LineMethod;
using datafusion::planex::LineSettings;
using datafusion::planex::SensorRegion;
using tools::liveText;

struct ExtractOptions {
  std::vector<std::string> frames;
  ExtractNames names;
  std::string preview, dark, band, part, raw, pick = "strongest";
  std::optional<double> lineWidth, threshold, leastWidth, mostWidth, gain, readNoise;
  std::optional<double> bits, scaleX, originX, scaleZ, originZ, sensorWidth, sensorHeight;
  std::optional<double> scaleY, originY;
  LineMethod method = LineMethod::DERIVATIVE;
  bool transpose = false;
  int block = 0;
  std::optional<io::Compression> compression;
  CameraOptions camera;
};

/// A part "A:B" of something that is counted; B is the largest number where it is left out.
struct Part {
  std::int64_t first = 0, end = std::numeric_limits<std::int64_t>::max();
};

Part partOf(const std::string& option, const std::string& text) {
  Part part;
  if (text.empty()) return part;
  const char* const begin = text.data();
  const char* const end = begin + text.size();
  const char* const colon = std::find(begin, end, ':');
  const auto parse = [&](const char* from, const char* to, std::int64_t& number) {
    if (from == to) return true;
    const auto result = std::from_chars(from, to, number);
    return result.ec == std::errc() && result.ptr == to;
  };
  if (colon == end || !parse(begin, colon, part.first) || !parse(colon + 1, end, part.end) ||
      part.first < 0 || part.first >= part.end) {
    throw CLI::ValidationError(option, "'" + text + "' is no part A:B");
  }
  return part;
}

/// The rule of --pick.
void choose(const std::string& text, LineSettings& settings) {
  const std::map<std::string, LineChoice> names = {{"strongest", LineChoice::STRONGEST},
                                                   {"first", LineChoice::FIRST},
                                                   {"last", LineChoice::LAST}};
  const auto named = names.find(text);
  if (named != names.end()) {
    settings.choice = named->second;
    return;
  }
  constexpr const char* kNearest = "nearest:";
  const std::size_t length = std::char_traits<char>::length(kNearest);
  const char* const end = text.data() + text.size();
  if (text.compare(0, length, kNearest) == 0) {
    const auto row = std::from_chars(text.data() + length, end, settings.nearestRow);
    settings.choice = LineChoice::NEAREST;
    if (row.ec == std::errc() && row.ptr == end && settings.nearestRow >= 0) return;
  }
  throw CLI::ValidationError("--pick",
                             "'" + text + "' is neither strongest, first, last nor nearest:ROW");
}

/// The greatest level of frames with so many bits.
double fullScale(const ExtractOptions& options, const io::ImageShape& shape) {
  const int type = shape.type == cmnalg::IMAGE_TYPE_UINT8 ? 8 : 16;
  const double bits = options.bits.value_or(type);
  if (bits > type) {
    throw io::Failure(options.frames.front(),
                      fmt::format("has {} bits a pixel; give no more with --bits", type));
  }
  return std::ldexp(1.0, static_cast<int>(bits)) - 1.0;
}

scan::FrameExtraction extractionOf(const ExtractOptions& options, const io::ImageShape& shape) {
  scan::FrameExtraction extraction;
  extraction.transpose = options.transpose;
  LineSettings& settings = extraction.settings;
  settings.method = options.method;
  settings.lineWidth = options.lineWidth.value_or(settings.lineWidth);
  settings.fullScale = fullScale(options, shape);
  settings.threshold = options.threshold.value_or(0);
  settings.minimumWidth = options.leastWidth.value_or(settings.minimumWidth);
  settings.maximumWidth = options.mostWidth.value_or(0);
  settings.gain = options.gain.value_or(0);
  settings.readNoise = options.readNoise.value_or(0);
  choose(options.pick, settings);
  const Part band = partOf("--band", options.band);
  const int rows = extraction.shapeOf(shape).height;
  if (!options.band.empty()) {
    if (band.first >= rows) {
      throw io::Failure(options.frames.front(),
                        fmt::format("has {} rows, none of them in --band {}", rows, options.band));
    }
    settings.firstRow = static_cast<int>(band.first);
    settings.endRow = static_cast<int>(std::min<std::int64_t>(band.end, rows));
  }
  extraction.intensity = !options.names.intensity.empty();
  extraction.width = true;
  extraction.quality = !options.names.quality.empty();
  extraction.deviation = !options.names.deviation.empty();
  return extraction;
}

/// The frame of --dark.
cmnalg::Image readDark(const std::string& path, const io::ImageShape& shape) {
  cmnalg::Image dark;
  const auto reader = io::ImageReader::open(path);
  const io::ImageShape& found = reader->shape();
  if (found.width != shape.width || found.height != shape.height || found.type != shape.type) {
    throw io::Failure(path,
                      "is not of the size and type of the frames; take it with the same "
                      "settings of the camera");
  }
  if (!dark.Create(shape.type, shape.width, shape.height, 0,
                   cmnalg::Image::s_defaultImageAllocator)) {
    throw std::bad_alloc();
  }
  reader->readRows(0, shape.height, dark.GetData());
  return dark;
}

/// What is known of the frames from where they came.
struct FrameOrigin {
  const acquisition::CameraFrames* camera = nullptr;  // null: files
  scan::ScanSidecar beside;                           // of a file that planex grab has written
};

/// Where the range image lies on the sensor.
/// @param frame of the frames as lines are looked for in them
SensorRegion regionOf(const ExtractOptions& options, const FrameOrigin& from,
                      const io::ImageShape& frame) {
  SensorRegion region;
  if (from.camera != nullptr) region = from.camera->sensor();
  region.scaleX = from.beside.scaleX.value_or(region.scaleX);
  region.originX = from.beside.originX.value_or(region.originX);
  region.scaleZ = from.beside.scaleZ.value_or(region.scaleZ);
  region.originZ = from.beside.originZ.value_or(region.originZ);
  if (options.transpose) {
    std::swap(region.scaleX, region.scaleZ);
    std::swap(region.originX, region.originZ);
  }
  region.scaleX = options.scaleX.value_or(region.scaleX);
  region.originX = options.originX.value_or(region.originX);
  region.scaleZ = options.scaleZ.value_or(region.scaleZ);
  region.originZ = options.originZ.value_or(region.originZ);
  const auto extent = [](std::optional<double> given, double scale, int pixels) {
    return static_cast<int>(
        given.value_or(std::clamp(std::ceil(std::fabs(scale) * pixels), 1.0, 65535.0)));
  };
  region.width = extent(options.sensorWidth, region.scaleX, frame.width);
  region.height = extent(options.sensorHeight, region.scaleZ, frame.height);
  region.scaleZ /= datafusion::planex::linePlacesPerRow(frame.height);
  return region;
}

void describeSettings(const io::JsonObject& parent, const ExtractOptions& options,
                      const scan::FrameExtraction& extraction, const scan::LineFigures& figures,
                      double rowNoise) {
  const LineSettings& settings = extraction.settings;
  const io::JsonObject json = parent.addObject("extraction");
  json.add("method", settings.method == LineMethod::DERIVATIVE ? "fir" : "cog");
  json.add("lineWidth", settings.lineWidth);
  json.add("threshold", settings.threshold > 0 ? settings.threshold : settings.fullScale / 25);
  json.add("pick", options.pick);
  if (!options.band.empty()) json.add("band", options.band);
  if (!options.dark.empty()) json.add("dark", options.dark);
  if (options.transpose) json.add("transpose", "columns and rows are exchanged");
  json.add("found", figures.counts().foundShare());
  json.add("medianWidth", figures.medianWidth());
  if (extraction.deviation) json.add("rowNoise", rowNoise);
}

/// How far profiles are apart, or where they lie: as the options say, the camera, or the file of
/// all of the frames.
void describeRows(const io::JsonObject& root, const std::string& sidecar,
                  const ExtractOptions& options, const FrameOrigin& from,
                  const FrameRecord& record) {
  scan::ScanSidecar said;
  if (options.part.empty()) said = from.beside;
  if (!record.placesPath().empty()) said.positions = record.placesPath();
  if (options.scaleY) {
    said.scaleY = options.scaleY;
    said.originY = options.originY;
    said.positions.clear();
  }
  if (!said.positions.empty()) {
    root.addObject("rows").add("positions", io::seenFrom(sidecar, said.positions));
  } else if (said.scaleY) {
    const io::JsonObject rows = root.addObject("rows");
    rows.add("scaleY", *said.scaleY);
    rows.add("originY", said.originY.value_or(0));
  }
}

std::string describe(const ExtractOptions& options, const Context& context,
                     const io::FrameSource& source, const FrameOrigin& from,
                     const scan::FrameExtraction& extraction, const scan::LineFigures& figures,
                     FrameRecord& record, ExtractFiles& files) {
  const std::string path = options.names.range + ".json";
  OutputSidecar sidecar(path, "range image", context);
  const io::JsonText& root = sidecar.root();
  const io::ImageShape frame = extraction.shapeOf(source.shape());
  const SensorRegion region = regionOf(options, from, frame);
  addSensor(root, region);
  describeRows(root, path, options, from, record);
  // In rows of the sensor, as models count them.
  const double perRow = datafusion::planex::linePlacesPerRow(frame.height);
  describeSettings(root, options, extraction, figures,
                   figures.medianDeviation() * std::fabs(region.scaleZ) * perRow);
  record.describe(root);
  if (from.camera != nullptr) addCamera(root, *from.camera);
  sidecar.addMade({});
  files.finish(sidecar);
  record.addOutput(sidecar);
  return sidecar.print();
}

void tell(const ExtractOptions& options, const FrameRecord& record, const io::ImageShape& frame,
          const scan::LineFigures& figures, const Context& context) {
  const std::string& range = options.names.range;
  if (figures.counts().found == 0) {
    warn(range, "no line was found; see --threshold and --line-width, and look at --preview");
    return;
  }
  const double width = figures.medianWidth();
  const double told = options.lineWidth.value_or(LineSettings{}.lineWidth);
  if (width > 1.6 * told || width < told / 1.6) {
    warn(range, fmt::format("lines are {:.1f} rows wide, and were looked for as {:.3g}; "
                            "--line-width {:.1f} finds their places better",
                            width, told, width));
  }
  if (context.quiet) return;
  const std::string deviation =
      options.names.deviation.empty()
          ? ""
          : fmt::format(", noise of {:.3f} rows", figures.medianDeviation());
  std::fputs(fmt::format("{}: {} profiles of {} columns, {:.1f} % found, {:.1f} rows wide, "
                         "{:.1f} % clipped{}{}\n",
                         io::inOneLine(range), record.frames(), frame.width,
                         100 * figures.counts().foundShare(), width,
                         100 * figures.counts().clippedShare(), deviation,
                         record.lost() > 0 ? fmt::format(", {} frames lost", record.lost()) : "")
                 .c_str(),
             stdout);
}

/// Opens what --raw and the names tell.
std::unique_ptr<io::FrameSource> open(const ExtractOptions& options, FrameOrigin& from) {
  if (isCamera(options.frames.front())) {
    if (options.frames.size() > 1 || !options.raw.empty() || !options.part.empty()) {
      throw CLI::ValidationError("FRAMES", "a camera stands alone, without --raw and --frames");
    }
    auto opened = openCamera(options.camera, options.frames.front());
    from.camera = opened.get();
    if (opened->hasRanges()) {
      throw io::Failure(options.frames.front(),
                        "finds the laser line itself; record its ranges with planex grab");
    }
    return opened;
  }
  if (options.frames.size() == 1) from.beside = scan::readScanSidecar({}, options.frames.front());
  std::optional<io::RawFrames> raw;
  if (!options.raw.empty()) raw = io::RawFrames::parse(options.raw);
  return io::openFrames(options.frames, raw ? &*raw : nullptr);
}

/// How many rows the range image will have; 0: nobody knows.
int rowsOf(const ExtractOptions& options, const io::FrameSource& source, const Part& part) {
  const std::optional<std::int64_t> count = source.count();
  if (!count) return 0;
  const std::int64_t rows = std::min(*count, part.end) - part.first;
  if (rows < 1) {
    throw io::Failure(
        options.frames.front(),
        fmt::format("has {} frames, none of them in --frames {}", *count, options.part));
  }
  return static_cast<int>(std::min<std::int64_t>(rows, std::numeric_limits<int>::max()));
}

/// "98.7 % found, level 143, 0.2 % clipped": of the frames that came last.
std::string liveText(const scan::LineCounts& counts) {
  return fmt::format("{:.1f} % found, level {:.0f}, {:.1f} % clipped", 100 * counts.foundShare(),
                     counts.meanLevel(), 100 * counts.clippedShare());
}

void runExtract(const ExtractOptions& options, const CLI::App& command, const Context& context) {
  options.names.check();
  if (!options.names.deviation.empty() && !options.readNoise) {
    throw CLI::ValidationError("--deviation", "needs --read-noise, and --gain for shot noise");
  }
  const Part part = partOf("--frames", options.part);
  std::optional<StopRequest> stop;
  if (isCamera(options.frames.front())) {
    stop.emplace();
  } else {
    requireNoCameraOptions(command);
  }
  applyThreads(context);
  FrameOrigin from;
  const std::unique_ptr<io::FrameSource> source = open(options, from);
  scan::FrameExtraction extraction = extractionOf(options, source->shape());
  cmnalg::Image dark;
  if (!options.dark.empty()) {
    dark = readDark(options.dark, source->shape());
    extraction.dark = &dark;
  }
  const io::ImageShape frame = extraction.shapeOf(source->shape());
  const int rows = rowsOf(options, *source, part);

  std::vector<std::string> inputs = options.frames;
  inputs.insert(inputs.end(), {options.dark, options.frames.front() + ".json"});
  for (const std::string& output :
       {options.names.range, options.names.range + ".json", options.names.intensity,
        options.names.widths, options.names.quality, options.names.deviation, options.preview}) {
    if (!output.empty()) io::requireNoInput(output, inputs);
  }
  io::WorkerPool pool(workerCount(context));
  io::OutputFile sidecar(options.names.range + ".json", context.force);
  ExtractFiles files(options.names, context, frame, rows,
                     {options.compression.value_or(io::Compression::kNone), &pool});
  FrameRecord record(options.names.range, !options.camera.yFrom.empty(), context);
  ExtractPreview preview(options.preview, extraction, source->shape(), context);
  scan::LineFigures figures(extraction, source->shape());
  source->skip(part.first);

  const auto most =
      static_cast<int>(std::clamp<std::size_t>(kFrameBlockBytes / source->frameBytes(), 1, 4096));
  const int block = options.block == 0 ? most : std::min(options.block, most);
  const int end = static_cast<int>(
      std::min<std::int64_t>(part.end - part.first, std::numeric_limits<int>::max()));
  Progress progress(context, "extracting", rows == 0 ? Progress::kUnknown : rows, "frames");
  scan::streamRows<scan::ExtractedFrames>(
      pool, {0, end, block},
      [&] { return std::make_unique<scan::ExtractedFrames>(*source, extraction); },
      [&](const scan::ExtractedFrames& extracted) {
        files.write(extracted);
        record.take(extracted.count(), extracted.notes().data());
        std::string live = liveText(figures.take(extracted));
        if (from.camera != nullptr) live += ", " + liveText(from.camera->statistics());
        preview.show(extracted);
        progress.advance(extracted.count(), live);
      });
  if (record.frames() == 0) {
    throw io::Failure(options.frames.front(),
                      "ends before the first frame that is asked for; nothing is written");
  }
  sidecar.write(describe(options, context, *source, from, extraction, figures, record, files));
  files.commit();
  record.commit();
  sidecar.commit();
  tell(options, record, frame, figures, context);
  if (from.camera != nullptr) tellHowItEnded(*from.camera);
}

void addLineOptions(CLI::App& command, ExtractOptions& options) {
  constexpr const char* kGroup = "Line";
  const auto number = [&](const char* name, std::optional<double>& value, const char* text,
                          const char* type, const NumberRule& rule) {
    addNumberOption(command, name, value, text, rule)->type_name(type)->group(kGroup);
  };
  const NumberRule width{[](double value) { return value >= 1 && value <= 60; }, "must be 1 to 60"};
  const NumberRule limit{[](double value) { return value >= 0 && value <= 240; },
                         "must be 0 to 240"};
  const NumberRule above{[](double value) { return value > 0; }, "must be above 0"};
  const NumberRule positive{[](double value) { return value >= 0; }, "must not be below 0"};
  number("--line-width", options.lineWidth, "Width of the line at half height [5]", "ROWS", width);
  number("--threshold", options.threshold,
         "Levels by which a line outshines what is above and below it, on the mean of 1.3 line "
         "widths [4 % of full scale]",
         "LEVELS", above);
  const std::map<std::string, LineMethod> methods = {{"fir", LineMethod::DERIVATIVE},
                                                     {"cog", LineMethod::CENTRE_OF_GRAVITY}};
  command
      .add_option_function<std::string>(
          "--method",
          [&options, methods](const std::string& name) { options.method = methods.at(name); },
          "fir: zero crossing of a derivative filter [default]; cog: centre of gravity, better "
          "under speckle")
      ->check(CLI::IsMember({"fir", "cog"}))
      ->type_name("METHOD")
      ->group(kGroup);
  command
      .add_option("--pick", options.pick,
                  "Which line of several: strongest [default], first, last, or nearest:ROW")
      ->type_name("RULE")
      ->group(kGroup);
  command.add_option("--band", options.band, "Look in rows A to B - 1 only")
      ->type_name("A:B")
      ->group(kGroup);
  number("--min-width", options.leastWidth, "Narrower lines are none [1.2]: hot pixels", "ROWS",
         limit);
  number("--max-width", options.mostWidth, "Wider lines are none [4 line widths]", "ROWS", limit);
  command
      .add_option("--dark", options.dark,
                  "Frame without the laser, taken off every frame, not below 0")
      ->type_name("IMAGE")
      ->group(kGroup);
  command.add_flag("--transpose", options.transpose, "The line runs along the columns of frames")
      ->group(kGroup);
  number("--gain", options.gain, "Variance of shot noise a level, for --deviation", "LEVELS",
         positive);
  number("--read-noise", options.readNoise, "Noise of a dark pixel, for --deviation", "LEVELS",
         positive);
}

void addFrameOptions(CLI::App& command, ExtractOptions& options) {
  constexpr const char* kGroup = "Frames";
  command
      .add_option("--frames", options.part,
                  "Take frames A to B - 1 only, counted from 0; A or B may be left out")
      ->type_name("A:B")
      ->group(kGroup);
  command
      .add_option("--raw", options.raw,
                  "Files have no headings: 2560x1024:mono8, or mono10, mono12, mono16, mono10p, "
                  "mono12p")
      ->type_name("WxH:FORMAT")
      ->group(kGroup);
  addNumberOption(command, "--bits", options.bits, "Used bits of a pixel [8, or 16]",
                  {[](double bits) { return bits >= 1 && bits <= 16 && std::floor(bits) == bits; },
                   "must be 1 to 16"})
      ->type_name("N")
      ->group(kGroup);
}

void addPlaceOptions(CLI::App& command, ExtractOptions& options) {
  const auto number = [&](const char* name, std::optional<double>& value, const char* text,
                          const NumberRule& rule = {}) {
    addNumberOption(command, name, value, text, rule)->group("Place");
  };
  const NumberRule scale{[](double value) { return value != 0; }, "must not be 0"};
  const NumberRule size{
      [](double value) { return value >= 1 && value <= 65535 && std::floor(value) == value; },
      "must be a whole number from 1 to 65535"};
  number("--scale-x", options.scaleX, "Sensor columns a column of the frames [1]", scale);
  number("--origin-x", options.originX, "Sensor column of their first column [0]");
  number("--scale-z", options.scaleZ, "Sensor rows a row of the frames [1]", scale);
  number("--origin-z", options.originZ, "Sensor row of their first row [0]");
  number("--sensor-width", options.sensorWidth, "Sensor columns of the region [the frames']", size);
  number("--sensor-height", options.sensorHeight, "Sensor rows of the region [the frames']", size);
  number("--y-scale", options.scaleY, "Distance of neighbouring profiles, a length", scale);
  number("--y-offset", options.originY, "Y of the first profile [0]");
}

}  // namespace

void addExtractCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<ExtractOptions>();
  CLI::App* command = app.add_subcommand("extract", "Find the laser line in frames: a range image");
  command
      ->add_option("FRAMES", options->frames,
                   "Folder of images, images, TIFF with a page a frame, PGM one behind the other, "
                   "raw data; - is standard input; or camera:NAME")
      ->required();
  command
      ->add_option("-o,--output", options->names.range,
                   "Range image, .png, .tif or .npy, a row a frame; OUT.json tells calibrate and "
                   "rectify where it lies")
      ->required()
      ->type_name("OUT");
  const auto layer = [&](const char* name, std::string& path, const char* text) {
    command->add_option(name, path, text)->type_name("IMAGE");
  };
  layer("--intensity", options->names.intensity, "Mean level of every line");
  layer("--widths", options->names.widths, "Width of every line at half height, in 1/64 rows");
  layer("--quality", options->names.quality,
        "16 to 255: how far a line outshines the others; 1 to 6: why there is none (1 nothing, 2 "
        "cut by the border, 3 too wide, 4 too narrow, 5 no middle, 6 frame lost)");
  layer("--deviation", options->names.deviation,
        "Standard deviation of every place by noise, in 1/1024 rows; needs --read-noise");
  command
      ->add_option("--preview", options->preview,
                   "Picture of the last frame and the line in it, .png or .svg, anew every second")
      ->type_name("PICTURE");
  addLineOptions(*command, *options);
  addFrameOptions(*command, *options);
  addPlaceOptions(*command, *options);
  addCameraOptions(*command, options->camera);
  addCompressOption(*command, options->compression);
  command
      ->add_option("--block", options->block,
                   "Hand at most N frames at a time to a thread; results do not depend on it")
      ->check(CLI::Range(1, 1 << 20))
      ->type_name("N");
  addThreadsOption(*command, context);
  addForceOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "Examples:\n"
      "  planex extract frames/ -o range.png --intensity intensity.png\n"
      "  planex extract frames.tif -o range.tif --line-width 8 --pick nearest:300\n"
      "  planex extract camera:192.168.1.20 -n 2000 -o range.tif --set ExposureTime=300\n"
      "  ffmpeg -i scan.avi -f image2pipe -c:v pgm - | planex extract - -o range.png");
  command->callback([options, command, &context] { runExtract(*options, *command, context); });
}

}  // namespace planex::tools
