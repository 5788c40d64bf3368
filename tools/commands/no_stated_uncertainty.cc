// In place of stated_uncertainty.cc, where the library that estimates was not built.

#include <planex/io/failure.h>

#include "tools/commands/stated_uncertainty.h"

namespace planex::tools {

std::optional<StatedUncertainty> statedUncertainty(const std::string& /*document*/,
                                                   const std::string& /*name*/) {
  return std::nullopt;
}

report::UncertaintyPart uncertaintyPart(const std::string& /*document*/,
                                        const std::string& /*unit*/) {
  return {
      "Not told: this planex was built without estimation, and reads no uncertainty.", {}, {}, {}};
}

std::string faultOfUncertainty(const std::string& /*document*/) { return {}; }

std::optional<std::string> withStatedUncertainty(
    const datafusion::planex::CalibrationModel& /*model*/, bool /*pretty*/,
    const std::string& /*other*/, const std::string& /*name*/) {
  return std::nullopt;
}

std::unique_ptr<const PlaneUncertainty> requireUncertainty(const std::string& /*document*/,
                                                           const std::string& /*name*/,
                                                           double /*rowNoise*/) {
  throw io::Failure(
      "planex was built without estimation, which --uncertainty needs; build it with libceres-dev "
      "installed");
}

}  // namespace planex::tools
