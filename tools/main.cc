// planex: camera models, range images and height maps on the command line.
#include <fcntl.h>
#include <planex/io/failure.h>
#include <planex/io/library_warnings.h>
#include <planex/io/output_file.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <string_view>

#include "tools/commands/commands.h"

namespace {

constexpr int kInputError = 1;
constexpr int kUsageError = 2;

bool runs = true;

/// The OpenMP runtime calls exit() where it can make no threads.
extern "C" void tellOfEarlyExit() {
  if (!runs) return;
  std::fputs("planex: ended by the OpenMP runtime; use one thread with OMP_NUM_THREADS=1\n",
             stderr);
  _exit(kInputError);  // other threads may still use what exit() goes on to destroy
}

int complain(const std::string& text, int status) {
  std::fprintf(stderr, "planex: %s\n", planex::io::inOneLine(text).c_str());
  return status;
}

/// What was printed must have arrived: a full disk behind standard output is a failure.
int finish() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return 0;
  return complain("standard output: cannot be written; check the space on the disk", kInputError);
}

/// What is wrong with the command line, and whose help tells more.
std::string usageText(const CLI::App& app, const CLI::ParseError& error) {
  const auto commands = app.get_subcommands();
  if (!commands.empty()) {
    return std::string(error.what()) + "; see planex " + commands.front()->get_name() + " --help";
  }
  return app.remaining().empty() ? "no command is given; see planex --help"
                                 : std::string(error.what()) + "; see planex --help";
}

int run(int argc, char** argv) {
  using namespace planex::tools;
  Context context;
  context.commandLine.assign(argv, argv + argc);
  CLI::App app;
  addCommands(app, context);

  const auto hasName = [&](const CLI::App* command) { return command->get_name() == argv[1]; };
  if (argc > 1 && argv[1][0] != '-' && app.get_subcommands(hasName).empty()) {
    return complain("'" + std::string(argv[1]) + "' is no command; see planex --help", kUsageError);
  }
  // No name is empty; left to the options it would count as not given.
  if (std::any_of(argv + std::min(argc, 1), argv + argc,
                  [](const char* argument) { return *argument == 0; })) {
    return complain("an argument is empty; give a name or a value, or omit it", kUsageError);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& shown) {  // help or version
    app.exit(shown);
  } catch (const CLI::ParseError& error) {
    return complain(usageText(app, error), kUsageError);
  }
  return finish();
}

int runAndTell(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const planex::io::Failure& failure) {
    return complain(failure.what(), kInputError);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    return complain(error.what(), kInputError);
  }
}

/// A file would get the number of a standard stream that is closed, and be taken for it: reading
/// and writing that fail stand in for it.
void occupyStandardStreams() {
  for (const int stream : {0, 1, 2}) {
    if (fcntl(stream, F_GETFD) == -1) open("/dev/null", stream == 0 ? O_WRONLY : O_RDONLY);
  }
}

bool hasBlocks(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  return command == "calibrate" || command == "rectify";
}

}  // namespace

int main(int argc, char** argv) {
  occupyStandardStreams();
  std::atexit(tellOfEarlyExit);  // runs behind the removal of unfinished files
  planex::io::removeUnfinishedFilesOnSignals();
  int status = kInputError;
  try {
    planex::io::collectLibraryWarnings();
    status = runAndTell(argc, argv);
  } catch (const std::bad_alloc&) {  // even telling may have found no memory
    std::fputs(hasBlocks(argc, argv)
                   ? "planex: the memory is used up; process fewer rows at a time with --block\n"
                   : "planex: the memory is used up; allow the command more\n",
               stderr);
  }
  runs = false;
  return status;
}
