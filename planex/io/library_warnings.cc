#include "planex/io/library_warnings.h"

#include <memory>
#include <utility>

#include "planex/infra/log_handler.h"
#include "planex/infra/logger.h"
#include "planex/io/failure.h"

namespace planex::io {
namespace {

thread_local std::string collected;

class CollectingHandler final : public base::LogHandler {
 public:
  CollectingHandler() : LogHandler("planex", true) {}
  void Publish(const base::LogRecord& record) override {
    if (!collected.empty()) collected += ' ';
    collected += record.message;
  }
};

}  // namespace

void collectLibraryWarnings() {
  base::Logger::GetRoot().AddHandler(std::make_unique<CollectingHandler>());
}

std::string takeLibraryWarnings() {
  std::string text = std::exchange(collected, std::string());
  if (!text.empty() && text.back() == '.') text.pop_back();
  return text;
}

void failWithLibraryWarnings(const std::string& file, const std::string& what,
                             const std::string& remedy) {
  const std::string warnings = takeLibraryWarnings();
  throw Failure(file,
                what + (warnings.empty() ? std::string() : " (" + warnings + ")") + "; " + remedy);
}

}  // namespace planex::io
