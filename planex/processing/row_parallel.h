#pragma once

#include <cstdint>
#include <type_traits>

namespace datafusion::threading_helpers {

/// @return the number of threads of a parallel region with the default team
int getThreadCount();

/// For tests: regions may use more than one thread from this many pixels a thread on. The default
/// keeps small calls on the calling thread, where waking a team costs more than the work.
void setMinimumPixelsPerThread(std::int64_t pixels);
constexpr std::int64_t kDefaultMinimumPixelsPerThread = 32768;

/// Calls body(context, first, last) for contiguous blocks that cover the rows [rowBegin, rowEnd),
/// each block on one thread of a team of min(default team, ThreadLimit, rows, work / minimum)
/// threads. With n rows, T threads, q = n / T and m = n - q T, thread k < m takes q + 1 rows from
/// k (q + 1) on, the others q rows from m + k q on. Each block runs in the default floating-point
/// environment. Returns when all blocks are done.
///
/// Inside another parallel region, and in a process forked from one with several threads, the
/// calling thread does all rows alone. An exception from a body is rethrown here after the team has
/// joined: the first one caught.
void runRowBlocks(int rowBegin, int rowEnd, std::int64_t pixelsPerRow,
                  void (*body)(void* context, int first, int last), void* context);

/// @return how many blocks runRowBlocks makes of the rows at most, when it is called next on this
///         thread; at least 1
int maximumRowBlocks(int rowBegin, int rowEnd, std::int64_t pixelsPerRow);

/// runRowBlocks for a callable body(first, last).
template <typename Body>
void forEachRowBlock(int rowBegin, int rowEnd, std::int64_t pixelsPerRow, Body&& body) {
  using Callable = std::remove_reference_t<Body>;
  runRowBlocks(
      rowBegin, rowEnd, pixelsPerRow,
      [](void* context, int first, int last) { (*static_cast<Callable*>(context))(first, last); },
      const_cast<void*>(static_cast<const void*>(&body)));
}

}  // namespace datafusion::threading_helpers
