#include <algorithm>

#include "planex/io/frame_files.h"
#include "planex/io/image_formats.h"

namespace planex::io {
namespace {

/// An image, which is the only frame.
class ImageFrame final : public FrameFile {
 public:
  explicit ImageFrame(const std::string& path) : image_(ImageReader::open(path)) {
    requireFrame(path, static_cast<std::uint64_t>(image_->shape().width),
                 static_cast<std::uint64_t>(image_->shape().height),
                 cmnalg::bytesPerPixel(image_->shape().type));
  }

  std::optional<std::int64_t> count() const override { return 1; }

  std::optional<ImageShape> next() override {
    if (done_) return std::nullopt;
    return image_->shape();
  }

  void read(void* frame) override {
    image_->readRows(0, image_->shape().height, frame);
    done_ = true;
  }

  std::int64_t skip(std::int64_t frames) override {
    if (done_ || frames == 0) return 0;
    done_ = true;
    return 1;
  }

 private:
  const std::unique_ptr<ImageReader> image_;
  bool done_ = false;
};

/// A page is a frame.
class TiffFrames final : public FrameFile {
 public:
  explicit TiffFrames(const std::string& path) : image_(openTiffPages(path)) {}

  std::optional<std::int64_t> count() const override { return pages(); }

  std::optional<ImageShape> next() override {
    if (page_ == pages()) return std::nullopt;
    if (page_ != shown_) {
      image_->show(static_cast<std::size_t>(page_));
      shown_ = page_;
      requireFrame(image_->path(), static_cast<std::uint64_t>(image_->shape().width),
                   static_cast<std::uint64_t>(image_->shape().height),
                   cmnalg::bytesPerPixel(image_->shape().type));
    }
    return image_->shape();
  }

  void read(void* frame) override {
    image_->readRows(0, image_->shape().height, frame);
    ++page_;
  }

  std::int64_t skip(std::int64_t frames) override {
    const std::int64_t skipped = std::min(frames, pages() - page_);
    page_ += skipped;
    return skipped;
  }

 private:
  std::int64_t pages() const { return static_cast<std::int64_t>(image_->pages()); }

  const std::unique_ptr<PagedImage> image_;
  std::int64_t page_ = 0, shown_ = -1;
};

}  // namespace

std::unique_ptr<FrameFile> openImageFrame(const std::string& path) {
  return std::make_unique<ImageFrame>(path);
}

std::unique_ptr<FrameFile> openTiffFrames(const std::string& path) {
  return std::make_unique<TiffFrames>(path);
}

}  // namespace planex::io
