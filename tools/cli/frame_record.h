#pragma once

#include <planex/io/frame_source.h>
#include <planex/io/json.h>
#include <planex/io/output_file.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/made.h"
#include "tools/cli/options.h"

namespace planex::tools {

/// How many bytes of frames are read at a time, where nothing else is asked for.
constexpr std::size_t kFrameBlockBytes = std::size_t{1} << 24;

/// What becomes known of the frames beside their pixels: which are lost, and where they were taken,
/// a line of a file each.
class FrameRecord {
 public:
  /// @param output      of the frames; "scan.tif" has the places "scan_y.txt"
  /// @param withPlaces  the source knows them
  FrameRecord(const std::string& output, bool withPlaces, const Context& context);

  /// Takes the next frames.
  void take(int count, const io::FrameNote* notes);

  /// @{
  /// How many there were, and how many of them are lost.
  std::int64_t frames() const { return frames_; }
  std::int64_t lost() const { return lost_; }
  /// @}

  /// The file of the places; empty without.
  std::string placesPath() const { return places_ ? places_->path() : std::string(); }

  /// Adds the member "frames": their count, how many are lost, and which: of them the first 1000.
  void describe(const io::JsonObject& parent) const;
  /// Adds the file of the places to the outputs.
  void addOutput(OutputSidecar& sidecar);
  /// Gives the file of the places its name.
  void commit();

 private:
  std::optional<io::OutputFile> places_;
  std::int64_t frames_ = 0, lost_ = 0;
  std::vector<double> lostNumbers_;
};

}  // namespace planex::tools
