#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/frame_writer.h>
#include <planex/io/output_file.h>
#include <planex/io/provenance.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/camera_options.h"
#include "tools/cli/frame_record.h"
#include "tools/cli/made.h"
#include "tools/cli/progress.h"
#include "tools/cli/raster_file.h"
#include "tools/cli/stop_request.h"
#include "tools/commands/commands.h"
#include "tools/commands/rectify_files.h"

namespace planex::tools {
namespace {

using acquisition::CameraFrames;

struct GrabOptions {
  std::string source, output;
  CameraOptions camera;
};

/// What is written: frames, or range images and what comes with them.
class Recording {
 public:
  virtual ~Recording() = default;
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  virtual void write(int count, const void* frames, const void* intensities) = 0;
  /// Completes the files and tells the sidecar of them.
  virtual void finish(OutputSidecar& sidecar) = 0;
  virtual void commit() = 0;

 protected:
  Recording() = default;
};

class FrameRecording : public Recording {
 public:
  FrameRecording(io::FrameFormat format, const std::string& path, const Context& context,
                 const io::ImageShape& shape)
      : file_(path, context.force), writer_(io::FrameWriter::create(format, file_, shape)) {}

  void write(int count, const void* frames, const void* /*intensities*/) override {
    writer_->write(count, frames);
  }
  void finish(OutputSidecar& sidecar) override {
    writer_->finish();
    sidecar.addOutput("frames", file_.path(), file_.size());
  }
  void commit() override { file_.commit(); }

 private:
  io::OutputFile file_;
  std::unique_ptr<io::FrameWriter> writer_;
};

/// Rows of a range image, and of an image of intensities beside it.
class RangeRecording : public Recording {
 public:
  RangeRecording(const std::string& path, const Context& context, const CameraFrames& camera)
      : height_(camera.shape().height),
        rangeRow_(camera.shape().rowBytes()),
        range_(path, "range", camera.shape().width, 0, camera.shape().type, context) {
    if (camera.intensityType() == cmnalg::IMAGE_TYPE_INVALID) return;
    const io::ImageShape shape{camera.shape().width, height_, camera.intensityType()};
    intensityRow_ = shape.rowBytes();
    intensity_.emplace(besidePath(path, "intensity"), "intensity", shape.width, 0, shape.type,
                       context);
  }

  void write(int count, const void* frames, const void* intensities) override {
    writeRows(range_, count, frames, rangeRow_);
    if (intensity_) writeRows(*intensity_, count, intensities, intensityRow_);
  }
  void finish(OutputSidecar& sidecar) override {
    range_.finish(sidecar);
    if (intensity_) intensity_->finish(sidecar);
  }
  void commit() override {
    range_.commit();
    if (intensity_) intensity_->commit();
  }

 private:
  /// In parts, because rows are counted in int.
  void writeRows(RasterFile& raster, int count, const void* frames, std::size_t rowBytes) const {
    const auto* at = static_cast<const std::byte*>(frames);
    for (int i = 0; i < count; ++i, at += rowBytes * static_cast<std::size_t>(height_)) {
      raster.writeRows(height_, at);
    }
  }

  int height_;
  std::size_t rangeRow_, intensityRow_ = 0;
  RasterFile range_;
  std::optional<RasterFile> intensity_;
};

std::string describe(Recording& recording, FrameRecord& record, const GrabOptions& options,
                     const CameraFrames& camera, const Context& context) {
  const std::string path = options.output + ".json";
  OutputSidecar sidecar(path, camera.hasRanges() ? "range image" : "frames", context);
  const io::JsonText& root = sidecar.root();
  addSensor(root, camera.sensor());
  if (!record.placesPath().empty()) {
    root.addObject("rows").add("positions", io::seenFrom(path, record.placesPath()));
  }
  record.describe(root);
  addCamera(root, camera);
  sidecar.addMade({});
  recording.finish(sidecar);
  record.addOutput(sidecar);
  return sidecar.print();
}

std::unique_ptr<Recording> createRecording(const GrabOptions& options, const CameraFrames& camera,
                                           const Context& context) {
  const auto require = [&](bool holds, const char* option, const char* complaint) {
    if (!holds) throw CLI::ValidationError(option, complaint);
  };
  if (camera.hasRanges()) {
    require(io::rasterFormatOf(options.output).has_value(), "--output",
            "must end in .tif, .png or .npy for the ranges that this camera sends");
    require(options.camera.yFrom.empty() || camera.shape().height == 1, "--y-from",
            "needs frames of one profile; set Height=1");
    return std::make_unique<RangeRecording>(options.output, context, camera);
  }
  const auto format = io::frameFormatOf(options.output);
  require(format.has_value(), "--output",
          "must end in .tif, .pgm or .raw for the frames that this camera sends");
  return std::make_unique<FrameRecording>(*format, options.output, context, camera.shape());
}

void take(CameraFrames& camera, Recording& recording, FrameRecord& record,
          const GrabOptions& options, const Context& context) {
  const auto block = std::clamp<std::size_t>(kFrameBlockBytes / camera.frameBytes(), 1, 4096);
  const std::size_t pixels =
      camera.frameBytes() / cmnalg::bytesPerPixel(camera.shape().type) * block;
  std::vector<std::byte> frames(block * camera.frameBytes());
  std::vector<std::byte> intensities;
  if (camera.intensityType() != cmnalg::IMAGE_TYPE_INVALID) {
    intensities.resize(pixels * cmnalg::bytesPerPixel(camera.intensityType()));
  }
  std::vector<io::FrameNote> notes(block);
  Progress progress(context, "grabbing", options.camera.frames.value_or(Progress::kUnknown),
                    "frames");
  while (const int count = camera.readRanges(static_cast<int>(block), frames.data(),
                                             intensities.data(), notes.data())) {
    recording.write(count, frames.data(), intensities.data());
    record.take(count, notes.data());
    progress.advance(count, liveText(camera.statistics()));
  }
}

void runGrab(const GrabOptions& options, const Context& context) {
  if (!isCamera(options.source)) {
    throw CLI::ValidationError("CAMERA", "'" + options.source + "' is not camera:NAME");
  }
  if (!io::frameFormatOf(options.output) && !io::rasterFormatOf(options.output)) {
    throw CLI::ValidationError(
        "--output", "'" + options.output + "' ends neither in .tif, .pgm, .raw, .png nor .npy");
  }
  const StopRequest stop;
  const std::unique_ptr<CameraFrames> camera = openCamera(options.camera, options.source);
  io::OutputFile sidecar(options.output + ".json", context.force);
  const auto recording = createRecording(options, *camera, context);
  FrameRecord record(options.output, !options.camera.yFrom.empty(), context);
  take(*camera, *recording, record, options, context);
  if (record.frames() == 0) {
    throw io::Failure(options.source, "was stopped before the first frame; nothing is written");
  }
  sidecar.write(describe(*recording, record, options, *camera, context));
  recording->commit();
  record.commit();
  sidecar.commit();
  if (!context.quiet) {
    std::fputs(fmt::format("{}: {} frames of {} x {} pixels, {} lost\n",
                           io::inOneLine(options.output), record.frames(), camera->shape().width,
                           camera->shape().height, camera->statistics().lost)
                   .c_str(),
               stdout);
  }
  tellHowItEnded(*camera);
}

}  // namespace

void addGrabCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<GrabOptions>();
  CLI::App* command = app.add_subcommand("grab", "Record the frames, or the ranges, of a camera");
  command->add_option("CAMERA", options->source, "camera:NAME, a name that planex cameras lists")
      ->required();
  command
      ->add_option("-o,--output", options->output,
                   "File: .tif with a page a frame, .pgm with one image behind the other, or .raw; "
                   "of a 3D camera a range image, .tif, .png or .npy, with its intensities in "
                   "FRAMES_intensity")
      ->required()
      ->type_name("FRAMES");
  addCameraOptions(*command, options->camera);
  addForceOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "Examples:\n"
      "  planex grab camera:192.168.1.20 -n 500 -o frames.tif\n"
      "  planex grab camera:192.168.1.20 --time 10 --rate 200 --set Gain=3 -o frames.tif\n"
      "  planex grab camera:192.168.1.20 --trigger Line1 --y-from chunk:EncoderValue:0.005 -o "
      "frames.tif");
  command->callback([options, &context] { runGrab(*options, context); });
}

}  // namespace planex::tools
