#include "tools/cli/made.h"

#include <planex/io/provenance.h>
#include <planex/version.h>

#include <utility>

namespace planex::tools {

void addSensor(const io::JsonObject& parent, const datafusion::planex::SensorRegion& region) {
  const io::JsonObject sensor = parent.addObject("sensor");
  sensor.add("scaleX", region.scaleX);
  sensor.add("originX", region.originX);
  sensor.add("scaleZ", region.scaleZ);
  sensor.add("originZ", region.originZ);
  sensor.add("width", region.width);
  sensor.add("height", region.height);
}

OutputSidecar::OutputSidecar(std::string path, const char* content, const Context& context)
    : path_(std::move(path)), commandLine_(context.commandLine), made_(root_) {
  root_.add("generator", "planex " PLANEX_VERSION_STRING);
  root_.add("content", content);
}

const io::JsonObject& OutputSidecar::addMade(const ModelSource& model) {
  made_ = root_.addObject("made");
  made_.addTexts("command", commandLine_);
  if (model.file.empty()) return made_;
  const io::JsonObject source = made_.addObject("model");
  source.add("file", model.file);
  source.add("sha256", model.sha256);
  return made_;
}

void OutputSidecar::addScan(const datafusion::planex::SensorRegion& region,
                            const scan::YPositions& y) {
  addSensor(made_, region);
  addRows(y);
}

void OutputSidecar::addRows(const scan::YPositions& y) {
  if (!y.isKnown()) return;
  const io::JsonObject rows = made_.addObject("rows");
  if (y.line()) {
    rows.add("scaleY", y.line()->scale);
    rows.add("originY", y.line()->origin);
  } else {
    rows.add("positions", io::seenFrom(path_, y.file()));
  }
}

void OutputSidecar::addOutput(const char* content, const std::string& file, std::int64_t bytes) {
  if (!hasOutputs_) made_.addList("outputs", nullptr, 0);
  hasOutputs_ = true;
  io::addOutput(made_, path_, content, file, bytes);
}

}  // namespace planex::tools
