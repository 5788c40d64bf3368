#pragma once

#include <planex/io/json.h>
#include <planex/io/output_file.h>
#include <planex/model/sensor_region.h>
#include <planex/scan/y_positions.h>

#include <string>

#include "tools/cli/options.h"

namespace planex::tools {

/// A model document with what tells it from others.
struct ModelSource {
  std::string file, sha256;
};

/// Adds the member "sensor", in the form of the sidecars of range images.
void addSensor(const io::JsonObject& parent, const datafusion::planex::SensorRegion& region);

/// The sidecar of an output: what the output is, and in the member "made" how it was made.
class OutputSidecar {
 public:
  /// @param path     the sidecar
  /// @param content  what the output is
  OutputSidecar(std::string path, const char* content, const Context& context);

  /// The members that tell what the output is.
  const io::JsonText& root() const { return root_; }

  /// Begins the member "made" with the command line and the model, where it has a file.
  const io::JsonObject& addMade(const ModelSource& model);
  /// Adds to it where on the sensor and along Y the range image lies.
  void addScan(const datafusion::planex::SensorRegion& region, const scan::YPositions& y);
  /// Adds to it how far rows are apart, where that is known.
  void addRows(const scan::YPositions& y);
  /// Adds to it an output that is complete but for its name. The first one begins the list.
  void addOutput(const char* content, const std::string& file, std::int64_t bytes);

  std::string print() const { return root_.print(); }

 private:
  std::string path_;
  std::vector<std::string> commandLine_;
  io::JsonText root_;
  io::JsonObject made_;
  bool hasOutputs_ = false;
};

}  // namespace planex::tools
