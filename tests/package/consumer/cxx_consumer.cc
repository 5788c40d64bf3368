// Uses the class-level interface as a program outside the library: a class derived from one of the
// library's, a type told apart at run time, and results that cross the boundary by value.
#include <planex/infra/json_deserializer.h>
#include <planex/infra/json_serializer.h>
#include <planex/infra/logger.h>
#include <planex/infra/out_stream.h>
#include <planex/model/calibration_model.h>
#include <planex/model/point_mapping.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

using namespace datafusion::planex;

namespace {

class LastMessage final : public base::LogHandler {
 public:
  explicit LastMessage(std::string* text) : LogHandler("LastMessage", true), text_(text) {}
  void Publish(const base::LogRecord& record) override { *text_ = record.message; }

 private:
  std::string* text_;
};

/// X = (u - 4) / 100.
bool maps(const CalibrationModel& model) {
  etl::Vector<cmnalg::Vec<2, double>> points{{12.0, 30.0}};
  return mapPoints(model, points, points, CoordinateSystem::Pixel, CoordinateSystem::Calibrated) &&
         std::fabs(points[0].x - 0.08) < 1e-12;
}

bool survivesItsDocument(CalibrationModel& model) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer writer(stream, true);
  writer.Serialize(model);
  base::JsonVisitingDeSerializer reader(std::string(stream.GetText()).c_str(), false);
  const std::unique_ptr<etl::IVisitable> object = reader.DeserializeObject();
  const auto* read = dynamic_cast<const CalibrationModel*>(object.get());
  return read != nullptr && read->toString() == model.toString();
}

}  // namespace

int main() {
  std::string message;
  base::Logger::GetRoot().AddHandler(std::make_unique<LastMessage>(&message));
  CalibrationModel model;
  const bool refused = !maps(model) && message.find("uncalibrated model") != std::string::npos;
  model.CurrentState = ModelState::CALIBRATED;
  model.FocalLength = 100.0;
  model.LensCenter = {4.0, 8.0};
  const bool mapped = maps(model);
  const bool stored = survivesItsDocument(model);
  std::printf("refused %d, mapped %d, stored %d\n", refused, mapped, stored);
  return refused && mapped && stored ? 0 : 1;
}
