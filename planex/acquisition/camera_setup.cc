#include "planex/acquisition/camera_setup.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace planex::acquisition {
namespace {

/// Limits of a value that several features may stand for, and how it is set and read.
struct Quantity {
  const char* name;
  void (*bounds)(ArvCamera* camera, double* least, double* most, GError** error);
  void (*set)(ArvCamera* camera, double value, GError** error);
  double (*get)(ArvCamera* camera, GError** error);
};
const Quantity kFrameRate = {"a frame rate", arv_camera_get_frame_rate_bounds,
                             arv_camera_set_frame_rate, arv_camera_get_frame_rate};
const Quantity kExposure = {"an exposure", arv_camera_get_exposure_time_bounds,
                            arv_camera_set_exposure_time, arv_camera_get_exposure_time};

/// Cameras round to what their clocks have; what is further off was not taken.
constexpr double kRounding = 0.01;

constexpr double kValues = 65536;    // of 16 bits
constexpr double kMostRows = 65535;  // of a sensor

void set(const Quantity& quantity, ArvCamera* camera, const CameraFeatures& features,
         double value) {
  AravisError error;
  double least = 0, most = 0;
  quantity.bounds(camera, &least, &most, error.out());
  features.require(error, fmt::format("does not tell the limits of {}", quantity.name));
  if (value < least || value > most) {
    features.refuse(fmt::format("takes {} from {:.9g} to {:.9g}, not {:.9g}", quantity.name, least,
                                most, value));
  }
  quantity.set(camera, value, error.out());
  features.require(error, fmt::format("does not take {} of {:.9g}", quantity.name, value));
  const double taken = quantity.get(camera, error.out());
  if (!error && std::abs(taken - value) > kRounding * value) {
    features.refuse(
        fmt::format("takes {} of {:.9g} where {:.9g} is asked for", quantity.name, taken, value));
  }
}

void setRegion(const CameraFeatures& features, const FrameRegion& region) {
  // Sizes are limited by the offsets that are set.
  for (const char* offset : {"OffsetX", "OffsetY"}) {
    if (features.has(offset)) features.set({offset, "0"});
  }
  features.set({"Width", std::to_string(region.width)});
  features.set({"Height", std::to_string(region.height)});
  if (region.x != 0) features.set({"OffsetX", std::to_string(region.x)});
  if (region.y != 0) features.set({"OffsetY", std::to_string(region.y)});
}

void setTrigger(ArvCamera* camera, const CameraFeatures& features, const std::string& source) {
  AravisError error;
  guint count = 0;
  const std::unique_ptr<const char*, decltype(&g_free)> sources(
      arv_camera_dup_available_trigger_sources(camera, &count, error.out()), &g_free);
  const std::vector<std::string> names(sources.get(), sources.get() + (error ? 0 : count));
  if (std::find(names.begin(), names.end(), source) == names.end()) {
    features.refuse(
        names.empty() ? "has no trigger"
                      : fmt::format("is triggered by {}, not {}", fmt::join(names, ", "), source));
  }
  arv_camera_set_trigger(camera, source.c_str(), error.out());
  features.require(error, "does not take the trigger " + source);
}

void setChunk(ArvCamera* camera, const CameraFeatures& features, const std::string& chunk) {
  AravisError error;
  const std::string entry = chunk.rfind("Chunk", 0) == 0 ? chunk.substr(5) : chunk;
  arv_camera_set_chunk_mode(camera, 1, error.out());
  features.require(error, "has no chunks");
  arv_camera_set_chunk_state(camera, entry.c_str(), 1, error.out());
  features.require(error, "has no chunk " + chunk);
}

struct SensorAxis {
  double scale, origin;
  int size;
};

SensorAxis axisOf(const CameraFeatures& features, bool isX) {
  const auto value = [&](const char* ofX, const char* ofY, std::int64_t without) {
    return static_cast<double>(features.integer(isX ? ofX : ofY, without));
  };
  const double offset = value("OffsetX", "OffsetY", 0);
  const double size = value("Width", "Height", 1);
  const double binning = value("BinningHorizontal", "BinningVertical", 1);
  const double decimation = value("DecimationHorizontal", "DecimationVertical", 1);
  const double most = value("WidthMax", "HeightMax", static_cast<std::int64_t>(offset + size));
  const double sensor =
      value("SensorWidth", "SensorHeight", static_cast<std::int64_t>(most * binning * decimation));
  const double scale = std::max(binning, 1.0) * std::max(decimation, 1.0);
  const double origin = scale * offset + (std::max(binning, 1.0) - 1) / 2;
  const int pixels = static_cast<int>(size * scale);
  if (features.valueOf(isX ? "ReverseX" : "ReverseY") != "true") return {scale, origin, pixels};
  return {-scale, sensor - 1 - origin, pixels};
}

}  // namespace

std::vector<FeatureValue> setUp(ArvCamera* camera, const CameraFeatures& features,
                                const CameraSettings& settings) {
  AravisError error;
  if (features.has("AcquisitionMode")) {
    arv_camera_set_acquisition_mode(camera, ARV_ACQUISITION_MODE_CONTINUOUS, error.out());
  }
  for (const FeatureValue& feature : settings.features) features.set(feature);
  if (settings.region) setRegion(features, *settings.region);
  if (settings.exposure) set(kExposure, camera, features, *settings.exposure);
  if (settings.frameRate) set(kFrameRate, camera, features, *settings.frameRate);
  if (!settings.trigger.empty()) setTrigger(camera, features, settings.trigger);
  if (!settings.chunk.empty()) setChunk(camera, features, settings.chunk);
  std::vector<FeatureValue> taken = settings.features;
  for (FeatureValue& feature : taken) feature.value = features.valueOf(feature.name);
  return taken;
}

datafusion::planex::SensorRegion sensorRegion(const CameraFeatures& features) {
  const SensorAxis x = axisOf(features, true);
  const SensorAxis y = axisOf(features, false);
  return {x.scale, x.origin, y.scale, y.origin, x.size, y.size};
}

bool sendsRanges(const CameraFeatures& features) {
  const std::string format = features.text("PixelFormat");
  const bool isLineScan = features.text("DeviceScanType") == "Linescan3D" && format == "Mono16";
  if (format != "Coord3D_C16" && !isLineScan) return false;
  const std::string unit = features.text("Scan3dDistanceUnit", "Pixel");
  if (unit != "Pixel") {
    features.refuse("sends values that it has calibrated itself, in the unit " + unit +
                    ", to which no model applies; set Scan3dDistanceUnit=Pixel where it can");
  }
  return true;
}

datafusion::planex::SensorRegion rangeRegion(const CameraFeatures& features) {
  if (features.has("Scan3dCoordinateSelector")) {
    features.set({"Scan3dCoordinateSelector", "CoordinateC"});
  }
  datafusion::planex::SensorRegion region = sensorRegion(features);
  region.scaleZ = features.number("Scan3dCoordinateScale", 1);
  region.originZ = features.number("Scan3dCoordinateOffset", 0);
  if (region.scaleZ == 0) features.refuse("tells that Scan3dCoordinateScale is 0");
  const double rows = std::min(std::ceil(kValues * std::abs(region.scaleZ)), kMostRows);
  region.height =
      static_cast<int>(features.integer("SensorHeight", static_cast<std::int64_t>(rows)));
  return region;
}

std::optional<int> invalidRange(const CameraFeatures& features) {
  if (!features.has("Scan3dInvalidDataValue")) return std::nullopt;
  if (features.has("Scan3dInvalidDataFlag") &&
      features.valueOf("Scan3dInvalidDataFlag") != "true") {
    return std::nullopt;
  }
  const double value = features.number("Scan3dInvalidDataValue", 0);
  if (!(value >= 0 && value <= 65535)) return std::nullopt;
  return static_cast<int>(value);
}

}  // namespace planex::acquisition
