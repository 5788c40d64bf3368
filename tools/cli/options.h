#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

namespace planex::tools {

/// What the options that several commands share were given.
struct Context {
  bool quiet = false;       ///< --quiet: no progress, no summary
  bool force = false;       ///< --force: outputs may replace files
  int threads = 0;          ///< --threads; 0: as many as the OpenMP runtime wants
  std::string unit = "mm";  ///< --unit: the length unit of models, which carry none themselves
  std::vector<std::string> commandLine;  ///< all of it, as it was given
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

/// How many workers a stream of rows has: --threads, or as many as the OpenMP runtime wants.
int workerCount(const Context& context);

/// What the number of an option must be, and how it is refused; no rule without a test.
struct NumberRule {
  bool (*isRight)(double value) = nullptr;
  const char* complaint = nullptr;
};

/// Adds an option whose value is a number as io::parseNumber() reads it.
CLI::Option* addNumberOption(CLI::App& command, const std::string& names,
                             std::optional<double>& value, const std::string& description,
                             const NumberRule& rule = {});

}  // namespace planex::tools
