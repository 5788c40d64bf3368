#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/bindings.h"
#include "core/call.h"
#include "planex/io/frame_source.h"
#include "planex/processing/frame_preparation.h"
#include "planex/processing/line_extraction.h"

namespace planex_python {
namespace {

namespace io = planex::io;

using cmnalg::Image;
using cmnalg::ImageOf;
using datafusion::planex::LineChoice;
using datafusion::planex::LineMethod;
using datafusion::planex::LineSettings;
using datafusion::planex::SensorRegion;

/// Between two checks for signals each thread looks at so many, a tenth of a second at worst.
constexpr std::int64_t kPixelsPerThread = std::int64_t{32} << 20;
/// So many are kept in copies, where frames are not looked at as they are.
constexpr std::int64_t kPreparedPixels = std::int64_t{32} << 20;

/// The fields of a record of planex.lines.
LineSettings settingsOf(py::handle record) {
  static const FieldName method("method"), lineWidth("line_width"), threshold("threshold"),
      fullScale("full_scale"), choice("choice"), nearestRow("nearest_row"), firstRow("first_row"),
      endRow("end_row"), minimumWidth("minimum_width"), maximumWidth("maximum_width"), gain("gain"),
      readNoise("read_noise");
  const auto whole = [&](const FieldName& name) {
    return static_cast<int>(numberOf(record, name));
  };
  LineSettings settings;
  settings.method = static_cast<LineMethod>(whole(method));
  settings.lineWidth = numberOf(record, lineWidth);
  settings.threshold = numberOf(record, threshold);
  settings.fullScale = numberOf(record, fullScale);
  settings.choice = static_cast<LineChoice>(whole(choice));
  settings.nearestRow = whole(nearestRow);
  settings.firstRow = whole(firstRow);
  settings.endRow = whole(endRow);
  settings.minimumWidth = numberOf(record, minimumWidth);
  settings.maximumWidth = numberOf(record, maximumWidth);
  settings.gain = numberOf(record, gain);
  settings.readNoise = numberOf(record, readNoise);
  return settings;
}

/// The range image and its layers, a row a frame.
class LineTargets {
 public:
  /// @param wanted names of what is wanted, and arrays, or None, for it
  LineTargets(const py::dict& wanted, cmnalg::ImageType frames, std::int64_t rows,
              std::int64_t columns)
      : types_{cmnalg::IMAGE_TYPE_UINT16, frames, cmnalg::IMAGE_TYPE_UINT16,
               cmnalg::IMAGE_TYPE_UINT8, cmnalg::IMAGE_TYPE_UINT16} {
    for (std::size_t i = 0; i < kNames.size(); ++i) {
      if (!wanted.contains(kNames[i])) continue;
      outputs_[i].emplace(wanted[kNames[i]], kTitles[i], types_[i], rows, columns);
    }
  }

  std::vector<const Profiles*> All() const {
    std::vector<const Profiles*> all;
    for (const auto& output : outputs_) {
      if (output) all.push_back(&output->profiles);
    }
    return all;
  }

  void Allocate() {
    for (auto& output : outputs_) {
      if (output) output->Allocate();
    }
  }

  bool Extract(const Image* frames, const LineSettings& settings, std::int64_t first, int count) {
    ImageOf<std::uint16_t> range, width, deviation;
    ImageOf<std::uint8_t> quality;
    Image intensity;
    const auto view = [&](std::size_t i, auto& image) {
      if (outputs_[i]) outputs_[i]->profiles.View(first, count, image);
      return outputs_[i] ? &image : nullptr;
    };
    view(0, range);
    return datafusion::planex::extractLines(
        frames, count, settings, 0, range,
        {view(1, intensity), view(2, width), view(3, quality), view(4, deviation)});
  }

  py::dict Result() const {
    py::dict result;
    for (std::size_t i = 0; i < kNames.size(); ++i) {
      if (outputs_[i]) result[kNames[i]] = outputs_[i]->array;
    }
    return result;
  }

 private:
  static constexpr std::array kNames = {"range", "intensity", "width", "quality", "deviation"};
  static constexpr std::array kTitles = {"out['range']", "out['intensity']", "out['width']",
                                         "out['quality']", "out['deviation']"};
  std::array<cmnalg::ImageType, 5> types_;
  std::array<std::optional<Output>, 5> outputs_;
};

/// Frames as lines are looked for in them: where they lie, or in copies.
class PreparedFrames {
 public:
  PreparedFrames(const FrameStack& stack, const Profiles* dark, bool transposed)
      : stack_(stack), dark_(dark), transposed_(transposed) {}

  bool AreCopies() const { return dark_ != nullptr || transposed_; }

  /// Those of one block.
  const Image* Prepare(std::int64_t first, int count) {
    images_.resize(static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < images_.size(); ++i) {
      const Profiles& frame = stack_.frames[static_cast<std::size_t>(first) + i];
      Image& image = images_[i];
      if (!AreCopies()) {
        ViewOf(frame, image);
        continue;
      }
      if (dark_ == nullptr) {
        ViewOf(frame, lit_);
      } else {
        Darken(frame, transposed_ ? lit_ : image);
      }
      if (transposed_ && !datafusion::planex::transpose(lit_, image)) throw std::bad_alloc();
    }
    return images_.data();
  }

 private:
  void ViewOf(const Profiles& frame, Image& image) const {
    frame.View(0, static_cast<int>(frame.rows), image);
  }

  void Darken(const Profiles& frame, Image& copy) const {
    const auto rows = static_cast<int>(frame.rows);
    const auto columns = static_cast<int>(frame.columns);
    if (copy.GetData() == nullptr &&
        !copy.Create(frame.type, columns, rows, columns, Image::s_defaultImageAllocator)) {
      throw std::bad_alloc();
    }
    const std::size_t bytes =
        static_cast<std::size_t>(frame.columns) * cmnalg::bytesPerPixel(frame.type);
    auto* const begin = static_cast<char*>(copy.GetData());
    for (int row = 0; row < rows; ++row) {
      std::memcpy(begin + static_cast<std::size_t>(row) * bytes, frame.At(row), bytes);
    }
    Image dark;
    ViewOf(*dark_, dark);
    if (!datafusion::planex::subtractDark(dark, copy)) throw std::bad_alloc();
  }

  const FrameStack& stack_;
  const Profiles* dark_;
  bool transposed_;
  Image lit_;  ///< without the light of the dark frame, where there is one
  std::vector<Image> images_;
};

py::dict extractLines(py::handle framesIn, py::handle record, py::handle darkIn, bool transposed,
                      const py::dict& wanted, int threads) {
  const FrameStack stack = readFrames(framesIn, "frames");
  const LineSettings settings = settingsOf(record);
  std::vector<const Profiles*> inputs;
  for (const Profiles& frame : stack.frames) inputs.push_back(&frame);
  std::optional<Profiles> dark;
  if (!darkIn.is_none()) {
    dark = readProfiles(darkIn, "dark", 1U << stack.type);
    if (dark->rows != stack.rows || dark->columns != stack.columns) {
      throw py::value_error("dark must be of the size of a frame");
    }
    inputs.push_back(&*dark);
  }
  const std::int64_t columns = transposed ? stack.rows : stack.columns;
  const auto count = static_cast<std::int64_t>(stack.frames.size());
  LineTargets targets(wanted, stack.type, count, columns);
  requireDisjoint(inputs, targets.All());
  targets.Allocate();
  if (stack.IsEmpty() || columns == 0) return targets.Result();

  PreparedFrames frames(stack, dark ? &*dark : nullptr, transposed);
  const std::int64_t most = threads == 0 ? std::thread::hardware_concurrency() : threads;
  std::int64_t pixels = kPixelsPerThread * std::clamp<std::int64_t>(most, 1, 256);
  if (frames.AreCopies()) pixels = kPreparedPixels;
  const std::int64_t perFrame = std::max<std::int64_t>(stack.rows * stack.columns, 1);
  const std::int64_t perBlock = std::clamp<std::int64_t>(pixels / perFrame, 1, 1 << 20);
  forEachBlock(count, perBlock, threads, [&](std::int64_t first, int some) {
    return targets.Extract(frames.Prepare(first, some), settings, first, some);
  });
  return targets.Result();
}

/// Frames in files, read from the first on.
class FrameReader {
 public:
  FrameReader(const std::vector<std::string>& paths, const std::string& raw) {
    const py::gil_scoped_release release;
    std::optional<io::RawFrames> layout;
    if (!raw.empty()) layout = io::RawFrames::parse(raw);
    source_ = io::openFrames(paths, layout ? &*layout : nullptr);
  }

  std::size_t FrameBytes() const { return source_->frameBytes(); }

  void Skip(std::int64_t frames) {
    const py::gil_scoped_release release;
    source_->skip(frames);
  }

  /// The next frames, at most so many; none at the end.
  py::object Read(int most) {
    const io::ImageShape& shape = source_->shape();
    const py::array::ShapeContainer extent{most, shape.height, shape.width};
    py::array frames = shape.type == cmnalg::IMAGE_TYPE_UINT8
                           ? py::array(py::array_t<std::uint8_t>(extent))
                           : py::array(py::array_t<std::uint16_t>(extent));
    std::vector<io::FrameNote> notes(static_cast<std::size_t>(most));
    void* const data = frames.mutable_data();
    int count = 0;
    {
      const py::gil_scoped_release release;
      count = source_->read(most, data, notes.data());
    }
    if (count == most) return std::move(frames);
    return frames[py::slice(0, count, 1)];
  }

 private:
  std::unique_ptr<io::FrameSource> source_;
};

}  // namespace

void bindExtraction(py::module_& module) {
  module.def("extract_lines", &extractLines);
  module.def("line_places_per_row", &datafusion::planex::linePlacesPerRow);
  module.def("line_region", [](const std::array<double, 4>& frames, int columns, int rows) {
    const SensorRegion region =
        datafusion::planex::lineRegion({frames[0], frames[1], frames[2], frames[3]}, columns, rows);
    return py::make_tuple(region.width, region.height, region.scaleX, region.originX, region.scaleZ,
                          region.originZ);
  });
  py::class_<FrameReader>(module, "FrameReader")
      .def(py::init<const std::vector<std::string>&, const std::string&>())
      .def_property_readonly("frame_bytes", &FrameReader::FrameBytes)
      .def("skip", &FrameReader::Skip)
      .def("read", &FrameReader::Read);
}

}  // namespace planex_python
