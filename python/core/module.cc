#include "core/bindings.h"
#include "core/call.h"

// Arrays and models in, arrays out. What people call, with names and checks of values, is Python.
PYBIND11_MODULE(_core, module) {
  planex_python::LogCapture::Install();
  planex_python::bindModel(module);
  planex_python::bindCalibration(module);
  planex_python::bindRectification(module);
  planex_python::bindPoints(module);
  planex_python::bindFiles(module);
  planex_python::bindPointFiles(module);
  planex_python::bindMapFiles(module);
  planex_python::bindEstimation(module);
  planex_python::bindExtraction(module);
}
