#include "core/call.h"

#include <memory>
#include <utility>

#include "planex/infra/log_handler.h"
#include "planex/infra/logger.h"

namespace planex_python {
namespace {

thread_local LogCapture* captureOfThisThread = nullptr;

constexpr const char* kLoggers[] = {"Image", "Matrix", "Image.Planex.Model",
                                    "Image.Calibration.Planex", "Image.Extraction.Planex"};

/// The level of Python's logging that means the same.
int pythonLevel(int level) {
  if (level >= base::SEVERE) return 40;
  if (level >= base::WARNING) return 30;
  return level >= base::INFO ? 20 : 10;
}

/// Names of files may be no UTF-8.
py::object decoded(const std::string& text) {
  PyObject* string =
      PyUnicode_DecodeFSDefaultAndSize(text.data(), static_cast<py::ssize_t>(text.size()));
  if (string == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(string);
}

}  // namespace

class CaptureHandler final : public base::LogHandler {
 public:
  CaptureHandler() : LogHandler("planex.python", false) { SetLevel(base::FINEST); }
  void Publish(const base::LogRecord& record) override {
    if (captureOfThisThread != nullptr) captureOfThisThread->records_.push_back(record);
  }
};

void LogCapture::Install() {
  for (const char* name : kLoggers) {
    base::Logger& logger = base::Logger::Get(name);
    logger.AddHandler(std::make_unique<CaptureHandler>());
    // What is worth knowing though nothing failed, such as the version of a document.
    if (logger.GetLevel() == base::INHERIT) logger.SetLevel(base::INFO);
  }
}

LogCapture::LogCapture() : outer_(std::exchange(captureOfThisThread, this)) {}

LogCapture::~LogCapture() { captureOfThisThread = outer_; }

void LogCapture::Forward() const {
  for (const base::LogRecord& record : records_) {
    log("planex." + record.loggerName, pythonLevel(record.level), record.message);
  }
}

void LogCapture::Raise(const char* fallback) const {
  py::list list;
  for (const base::LogRecord& record : records_) {
    list.append(py::make_tuple(record.loggerName, pythonLevel(record.level), record.message));
  }
  raise("Error", records_.empty() ? fallback : records_.back().message, py::tuple(list));
}

void log(const std::string& logger, int pythonLevel, const std::string& text) {
  py::module_::import("logging").attr("getLogger")(logger).attr("log")(pythonLevel, "%s",
                                                                       decoded(text));
}

void setError(const char* errorClass, const std::string& text, const py::tuple& records) {
  const py::object type = py::module_::import("planex.errors").attr(errorClass);
  const py::object error = type(decoded(text), records);
  PyErr_SetObject(type.ptr(), error.ptr());
}

void raise(const char* errorClass, const std::string& text, const py::tuple& records) {
  setError(errorClass, text, records);
  throw py::error_already_set();
}

}  // namespace planex_python
