// Files that others made: images, frames, sidecars, lists of points and of positions. Whatever the
// bytes are, a reader takes them or refuses them with one line that names the file; what it gives
// does not depend on how many rows, frames or points are asked for at a time, and memory stays
// bounded.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "planex/io/cloud_reader.h"
#include "planex/io/failure.h"
#include "planex/io/frame_source.h"
#include "planex/io/image_reader.h"
#include "planex/io/point_text.h"
#include "planex/io/provenance.h"
#include "planex/scan/sensor.h"
#include "planex/scan/y_positions.h"
#include "tests/support/property.h"

namespace {

namespace io = planex::io;
namespace scan = planex::scan;

constexpr std::size_t kMostMemory = std::size_t{300} << 20;
constexpr std::int64_t kMostPixels = 1 << 20;  // read here, of images that announce more

/// A file of these bytes, for as long as the object lives.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& bytes) : descriptor_(memfd_create("input", 0)) {
    CHECK_HOLDS(write(descriptor_, bytes.data(), bytes.size()) ==
                static_cast<ssize_t>(bytes.size()));
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

/// The rows [first, end), `step` at a time, in a buffer that held other bytes.
std::vector<char> rowsOf(io::ImageReader& image, int first, int end, int step, char stale) {
  const std::size_t rowBytes = image.shape().rowBytes();
  std::vector<char> pixels(static_cast<std::size_t>(end - first) * rowBytes, stale);
  for (int row = first; row < end; row += step) {
    image.readRows(row, std::min(step, end - row),
                   pixels.data() + static_cast<std::size_t>(row - first) * rowBytes);
  }
  return pixels;
}

void readImage(const std::string& path, io::Samples samples, test::ByteSource& choices) {
  const auto image =
      samples == io::Samples::kHeights
          ? io::ImageReader::openLayer(path, static_cast<std::size_t>(choices.Between(0, 2)))
          : io::ImageReader::open(path, samples);
  const io::ImageShape& shape = image->shape();
  CHECK_HOLDS(shape.width > 0 && shape.width <= io::ImageReader::kMaximumColumns);
  CHECK_HOLDS(shape.height > 0);
  const int rows =
      static_cast<int>(std::min<std::int64_t>(shape.height, kMostPixels / shape.width));
  const std::vector<char> whole = rowsOf(*image, 0, rows, 1 + choices.Between(0, 9), 0);
  const int first = rows > 0 ? choices.Between(0, 255) % rows : 0;
  const std::vector<char> part = rowsOf(*image, first, rows, 3, 1);  // backwards, and skipping
  CHECK_HOLDS(
      part.size() <= whole.size() &&
      std::equal(part.begin(), part.end(), whole.end() - static_cast<std::ptrdiff_t>(part.size())));
}

/// The frames behind `first`, `most` at a time, in a buffer that held other bytes.
std::string framesOf(const std::string& path, const io::RawFrames* raw, int first, int most) {
  const auto frames = io::openFrames({path}, raw);
  CHECK_HOLDS(frames->shape().width > 0 && frames->shape().height > 0);
  if (frames->frameBytes() > kMostPixels) return {};
  frames->skip(first);
  std::string all, block(static_cast<std::size_t>(most) * frames->frameBytes(), '\x55');
  std::vector<io::FrameNote> notes(static_cast<std::size_t>(most));
  while (const int count = frames->read(most, block.data(), notes.data())) {
    all.append(block, 0, static_cast<std::size_t>(count) * frames->frameBytes());
    if (all.size() > 4 * kMostPixels) return {};
  }
  return all;
}

void readFrames(const std::string& path, bool areRaw, test::ByteSource& choices) {
  io::RawFrames raw;
  const int choice = choices.Between(0, 255);
  raw.packing = static_cast<io::RawFrames::Packing>(choice % 6);
  raw.width = choices.Between(1, 9);
  raw.height = 3;
  const io::RawFrames* const layout = areRaw ? &raw : nullptr;
  const std::string all = framesOf(path, layout, 0, 1 + choice % 3);
  const std::string part = framesOf(path, layout, choice % 4, 2);
  CHECK_HOLDS(part.size() <= all.size() &&
              all.compare(all.size() - part.size(), part.size(), part) == 0);
}

/// All points as bits and as lines, `step` at a time.
std::string pointsOf(const std::string& path, std::size_t step) {
  std::string all;
  std::vector<io::TextPoint> some;
  io::PointReader reader(path, io::kPixelNames);
  while (reader.read(step, some)) {
    for (std::size_t i = 0; i < some.size(); ++i) {
      all += test::bytesOf(some[i]);
      reader.append(all, i, some[i]);
    }
  }
  if (reader.hasHeading()) all += reader.heading(io::kWorldNames);
  return all + std::to_string(reader.dimensions());
}

void readPoints(const std::string& path, test::ByteSource& choices) {
  const auto step = static_cast<std::size_t>(choices.Between(1, 4));
  CHECK_HOLDS(pointsOf(path, step) == pointsOf(path, 1000));
}

/// All points of a cloud as bits, `step` at a time.
std::string cloudOf(const std::string& path, std::size_t step) {
  std::string all;
  std::vector<io::CloudPoint> some;
  io::CloudReader reader(path);
  while (reader.read(step, some)) {
    CHECK_HOLDS(some.size() <= step);
    for (const io::CloudPoint& p : some) all += test::bytesOf(p);
  }
  CHECK_HOLDS(all.size() == static_cast<std::size_t>(reader.count()) * sizeof(io::CloudPoint));
  return all;
}

void readCloud(const std::string& path, test::ByteSource& choices) {
  CHECK_HOLDS(cloudOf(path, static_cast<std::size_t>(choices.Between(1, 4))) ==
              cloudOf(path, 1000));
}

void readSidecar(const std::string& path) {
  datafusion::planex::CalibrationModel model;
  model.SensorSize = {2560, 1024};
  scan::SensorSettings settings;
  const scan::ScanSidecar sidecar = scan::readScanSidecar(path, "");
  const auto region = scan::resolveSensor(settings, sidecar, model, path);
  CHECK_HOLDS(region.scaleX != 0 && region.scaleZ != 0);
  CHECK_HOLDS(region.width >= 1 && region.width <= 65535);
  CHECK_HOLDS(region.height >= 1 && region.height <= 65535);
  CHECK_HOLDS(!sidecar.positions.empty() || scan::resolveY({}, sidecar, 3).at(2) <= 1e39);
  if (const auto told = io::readProvenance(path))
    CHECK_HOLDS(told->json.size() > told->lines.size());
}

PLANEX_PROPERTY(foreign_files) {
  const int number = source.Between(0, 14), kind = number < 12 ? number % 4 : number;
  const std::string choice = source.Text(2);
  const MemoryFile file(source.Rest());
  test::ByteSource choices(reinterpret_cast<const std::uint8_t*>(choice.data()), choice.size());
  const test::MemoryPeak peak;
  try {
    if (kind == 0) readImage(file.path(), static_cast<io::Samples>(number / 4), choices);
    if (kind == 1) readPoints(file.path(), choices);
    if (kind == 2) readSidecar(file.path());
    if (kind == 14) readCloud(file.path(), choices);
    if (kind == 12 || kind == 13) readFrames(file.path(), kind == 13, choices);
    if (kind == 3) CHECK_HOLDS(scan::YPositions(file.path(), 3).at(2) <= 1e308 * 10);
  } catch (const io::Failure& failure) {
    const std::string text = failure.what();
    CHECK_HOLDS(text.compare(0, file.path().size() + 2, file.path() + ": ") == 0);
  }
  CHECK_HOLDS(peak.Bytes() < kMostMemory);
}

}  // namespace
