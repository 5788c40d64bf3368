#include "planex/io/frame_source.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>

#include "planex/io/failure.h"
#include "planex/io/frame_files.h"
#include "planex/io/frame_names.h"
#include "planex/io/input_file.h"
#include "planex/io/raster.h"

namespace planex::io {
namespace {

using namespace std::string_view_literals;

constexpr std::uint64_t kMostRows = 32767;
constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 30;

struct PackingName {
  const char* name;
  RawFrames::Packing packing;
};
constexpr PackingName kPackings[] = {
    {"mono8", RawFrames::Packing::kMono8},     {"mono10", RawFrames::Packing::kMono10},
    {"mono12", RawFrames::Packing::kMono12},   {"mono16", RawFrames::Packing::kMono16},
    {"mono10p", RawFrames::Packing::kMono10p}, {"mono12p", RawFrames::Packing::kMono12p}};

std::string sizeText(const ImageShape& shape) {
  return std::to_string(shape.width) + " x " + std::to_string(shape.height) + " pixels of " +
         std::to_string(8 * cmnalg::bytesPerPixel(shape.type)) + " bits";
}

/// Opens a file as what its first bytes say.
std::unique_ptr<FrameFile> openFile(const std::string& path, const RawFrames* raw) {
  if (raw != nullptr) return openRawFrames(path, *raw);
  if (path == "-") return openPgmFrames(path);
  std::array<char, 4> bytes{};
  const std::size_t count = InputFile(path).readAt(0, bytes.data(), bytes.size());
  const std::string_view begin(bytes.data(), count);
  if (begin.empty()) throw Failure(path, "is empty; fetch it again from where it was made");
  if (begin.substr(0, 2) == "P5") return openPgmFrames(path);
  for (const std::string_view tiff : {"II*"sv, "II+"sv, "MM\0"sv}) {
    if (begin.substr(0, tiff.size()) == tiff) return openTiffFrames(path);
  }
  return openImageFrame(path);
}

/// Files with frames that follow each other, of which one is open.
class FrameSequence final : public FrameSource {
 public:
  FrameSequence(const std::vector<std::string>& paths, const RawFrames* layout)
      : FrameSource(Failure::nameOf(paths.front()) +
                    (paths.size() > 1 ? " and " + std::to_string(paths.size() - 1) + " more"
                                      : std::string())) {
    if (layout != nullptr) raw_ = *layout;
    for (const std::string& path : paths) add(path);
    current_ = openFile(entries_.front().path, raw());
    only_ = current_->count();
    announce(checkedNext());
  }

  std::optional<std::int64_t> count() const override {
    if (entries_.size() == 1) return only_;
    const bool known = std::all_of(entries_.begin(), entries_.end(),
                                   [](const Entry& entry) { return entry.isSingle; });
    if (!known) return std::nullopt;
    return static_cast<std::int64_t>(entries_.size());
  }

  void skip(std::int64_t frames) override {
    while (frames > 0 && current_ != nullptr) {
      const std::int64_t skipped = describing([&] { return current_->skip(frames); });
      frames -= skipped;
      frame_ += skipped;
      if (frames == 0) return;
      // Whole files are passed over where their number of frames is known.
      std::size_t next = entry_ + 1;
      for (; frames > 0 && next < entries_.size() && entries_[next].isSingle; ++next) {
        --frames;
        ++frame_;
      }
      openFrom(next);
    }
  }

  int read(int most, void* frames, FrameNote* notes) override {
    int count = 0;
    const auto isReady = [&] { return current_ == nullptr || current_->isReady(); };
    while (count < most && (count == 0 || isReady()) && findNext()) {
      void* const frame =
          static_cast<char*>(frames) + static_cast<std::size_t>(count) * frameBytes();
      describing([&] { current_->read(frame); });
      notes[count] = {};
      ++count;
      ++frame_;
    }
    return count;
  }

 private:
  struct Entry {
    std::string path;
    bool isSingle;  // one frame, which is checked when it is opened
  };

  void add(const std::string& path) {
    std::error_code unknown;
    if (path == "-" || !std::filesystem::is_directory(path, unknown)) {
      const std::string ending = endingOf(path);
      entries_.push_back({path, !raw_ && (ending == ".png" || ending == ".npy")});
      return;
    }
    std::vector<std::string> files = frameFilesIn(path, raw_.has_value());
    const bool isSingle = openFile(files.front(), raw())->count() == 1;
    for (std::string& file : files) entries_.push_back({std::move(file), isSingle});
  }

  const RawFrames* raw() const { return raw_ ? &*raw_ : nullptr; }

  /// Puts the number of the frame into what is said of its file: "FILE: frame 7 is cut off".
  template <typename Call>
  std::invoke_result_t<Call> describing(Call&& call) {
    try {
      return call();
    } catch (const Failure& failure) {
      const std::string text = failure.what(), file = Failure::nameOf(entries_[entry_].path) + ": ";
      if (text.compare(0, file.size(), file) != 0) throw;
      throw Failure(file + "frame " + std::to_string(frame_) + " " + text.substr(file.size()));
    }
  }

  void openFrom(std::size_t entry) {
    current_.reset();
    if (entry >= entries_.size()) return;
    entry_ = entry;
    describing([this] { current_ = openFile(entries_[entry_].path, raw()); });
    checkedNext();
  }

  /// What the first frame of the open file is like.
  ImageShape checkedNext() {
    const auto& [path, isSingle] = entries_[entry_];
    const auto count = current_->count();
    if (isSingle && count != 1) {
      throw Failure(path,
                    "holds several frames, where its ending, or the first file of its folder, "
                    "tells of one; give the names of such files");
    }
    const auto shape = describing([this] { return current_->next(); });
    if (!shape) throw Failure(path, "holds no frames; check where it comes from");
    return *shape;
  }

  /// Goes to the next frame, and checks that it is like the first one. @return whether there is one
  bool findNext() {
    while (current_ != nullptr) {
      const auto found = describing([this] { return current_->next(); });
      if (!found) {
        openFrom(entry_ + 1);
        continue;
      }
      if (found->width == shape().width && found->height == shape().height &&
          found->type == shape().type) {
        return true;
      }
      throw Failure(entries_[entry_].path, "frame " + std::to_string(frame_) + " has " +
                                               sizeText(*found) + ", the first one " +
                                               sizeText(shape()) +
                                               "; give frames of one setting of the camera");
    }
    return false;
  }

  std::optional<RawFrames> raw_;
  std::vector<Entry> entries_;
  std::unique_ptr<FrameFile> current_;  // none behind the last frame
  std::size_t entry_ = 0;
  std::int64_t frame_ = 0;            // the number of the next one
  std::optional<std::int64_t> only_;  // the number of frames of the only file
};

}  // namespace

RawFrames RawFrames::parse(const std::string& text) {
  RawFrames frames;
  const char* const end = text.data() + text.size();
  const auto width = std::from_chars(text.data(), end, frames.width);
  if (width.ec == std::errc() && width.ptr != end && *width.ptr == 'x') {
    const auto height = std::from_chars(width.ptr + 1, end, frames.height);
    if (height.ec == std::errc() && height.ptr != end && *height.ptr == ':' && frames.width > 0 &&
        frames.height > 0) {
      const std::string_view name(height.ptr + 1, static_cast<std::size_t>(end - height.ptr - 1));
      const auto* const found = std::find_if(std::begin(kPackings), std::end(kPackings),
                                             [&](const auto& row) { return name == row.name; });
      if (found != std::end(kPackings)) {
        frames.packing = found->packing;
        return frames;
      }
    }
  }
  throw Failure("'" + text +
                "' is no layout of raw frames; write their size and format, as 2560x1024:mono8, "
                "with mono8, mono10, mono12, mono16, mono10p or mono12p");
}

void requireFrame(const std::string& path, std::uint64_t width, std::uint64_t height,
                  std::size_t bytesPerPixel) {
  if (width >= 1 && width <= ImageReader::kMaximumColumns && height >= 1 && height <= kMostRows &&
      width * height * bytesPerPixel <= kMostBytes) {
    return;
  }
  throw Failure(path, "is said to be of " + std::to_string(width) + " x " + std::to_string(height) +
                          " pixels; frames have at most " +
                          std::to_string(ImageReader::kMaximumColumns) + " columns, " +
                          std::to_string(kMostRows) + " rows and 1 GiB");
}

std::unique_ptr<FrameSource> openFrames(const std::vector<std::string>& paths,
                                        const RawFrames* raw) {
  if (paths.empty()) throw Failure("no frames are given; name a folder or files");
  return std::make_unique<FrameSequence>(paths, raw);
}

}  // namespace planex::io
