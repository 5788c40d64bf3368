// In place of estimation.cc, where the library that estimates was not built.

#include <string>

#include "core/bindings.h"
#include "core/call.h"

namespace planex_python {
namespace {

struct MapUncertainty {};

[[noreturn]] void refuse() {
  raise("Error", "planex was built without estimation; build it with libceres-dev installed");
}

}  // namespace

void bindEstimation(py::module_& module) {
  using Object = py::object;
  const py::class_<MapUncertainty> uncertainty(module, "MapUncertainty");
  for (const char* const name :
       {"estimate", "plan_scans", "require_target", "read_target", "resting_profile"}) {
    module.def(name, [](const py::args&) -> Object { refuse(); });
  }
  module.def("covariances_at", [](const Object&, const Object&) -> Object { refuse(); });
  module.def("is_measured", [](const Object&, const Object&) -> Object { refuse(); });
  module.def("uncertainty_facts", [](const Object&) -> Object { refuse(); });
  module.def("uncertainty_in", [](const Object&, const Object&) -> Object { refuse(); });
  module.def("estimation_to_json",
             [](const Object&, const Object&, const Object&) -> Object { refuse(); });
}

}  // namespace planex_python
