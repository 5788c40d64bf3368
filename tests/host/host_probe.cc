// A host of the library that loads it at run time. Usage: host_probe MODE LIBRARY
//
//   checksum  prints a checksum of the results of the chain; fails when they differ in a forked
//             child, or when the library has changed a setting of the host's OpenMP runtime
//   reload    loads, uses and closes the library 1000 times; fails when memory grows
//   exit      ends the process while a thread works, 20 times

#include <dlfcn.h>
#include <omp.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cfenv>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "planex/api/planex.h"
#include "tests/support/model_documents.h"

namespace {

constexpr ImageSize kSize = {640, 400};  // enough for several threads
constexpr std::size_t kPixels = std::size_t{640} * 400;

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "host_probe: %s\n", what);
  std::_Exit(1);
}

void* library = nullptr;

void load(const char* path) {
  library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  require(library != nullptr, path);
}

/// A function of the library.
#define CALL(function) reinterpret_cast<decltype(&(function))>(dlsym(library, #function))

std::uint64_t add(std::uint64_t sum, const std::vector<float>& values) {
  for (const float value : values) {
    std::uint32_t bits = 0xFFFFFFFF;  // any NaN
    if (value == value) std::memcpy(&bits, &value, sizeof bits);
    sum = (sum ^ bits) * 1099511628211U;
  }
  return sum;
}

/// Range values to heights.
struct Chain {
  Chain() {
    for (std::size_t i = 0; i < kPixels; ++i) {
      range[i] = static_cast<std::uint16_t>(i % 11 == 0 ? 0 : 500 + i % 640 + i / 640);
    }
    WorldRangeTraits box;
    SplatSettings splat;
    require(CALL(createModelFromJson)(test::kModelDocument.c_str(), &model) &&
                CALL(createCalibrationFilter)(model, kTraits, kSize, PLANEX_PIXEL_FORMAT_MONO16,
                                              &filter) &&
                CALL(calculateCalibrationBounds)(model, kTraits, kSize, &box, &splat) &&
                CALL(createRectificationFilter)(PLANEX_RECTIFICATION_MEAN, box, kSize, 0, nullptr,
                                                splat, -1, &rectification),
            "objects");
  }

  void run() {
    require(CALL(applyCalibration)(filter, range.data(), x.data(), z.data()) &&
                CALL(rectify)(rectification, x.data(), z.data(), nullptr, heights.data(), nullptr),
            "results");
  }

  std::uint64_t checksum() {
    run();
    return add(add(add(14695981039346656037U, x), z), heights);
  }

  void rewriteModel() {
    std::vector<char> text(100000);
    require(CALL(createJsonFromModel)(model, text.data(), text.size()), "to JSON");
    const std::string path = "/tmp/host_probe." + std::to_string(getpid()) + ".json";
    std::ofstream(path) << text.data();
    require(CALL(createModelFromFilePath)(path.c_str(), &model), "from a file");
    std::remove(path.c_str());
    CALL(rangeTraitsToTransform)(WorldRangeTraits{});
  }

  void destroy() {
    require(CALL(destroyRectificationFilter)(&rectification) &&
                CALL(destroyCalibrationFilter)(&filter) && CALL(destroyModel)(&model),
            "destroy");
  }

  static constexpr SensorTraits kTraits = {1, 0, 1.0 / 16, 0, 640, 300};
  std::uint32_t model = 0, filter = 0, rectification = 0;
  std::vector<std::uint16_t> range = std::vector<std::uint16_t>(kPixels);
  std::vector<float> x = std::vector<float>(kPixels), z = x, heights = x;
};

/// What the host has set, or its runtime.
std::vector<int> settings() {
  return {omp_get_max_threads(), omp_get_dynamic(), omp_get_max_active_levels(),
          omp_get_thread_limit()};
}

/// Runs `body` in a forked child, which is ended by a signal if it hangs, and must succeed.
template <typename Body>
void inChild(Body body) {
  const pid_t child = fork();
  require(child >= 0, "fork");
  if (child == 0) {
    alarm(60);
    body();
    std::_Exit(0);
  }
  int status = 0;
  require(waitpid(child, &status, 0) == child && status == 0, "the child");
}

/// On little stack, for a host that traps whatever is rounded.
std::uint64_t checksumOfModestHost() {
  std::uint64_t sum = 0;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 65536);
  require(pthread_setattr_default_np(&attributes) == 0, "stack size");
  std::thread thread([&] {
    feenableexcept(FE_ALL_EXCEPT);
    Chain chain;
    sum = chain.checksum();
    chain.rewriteModel();
    require(fedisableexcept(FE_ALL_EXCEPT) == FE_ALL_EXCEPT, "the traps of the host");
  });
  thread.join();
  return sum;
}

void printChecksum(const char* path) {
  load(path);
  const std::vector<int> before = settings();
  inChild([&] {
#pragma omp parallel num_threads(2)
    usleep(1);  // a team of the host
    inChild([] { Chain().checksum(); });
  });
  const std::uint64_t sum = checksumOfModestHost();
  Chain chain;
  require(chain.checksum() == sum, "other results without traps");
  require(settings() == before, "the settings of the host have changed");
  inChild([&] { require(chain.checksum() == sum, "other results in a child"); });
  require(chain.checksum() == sum, "other results after a fork");
  std::printf("%016llx\n", static_cast<unsigned long long>(sum));
}

long residentKilobytes() {
  long pages = 0;
  std::ifstream statm("/proc/self/statm");
  statm >> pages >> pages;
  return pages * (sysconf(_SC_PAGE_SIZE) / 1024);
}

void reload(const char* path) {
  constexpr long kAllowedKilobytes = 1024;  // a leak of one kilobyte each time would reach it
  const auto use = [path] {
    load(path);
    Chain chain;
    chain.run();
    chain.destroy();
    require(dlclose(library) == 0, "dlclose");
  };
  inChild([&] {
    use();  // forked before there are threads: it can make a team
    struct stat tasks = {};
    require(stat("/proc/self/task", &tasks) == 0, "tasks");
    require(tasks.st_nlink > 3 || omp_get_max_threads() == 1, "a child without a team");
  });
  for (int i = 0; i < 20; ++i) use();
  const long before = residentKilobytes();
  for (int i = 0; i < 1000; ++i) use();
  const long grown = residentKilobytes() - before;
  std::printf("grown by %ld KiB\n", grown);
  require(grown < kAllowedKilobytes, "memory has grown");
}

void exitWhileWorking(const char* path) {
  for (int i = 0; i < 20; ++i) {
    inChild([path, i] {
      load(path);
      static auto* const chain = new Chain;  // stays: the thread works on while the process ends
      std::thread([] {
        for (;;) chain->run();
      }).detach();
      usleep(static_cast<useconds_t>(3000 + 700 * i));
      std::exit(0);
    });
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  require(argc == 3, "usage: host_probe checksum|reload|exit LIBRARY");
  if (std::strcmp(argv[1], "checksum") == 0) printChecksum(argv[2]);
  if (std::strcmp(argv[1], "reload") == 0) reload(argv[2]);
  if (std::strcmp(argv[1], "exit") == 0) exitWhileWorking(argv[2]);
  return 0;
}
