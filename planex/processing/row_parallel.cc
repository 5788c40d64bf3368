#include "planex/processing/row_parallel.h"

#include <omp.h>
#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>

#include "planex/infra/float_environment.h"
#include "planex/processing/thread_limit.h"

namespace datafusion::threading_helpers {
namespace {

std::atomic<std::int64_t> minimumPixelsPerThread{kDefaultMinimumPixelsPerThread};

/// Set in a process that was forked from one with several threads: those of a team, whoever opened
/// it, stayed behind, and the OpenMP runtime would wait for them for ever.
std::atomic<bool> teamLostInFork{false};
std::atomic<bool> forksWithThreads{false};

/// Whether this process has other threads than this one; true where it cannot be told. Neither
/// allocates nor throws: this runs inside fork().
bool hasOtherThreads() {
  struct stat tasks = {};  // a folder with a link from itself, one from above and one per thread
  return stat("/proc/self/task", &tasks) != 0 || tasks.st_nlink != 3;
}

// From loading on: a host may open its own team, and fork, before it ever calls.
[[maybe_unused]] const int kWatchingForks =
    pthread_atfork([] { forksWithThreads = hasOtherThreads(); }, nullptr,
                   [] {
                     if (forksWithThreads) teamLostInFork = true;
                   });

int teamSize(std::int64_t rows, std::int64_t pixelsPerRow) {
  if (omp_in_parallel() != 0 || teamLostInFork.load()) return 1;
  const std::int64_t minimum = std::max<std::int64_t>(minimumPixelsPerThread.load(), 1);
  const std::int64_t byWork = std::max<std::int64_t>(rows * pixelsPerRow / minimum, 1);
  const std::int64_t byCaller = std::min(omp_get_max_threads(), planex::ThreadLimit::Current());
  return static_cast<int>(std::min({byCaller, rows, byWork}));
}

/// Keeps the first exception of a team for the thread that opened it.
class ExceptionCarrier {
 public:
  void capture() noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!first_) first_ = std::current_exception();
  }
  void rethrow() const {
    if (first_) std::rethrow_exception(first_);
  }

 private:
  std::mutex mutex_;
  std::exception_ptr first_;
};

}  // namespace

int getThreadCount() {
  if (teamLostInFork.load()) return 1;
  int count = 1;
#pragma omp parallel
  {
#pragma omp single
    count = omp_get_num_threads();
  }
  return count;
}

int maximumRowBlocks(int rowBegin, int rowEnd, std::int64_t pixelsPerRow) {
  return rowBegin < rowEnd ? teamSize(rowEnd - rowBegin, pixelsPerRow) : 1;
}

void setMinimumPixelsPerThread(std::int64_t pixels) { minimumPixelsPerThread = pixels; }

void runRowBlocks(int rowBegin, int rowEnd, std::int64_t pixelsPerRow,
                  void (*body)(void* context, int first, int last), void* context) {
  if (rowBegin >= rowEnd) return;
  const int rows = rowEnd - rowBegin;
  const int wanted = teamSize(rows, pixelsPerRow);
  if (wanted == 1) {
    const base::DefaultFloatEnvironment environment;
    body(context, rowBegin, rowEnd);
    return;
  }
  ExceptionCarrier failure;
  // The threads stay for the host's own regions: they begin as those that the host makes itself.
  const base::CallersFloatEnvironment callers;
#pragma omp parallel num_threads(wanted)
  {
    const base::DefaultFloatEnvironment environment;
    const int threads = omp_get_num_threads();
    const int thread = omp_get_thread_num();
    const int share = rows / threads;
    const int larger = rows - share * threads;  // so many threads take one row more
    const int first = rowBegin + thread * share + std::min(thread, larger);
    const int last = first + share + (thread < larger ? 1 : 0);
    try {
      if (first < last) body(context, first, last);
    } catch (...) {
      failure.capture();
    }
  }
  failure.rethrow();
}

}  // namespace datafusion::threading_helpers
