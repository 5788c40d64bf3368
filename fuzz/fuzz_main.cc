// What the fuzzer calls: the one property that is linked in.

#include "tests/support/instruction_sets.h"
#include "tests/support/property.h"

extern "C" {

/// Runs before the first input. Small images on one thread keep the fuzzer fast and its findings
/// repeatable; a property that compares thread counts asks for more itself.
int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  test::useThreads(1);
  return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::ByteSource source(data, size);
  test::properties().front().check(source);
  return 0;
}
}
