// A host of the library that loads it at run time. Usage: host_probe MODE LIBRARY
//
//   checksum  prints a checksum of the results of the chain; fails when they differ in a forked
//             child, or when the library has changed a setting of the host's OpenMP runtime
//   reload    loads, uses and closes the library 1000 times; fails when memory grows
//   exit      ends the process while a thread works, 20 times

#include <dlfcn.h>
#include <omp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>
#include <vector>

#include "planex/api/planex.h"
#include "tests/support/model_documents.h"

namespace {

constexpr ImageSize kSize = {640, 400};  // enough for several threads
constexpr std::size_t kPixels = std::size_t{640} * 400;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "host_probe: %s\n", what);
  std::_Exit(1);
}

void require(bool condition, const char* what) {
  if (!condition) fail(what);
}

/// The library, open as long as the object lives.
class Library {
 public:
  explicit Library(const char* path) : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) fail(dlerror());
  }
  ~Library() { require(dlclose(handle_) == 0, "dlclose"); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  template <typename Function>
  Function* find(const char* name) const {
    void* const address = dlsym(handle_, name);
    require(address != nullptr, name);
    return reinterpret_cast<Function*>(address);
  }

 private:
  void* handle_;
};

#define CALL(library, function) (library).find<decltype(function)>(#function)

std::uint64_t add(std::uint64_t sum, const std::vector<float>& values) {
  for (const float value : values) {
    std::uint32_t bits = 0xFFFFFFFF;  // any NaN
    if (value == value) std::memcpy(&bits, &value, sizeof bits);
    sum = (sum ^ bits) * 1099511628211U;
  }
  return sum;
}

struct Chain {
  explicit Chain(const Library& opened) : library(opened), range(kPixels), x(kPixels), z(kPixels) {
    for (std::size_t i = 0; i < kPixels; ++i) {
      range[i] = static_cast<std::uint16_t>(i % 11 == 0 ? 0 : 500 + i % 640 + i / 640);
    }
    require(CALL(library, createModelFromJson)(test::kModelDocument.c_str(), &model), "model");
    require(CALL(library, createCalibrationFilter)(model, kTraits, kSize,
                                                   PLANEX_PIXEL_FORMAT_MONO16, &filter),
            "calibration filter");
  }

  void calibrate() {
    require(CALL(library, applyCalibration)(filter, range.data(), x.data(), z.data()), "calibrate");
  }

  std::uint64_t checksum() {
    calibrate();
    WorldRangeTraits box = {};
    SplatSettings splat = {};
    require(CALL(library, calculateCalibrationBounds)(model, kTraits, kSize, &box, &splat),
            "bounds");
    std::vector<float> heights(kPixels);
    std::uint32_t rectification = 0;
    require(CALL(library, createRectificationFilter)(PLANEX_RECTIFICATION_MEAN, box, kSize, 0,
                                                     nullptr, splat, -1, &rectification),
            "rectification filter");
    require(
        CALL(library, rectify)(rectification, x.data(), z.data(), nullptr, heights.data(), nullptr),
        "rectify");
    require(CALL(library, destroyRectificationFilter)(&rectification), "destroy");
    return add(add(add(14695981039346656037U, x), z), heights);
  }

  void destroy() {
    require(CALL(library, destroyCalibrationFilter)(&filter), "destroy filter");
    require(CALL(library, destroyModel)(&model), "destroy model");
  }

  static constexpr SensorTraits kTraits = {1, 0, 1.0 / 16, 0, 640, 300};
  const Library& library;
  std::uint32_t model = 0, filter = 0;
  std::vector<std::uint16_t> range;
  std::vector<float> x, z;
};

struct Settings {
  int threads = omp_get_max_threads();
  int dynamic = omp_get_dynamic();
  int levels = omp_get_max_active_levels();
  int limit = omp_get_thread_limit();

  bool operator==(const Settings& other) const {
    return threads == other.threads && dynamic == other.dynamic && levels == other.levels &&
           limit == other.limit;
  }
};

/// Runs `body` in a forked child, which is ended by a signal if it hangs. @return its exit code
template <typename Body>
int inChild(Body body) {
  const pid_t child = fork();
  require(child >= 0, "fork");
  if (child == 0) {
    alarm(60);
    body();
    std::_Exit(0);
  }
  int status = 0;
  require(waitpid(child, &status, 0) == child, "waitpid");
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void printChecksum(const char* path) {
  const Library library(path);
  const Settings before;
  Chain chain(library);
  const std::uint64_t sum = chain.checksum();
  require(Settings() == before, "the settings of the host have changed");
  require(inChild([&] { require(chain.checksum() == sum, "other results in a child"); }) == 0,
          "the child");
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
    const Library library(path);
    Chain chain(library);
    chain.calibrate();
    chain.destroy();
  };
  for (int i = 0; i < 20; ++i) use();
  const long before = residentKilobytes();
  for (int i = 0; i < 1000; ++i) use();
  const long grown = residentKilobytes() - before;
  std::printf("grown by %ld KiB\n", grown);
  require(grown < kAllowedKilobytes, "memory has grown");
}

void exitWhileWorking(const char* path) {
  for (int i = 0; i < 20; ++i) {
    const int code = inChild([path, i] {
      // Both stay: the thread works on while the process ends.
      static auto* const library = new Library(path);
      static auto* const chain = new Chain(*library);
      std::thread([] {
        for (;;) chain->calibrate();
      }).detach();
      usleep(static_cast<useconds_t>(3000 + 700 * i));
      std::exit(0);
    });
    if (code != 0) std::fprintf(stderr, "code %d\n", code);
    require(code == 0, "exit while a thread works");
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  if (argc != 3) fail("usage: host_probe checksum|reload|exit LIBRARY");
  if (std::strcmp(argv[1], "checksum") == 0) printChecksum(argv[2]);
  if (std::strcmp(argv[1], "reload") == 0) reload(argv[2]);
  if (std::strcmp(argv[1], "exit") == 0) exitWhileWorking(argv[2]);
  return 0;
}
