#include "planex/io/ordered_work.h"

#include <omp.h>
#include <pthread.h>

#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "planex/io/failure.h"

namespace planex::io {

struct WorkerPool::State {
  std::mutex mutex;
  std::condition_variable wake;
  std::deque<std::function<void()>> tasks;
  bool ends = false;
  std::vector<std::thread> threads;

  void run() {
    omp_set_num_threads(1);  // of the regions that this thread opens
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
      wake.wait(lock, [this] { return ends || !tasks.empty(); });
      if (tasks.empty()) return;
      const std::function<void()> task = std::move(tasks.front());
      tasks.pop_front();
      lock.unlock();
      task();
      lock.lock();
    }
  }

  void end() {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      ends = true;
    }
    wake.notify_all();
    for (std::thread& thread : threads) thread.join();
  }
};

WorkerPool::WorkerPool(int threads) : state_(std::make_unique<State>()) {
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);  // signals go to the threads of the caller
  try {
    state_->threads.reserve(static_cast<std::size_t>(threads));
    for (int i = 0; i < threads; ++i) state_->threads.emplace_back(&State::run, state_.get());
  } catch (const std::exception&) {  // the machine has no more: those that there are do it
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (state_->threads.empty()) {
    throw Failure("no thread can be started; wait until the machine has less to do");
  }
}

WorkerPool::~WorkerPool() { state_->end(); }

int WorkerPool::size() const { return static_cast<int>(state_->threads.size()); }

void WorkerPool::submit(std::function<void()> task) {
  {
    const std::lock_guard<std::mutex> lock(state_->mutex);
    state_->tasks.push_back(std::move(task));
  }
  state_->wake.notify_one();
}

struct OrderedWork::State {
  struct Slot {
    bool done = false;
    std::exception_ptr error;
  };

  WorkerPool* pool;
  std::function<void(int)> work;
  mutable std::mutex mutex;
  std::condition_variable changed;
  std::vector<Slot> slots;
  std::int64_t begun = 0;     // items handed over by the producer
  std::int64_t released = 0;  // items given back by the consumer
  int running = 0;
  bool ended = false, cancelled = false;

  Slot& slotOf(std::int64_t item) { return slots[indexOf(item)]; }
  std::size_t indexOf(std::int64_t item) const {
    return static_cast<std::size_t>(item) % slots.size();
  }
  bool full() const { return begun - released == static_cast<std::int64_t>(slots.size()); }

  void run(std::size_t index) {
    std::exception_ptr error;
    try {
      work(static_cast<int>(index));
    } catch (...) {
      error = std::current_exception();
    }
    const std::lock_guard<std::mutex> lock(mutex);
    slots[index] = {true, error};
    --running;
    changed.notify_all();  // within the lock: behind it this object may be gone
  }
};

OrderedWork::OrderedWork(WorkerPool* pool, int slots, std::function<void(int slot)> work)
    : state_(std::make_unique<State>()) {
  state_->pool = pool;
  state_->work = std::move(work);
  state_->slots.resize(static_cast<std::size_t>(slots));
}

OrderedWork::~OrderedWork() {
  std::unique_lock<std::mutex> lock(state_->mutex);
  state_->changed.wait(lock, [this] { return state_->running == 0; });
}

int OrderedWork::slotsFor(const WorkerPool* pool) { return pool == nullptr ? 1 : pool->size() + 2; }

int OrderedWork::begin() {
  std::unique_lock<std::mutex> lock(state_->mutex);
  state_->changed.wait(lock, [this] { return state_->cancelled || !state_->full(); });
  return state_->cancelled ? -1 : static_cast<int>(state_->indexOf(state_->begun));
}

void OrderedWork::submit() {
  State& state = *state_;
  std::size_t index = 0;
  {
    const std::lock_guard<std::mutex> lock(state.mutex);
    index = state.indexOf(state.begun++);
    state.slots[index] = {};
    ++state.running;
  }
  if (state.pool == nullptr) {
    state.run(index);
  } else {
    try {
      state.pool->submit([&state, index] { state.run(index); });
    } catch (const std::bad_alloc&) {  // no place in the queue: this thread does it
      state.run(index);
    }
  }
}

void OrderedWork::fail(std::exception_ptr error) {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  state_->slotOf(state_->begun++) = {true, std::move(error)};
  state_->ended = true;
  state_->changed.notify_all();
}

void OrderedWork::end() {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  state_->ended = true;
  state_->changed.notify_all();
}

void OrderedWork::cancel() {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  state_->cancelled = true;
  state_->changed.notify_all();
}

bool OrderedWork::isFull() const {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  return state_->full();
}

bool OrderedWork::isEmpty() const {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  return state_->begun == state_->released;
}

int OrderedWork::take() {
  State& state = *state_;
  std::unique_lock<std::mutex> lock(state.mutex);
  state.changed.wait(lock, [&] {
    return state.begun == state.released ? state.ended : state.slotOf(state.released).done;
  });
  if (state.begun == state.released) return -1;
  State::Slot& slot = state.slotOf(state.released);
  if (slot.error) std::rethrow_exception(slot.error);
  return static_cast<int>(state.indexOf(state.released));
}

void OrderedWork::release() {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  ++state_->released;
  state_->changed.notify_all();
}

}  // namespace planex::io
