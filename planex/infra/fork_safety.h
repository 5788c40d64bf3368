#pragma once

#include <pthread.h>

#include <new>

namespace base {

// A forked child has but the thread that forked: a mutex that another one held stays locked in it
// for ever. So the thread that forks holds all of the library meanwhile, and the child makes them
// anew. Unlocking would not do there: a shared mutex knows its writer by a number that differs in
// the child.

template <typename Mutex>
void makeAnew(Mutex& mutex) {
  new (&mutex) Mutex;
}

/// Registers this for the mutex that kMutex() refers to. Called once, at load.
///
/// @return 0, or an error number, after which a child may find the mutex locked
template <auto kMutex>
int guardAgainstForks() {
  return pthread_atfork([] { kMutex().lock(); }, [] { kMutex().unlock(); },
                        [] { makeAnew(kMutex()); });
}

}  // namespace base
