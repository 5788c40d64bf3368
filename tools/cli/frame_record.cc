#include "tools/cli/frame_record.h"

#include <fmt/format.h>
#include <planex/io/raster.h>

#include <cstddef>

namespace planex::tools {
namespace {

constexpr std::size_t kMostListed = 1000;

}  // namespace

FrameRecord::FrameRecord(const std::string& output, bool withPlaces, const Context& context) {
  if (!withPlaces) return;
  const std::size_t stem = output.size() - io::endingOf(output).size();
  places_.emplace(output.substr(0, stem) + "_y.txt", context.force);
}

void FrameRecord::take(int count, const io::FrameNote* notes) {
  std::string lines;
  for (int i = 0; i < count; ++i, ++frames_) {
    if (notes[i].lost) {
      ++lost_;
      if (lostNumbers_.size() < kMostListed) lostNumbers_.push_back(static_cast<double>(frames_));
    }
    if (places_) lines += fmt::format("{}\n", notes[i].y);
  }
  if (places_) places_->write(lines);
}

void FrameRecord::describe(const io::JsonObject& parent) const {
  const io::JsonObject frames = parent.addObject("frames");
  frames.add("count", static_cast<double>(frames_));
  frames.add("lost", static_cast<double>(lost_));
  if (lost_ > 0) frames.addList("lostNumbers", lostNumbers_);
}

void FrameRecord::addOutput(OutputSidecar& sidecar) {
  if (places_) sidecar.addOutput("positions", places_->path(), places_->size());
}

void FrameRecord::commit() {
  if (places_) places_->commit();
}

}  // namespace planex::tools
