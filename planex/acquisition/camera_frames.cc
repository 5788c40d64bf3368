#include "planex/acquisition/camera_frames.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <future>
#include <limits>
#include <system_error>
#include <thread>

#include "planex/acquisition/camera_setup.h"
#include "planex/acquisition/frame_numbers.h"
#include "planex/acquisition/pixel_unpacking.h"
#include "planex/io/failure.h"

namespace planex::acquisition {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kWait = 50'000;  // microseconds between looks at the request to stop
constexpr double kMostBytes = 1 << 30;   // of waiting frames, unless told
constexpr double kUsualRate = 100;       // where a camera does not tell its rate
constexpr int kLeastBuffers = 8;
constexpr std::size_t kLeastSocket = std::size_t{1} << 20;
constexpr std::size_t kMostSocket = std::size_t{1} << 26;

// Components of frames with several parts, as the Standard Features Naming Convention numbers them.
constexpr guint kIntensity = 1, kRange = 4, kReflectance = 5;

/// One image in a buffer.
struct Part {
  const std::uint8_t* data = nullptr;
  int width = 0, height = 0;
  std::size_t stride = 0;  // bytes from row to row; 0: rows follow without gaps
  ArvPixelFormat format = 0;
};

/// The name by which features call a format that frames call by its number.
const char* nameOf(ArvPixelFormat format) {
  switch (format) {
    case ARV_PIXEL_FORMAT_MONO_8:
      return "Mono8";
    case ARV_PIXEL_FORMAT_MONO_10:
      return "Mono10";
    case ARV_PIXEL_FORMAT_MONO_12:
      return "Mono12";
    case ARV_PIXEL_FORMAT_MONO_16:
      return "Mono16";
    case 0x010A0046:
      return "Mono10p";
    case 0x010C0047:
      return "Mono12p";
    case ARV_PIXEL_FORMAT_COORD3D_C_16:
      return "Coord3D_C16";
    default:
      return "";
  }
}

/// Whether a part of so many bytes, if that is known, holds its pixels.
bool isWhole(const Part& part, std::size_t size) {
  const auto format = PixelFormat::named(nameOf(part.format));
  if (!format || part.data == nullptr || part.width <= 0 || part.height <= 0) return false;
  const auto rows = static_cast<std::size_t>(part.height);
  const auto columns = static_cast<std::size_t>(part.width);
  return part.stride == 0 ? format->bytes(rows * columns) <= size
                          : (rows - 1) * part.stride + format->bytes(columns) <= size;
}

/// @param known the size where the buffer does not tell one, as those of a camera in this process
std::optional<Part> imageIn(ArvBuffer* buffer, guint index, std::size_t known) {
  Part part;
  gint x = 0, y = 0, paddingX = 0, paddingY = 0;
  std::size_t size = 0;
  part.data = static_cast<const std::uint8_t*>(arv_buffer_get_part_data(buffer, index, &size));
  arv_buffer_get_part_region(buffer, index, &x, &y, &part.width, &part.height);
  arv_buffer_get_part_padding(buffer, index, &paddingX, &paddingY);
  part.format = arv_buffer_get_part_pixel_format(buffer, index);
  if (const auto format = PixelFormat::named(nameOf(part.format)); format && paddingX > 0) {
    part.stride =
        format->bytes(static_cast<std::size_t>(part.width)) + static_cast<std::size_t>(paddingX);
  }
  if (!isWhole(part, size == 0 ? known : size)) return std::nullopt;
  return part;
}

/// The first of the parts that has one of two meanings.
std::optional<Part> partOf(ArvBuffer* buffer, guint component, guint other) {
  for (guint i = 0; i < arv_buffer_get_n_parts(buffer); ++i) {
    const guint id = arv_buffer_get_part_component_id(buffer, i);
    if (id == component || id == other) return imageIn(buffer, i, 0);
  }
  return std::nullopt;
}

/// Gives pixels of 16 bits that stand for no measurement their 0.
void clear(int invalid, std::size_t count, void* ranges) {
  auto* values = static_cast<std::uint16_t*>(ranges);
  std::replace(values, values + count, static_cast<std::uint16_t>(invalid), std::uint16_t{0});
}

void copy(const Part& part, void* pixels) {
  const PixelFormat format = *PixelFormat::named(nameOf(part.format));
  const auto columns = static_cast<std::size_t>(part.width);
  if (part.stride == 0) {
    unpack(format, part.data, columns * static_cast<std::size_t>(part.height), pixels);
    return;
  }
  auto* to = static_cast<std::uint8_t*>(pixels);
  for (int row = 0; row < part.height; ++row, to += columns * cmnalg::bytesPerPixel(format.type)) {
    unpack(format, part.data + static_cast<std::size_t>(row) * part.stride, columns, to);
  }
}

std::int64_t largestSocket() {
  std::ifstream file("/proc/sys/net/core/rmem_max");
  std::int64_t bytes = 0;
  return file >> bytes ? bytes : std::numeric_limits<std::int64_t>::max();
}

class AravisFrames final : public CameraFrames {
 public:
  explicit AravisFrames(const CameraSettings& settings);
  ~AravisFrames() override;

  void skip(std::int64_t frames) override;
  int read(int most, void* frames, io::FrameNote* notes) override {
    return readRanges(most, frames, nullptr, notes);
  }
  int readRanges(int most, void* ranges, void* intensities, io::FrameNote* notes) override;

  const CameraIdentity& identity() const override { return identity_; }
  const std::string& pixelFormat() const override { return pixelFormat_; }
  const std::vector<FeatureValue>& features() const override { return features_; }
  const datafusion::planex::SensorRegion& sensor() const override { return sensor_; }
  bool hasRanges() const override { return hasRanges_; }
  cmnalg::ImageType intensityType() const override { return intensityType_; }
  CameraStatistics statistics() const override;
  const std::string& fault() const override { return fault_; }
  std::string advice() const override;

 private:
  /// A frame that arrived and waits to be read.
  struct Waiting {
    Ref<ArvBuffer> buffer;
    Part image;
    std::optional<Part> intensity;
    double y = 0;
    std::int64_t lost = 0, marked = 0;  // before it; and how many of them were read
  };

  void open();
  void openStream();
  void start();
  void close();
  void look(const Part& image, const std::optional<Part>& intensity);
  bool fetch(bool waits);
  bool take(Ref<ArvBuffer> buffer);
  std::optional<double> placeOf(ArvBuffer* buffer);
  void giveBack(Ref<ArvBuffer> buffer) { arv_stream_push_buffer(stream_.get(), buffer.release()); }
  bool isOver() const;
  void end(const std::string& fault);

  CameraSettings settings_;
  Ref<ArvCamera> camera_;
  Ref<ArvChunkParser> chunks_;
  Ref<ArvStream> stream_;
  CameraIdentity identity_;
  std::string pixelFormat_;
  std::vector<FeatureValue> features_;
  datafusion::planex::SensorRegion sensor_;
  bool hasRanges_ = false;
  std::optional<int> invalid_;
  cmnalg::ImageType intensityType_ = cmnalg::IMAGE_TYPE_INVALID;
  std::size_t payload_ = 0;
  int buffers_ = 0;

  bool started_ = false, ended_ = false;
  std::string fault_;
  std::optional<Waiting> next_;
  FrameNumbers numbers_;
  std::int64_t read_ = 0;    // marked ones included
  std::int64_t broken_ = 0;  // came, but not whole
  std::optional<std::uint64_t> firstTime_;
  double lastY_ = std::numeric_limits<double>::quiet_NaN();
  std::optional<Clock::time_point> first_;
  std::atomic<std::int64_t> arrived_{0}, lost_{0};
  std::atomic<bool> gone_{false};
};

AravisFrames::AravisFrames(const CameraSettings& settings)
    : CameraFrames("camera:" + settings.camera), settings_(settings) {
  open();
  const CameraFeatures features(camera_.get(), settings_.camera);
  features_ = setUp(camera_.get(), features, settings_);
  hasRanges_ = sendsRanges(features);
  sensor_ = hasRanges_ ? rangeRegion(features) : sensorRegion(features);
  if (hasRanges_) invalid_ = invalidRange(features);
  pixelFormat_ = features.text("PixelFormat");
  const auto format = PixelFormat::named(pixelFormat_);
  if (!format || (pixelFormat_ == "Coord3D_C16") > hasRanges_) {
    features.refuse("sends " + pixelFormat_ +
                    "; set PixelFormat to Mono8, Mono10, Mono12, Mono16, Mono10p or Mono12p");
  }
  announce({static_cast<int>(features.integer("Width", 0)),
            static_cast<int>(features.integer("Height", 0)), format->type});
  if (!settings_.chunk.empty()) {
    chunks_.reset(arv_camera_create_chunk_parser(camera_.get()));
    if (settings_.chunk.rfind("Chunk", 0) != 0) settings_.chunk = "Chunk" + settings_.chunk;
  }
  openStream();
  if (!hasRanges_) return;
  try {  // what comes with them, the first ones tell
    start();
    fetch(true);
  } catch (...) {
    close();
    throw;
  }
}

void AravisFrames::open() {
  const auto refuse = [&](const std::string& problem) { throw io::Failure(name(), problem); };
  if (settings_.camera.empty()) refuse("names no camera; see planex cameras");
  AravisError error;
  camera_.reset(arv_camera_new(settings_.camera.c_str(), error.out()));
  if (camera_ == nullptr) {
    refuse("no such camera answers (" + io::inOneLine(error.text()) + "); see planex cameras");
  }
  ArvDevice* device = arv_camera_get_device(camera_.get());
  if (ARV_IS_GV_DEVICE(device) && arv_gv_device_is_controller(ARV_GV_DEVICE(device)) == 0) {
    refuse("is controlled by another program; end that first");
  }
  g_signal_connect(device, "control-lost", G_CALLBACK(+[](ArvDevice*, void* gone) {
                     *static_cast<std::atomic<bool>*>(gone) = true;
                   }),
                   &gone_);
  identity_.id = textOf(arv_camera_get_device_id(camera_.get(), error.out()));
  identity_.maker = textOf(arv_camera_get_vendor_name(camera_.get(), error.out()));
  identity_.model = textOf(arv_camera_get_model_name(camera_.get(), error.out()));
  identity_.serial = textOf(arv_camera_get_device_serial_number(camera_.get(), error.out()));
}

void AravisFrames::openStream() {
  const CameraFeatures features(camera_.get(), settings_.camera);
  AravisError error;
  if (hasRanges_ && arv_camera_is_gv_device(camera_.get()) != 0 &&
      arv_camera_gv_is_multipart_supported(camera_.get(), error.out()) != 0) {
    arv_camera_gv_set_multipart(camera_.get(), 1, error.out());
  }
  payload_ = arv_camera_get_payload(camera_.get(), error.out());
  features.require(error, "does not tell how large its frames are");
  stream_.reset(arv_camera_create_stream(camera_.get(), nullptr, nullptr, error.out()));
  if (stream_ == nullptr) {
    features.require(error, "cannot be read; is it controlled by another program?");
    features.refuse("cannot be read; start it anew");
  }
  if (ARV_IS_GV_STREAM(stream_.get())) {
    const auto socket = static_cast<int>(std::clamp(4 * payload_, kLeastSocket, kMostSocket));
    g_object_set(stream_.get(), "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED,
                 "socket-buffer-size", socket, nullptr);
  }
  double rate = arv_camera_get_frame_rate(camera_.get(), error.out());
  if (error || !(rate > 0)) rate = kUsualRate;
  const double most = kMostBytes / static_cast<double>(std::max<std::size_t>(payload_, 1));
  buffers_ = settings_.buffers > 0
                 ? settings_.buffers
                 : std::max(kLeastBuffers, static_cast<int>(std::min(std::ceil(rate), most)));
}

AravisFrames::~AravisFrames() { close(); }

void AravisFrames::close() {
  next_.reset();
  g_signal_handlers_disconnect_by_data(arv_camera_get_device(camera_.get()), &gone_);
  const auto stop = [isStarted = started_](Ref<ArvStream>& stream, Ref<ArvCamera>& camera) {
    if (isStarted) arv_camera_stop_acquisition(camera.get(), nullptr);
    stream.reset();  // ends the thread that fills buffers
    camera.reset();
  };
  if (fault_.empty()) return stop(stream_, camera_);
  // For a camera that does not answer Aravis waits ten seconds and more.
  std::promise<void> stopped;
  const std::future<void> isStopped = stopped.get_future();
  try {
    std::thread([stop, stream = std::move(stream_), camera = std::move(camera_),
                 stopped = std::move(stopped)]() mutable {
      stop(stream, camera);
      stopped.set_value();
    }).detach();
  } catch (const std::system_error&) {  // no thread: Aravis is left without a stop
    return;
  }
  isStopped.wait_for(std::chrono::seconds(1));
}

void AravisFrames::start() {
  if (started_) return;
  for (int i = 0; i < buffers_; ++i) {
    arv_stream_push_buffer(stream_.get(), arv_buffer_new_allocate(payload_));
  }
  AravisError error;
  arv_camera_start_acquisition(camera_.get(), error.out());
  if (error) throw io::Failure(name(), "cannot be started (" + io::inOneLine(error.text()) + ")");
  started_ = true;
}

/// Compares a frame with what the features have announced; the first one of ranges announces.
void AravisFrames::look(const Part& image, const std::optional<Part>& intensity) {
  const auto type = PixelFormat::named(nameOf(image.format))->type;
  if (hasRanges_ && arrived_ == 0) {
    announce({image.width, image.height, type});
    if (intensity) intensityType_ = PixelFormat::named(nameOf(intensity->format))->type;
  }
  if (image.width != shape().width || image.height != shape().height || type != shape().type) {
    end(fmt::format("sends frames of {} x {} pixels of {} where {} x {} of {} were announced",
                    image.width, image.height, nameOf(image.format), shape().width, shape().height,
                    pixelFormat_));
  }
}

bool AravisFrames::isOver() const {
  if (settings_.frames && read_ >= *settings_.frames) return true;
  if (settings_.seconds && first_ &&
      std::chrono::duration<double>(Clock::now() - *first_).count() >= *settings_.seconds) {
    return true;
  }
  return settings_.isStopped && settings_.isStopped();
}

void AravisFrames::end(const std::string& fault) {
  ended_ = true;
  fault_ = fault;
  if (read_ == 0) throw io::Failure(name(), fault);
}

/// Where a frame was taken; nothing where it does not tell.
std::optional<double> AravisFrames::placeOf(ArvBuffer* buffer) {
  if (chunks_) {
    if (arv_buffer_has_chunks(buffer) == 0) return std::nullopt;
    AravisError error;
    const char* chunk = settings_.chunk.c_str();
    const gint64 ticks =
        arv_chunk_parser_get_integer_value(chunks_.get(), buffer, chunk, error.out());
    if (!error) return settings_.lengthPerTick * static_cast<double>(ticks);
    const double value =
        arv_chunk_parser_get_float_value(chunks_.get(), buffer, chunk, error.out());
    if (!error) return settings_.lengthPerTick * value;
    return std::nullopt;
  }
  if (!settings_.lengthPerSecond) return std::numeric_limits<double>::quiet_NaN();
  const std::uint64_t time = arv_buffer_get_timestamp(buffer);
  if (time == 0) return std::nullopt;
  if (!firstTime_) firstTime_ = time;
  const auto since = static_cast<std::int64_t>(time - *firstTime_);  // nanoseconds
  return *settings_.lengthPerSecond * 1e-9 * static_cast<double>(since);
}

/// Makes a buffer the next frame, if it is whole.
bool AravisFrames::take(Ref<ArvBuffer> buffer) {
  std::optional<Part> image, intensity;
  if (arv_buffer_get_status(buffer.get()) == ARV_BUFFER_STATUS_SUCCESS) {
    const bool hasParts =
        arv_buffer_get_payload_type(buffer.get()) == ARV_BUFFER_PAYLOAD_TYPE_MULTIPART;
    image = hasParts ? partOf(buffer.get(), hasRanges_ ? kRange : kIntensity, kRange)
                     : imageIn(buffer.get(), 0, payload_);
    if (hasParts && hasRanges_) intensity = partOf(buffer.get(), kIntensity, kReflectance);
  }
  if (!image) {
    ++broken_;
    giveBack(std::move(buffer));
    return false;
  }
  const std::optional<std::int64_t> lost = numbers_.take(arv_buffer_get_frame_id(buffer.get()));
  look(*image, intensity);
  const std::optional<double> y = placeOf(buffer.get());
  if (!lost && !ended_) end("counts its frames anew; was it started by another program?");
  if (!y && !ended_) {
    end(chunks_ ? "sends no " + settings_.chunk + " with its frames" : "sends no time stamps");
  }
  if (!ended_ && *lost > 0) {
    lost_ += *lost;
    if (settings_.lost == LostFrames::kFail) {
      end(fmt::format("{} frames are lost behind frame {}", *lost, read_));
    }
  }
  if (ended_) {
    giveBack(std::move(buffer));
    return false;
  }
  if (!first_) first_ = Clock::now();
  ++arrived_;
  next_ = Waiting{
      std::move(buffer), *image, intensity, *y, settings_.lost == LostFrames::kMark ? *lost : 0, 0};
  return true;
}

/// Looks for the next frame.
/// @param waits for it, until something ends the acquisition
bool AravisFrames::fetch(bool waits) {
  const Clock::time_point begin = Clock::now();  // before that nobody waited
  while (!next_ && !ended_) {
    Ref<ArvBuffer> buffer(waits ? arv_stream_timeout_pop_buffer(stream_.get(), kWait)
                                : arv_stream_try_pop_buffer(stream_.get()));
    if (buffer != nullptr) {
      take(std::move(buffer));
    } else if (!waits) {
      break;
    } else if (gone_) {
      end("does not answer any longer; look after its cable and power");
    }
    if (waits && !next_ && isOver()) break;
    if (!next_ && !ended_ &&
        std::chrono::duration<double>(Clock::now() - begin).count() > settings_.timeout) {
      end(fmt::format("no frame came for {:.6g} seconds{}", settings_.timeout,
                      broken_ > 0 ? fmt::format(", and {} came in part", broken_) : ""));
    }
  }
  return next_.has_value();
}

int AravisFrames::readRanges(int most, void* ranges, void* intensities, io::FrameNote* notes) {
  start();
  const auto pixels =
      static_cast<std::size_t>(shape().width) * static_cast<std::size_t>(shape().height);
  const std::size_t grey = intensityType_ == cmnalg::IMAGE_TYPE_INVALID
                               ? 0
                               : pixels * cmnalg::bytesPerPixel(intensityType_);
  int count = 0;
  for (; count < most && !isOver() && fetch(count == 0); ++count, ++read_) {
    auto* to = static_cast<std::uint8_t*>(ranges) + static_cast<std::size_t>(count) * frameBytes();
    auto* greyTo = intensities == nullptr || grey == 0 ? nullptr
                                                       : static_cast<std::uint8_t*>(intensities) +
                                                             static_cast<std::size_t>(count) * grey;
    io::FrameNote& note = notes[count];
    if (next_->marked < next_->lost) {
      ++next_->marked;
      note.lost = true;
      note.y = lastY_ + (next_->y - lastY_) * static_cast<double>(next_->marked) /
                            static_cast<double>(next_->lost + 1);
      std::memset(to, 0, frameBytes());
      if (greyTo != nullptr) std::memset(greyTo, 0, grey);
      continue;
    }
    note = {false, next_->y};
    lastY_ = next_->y;
    copy(next_->image, to);
    if (invalid_) clear(*invalid_, pixels, to);
    if (greyTo != nullptr) {
      const std::optional<Part>& part = next_->intensity;
      if (part && part->width == shape().width && part->height == shape().height &&
          PixelFormat::named(nameOf(part->format))->type == intensityType_) {
        copy(*part, greyTo);
      } else {
        std::memset(greyTo, 0, grey);
      }
    }
    giveBack(std::move(next_->buffer));
    next_.reset();
  }
  return count;
}

void AravisFrames::skip(std::int64_t frames) {
  std::vector<std::uint8_t> frame(frameBytes());
  io::FrameNote note;
  while (frames-- > 0 && read(1, frame.data(), &note) == 1) {
  }
}

CameraStatistics AravisFrames::statistics() const {
  gint free = 0, filled = 0;
  arv_stream_get_n_buffers(stream_.get(), &free, &filled);
  return {arrived_, lost_, free, buffers_};
}

std::string AravisFrames::advice() const {
  if (!ARV_IS_GV_STREAM(stream_.get())) return {};
  const std::int64_t largest = largestSocket();
  if (largest >= static_cast<std::int64_t>(std::min(4 * payload_, kMostSocket))) return {};
  return fmt::format(
      "the system holds {} bytes of a frame's {}: raise net.core.rmem_max, or let planex read "
      "packets "
      "with: setcap cap_net_raw+ep",
      largest, payload_);
}

}  // namespace

CameraFrames::CameraFrames(std::string name) : io::FrameSource(std::move(name)) {}
CameraFrames::~CameraFrames() = default;

std::unique_ptr<CameraFrames> CameraFrames::open(const CameraSettings& settings) {
  return std::make_unique<AravisFrames>(settings);
}

}  // namespace planex::acquisition
