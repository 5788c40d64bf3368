#pragma once

#include <planex/api/records.h>
#include <planex/model/calibration_model.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace planex_tools {

/// What the options that several commands share were given.
struct Context {
  bool quiet = false;       ///< --quiet: no progress, no summary
  bool force = false;       ///< --force: outputs may replace files
  int threads = 0;          ///< --threads; 0: as many as the OpenMP runtime wants
  std::string unit = "mm";  ///< --unit: the length unit of models, which carry none themselves
};

/// @{
/// Adds a shared option to a command.
void addQuietOption(CLI::App& command, Context& context);
void addForceOption(CLI::App& command, Context& context);
void addThreadsOption(CLI::App& command, Context& context);
void addUnitOption(CLI::App& command, Context& context);
/// @}

/// Limits the threads of the library from now on, on the calling thread, to --threads.
///
/// omp_set_num_threads does: library and command share one OpenMP runtime, and no result depends on
/// the number. OMP_NUM_THREADS has its usual meaning where --threads is not given.
void applyThreads(const Context& context);

/// A number as people write it: "0.0625", "-1e-3", "1/16". Independent of the locale.
/// @return nothing for other texts, and for what is not finite
std::optional<double> parseNumber(const std::string& text);

/// Adds an option whose value is a number as parseNumber() reads it.
CLI::Option* addNumberOption(CLI::App& command, const std::string& names,
                             std::optional<double>& value, const std::string& description);

/// Where on the sensor a range image lies: options, else a sidecar, else the full sensor.
struct SensorOptions {
  std::optional<double> scaleX, originX, scaleZ, originZ, width, height;
  std::string sidecar;  ///< --sensor FILE; empty: IMAGE.json where that exists
};

/// Adds --scale-x, --origin-x, --scale-z, --origin-z, --sensor-width, --sensor-height and --sensor.
void addSensorOptions(CLI::App& command, SensorOptions& options);

/// The traits of a range image.
///
/// Options come first, then the members of the object "sensor" (scaleX, originX, scaleZ, originZ,
/// width, height) of the sidecar, a JSON file, then the full sensor of the model in sixteenths of a
/// pixel: scaleX 1, originX 0, scaleZ 1/16, originZ 0, and sizes up to the edge of the sensor.
/// Members may be missing.
///
/// @param image      the range image, whose sidecar is its name with ".json" behind it; empty: none
/// @param modelName  the file of the model, for what a Failure says of it
/// A Failure for a sidecar that was named and cannot be read or has no such object, for one that is
/// not JSON, for members that are spelt otherwise, no finite numbers or out of range, and for a
/// sensor that ends before the origin.
SensorTraits resolveSensor(const SensorOptions& options, const std::string& image,
                           const datafusion::planex::CalibrationModel& model,
                           const std::string& modelName);

}  // namespace planex_tools
