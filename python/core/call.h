#pragma once

#include <pybind11/pybind11.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "planex/infra/log_record.h"
#include "planex/processing/thread_limit.h"

namespace planex_python {

namespace py = pybind11;

/// Keeps what the library's loggers say on this thread, from its construction on.
///
/// One handler of each logger writes into a list of the thread. It never waits for the GIL, so a
/// thread that logs and one that holds it cannot wait for each other.
class LogCapture {
 public:
  /// Adds the handlers; once a process, before the first call.
  static void Install();

  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// With the GIL: hands what was said on to Python's logging, under "planex." and the logger's
  /// name.
  void Forward() const;
  /// With the GIL: raises planex.Error with the last text, or `fallback` where nothing was said.
  [[noreturn]] void Raise(const char* fallback) const;

 private:
  friend class CaptureHandler;
  std::vector<base::LogRecord> records_;
  LogCapture* outer_;
};

/// With the GIL: a text for Python's logging.
void log(const std::string& logger, int pythonLevel, const std::string& text);

/// Makes an error of a class of planex.errors the one that Python raises next.
void setError(const char* errorClass, const std::string& text,
              const py::tuple& records = py::tuple());

/// Raises a class of planex.errors.
[[noreturn]] void raise(const char* errorClass, const std::string& text,
                        const py::tuple& records = py::tuple());

/// Runs body(), a call of the library that returns whether it succeeded, without the GIL.
template <typename Body>
void call(const Body& body) {
  LogCapture log;
  bool done = false;
  {
    const py::gil_scoped_release release;
    done = body();
  }
  if (!done) log.Raise("the library refused these arguments");
  log.Forward();
}

/// Calls body(first, count) for blocks of profiles without the GIL, on at most so many threads.
/// Between two blocks signals are looked at: Ctrl-C ends the loop with KeyboardInterrupt.
/// @param threads 0: no limit but that of thread_limit()
template <typename Body>
void forEachBlock(std::int64_t rows, std::int64_t perBlock, int threads, const Body& body) {
  for (std::int64_t first = 0; first < rows; first += perBlock) {
    if (first > 0 && PyErr_CheckSignals() != 0) throw py::error_already_set();
    const std::int64_t count = std::min(perBlock, rows - first);
    call([&] {
      if (threads == 0) return body(first, static_cast<int>(count));
      const datafusion::planex::ThreadLimit limit(threads);
      return body(first, static_cast<int>(count));
    });
  }
}

}  // namespace planex_python
