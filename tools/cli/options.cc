#include "tools/cli/options.h"

#include <omp.h>
#include <planex/io/failure.h>
#include <planex/io/number_text.h>

#include <cstddef>

namespace planex::tools {
namespace {

constexpr std::size_t kLongestUnit = 32;  // it stands in headers of a line

}  // namespace

void addQuietOption(CLI::App& command, Context& context) {
  command.add_flag("-q,--quiet", context.quiet, "Show neither progress nor summary");
}

void addForceOption(CLI::App& command, Context& context) {
  command.add_flag("-f,--force", context.force, "Replace outputs that exist");
}

void addThreadsOption(CLI::App& command, Context& context) {
  command
      .add_option("--threads", context.threads,
                  "Use at most N threads; results do not depend on it")
      ->check(CLI::Range(1, 4096))
      ->type_name("N");
}

void addUnitOption(CLI::App& command, Context& context) {
  const auto isName = [](const std::string& unit) {
    const bool good = !unit.empty() && unit.size() <= kLongestUnit && io::inOneLine(unit) == unit;
    return std::string(good ? "" : "is no short printable name");
  };
  command.add_option("--unit", context.unit, "Length unit of the model, written into every output")
      ->check(isName)
      ->capture_default_str()
      ->type_name("UNIT");
}

void applyThreads(const Context& context) {
  if (context.threads > 0) omp_set_num_threads(context.threads);
}

int workerCount(const Context& context) {
  return context.threads > 0 ? context.threads : omp_get_max_threads();
}

CLI::Option* addNumberOption(CLI::App& command, const std::string& names,
                             std::optional<double>& value, const std::string& description,
                             const NumberRule& rule) {
  const auto read = [&value, names, rule](const std::string& text) {
    value = io::parseNumber(text);
    if (!value) throw CLI::ValidationError(names, "'" + text + "' is not a number");
    if (rule.isRight != nullptr && !rule.isRight(*value)) {
      throw CLI::ValidationError(names, rule.complaint);
    }
  };
  return command.add_option_function<std::string>(names, read, description)->type_name("NUMBER");
}

}  // namespace planex::tools
