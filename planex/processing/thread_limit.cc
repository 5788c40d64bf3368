#include "planex/processing/thread_limit.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace datafusion::planex {
namespace {

thread_local int limitOfThisThread = std::numeric_limits<int>::max();

}  // namespace

ThreadLimit::ThreadLimit(int threads)
    : outer_(std::exchange(limitOfThisThread, std::min(limitOfThisThread, std::max(threads, 1)))) {}

ThreadLimit::~ThreadLimit() { limitOfThisThread = outer_; }

int ThreadLimit::Current() { return limitOfThisThread; }

}  // namespace datafusion::planex
