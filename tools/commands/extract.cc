#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/frame_source.h>
#include <planex/io/pixel_packing.h>
#include <planex/io/provenance.h>
#include <planex/scan/line_figures.h>
#include <planex/scan/row_stream.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
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
#include "tools/commands/extract_options.h"
#include "tools/commands/extract_preview.h"

namespace planex::tools {
namespace {

using datafusion::planex::LineMethod;
using datafusion::planex::LineSettings;
using datafusion::planex::SensorRegion;
using tools::liveText;

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
  std::optional<int> bits;                            // of a pixel, where the format tells
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
  region.width = static_cast<int>(options.sensorWidth.value_or(0));
  region.height = static_cast<int>(options.sensorHeight.value_or(0));
  return datafusion::planex::lineRegion(region, frame.width, frame.height);
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
    from.bits = io::usedBits(opened->pixelFormat());
    if (opened->hasRanges()) {
      throw io::Failure(options.frames.front(),
                        "finds the laser line itself; record its ranges with planex grab");
    }
    return opened;
  }
  if (options.frames.size() == 1) from.beside = scan::readScanSidecar({}, options.frames.front());
  std::optional<io::RawFrames> raw;
  if (!options.raw.empty()) raw = io::RawFrames::parse(options.raw);
  from.bits = from.beside.bits;
  if (raw && !from.bits) from.bits = raw->bits();
  return io::openFrames(options.frames, raw ? &*raw : nullptr);
}

/// What an output must not replace: the inputs, and of folders what has its name there.
std::vector<std::string> inputsBeside(const ExtractOptions& options, const std::string& output) {
  std::vector<std::string> inputs = options.frames;
  inputs.insert(inputs.end(), {options.dark, options.frames.front() + ".json"});
  const std::filesystem::path name = std::filesystem::path(output).filename();
  for (const std::string& frames : options.frames) {
    inputs.push_back((std::filesystem::path(frames) / name).string());
  }
  return inputs;
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
  scan::FrameExtraction extraction = extractionOf(options, source->shape(), from.bits);
  cmnalg::Image dark;
  if (!options.dark.empty()) {
    dark = readDark(options.dark, source->shape());
    extraction.dark = &dark;
  }
  const io::ImageShape frame = extraction.shapeOf(source->shape());
  const int rows = rowsOf(options, *source, part);

  for (const std::string& output :
       {options.names.range, options.names.range + ".json", options.names.intensity,
        options.names.widths, options.names.quality, options.names.deviation, options.preview}) {
    if (!output.empty()) io::requireNoInput(output, inputsBeside(options, output));
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
  addExtractOptions(*command, *options);
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
