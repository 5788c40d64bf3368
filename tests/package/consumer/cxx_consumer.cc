// Uses the class-level interface as a program outside the library: a class derived from one of the
// library's, a type told apart at run time, and results that cross the boundary by value.
#include <planex/foundation/image_of.h>
#include <planex/infra/json_deserializer.h>
#include <planex/infra/json_serializer.h>
#include <planex/infra/logger.h>
#include <planex/infra/out_stream.h>
#include <planex/model/calibration_model.h>
#include <planex/model/point_mapping.h>
#include <planex/processing/image_calibration.h>
#include <planex/version.h>

#include <cmath>
#include <cstdint>
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

using Points = etl::Vector<cmnalg::Vec<2, double>>;

bool mapsThereAndBack(const CalibrationModel& model) {
  const Points pixels{{3.0, 5.0}, {12.0, 30.0}};
  Points world;
  Points back;
  if (!mapPoints(model, pixels, world, CoordinateSystem::Pixel, CoordinateSystem::Calibrated) ||
      !mapPoints(model, world, back, CoordinateSystem::Calibrated, CoordinateSystem::Pixel)) {
    return false;
  }
  return std::fabs(world[1].x - 0.08) < 1e-12 && std::fabs(back[0].y - 5.0) < 1e-9;
}

bool survivesItsDocument(CalibrationModel& model) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer writer(stream, true);
  if (!writer.Serialize(model)) return false;
  const std::string text(stream.GetText());
  base::JsonVisitingDeSerializer reader(text.c_str(), false);
  const std::unique_ptr<etl::IVisitable> object = reader.DeserializeObject();
  const auto* read = dynamic_cast<const CalibrationModel*>(object.get());
  return read != nullptr && read->toString() == model.toString();
}

bool calibratesAnImage(const CalibrationModel& model) {
  std::uint16_t pixels[] = {0, 28};
  const cmnalg::ImageOf<std::uint16_t> range(pixels, 2, 1, 0, false,
                                             cmnalg::Image::s_defaultImageAllocator, false);
  cmnalg::ImageOf<float> x;
  cmnalg::ImageOf<float> z;
  return applyCalibration(model, false, range, x, z, RunMode::DoublePrecision) &&
         std::isnan(x.Pix(0, 0)) && std::fabs(z.Pix(1, 0) - 0.2F) < 1e-6F;
}

}  // namespace

int main() {
  std::string message;
  base::Logger::GetRoot().AddHandler(std::make_unique<LastMessage>(&message));

  CalibrationModel model;
  if (mapsThereAndBack(model) || message.find("uncalibrated model") == std::string::npos) {
    std::printf("A model without calibration was not refused; log: \"%s\"\n", message.c_str());
    return 1;
  }
  model.CurrentState = ModelState::CALIBRATED;
  model.FocalLength = 100.0;
  model.SensorSize = {16, 32};
  model.LensCenter = {4.0, 8.0};
  model.Homography = cmnalg::Matrix<double>::Identity(3, 3);
  const bool mapped = mapsThereAndBack(model);
  const bool stored = survivesItsDocument(model);
  const bool calibrated = calibratesAnImage(model);
  std::printf("planex %s from C++: mapping %d, document %d, calibration %d\n",
              PLANEX_VERSION_STRING, mapped, stored, calibrated);
  return mapped && stored && calibrated ? 0 : 1;
}
