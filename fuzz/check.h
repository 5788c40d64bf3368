#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process with a message when something that must hold does not: to a fuzzer that is a
/// crash.
#define FUZZ_CHECK(condition)                                                             \
  do {                                                                                    \
    if (!(condition)) {                                                                   \
      std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                       \
    }                                                                                     \
  } while (false)
