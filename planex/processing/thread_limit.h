#pragma once

#include "planex/infra/export.h"

namespace datafusion::planex {

/// Bounds the threads of calibrations, alignments and rectifications that this thread asks for, as
/// long as the object lives. Other threads, and parallel regions of the caller, are not touched.
///
///     const ThreadLimit alone(1);
///     applyCalibration(...);  // on this thread only
///
/// Of limits within each other the smallest counts, so that a library cannot undo what its caller
/// set. No result depends on it. Made and destroyed on one thread, the last one first.
class PLANEX_EXPORT ThreadLimit {
 public:
  /// @param threads the most threads of a call, this one included; below 1 counts as 1
  explicit ThreadLimit(int threads);
  ~ThreadLimit();
  ThreadLimit(const ThreadLimit&) = delete;
  ThreadLimit& operator=(const ThreadLimit&) = delete;

  /// @return the limit on this thread; the largest int where there is none
  static int Current();

 private:
  int outer_;
};

}  // namespace datafusion::planex
