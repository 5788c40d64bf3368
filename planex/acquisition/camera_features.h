#pragma once

#include <optional>
#include <string>

#include "planex/acquisition/aravis.h"
#include "planex/acquisition/camera_settings.h"

namespace planex::acquisition {

/// The features of a camera. Aravis writes what it is told, also what the camera does not take:
/// here every value is compared with the limits that the camera tells, and every Failure is a
/// sentence.
class CameraFeatures {
 public:
  /// @param name of the camera, for texts
  CameraFeatures(ArvCamera* camera, std::string name);

  /// Whether there is such a feature, and it can be read or written as the camera is set.
  bool has(const char* name) const;
  /// Sets one.
  void set(const FeatureValue& feature) const;

  /// @{
  /// The value of a feature; what stands for it where the camera has none.
  std::int64_t integer(const char* name, std::int64_t without) const;
  double number(const char* name, double without) const;
  std::string text(const char* name, const std::string& without = {}) const;
  /// @}
  /// The value of any feature.
  std::string valueOf(const std::string& name) const;

  /// Throws a Failure that names the camera.
  [[noreturn]] void refuse(const std::string& problem) const;
  /// The same for an error of Aravis, if there is one.
  void require(const AravisError& error, const std::string& what) const;

 private:
  ArvGcFeatureNode* writable(const std::string& name) const;
  void setInteger(const FeatureValue& feature) const;
  void setFloat(const FeatureValue& feature) const;
  void setEntry(const FeatureValue& feature) const;

  ArvDevice* device_;
  std::string name_;
};

}  // namespace planex::acquisition
