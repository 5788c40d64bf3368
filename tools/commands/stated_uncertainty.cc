#include "tools/commands/stated_uncertainty.h"

#include <planex/estimation/uncertainty_document.h>
#include <planex/estimation/uncertainty_table.h>
#include <planex/io/failure.h>

#include <utility>

#include "tools/cli/warnings.h"
#include "tools/commands/estimation_figures.h"

namespace planex::tools {
namespace {

using estimation::MapUncertainty;

StatedUncertainty toldOf(const MapUncertainty& uncertainty) {
  const MapUncertainty::Parts& parts = uncertainty.parts();
  return {uncertainty.largestRadius95(), uncertainty.measuredShare(parts.sensorSize), parts.noise,
          uncertainty.frameName()};
}

class TabulatedUncertainty final : public PlaneUncertainty {
 public:
  TabulatedUncertainty(MapUncertainty uncertainty, double rowNoise)
      : table_(std::move(uncertainty), rowNoise) {}
  PlaneCovariance at(double column, double row) const override {
    const estimation::PlaceCovariance covariance = table_.at({column, row});
    return {covariance.xx, covariance.xz, covariance.zz};
  }

 private:
  estimation::UncertaintyTable table_;
};

}  // namespace

std::optional<StatedUncertainty> statedUncertainty(const std::string& document,
                                                   const std::string& name) {
  try {
    const auto uncertainty = estimation::uncertaintyIn(document);
    if (!uncertainty) return std::nullopt;
    return toldOf(*uncertainty);
  } catch (const estimation::UncertaintyFault& fault) {
    warn(name, fault.what());
    return std::nullopt;
  }
}

report::UncertaintyPart uncertaintyPart(const std::string& document, const std::string& unit) {
  try {
    const auto uncertainty = estimation::uncertaintyIn(document);
    if (!uncertainty) return {"The document states no uncertainty of the model.", {}, {}, {}};
    const StatedUncertainty told = toldOf(*uncertainty);
    return {{},
            told.summary(unit),
            told.basis(),
            uncertaintyPicture(*uncertainty, told.largest95, unit)};
  } catch (const estimation::UncertaintyFault& fault) {
    return {std::string("What the document states is of no use: ") + fault.what(), {}, {}, {}};
  }
}

std::string faultOfUncertainty(const std::string& document) {
  try {
    estimation::uncertaintyIn(document);
  } catch (const estimation::UncertaintyFault& fault) {
    return fault.what();
  }
  return {};
}

std::optional<std::string> withStatedUncertainty(const datafusion::planex::CalibrationModel& model,
                                                 bool pretty, const std::string& other,
                                                 const std::string& name) {
  try {
    const auto uncertainty = estimation::uncertaintyIn(other);
    if (!uncertainty) return std::nullopt;
    std::string document = documentOf(model, *uncertainty, pretty);
    estimation::uncertaintyIn(document);  // of the same map?
    return document;
  } catch (const estimation::UncertaintyFault& fault) {
    warn(name, std::string("the uncertainty is left out: ") + fault.what());
    return std::nullopt;
  }
}

std::unique_ptr<const PlaneUncertainty> requireUncertainty(const std::string& document,
                                                           const std::string& name,
                                                           double rowNoise) {
  std::optional<MapUncertainty> uncertainty;
  try {
    uncertainty = estimation::uncertaintyIn(document);
  } catch (const estimation::UncertaintyFault& fault) {
    throw io::Failure(name, fault.what());
  }
  if (!uncertainty) {
    throw io::Failure(name, "states no uncertainty; planex estimate writes models that do");
  }
  return std::make_unique<TabulatedUncertainty>(std::move(*uncertainty), rowNoise);
}

}  // namespace planex::tools
