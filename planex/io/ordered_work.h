#pragma once

#include <exception>
#include <functional>
#include <memory>

#include "planex/infra/export.h"

namespace planex::io {

/// Threads that run tasks; between tasks they sleep. A library call that a task makes runs on the
/// thread of the task alone.
class PLANEX_EXPORT WorkerPool {
 public:
  /// Starts as many threads, or fewer where the machine has no more.
  explicit WorkerPool(int threads);
  /// Runs what was submitted before it joins the threads.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  /// The number of threads.
  int size() const;
  /// @param task must not throw, nor wait for other tasks
  void submit(std::function<void()> task);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Work on a stream of items whose results are taken in the order of the items, with a fixed number
/// of items on their way: a ring of slots.
///
///     producer: slot = begin(); fill it; submit()        (or fail() in place of submit())
///     workers:  work(slot)
///     consumer: slot = take(); use it; release()
///
/// Producer and consumer may be one thread, which then takes an item whenever isFull().
class PLANEX_EXPORT OrderedWork {
 public:
  /// @param pool null: the work is done by submit()
  /// @param work may throw: take() throws that for the item
  OrderedWork(WorkerPool* pool, int slots, std::function<void(int slot)> work);
  /// Waits for the work that goes on.
  ~OrderedWork();
  OrderedWork(const OrderedWork&) = delete;
  OrderedWork& operator=(const OrderedWork&) = delete;

  /// @return as many slots as keep the workers busy while others are filled and used
  static int slotsFor(const WorkerPool* pool);

  /// Waits until the next slot is free. @return the slot, or -1 after cancel()
  int begin();
  /// Hands the slot over to the workers.
  void submit();
  /// The item ends the stream: take() throws the error for it.
  void fail(std::exception_ptr error);
  /// Nothing comes any more; take() returns -1 behind the last item.
  void end();
  /// Nothing is wanted any more: begin() returns -1.
  void cancel();

  /// Whether begin() would wait.
  bool isFull() const;
  /// Whether no item is on its way.
  bool isEmpty() const;
  /// Waits for the oldest item. @return its slot, or -1 when there is none after end()
  int take();
  /// Gives the slot of the last take() back.
  void release();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace planex::io
