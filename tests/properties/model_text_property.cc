// Any text as a model document through the C interface. A model that comes of it is written and
// read again.

#include <string>
#include <vector>

#include "planex/api/planex.h"
#include "tests/support/property.h"

namespace {

/// What a text may cost: the parser's node of 64 bytes for every two characters, and as much again
/// for what is made of them; then the model itself.
std::size_t allowedBytes(std::size_t textSize) { return 128 * textSize + 65536; }

bool exportTo(std::string& buffer, std::size_t size, uint32_t model, test::CheckedLog& log) {
  buffer.assign(size, '#');
  const bool done =
      test::succeeds([&] { return createJsonFromModel(model, buffer.data(), buffer.size()); });
  log.CheckCall(done);
  CHECK_ALWAYS(done || buffer == std::string(size, '#'));
  return done;
}

std::string exported(uint32_t model, test::CheckedLog& log) {
  std::string buffer;
  for (std::size_t size = 4096; !exportTo(buffer, size, model, log); size *= 2) {
    CHECK_HOLDS(size < (std::size_t{1} << 28));
  }
  const std::string text = buffer.c_str();
  CHECK_HOLDS(!exportTo(buffer, text.size(), model, log));
  CHECK_HOLDS(exportTo(buffer, text.size() + 1, model, log) && buffer.c_str() == text);
  return text;
}

void checkRereading(uint32_t model, test::CheckedLog& log) {
  const std::string text = exported(model, log);
  uint32_t again = 0;
  CHECK_HOLDS(createModelFromJson(text.c_str(), &again));
  CHECK_HOLDS(exported(again, log) == text);
  CHECK_HOLDS(destroyModel(&again) && again == 0);
}

}  // namespace

PLANEX_PROPERTY(model_text) {
  const std::string input = source.Rest();
  // Exactly as long as the text: reading past its end is seen.
  std::vector<char> text(input.begin(), input.end());
  text.push_back('\0');
  test::CheckedLog log;
  destroyAllModels();
  uint32_t model = 77;
  const test::MemoryPeak peak;
  const bool created = test::succeeds([&] { return createModelFromJson(text.data(), &model); });
  CHECK_HOLDS(peak.Bytes() <= allowedBytes(input.size()));
  log.CheckCall(created);
  CHECK_ALWAYS(created == (model != 0));
  if (!created) return;
  checkRereading(model, log);
  CHECK_HOLDS(destroyModel(&model));
}
